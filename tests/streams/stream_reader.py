"""Reads streams by docs/stream-format.md and nothing else, and prints the objects.

    stream_reader.py STREAM          the objects of the graphs, one line of JSON each
    stream_reader.py STREAM JSON     whether `fxdump --json` says the same of the records
    stream_reader.py --all FXDUMP SAVED SEEDS
                                     whether every stream of two folders is read: those that
                                     tests have SAVED, by the operations noted beside each, and
                                     the SEEDS of a fuzzer, if they are whole
"""
import json
import os
import struct
import subprocess
import sys

FIELDS = {0: 0, 1: 0, 2: 1, 3: 2, 4: 1, 5: 2, 6: 2, 7: 2, 8: 2, 9: 2, 10: 3, 11: 1, 12: 1, 13: 1, 14: 1}
NUMBERS = {'char': 'c', 'bool': 'B', 'short': 'h', 'long': 'q', 'float': 'f', 'double': 'd', 'byte': 'B'}
BLOCKS = {5: 'B', 6: 'h', 7: 'q', 8: 'f', 9: 'd'}
ARRAYS = {'short': 'h', 'int': 'i', 'float': 'f', 'bool': 'B'}

# How the numbers of a machine are put in order, by its marks.
SHORT_ORDERS = {b'\x22\x11': (0, 1), b'\x11\x22': (1, 0)}
LONG_ORDERS = {bytes(b'\x66\x55\x44\x33'[i] for i in order) + bytes(4): order
               for order in ((0, 1, 2, 3), (1, 0, 3, 2), (2, 3, 0, 1), (3, 2, 1, 0))}
SIZES = {'byte': 1, 'short': 2, 'int': 8, 'long': 8, 'float': 4, 'double': 8}

# The fields of the classes of the tests, as a reader must know them.
LISTED = [('number', 'long')]
WORDS = [('dictionary', 'dictionary'), ('set', 'set')]
BOTH = [('', ('part', WORDS)), ('', ('part', [('', ('part', WORDS))]))]
NODE = [('', ('here', LISTED)), ('text', 'str'), ('left', 'pointer'), ('right', 'pointer')]
CLASSES = {
    'Listed': LISTED,
    'Node': NODE,
    'Leaf': [('', ('here', LISTED)), ('owner', 'pointer'), ('weight', 'double')],
    'Rich': [('', ('here', [('', ('part', LISTED)), ('label', 'str')])),  # First
             ('', ('part', [('', ('part', LISTED)), ('own', 'long')])),  # Second
             ('flag', 'bool'), ('small', 'short'), ('row', ('ints', 3)), ('real', 'double'),
             ('ints', ('array', 'int')), ('bools', ('array', 'bool')), ('strings', 'strings'),
             ('set', 'set'), ('dictionary', 'dictionary'),
             ('shorts', ('block', 'h')), ('integers', ('block', 'ints')), ('doubles', ('block', 'd')),
             ('floats', ('block', 'f')), ('text', 'text'), ('same', 'text'), ('other', 'pointer'),
             ('second', 'pointer'), ('any', 'pointer'), ('anything', 'pointer'),
             ('shortArray', 'pointer'), ('stringArray', 'pointer'), ('string', 'pointer'),
             ('many', 'pointers')],
    'Values': [('edition', 'int'), ('inner', ('here', NODE)), ('wide', 'doubles2'), ('byte', 'byte'),
               ('letter', 'short'), ('colour', 'int'), ('far', 'long'),
               ('pair', ('parts', ['string', 'str'])), ('row', ('parts', ['int', 'int'])),
               ('words', ('list', 'string')), ('numbers', ('list', 'double')),
               ('flags', ('list', 'bool')), ('map', ('list', ('parts', ['string', ('list', 'int')]))),
               ('here', ('optional', 'long')), ('gone', ('optional', 'long')), ('only', 'pointer'),
               ('value', ('optional', 'int')), ('null', ('block', 'd'))],
    'fxStr': [('', 'str')],
    'SET': [('', 'set')],
    'DICT': [('', 'dictionary')],
    'Words': WORDS,
    'Both': BOTH,
    'Crate': [('', ('here', LISTED)), ('', ('here', BOTH)), ('other', 'pointer'),
              ('words', 'pointer'), ('label', 'str')],
}


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
        r.name = b''
        if r.tag == 2:
            end = data.index(b'\0', at)
            r.name, at = data[at:end], end + 1
        r.payload = data[at:at + length]
        assert len(r.payload) == length
        at += length
        filler = 4 if isFilled and not length and not wide else 0
        yield r


