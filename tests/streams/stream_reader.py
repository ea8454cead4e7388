"""Reads streams by docs/stream-format.md and nothing else.

    stream_reader.py FXDUMP FOLDER    whether the streams that tests have saved in the folder
                                      hold what was written, by the operations noted beside
                                      each, and whether fxdump shows the same records
"""
import json
import os
import struct
import subprocess
import sys

FIELDS = (0, 0, 1, 2, 1, 2, 2, 2, 2, 2, 3, 1, 1, 1, 1)
SHOWN = {1: '<null>', 3: '<block>', 4: '<block>', 11: '<object>', 12: '<object>', 13: '<part>', 14: '<part>'}
REFERS = {3: 'block', 4: 'block', 11: 'object', 12: 'object', 14: 'object'}
BLOCKS = {'byte': 5, 'short': 6, 'int': 7, 'long': 7, 'float': 8, 'double': 9}
MARKS = bytes.fromhex('22116655443300000000')  # of a machine with the lowest byte first


def records(data, at):
    """The records from this offset on: where, tag, fields and payload of each."""
    wide, filler = False, 0
    while at < len(data):
        if data[at] == 0 and filler:
            filler, at = filler - 1, at + 1
            wide = filler == 0
            continue
        begin, tag = at, data[at] & 63
        size = (0, 1, 2, 4)[data[at] >> 6]
        length = int.from_bytes(data[at + 1:at + 1 + size], 'little')
        at += 1 + size
        fields = struct.unpack_from('<%dI' % FIELDS[tag], data, at)
        isFilled = tag in (4, 11, 12, 13, 14)
        at += 4 * FIELDS[tag] + (4 if wide and isFilled else 0)
        if tag == 2:
            at = data.index(b'\0', at) + 1
        assert at + length <= len(data)
        yield begin, tag, fields, data[at:at + length]
        at += length
        filler = 4 if isFilled and not length and not wide else 0


def held(stream):
    """What the objects of the stream hold, in order, and the blocks that they name."""
    kinds, awaited, blocks, named, shown, lacking = {}, set(), {}, [], '', 0
    for _, tag, fields, payload in stream:
        number = fields[0] if fields else None
        if tag in REFERS:
            if tag in (3, 11):
                assert number not in kinds
                awaited.add(number)
                kinds[number] = REFERS[tag]
            assert kinds[number] == REFERS[tag]
            named += [number] if REFERS[tag] == 'block' else []
        elif tag > 1:
            kind = 'type' if tag == 2 else 'block' if tag < 10 else 'object'
            assert number not in kinds or number in awaited and kinds[number] == kind
            assert tag != 10 or kinds[fields[1]] == 'type'
            awaited.discard(number)
            kinds[number] = kind
        if lacking or 5 <= tag <= 9:
            assert (tag == 0) == (lacking > 0)
            if not lacking:
                block = blocks[number] = [tag, b'']
                lacking = fields[1]
            block[1] += payload
            lacking -= len(payload)
            assert lacking >= 0
        else:
            shown += SHOWN.get(tag, '') + payload.hex()
    assert not awaited and not lacking
    return shown, [blocks[number] for number in named]


def written(operations):
    """The same of what was written: ints travel with as many zeros behind them."""
    named, shown = [], ''
    for line in operations:
        words = line.split()
        kind = words[1] if words[0] == 'block' else words[0]
        numbers = words[-1] if kind in BLOCKS and words[-1] != kind else ''
        numbers += '0' * len(numbers) if kind == 'int' else ''
        if words[-1] == '0' and kind not in BLOCKS:
            shown += SHOWN[1]
        elif words[0] in BLOCKS:
            shown += numbers
        else:
            shown += '<%s>' % words[0]
            named += [[BLOCKS[kind], bytes.fromhex(numbers)]] if words[0] == 'block' else []
    return shown, named


def check(fxdump, path):
    data = open(path, 'rb').read()
    writer, floats, rest = data.split(b'\0', 2)
    assert (writer, floats, rest[:10]) == (b'fxBinaryWriter', b'ieee', MARKS)
    stream = list(records(data, len(data) - len(rest) + 10))
    assert held(stream) == written(open(path[:-2] + 'ops').read().splitlines())
    dump = json.loads(subprocess.run([fxdump, '--json', path], stdout=subprocess.PIPE, check=True).stdout)
    assert dump['faults'] == []
    assert [(r['offset'], r['tag'], r.get('id'), r.get('payload', '')) for r in dump['records']] == [
        (at, tag, fields[0] if fields else None, payload.hex()) for at, tag, fields, payload in stream]


if __name__ == '__main__':
    fxdump, folder = sys.argv[1:]
    names = sorted(name for name in os.listdir(folder) if name.endswith('.fx'))
    for name in names:
        try:
            check(fxdump, os.path.join(folder, name))
        except Exception as error:
            sys.exit('%s: %r' % (name, error))
    print('%d saved streams' % len(names))
    assert names
