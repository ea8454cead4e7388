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

FIELDS = {0: 0, 1: 0, 2: 1, 3: 2, 4: 1, 5: 2, 6: 2, 7: 2, 8: 2, 9: 2, 10: 3, 11: 1, 12: 1, 13: 1, 14: 1}
BLOCKS = {'byte': 5, 'short': 6, 'int': 7, 'long': 7, 'float': 8, 'double': 9}
MARKS = bytes.fromhex('22116655443300000000')  # of a machine with the lowest byte first


class Record:
    pass


def records(data, at):
    """The records from this offset on."""
    wide, filler = False, 0
    while at < len(data):
        if data[at] == 0 and filler:
            filler, at = filler - 1, at + 1
            wide = filler == 0
            continue
        r = Record()
        r.at, r.tag = at, data[at] & 63
        size = (0, 1, 2, 4)[data[at] >> 6]
        length = int.from_bytes(data[at + 1:at + 1 + size], 'little')
        at += 1 + size
        r.fields = struct.unpack_from('<%dI' % FIELDS[r.tag], data, at)
        isFilled = r.tag in (4, 11, 12, 13, 14)
        at += 4 * FIELDS[r.tag] + (4 if wide and isFilled else 0)
        if r.tag == 2:
            at = data.index(b'\0', at) + 1
        r.payload = data[at:at + length]
        assert len(r.payload) == length
        at += length
        filler = 4 if isFilled and not length and not wide else 0
        yield r


def asBytes(kind, content):
    """Numbers of this machine as they travel: ints with as many zeros behind them."""
    return content + bytes(len(content)) if kind == 'int' else content


class Reader:
    """Reads by the operations that a stream was written by, without knowing its classes."""

    def __init__(self, data):
        writer, floats, rest = data.split(b'\0', 2)
        assert (writer, floats, rest[:10]) == (b'fxBinaryWriter', b'ieee', MARKS)
        self.records = list(records(data, len(data) - len(rest) + 10))
        self.next, self.payload = 0, b''
        self.types, self.blocks, self.objects = set(), {}, set()
        self.awaited, self.expected = set(), []

    def record(self):
        """The next record but those of types, which are noted."""
        assert not self.payload
        while True:
            r = self.records[self.next]
            self.next += 1
            self.payload = r.payload
            if r.tag != 2:
                return r
            self.define(r.fields[0])
            self.types.add(r.fields[0])

    def define(self, number):
        assert number not in self.types and number not in self.blocks and number not in self.objects
        self.awaited.discard(number)

    def take(self, size):
        while len(self.payload) < size:
            kept, self.payload = self.payload, b''
            r = self.record()
            assert r.tag == 0 and r.payload
            self.payload = kept + self.payload
        taken, self.payload = self.payload[:size], self.payload[size:]
        return taken

    def definitions(self):
        """Those that begin here: of objects, whose fields follow, and of contents."""
        while not self.payload and self.next < len(self.records):
            r = self.records[self.next]
            if r.tag not in (2, 5, 6, 7, 8, 9, 10):
                return
            self.next, self.payload = self.next + 1, r.payload
            self.define(r.fields[0])
            if r.tag == 2:
                self.types.add(r.fields[0])
                continue
            if r.tag == 10:
                assert r.fields[1] in self.types
                self.objects.add(r.fields[0])
                return
            self.blocks[r.fields[0]] = r.tag, self.take(r.fields[1])

    def place(self, tags, isThere):
        r = self.record()
        if r.tag == 1:
            assert not isThere
            return None
        number, isKnown = r.fields[0], r.fields[0] in self.blocks or r.fields[0] in self.objects
        assert r.tag in tags and isThere
        assert isKnown or number in self.awaited or r.tag in (3, 11)
        if not isKnown:
            self.awaited.add(number)
        return number

    def operation(self, kind, content):
        if kind in BLOCKS:
            content = asBytes(kind, bytes.fromhex(content))
            while content and not self.payload and self.records[self.next].tag != 0:
                before = self.next
                self.definitions()
                assert self.next > before
            assert self.take(len(content)) == content
            return
        while not self.payload and self.records[self.next].tag == 10:
            self.definitions()
        if kind == 'part':
            r = self.record()
            assert r.tag == 14 and r.fields[0] in self.objects or r.tag == 13
            if r.tag == 13:
                self.define(r.fields[0])
                self.objects.add(r.fields[0])
        elif kind == 'object':
            self.place((11, 12), content != '0')
        else:
            of, _, content = content.partition(' ')
            number = self.place((3, 4), of != '0')
            self.expected.append((number, of, content))

    def run(self, operations):
        for line in operations:
            self.definitions()
            kind, _, content = line.partition(' ')
            self.operation(kind, content)
        while self.next < len(self.records) or self.payload:
            before = self.next
            self.definitions()
            assert self.next > before, 'what no operation has written'
        assert not self.awaited
        for number, kind, content in self.expected:
            if number is not None:
                tag, there = self.blocks[number]
                assert tag == BLOCKS[kind] and there == asBytes(kind, bytes.fromhex(content))


def sameAs(dump, reader):
    theirs = [(r['offset'], r['tag'], r.get('id'), r.get('payload', '')) for r in dump['records']]
    ours = [(r.at, r.tag, r.fields[0] if r.fields else None, r.payload.hex()) for r in reader.records]
    return dump['faults'] == [] and theirs == ours


def readAll(fxdump, saved):
    names = sorted(name for name in os.listdir(saved) if name.endswith('.fx'))
    for name in names:
        path = os.path.join(saved, name)
        try:
            reader = Reader(open(path, 'rb').read())
            reader.run(open(path[:-2] + 'ops').read().splitlines())
            dump = subprocess.run([fxdump, '--json', path], stdout=subprocess.PIPE, check=True)
            assert sameAs(json.loads(dump.stdout), reader)
        except Exception as error:
            sys.exit('%s: %r' % (path, error))
    print('%d saved streams' % len(names))
    assert names


if __name__ == '__main__':
    readAll(*sys.argv[1:])