class Reader:
    def __init__(self, data):
        writer, floats, rest = data.split(b'\0', 2)
        assert (writer, floats) == (b'fxBinaryWriter', b'ieee')
        self.short, self.long = SHORT_ORDERS[rest[:2]], LONG_ORDERS[rest[2:10]]
        self.records = list(records(data, len(data) - len(rest) + 10))
        self.next, self.payload = 0, b''
        self.types, self.blocks, self.objects, self.wanted = {}, {}, {}, {}
        self.awaited = set()

    def record(self):
        """The next record but those of types, which are noted."""
        assert not self.payload
        while True:
            r = self.records[self.next]
            self.next += 1
            self.payload = r.payload
            if r.tag != 2:
                return r
            self.define(r.fields[0], self.types, r.name.decode())

    def define(self, number, table, value):
        assert number not in self.types and number not in self.blocks and number not in self.objects
        self.awaited.discard(number)
        table[number] = value

    def take(self, size):
        while len(self.payload) < size:
            kept, self.payload = self.payload, b''
            r = self.record()
            assert r.tag == 0
            self.payload = kept + self.payload
        taken, self.payload = self.payload[:size], self.payload[size:]
        return taken

    def ordered(self, data, form):
        order = {'h': self.short, 'H': self.short, 'q': self.long, 'i': self.long, 'I': self.long}.get(form)
        if order is None:
            return data
        return b''.join(bytes(data[at + i] for i in order) for at in range(0, len(data), len(order)))

    def number(self, kind):
        form = NUMBERS[kind]
        data = self.take(struct.calcsize('<' + form))
        return struct.unpack('<' + form, self.ordered(data, form))[0]

    def ints(self, count):
        values = list(struct.unpack('<%di' % count, self.ordered(self.take(4 * count), 'i')))
        assert self.take(4 * count) == bytes(4 * count)
        return values

    def place(self, tags):
        r = self.record()
        assert r.tag in tags or r.tag == 1, (r.at, r.tag, tags)
        if r.tag == 1:
            return None
        number = r.fields[0]
        table = self.blocks if r.tag in (3, 4) else self.objects
        if number not in table:
            self.awaited.add(number)
        return number

    def text(self, number):
        return lambda: self.blocks[number].rstrip(b'\0').decode('latin-1')

    def value(self, kind):
        if isinstance(kind, str):
            return self.simple(kind)
        kind, of = kind
        if kind == 'here':
            return self.fields(of)
        if kind == 'part':
            r = self.record()
            number = r.fields[0]
            if r.tag == 14:
                assert number in self.objects
                return {}
            assert r.tag == 13
            self.define(number, self.objects, self.current)
            return self.fields(of)
        if kind == 'ints':
            return self.ints(of)
        if kind == 'array':
            return self.array(lambda n: self.elements(ARRAYS[of], n))
        if kind == 'block':
            count, isThere = self.simple('int'), self.number('bool')
            if not isThere:
                return None
            number = self.place((3, 4))
            form = '<%d%s' % (count, 'i' if of == 'ints' else of)
            return lambda: list(struct.unpack_from(form, self.blocks[number]))
        if kind == 'parts':
            return [self.value(part) for part in of]
        if kind == 'list':
            return [self.value(of) for _ in range(self.simple('int'))]
        assert kind == 'optional'
        return self.value(of) if self.number('bool') else None

    def simple(self, kind):
        if kind in NUMBERS:
            return self.number(kind)
        if kind == 'int':
            return self.ints(1)[0]
        if kind == 'doubles2':
            return self.number('double') + self.number('double')
        if kind == 'str':
            return '' if self.simple('int') == 1 else self.text(self.place((3, 4)))
        if kind == 'string':
            return self.take(self.simple('int')).decode('latin-1')
        if kind == 'text':
            return self.text(self.place((3, 4))) if self.number('bool') else None
        if kind == 'strings':
            return self.array(lambda n: [self.simple('str') for _ in range(n)])
        if kind == 'set':
            return self.entries(lambda: self.simple('str'), 1)
        if kind == 'dictionary':
            return self.entries(lambda: [self.simple('str'), self.simple('str')], 2)
        if kind == 'pointers':
            return [self.simple('pointer') for _ in range(self.simple('int'))]
        assert kind == 'pointer'
        number = self.place((11, 12))
        return None if number is None else lambda: '#%d' % self.objects[number]

    def elements(self, form, count):
        if form == 'i':
            return self.ints(count)
        return list(struct.unpack('<%d%s' % (count, form), self.take(count * self.size)))

    def array(self, elements):
        size, self.size, zero = struct.unpack('<IHH', self.ordered(self.take(8), 'I'))
        again = self.number('short')
        assert zero == 0 and again == self.size
        return elements(size // self.size)

    def entries(self, entry, sizes):
        count, key, key2, value = struct.unpack('<4I', self.ordered(self.take(16), 'I'))
        assert key == key2 == 16 and value == (16 if sizes == 2 else 0)
        if sizes == 2:
            assert self.ints(1) == [16]
        buckets, found = self.ints(1)[0], []
        for _ in range(count):
            found.append(entry())
            assert 0 <= self.ints(1)[0] < buckets
        return found

    def fields(self, known):
        values = {}
        for name, kind in known:
            value = self.value(kind)
            if isinstance(value, dict) and not name:
                values.update(value)
            else:
                values[name] = value
        return values

    def graph(self):
        """The numbers and contents of the objects of the next graph."""
        found = []
        while not found or self.awaited:
            r = self.record()
            if r.tag == 10:
                number, self.current = r.fields[0], r.fields[0]
                name = self.types[r.fields[1]]
                self.define(number, self.objects, number)
                # Which array an ARRAY is, is known to the pointer: here, by the size of an element.
                if name == 'ARRAY':
                    size = self.ordered(self.payload[4:6], 'h')[0]
                    kind = 'strings' if size == 16 else ('array', 'int' if size == 4 else 'short')
                    found.append((number, name, {'': self.value(kind)}))
                else:
                    found.append((number, name, self.fields(CLASSES[name])))
            else:
                assert found and r.tag in BLOCKS
                number, size = r.fields
                self.define(number, self.blocks, self.take(size))
            assert not self.payload
        return found


class NotedReader(Reader):
    """Reads by the operations that a stream was written by, without knowing its classes."""

    def definitions(self):
        """Those that begin here: of objects, whose fields follow, and of contents."""
        while not self.payload and self.next < len(self.records) and self.records[self.next].tag in (2, 5, 6, 7, 8, 9, 10):
            if self.records[self.next].tag == 2:
                r = self.records[self.next]
                self.define(r.fields[0], self.types, r.name.decode())
                self.next += 1
                continue
            r = self.record()
            if r.tag == 10:
                assert r.fields[1] in self.types
                self.define(r.fields[0], self.objects, r.fields[0])
                return
            self.define(r.fields[0], self.blocks, self.take(r.fields[1]))

    def run(self, operations):
        for line in operations:
            kind, _, count = line.partition(' ')
            self.definitions()
            while kind not in SIZES and not self.payload and self.records[self.next].tag == 10:
                self.definitions()
            if kind in SIZES:
                self.sized(SIZES[kind] * int(count))
            elif kind == 'part':
                r = self.record()
                assert r.tag == 14 and r.fields[0] in self.objects or r.tag == 13
                if r.tag == 13:
                    self.define(r.fields[0], self.objects, r.fields[0])
            else:
                self.place((3, 4) if kind == 'block' else (11, 12))
        while self.next < len(self.records) or self.payload:
            before = self.next
            self.definitions()
            assert self.next > before, 'what no operation has written'
        assert not self.awaited

    def sized(self, size):
        """Bytes of the fields, perhaps behind objects that have none."""
        while size and not self.payload and self.records[self.next].tag != 0:
            before = self.next
            self.definitions()
            assert self.next > before
        self.take(size)


def readAll(fxdump, saved, seeds):
    names = sorted(name for name in os.listdir(saved) if name.endswith('.fx'))
    for name in names:
        path = os.path.join(saved, name)
        try:
            NotedReader(open(path, 'rb').read()).run(open(path[:-2] + 'ops').read().splitlines())
        except Exception as error:
            sys.exit('%s: %r' % (path, error))
    whole = 0
    for name in sorted(os.listdir(seeds)):
        data = open(os.path.join(seeds, name), 'rb').read()
        check = subprocess.run([fxdump, '--check', '-'], input=data[1:], stdout=subprocess.PIPE)
        if check.returncode == 0 and not name.startswith('found'):
            whole += len(contents(data[1:])) > 0
    print('%d saved streams and %d seeds' % (len(names), whole))
    assert names and whole


def settled(value):
    if callable(value):
        return value()
    if isinstance(value, dict):
        return {key: settled(each) for key, each in value.items()}
    return [settled(each) for each in value] if isinstance(value, list) else value


def contents(data):
    reader = Reader(data)
    lines = []
    while reader.next < len(reader.records):
        for number, name, fields in reader.graph():
            lines.append('#%d %s %s' % (number, name, json.dumps(settled(fields))))
    return lines


def printed(data):
    print('\n'.join(contents(data)))


def compared(data, path):
    dump = json.load(open(path))
    assert dump['faults'] == [], dump['faults']
    theirs = [(r['offset'], r['tag'], r.get('id'), r.get('payload', '')) for r in dump['records']]
    ours = [(r.at, r.tag, r.fields[0] if r.fields else None, r.payload.hex()) for r in Reader(data).records]
    assert theirs == ours
    print('the same %d records' % len(ours))


if __name__ == '__main__':
    if sys.argv[1] == '--all':
        sys.exit(readAll(*sys.argv[2:]))
    stream = open(sys.argv[1], 'rb').read()
    compared(stream, sys.argv[2]) if len(sys.argv) > 2 else printed(stream)
