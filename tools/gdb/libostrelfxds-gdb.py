"""gdb pretty-printers for the classes of libostrelfxds.

gdb loads this file with the library (see docs/debugging.md); `source` loads it
by hand. Nothing here calls a function of the program, so that core files can be
looked at, and nothing trusts what it reads: whatever cannot be right is shown
as `<corrupt: why>` in its place.

How it is made: a printer belongs to a family, which is a base class (`fxObj`,
`fxData`) or a template (`fxTypedArray<...>`). FAMILIES maps the names of bases
to printers. A value is first taken for what its vtable says that it is; then
the nearest of its bases that is in FAMILIES decides.
"""

import re
import struct

import gdb
import gdb.printing

WORD = 8
CHUNK_WORDS = 512

# As fxDataTypeName() calls them, by their fxDT_ numbers.
DATA_TYPES = ("void", "bool", "int", "long", "float", "double", "char*", "fxStr", "void*",
              "fxObj*", "fxData*", "fxStrArray")


class Corrupt(Exception):
    """Says what cannot be right about the memory that was read."""


# What reading of unreadable, unmapped or undescribed memory raises.
READING_ERRORS = (gdb.error, Corrupt, OverflowError)


def complaint(error):
    """What is wrong, for a value that cannot be shown."""
    text = str(error)
    if text.startswith(("There is no member", "No type named", "No symbol")):
        return "<no debug information of the library>"
    return f"<corrupt: {text}>"


# Memory.


def read(address, size):
    """The bytes at an address; gdb.MemoryError when they cannot be read."""
    return bytes(gdb.selected_inferior().read_memory(address, size))


def word(address):
    """The 8-byte number at an address."""
    return struct.unpack("=Q", read(address, WORD))[0]


def words(address, count):
    """The `count` numbers at an address, read as they are asked for."""
    while count > 0:
        chunk = min(count, CHUNK_WORDS)
        yield from struct.unpack(f"={chunk}Q", read(address, chunk * WORD))
        address += chunk * WORD
        count -= chunk


def name_at(address):
    """The zero-terminated bytes at an address, which should be a short name."""
    text = b""
    while b"\0" not in text:
        if len(text) > 4096:
            raise Corrupt("a name without end")
        text += read(address + len(text), 16 - (address + len(text)) % 16)
    return text[:text.index(b"\0")]


def value_at(address, type_):
    """What lies at an address.

    When a pointer to a class is dereferenced, gdb looks for the vtable's symbol
    and complains about those that it does not know. It does not when the first
    byte is taken for the class.
    """
    is_class = type_.strip_typedefs().code == gdb.TYPE_CODE_STRUCT
    first = gdb.lookup_type("unsigned char") if is_class else type_
    target = gdb.Value(int(address)).cast(first.pointer()).dereference()
    return target.cast(type_) if is_class else target


def target_of(pointer):
    """What a pointer points to; see value_at()."""
    return value_at(pointer, pointer.type.strip_typedefs().target())


def symbol_at(address):
    """The name of the function or variable that contains an address, or ''."""
    text = gdb.execute(f"info symbol {address:#x}", to_string=True)
    return "" if text.startswith("No symbol") else text


def chain(node, link="next"):
    """The nodes of a chain, from a pointer to the first one on."""
    seen = set()
    while int(node) != 0:
        if int(node) in seen:
            raise Corrupt(f"the chain leads back to {int(node):#x}")
        seen.add(int(node))
        yield node
        node = node[link]


def cut_to_limit(items):
    """The items that `set print elements` allows, and "..." for the rest."""
    limit = gdb.parameter("print elements") or None
    for number, item in enumerate(items):
        if limit is not None and number >= limit:
            yield "..."
            return
        yield item


# Types.


def plain(type_):
    """A type without typedefs and qualifiers."""
    return type_.unqualified().strip_typedefs()


def fields_of(type_):
    """The fields of a class; none for a class that nothing describes."""
    return type_.fields() if type_.code == gdb.TYPE_CODE_STRUCT else []


def lineage(type_):
    """A class and all its bases, the nearest first."""
    level = [plain(type_)]
    while level:
        yield from level
        level = [plain(field.type) for base in level for field in fields_of(base)
                 if field.is_base_class]


def is_a(type_, name):
    """Whether a class is the named one or derives from it. Names decide: each
    source file describes a class anew, and not always in the same words."""
    return any(base.name == name for base in lineage(type_))


def find_type(name):
    """The class of a name, or None when nothing describes it."""
    try:
        return plain(gdb.lookup_type(name))
    except gdb.error:
        return None


demangled = {}


def class_name_at(vptr):
    """The name of the class that a vtable belongs to, from its type_info."""
    match = re.fullmatch(rb"\*?(\w+)", name_at(word(word(vptr - WORD) + WORD)))
    if not match:
        raise Corrupt("it has no vtable")
    mangled = match.group(1).decode()
    if mangled not in demangled:
        full = gdb.execute(f"demangle -- _ZTS{mangled}", to_string=True)
        demangled[mangled] = full.strip().replace("typeinfo name for ", "", 1)
    return demangled[mangled]


def whole(value):
    """An object of a class with a vtable as what it really is, and the name of
    its class, which the program need not describe."""
    static = plain(value.type)
    if value.address is None:
        return value, static.name
    address = int(value.address)
    try:
        vptr = word(address)
        name = class_name_at(vptr)
        top = struct.unpack("=q", read(vptr - 2 * WORD, WORD))[0]
    except READING_ERRORS:
        raise Corrupt("it has no vtable") from None
    real = find_type(name)
    if real is None or real.name == static.name:
        return value, name
    if not is_a(real, static.name):
        raise Corrupt(f"it is a {name} now, not made yet or destroyed")
    return value_at(address + top, real), name


def reference_to(address, class_):
    """How to write down an object at an address: `(Gauge *) 0x5555`."""
    if address == 0:
        return f"({class_} *) 0x0"
    try:
        name = class_name_at(word(address))
    except READING_ERRORS:
        return f"({class_} *) {address:#x} <corrupt>"
    return f"({name} *) {address:#x}"


def data_type_name(number):
    """What a data type is called."""
    number = int(number)
    return DATA_TYPES[number] if number < len(DATA_TYPES) else f"type {number}"


# The structures, without regard to how they are shown.


def array_length(array, item_bytes):
    """The length of an fxArray of elements of this size."""
    used, capacity = int(array["lengthBytes"]), int(array["maxBytes"])
    data, element_size = int(array["data"]), int(array["elementSize"])
    if element_size != item_bytes:
        raise Corrupt(f"elements of {element_size} bytes, not of {item_bytes}")
    if used > capacity or used % item_bytes != 0:
        raise Corrupt(f"{used} bytes of {capacity} in use")
    if used != 0:
        read(data, 1)
    return used // item_bytes


def pointers_in(array, type_):
    """The elements of an array of pointers, as pointers to `type_`."""
    count = array_length(array, WORD)
    for pointer in words(int(array["data"]), count):
        yield gdb.Value(pointer).cast(type_.pointer())


def nodes_in(table, node_class):
    """The nodes of a dictionary or a set, chain by chain."""
    buckets = table["buckets"]
    node_type = gdb.lookup_type(node_class)
    expected = int(table["count"])
    found = 0
    for first in words(int(buckets["data"]), array_length(buckets, WORD)):
        for node in chain(gdb.Value(first).cast(node_type.pointer())):
            found += 1
            if found > expected:
                raise Corrupt(f"more than {expected} entries")
            yield node
    if found != expected:
        raise Corrupt(f"{found} entries, not {expected}")


def entries_in(dictionary, key_type, value_type):
    """The keys and values of a dictionary."""
    key_bytes, value_bytes = int(dictionary["keySize"]), int(dictionary["valueSize"])
    aligned = -(-key_type.sizeof // value_type.alignof) * value_type.alignof
    if key_bytes != aligned or value_bytes != value_type.sizeof:
        raise Corrupt(f"keys of {key_bytes} and values of {value_bytes} bytes")
    for node in nodes_in(dictionary, "fxDictBucket"):
        block = int(node["element"])
        yield value_at(block, key_type), value_at(block + key_bytes, value_type)


def text_of(string):
    """The text of a short fxStr, such as a name, for use in a summary."""
    length = int(string["slength"]) - 1
    if not 0 <= length < 4096:
        raise Corrupt(f"a name of {length} bytes")
    return read(int(string["data"]), length).decode("utf-8", "backslashreplace")


def properties_of(obj):
    """The properties of an fxObj, as pointers."""
    if int(obj["properties"]) == 0:
        return iter(())
    return pointers_in(target_of(obj["properties"]), gdb.lookup_type("fxProperty"))


def property_name(tag):
    """The name of a property's tag."""
    try:
        names = gdb.parse_and_eval("(fxStrArray *) fx_propertyNames")
        string = gdb.lookup_type("fxStr")
        if tag < array_length(names, string.sizeof):
            return text_of(value_at(int(names["data"]) + tag * string.sizeof, string))
    except READING_ERRORS:
        pass
    return f"tag {tag}"


def property_value(prop):
    """What a property holds: a gdb.Value or a text."""
    kind, bits = int(prop["type"]), prop["value"]
    pointed = {6: "char", 7: "fxStr", 8: "void", 10: "fxData"}
    if kind == 1:
        return bits.cast(gdb.lookup_type("bool"))
    if kind == 5:
        return gdb.Value(struct.pack("=Q", int(bits)), gdb.lookup_type("double"))
    if kind == 9:
        return reference_to(int(bits), "fxObj")
    if kind in pointed:
        pointer = bits.cast(gdb.lookup_type(pointed[kind]).pointer())
        return target_of(pointer) if kind in (7, 10) and int(bits) != 0 else pointer
    return bits.cast(gdb.lookup_type("long"))


def channel_table(obj, end):
    """The dictionary that holds an object's channels of an end, "input" or
    "output", or None."""
    for prop in properties_of(obj):
        if int(prop["type"]) == 8 and is_channel_table(prop, end):
            return value_at(prop["value"], gdb.lookup_type("fxVoidPtrDict"))
    return None


def is_channel_table(prop, end):
    """Whether a property is such a table, which its destructor tells."""
    return symbol_at(int(prop["extra"])).startswith(f"fxObj::dt_{end}_dict(")


def channels_of(obj, end):
    """The names and channels of an object, as pointers."""
    table = channel_table(obj, end)
    if table is None:
        return
    pointer = gdb.lookup_type(CHANNEL_CLASSES[end]).pointer()
    void = gdb.lookup_type("void").pointer()
    for name, channel in entries_in(table, gdb.lookup_type("fxStr"), void):
        yield text_of(name), channel.cast(pointer)


CHANNEL_CLASSES = {"input": "fxInputChannel", "output": "fxOutputChannel"}


def channel_place(channel, end):
    """Where a channel is to be found: `level of (Gauge *) 0x5555`."""
    owner, address = channel["owner"], int(channel.address)
    if int(owner) == 0:
        return f"{address:#x} of no object"
    place = reference_to(int(owner), "fxObj")
    if place.endswith("<corrupt>"):
        return f"{address:#x} of {place}"
    name = next((name for name, other in channels_of(target_of(owner), end)
                 if int(other) == address), f"{address:#x}")
    return f"{name} of {place}"


def input_type(channel):
    """The data type of an input, which shares a word with flags at both ends."""
    word_ = int(channel["word"])
    number = (word_ & 0x3FFFFFFF) >> 2
    if number > 0xFFFF:
        raise Corrupt(f"data type {word_ >> 2}")
    return data_type_name(number)


def is_converter(channel):
    """Whether an input is a converter copy, whose closure is the real input."""
    return int(channel["word"]) & 2 != 0


def connections_to(output):
    """What an output leads to, as texts."""
    if int(output["inputs"]) == 0:
        return
    type_ = gdb.lookup_type("fxInputChannel")
    for pointer in pointers_in(target_of(output["inputs"]), type_):
        target, converted = pointer, ""
        if is_converter(pointer):
            target = pointer["closure"].cast(type_.pointer())
            converted = f" as {input_type(target)}"
        yield channel_place(target_of(target), "input") + converted


def connections_from(channel):
    """What feeds an input, as texts."""
    if int(channel["outputs"]) == 0:
        return
    type_ = gdb.lookup_type("fxOutputChannel")
    for pointer in pointers_in(target_of(channel["outputs"]), type_):
        yield channel_place(target_of(pointer), "output")


def in_one_line(type_name, arrow, places):
    """A channel with its connections."""
    line = ", ".join(cut_to_limit(places))
    return f"{type_name} {arrow} {line}" if line else type_name


def held(count):
    """The holders of a counted object; one that dies has the top bit set."""
    count = int(count)
    if count >> 63:
        return ", dying"
    return f", held by {count}" if count else ""


# The printers. summary() and items() may raise any of READING_ERRORS.


class Printer:
    """Shows a value as a summary and its items.

    `value` is the whole object, `base` the part of it that belongs to the
    family, and `name` the name of its class.
    """

    has_vtable = False
    hint = None

    def __init__(self, value, base, name):
        self.value = value
        self.base = base
        self.name = name

    def summary(self):
        """What stands before the items."""
        return self.name

    def items(self):
        """Pairs of a label and a gdb.Value or a text."""
        return iter(())

    def to_string(self):
        """For gdb: the summary, or what is wrong."""
        try:
            return self.summary()
        except READING_ERRORS as error:
            return f"{self.name} {complaint(error)}"

    def children(self):
        """For gdb: the items up to the first one that cannot be read."""
        try:
            self.summary()
        except READING_ERRORS:
            return
        try:
            for label, item in self.items():
                if isinstance(item, gdb.Value):
                    item.fetch_lazy()
                yield label, item
        except READING_ERRORS as error:
            if self.hint == "map":
                yield "", "..."
            yield "...", complaint(error)

    def display_hint(self):
        """For gdb: the shape of the items."""
        return self.hint


class BrokenPrinter(Printer):
    """Shows what has no vtable, or that of another class."""

    def __init__(self, value, error):
        super().__init__(value, value, plain(value.type).name)
        self.error = error

    def summary(self):
        raise self.error


class TextPrinter(Printer):
    """Strings and buffers."""

    hint = "string"

    def extent(self):
        """Pointer and length of the text."""
        length = int(self.base["slength"]) - 1
        if length < 0:
            raise Corrupt("it has no terminator")
        return self.base["data"], length

    def summary(self):
        data, length = self.extent()
        read(int(data), 1)
        return data.lazy_string("", length)

    def children(self):
        return iter(())

    def display_hint(self):
        try:
            self.summary()
            return "string"
        except READING_ERRORS:
            return None


class StackBufferPrinter(TextPrinter):
    """fxStackBuffer: what lies between base and next."""

    def extent(self):
        base, next_, end = (self.base[name] for name in ("base", "next", "end"))
        if not int(base) <= int(next_) <= int(end):
            raise Corrupt("its pointers are out of order")
        return base, int(next_) - int(base)


class ArrayPrinter(Printer):
    """All typed arrays: fxTypedArray<Self, Element, Hooks>."""

    has_vtable = True
    hint = "array"

    def element(self):
        """The type of the elements; those of fxBoolArray are bytes."""
        type_ = self.base.type.template_argument(1)
        is_bool = self.base.type.name.startswith("fxTypedArray<fxBoolArray,")
        return gdb.lookup_type("bool") if is_bool else type_

    def summary(self):
        return f"{self.name} of {array_length(self.base, self.element().sizeof)}"

    def items(self):
        first = self.base["data"].cast(self.element().pointer())
        for index in range(array_length(self.base, self.element().sizeof)):
            yield f"[{index}]", first[index]


class RawArrayPrinter(Printer):
    """fxArray itself, which knows only the size of its elements."""

    has_vtable = True

    def summary(self):
        size = int(self.base["elementSize"])
        if size == 0:
            raise Corrupt("elements of 0 bytes")
        return f"{self.name} of {array_length(self.base, size)} elements of {size} bytes"


class DictionaryPrinter(Printer):
    """All typed dictionaries: fxTypedDictionary<Key, Value>."""

    has_vtable = True
    hint = "map"

    def types(self):
        """The types of keys and values."""
        return (self.base.type.template_argument(index) for index in (0, 1))

    def summary(self):
        array_length(self.base["buckets"], WORD)
        return f"{self.name} of {int(self.base['count'])}"

    def items(self):
        for number, (key, value) in enumerate(entries_in(self.base, *self.types())):
            yield f"key {number}", key
            yield f"value {number}", value


class RawDictionaryPrinter(DictionaryPrinter):
    """fxDictionary itself: shows the bytes of keys and values."""

    def types(self):
        byte = gdb.lookup_type("unsigned char")
        for field in ("keySize", "valueSize"):
            size = int(self.base[field])
            if not 0 < size <= 65536:
                raise Corrupt(f"{field} is {size}")
            yield byte.array(size - 1)


class SetPrinter(Printer):
    """All typed sets: fxTypedSet<Key>."""

    has_vtable = True
    hint = "array"

    def key(self):
        """The type of the keys."""
        return self.base.type.template_argument(0)

    def summary(self):
        array_length(self.base["buckets"], WORD)
        return f"{self.name} of {int(self.base['count'])}"

    def items(self):
        key = self.key()
        if int(self.base["keySize"]) != key.sizeof:
            raise Corrupt(f"keys of {int(self.base['keySize'])} bytes")
        for number, node in enumerate(nodes_in(self.base, "fxSetBucket")):
            yield f"[{number}]", value_at(int(node["element"]), key)


class RawSetPrinter(SetPrinter):
    """fxSet itself: shows the bytes of the keys."""

    def key(self):
        size = int(self.base["keySize"])
        if not 0 < size <= 65536:
            raise Corrupt(f"keySize is {size}")
        return gdb.lookup_type("unsigned char").array(size - 1)


class IterPrinter(Printer):
    """Iterators over sets: fxTypedSetIter<Key>."""

    def summary(self):
        if int(self.base["node"]) == 0:
            return f"{self.name} at the end"
        removed = ", its own was removed" if int(self.base["moved"]) else ""
        return f"{self.name} in chain {int(self.base['bucketIndex'])}{removed}"

    def items(self):
        if int(self.base["node"]) != 0 and int(self.base["moved"]) == 0:
            block = int(self.base["node"]["element"])
            for name, type_ in zip(("key", "value"), self.types()):
                yield name, value_at(block, type_)
                block += type_.sizeof

    def types(self):
        """The types of what is in an entry's block."""
        yield self.base.type.template_argument(0)


class DictIterPrinter(IterPrinter):
    """Iterators over dictionaries: fxTypedDictIter<Key, Value>."""

    def types(self):
        yield self.base.type.template_argument(0)
        yield self.base.type.template_argument(1)


class ListPrinter(Printer):
    """Linked lists with a head and a count."""

    hint = "array"

    def count(self):
        """The number of nodes that the list is said to have."""
        count = int(self.base["count"])
        if count < 0:
            raise Corrupt(f"{count} nodes")
        return count

    def item(self, node):
        """What is shown of a node."""
        return node

    def summary(self):
        return f"{self.name} of {self.count()}"

    def items(self):
        found = 0
        for node in chain(self.base["head"]):
            yield f"[{found}]", self.item(node)
            found += 1
        if found != self.count():
            raise Corrupt(f"{found} nodes, not {self.count()}")


class GenericListPrinter(ListPrinter):
    """GenericList: the items of its nodes."""

    def item(self, node):
        return node["item"]


class EventQueuePrinter(ListPrinter):
    """fxEventQueue: the events in the order of delivery."""

    def item(self, node):
        return target_of(node)


class HashTablePrinter(Printer):
    """HashTable. Its count is of all additions, so the entries are not told."""

    hint = "map"

    def summary(self):
        size = int(self.base["size"])
        if not 0 < size <= 1 << 16:
            raise Corrupt(f"{size} buckets")
        read(int(self.base["buckets"]), size * WORD)
        return f"{self.name} with {size} buckets"

    def items(self):
        entry = gdb.lookup_type("HashEntry").pointer()
        for first in words(int(self.base["buckets"]), int(self.base["size"])):
            for node in chain(gdb.Value(first).cast(entry)):
                yield "key", node["key"]
                yield "value", node["value"]


class NameSpacePrinter(Printer):
    """NameSpace: atoms and names."""

    # The nodes are private to the source file: two links, the atom and the
    # hash come before the name and its length.
    NAME = 4 * WORD
    LENGTH = 5 * WORD

    def summary(self):
        last, capacity = int(self.base["lastAtom"]), int(self.base["capacity"])
        if last != 0 and last >= capacity:
            raise Corrupt(f"atom {last} in a table of {capacity}")
        frozen = ", frozen" if int(self.base["frozen"]) else ""
        return f"{self.name} up to atom {last}{frozen}"

    def items(self):
        char = gdb.lookup_type("char").pointer()
        count = int(self.base["lastAtom"]) + 1 if int(self.base["table"]) else 0
        for atom, node in enumerate(words(int(self.base["table"]), count)):
            if node != 0:
                length = struct.unpack("=I", read(node + self.LENGTH, 4))[0]
                name = gdb.Value(word(node + self.NAME)).cast(char)
                yield f"[{atom}]", name.lazy_string("", length)


class FieldsPrinter(Printer):
    """A root class of which only what is derived from it is shown as it is."""

    has_vtable = True

    def own_fields(self, value):
        """The fields of a part of the object, without those of the root."""
        root = self.base.type.name
        for field in fields_of(plain(value.type)):
            if field.is_base_class:
                base = plain(field.type)
                if base.name == root:
                    continue
                if is_a(base, root):
                    yield from self.own_fields(value[field])
                else:
                    yield f"<{base.name}>", value[field]
            elif hasattr(field, "bitpos") and not (field.name or "").startswith("_vptr"):
                yield field.name or "<anonymous>", value[field]

    def items(self):
        return self.own_fields(self.value)


class DataPrinter(FieldsPrinter):
    """Boxed values."""

    def summary(self):
        type_ = data_type_name(self.base["type"])
        return f"{self.name} ({type_}{held(self.base['count'])})"


class ObjPrinter(FieldsPrinter):
    """Objects: channels with their connections, properties, fields."""

    def summary(self):
        return self.name + held(self.base["refCount"])

    def items(self):
        for name, channel in channels_of(self.base, "input"):
            line = in_one_line(input_type(channel), "<-", connections_from(target_of(channel)))
            yield f"input {name}", line
        for name, channel in channels_of(self.base, "output"):
            type_ = data_type_name(channel["type"])
            yield f"output {name}", in_one_line(type_, "->", connections_to(target_of(channel)))
        for prop in properties_of(self.base):
            if not any(is_channel_table(prop, end) for end in CHANNEL_CLASSES):
                yield f"property {property_name(int(prop['tag']))}", property_value(prop)
        yield from self.own_fields(self.value)


class EventPrinter(ObjPrinter):
    """Events: their place in the order, and where a message goes."""

    def summary(self):
        summary = f"{self.name} {int(self.base['sequence'])}"
        if self.name != "fxMessageEvent":
            return f"{summary} of type {int(self.base['type'])}"
        return f"{summary} to {self.target()}"

    def target(self):
        """The input that the message is for."""
        channel = self.value["channel"]
        if is_converter(channel):
            channel = channel["closure"].cast(channel.type)
        return channel_place(target_of(channel), "input")

    def items(self):
        for label, item in super().items():
            if label == "data" and self.name == "fxMessageEvent":
                item = target_of(item)
            if (label, self.name) != ("channel", "fxMessageEvent"):
                yield label, item

    def own_fields(self, value):
        # The event's own links and numbers say nothing more.
        if plain(value.type).name != self.base.type.name:
            yield from super().own_fields(value)


class PropertyPrinter(Printer):
    """Properties on their own."""

    has_vtable = True

    def summary(self):
        name = property_name(int(self.base["tag"]))
        return f"{self.name} {name} ({data_type_name(self.base['type'])})"

    def items(self):
        yield "value", property_value(self.base)


class InputPrinter(Printer):
    """fxInputChannel and fxConverter."""

    def summary(self):
        flags = int(self.base["word"])
        replacing = ", replacing" if flags & 1 else ""
        if is_converter(self.base):
            return f"{self.name} (converter from {input_type(self.base)}{replacing})"
        place = channel_place(self.base, "input")
        return f"{self.name} {place} ({input_type(self.base)}{replacing})"

    def items(self):
        if is_converter(self.base):
            if int(self.base["closure"]) != 0:
                target = self.base["closure"].cast(self.base.type.pointer())
                yield "to", channel_place(target_of(target), "input")
        for place in connections_from(self.base):
            yield "from", place
        for field in ("function", "closure", "queued", "refCount"):
            yield field, self.base[field]


class OutputPrinter(Printer):
    """fxOutputChannel."""

    def summary(self):
        type_ = data_type_name(self.base["type"])
        return f"{self.name} {channel_place(self.base, 'output')} ({type_})"

    def items(self):
        for place in connections_to(self.base):
            yield "to", place


class TypedOutputPrinter(Printer):
    """fxOutput<T> and fxOutputView<T>: an output by its type."""

    def summary(self):
        channel = self.base["channel"]
        place = channel_place(target_of(channel), "output") if int(channel) else "of nothing"
        return f"{self.name} {place}"


class TypeObjPrinter(Printer):
    """Type records."""

    def summary(self):
        return f"{self.name} {self.shown_name(self.base)} version {int(self.base['version'])}"

    @staticmethod
    def shown_name(record):
        """The name of a record."""
        return name_at(int(record["name"])).decode("utf-8", "backslashreplace")

    def items(self):
        for field in ("newInstance", "deleteInstance", "xdr"):
            yield field, self.base[field]
        names = [self.shown_name(base) for base in self.bases()]
        if names:
            yield "bases", ", ".join(names)

    def bases(self):
        """The records of the bases, as pointers, up to the final null."""
        bases = self.base["bases"]
        for index in range(64 if int(bases) != 0 else 0):
            if int(bases[index]) == 0:
                return
            yield bases[index]


class RPtrPrinter(Printer):
    """RPtr<T>."""

    def summary(self):
        pointer = self.base["pointer"]
        return f"{self.name} (count {int(pointer['count'])})" if int(pointer) else self.name

    def items(self):
        yield "get()", self.base["pointer"].cast(self.base.type.template_argument(0).pointer())


# Regular expressions of the family's names.
FAMILIES = (
    ("fxStr", "fxStr|fxTempStr", TextPrinter),
    ("fxStackBuffer", "fxStackBuffer", StackBufferPrinter),
    ("fxTypedArray", "fxTypedArray<.*>", ArrayPrinter),
    ("fxArray", "fxArray", RawArrayPrinter),
    ("fxTypedDictionary", "fxTypedDictionary<.*>", DictionaryPrinter),
    ("fxDictionary", "fxDictionary", RawDictionaryPrinter),
    ("fxTypedSet", "fxTypedSet<.*>", SetPrinter),
    ("fxSet", "fxSet", RawSetPrinter),
    ("fxTypedSetIter", "fxTypedSetIter<.*>", IterPrinter),
    ("fxTypedDictIter", "fxTypedDictIter<.*>", DictIterPrinter),
    ("GenericList", "GenericList", GenericListPrinter),
    ("fxIndexableList", "fxIndexableList", ListPrinter),
    ("HashTable", "HashTable", HashTablePrinter),
    ("NameSpace", "NameSpace", NameSpacePrinter),
    ("fxData", "fxData", DataPrinter),
    ("fxProperty", "fxProperty", PropertyPrinter),
    ("fxEvent", "fxEvent", EventPrinter),
    ("fxObj", "fxObj", ObjPrinter),
    ("fxEventQueue", "fxEventQueue", EventQueuePrinter),
    ("fxInputChannel", "fxInputChannel", InputPrinter),
    ("fxOutputChannel", "fxOutputChannel", OutputPrinter),
    ("fxOutput", "fxOutput(View)?<.*>", TypedOutputPrinter),
    ("fxTypeObj", "fxTypeObj", TypeObjPrinter),
    ("RPtr", "RPtr<.*>", RPtrPrinter),
)


class Collection(gdb.printing.RegexpCollectionPrettyPrinter):
    """Finds printers by the bases of a class, where its base finds them by name."""

    def __init__(self):
        super().__init__("ostrelfxds")
        for name, expression, printer in FAMILIES:
            self.add_printer(name, f"^({expression})$", printer)

    def family(self, type_):
        """The printer of the nearest base that has one, and that base."""
        for base in lineage(type_):
            for printer in self.subprinters if base.name else ():
                if printer.enabled and printer.compiled_re.search(base.name):
                    return printer.gen_printer, base
        return None, None

    def __call__(self, value):
        type_ = plain(value.type)
        if type_.code != gdb.TYPE_CODE_STRUCT or value.is_optimized_out:
            return None
        printer, base = self.family(type_)
        if printer is None:
            return None
        name = type_.name
        if printer.has_vtable:
            try:
                value, name = whole(value)
            except Corrupt as error:
                return BrokenPrinter(value, error)
            printer, base = self.family(value.type)
        return printer(value, value.cast(base), name)


gdb.printing.register_pretty_printer(gdb.current_objfile(), Collection(), replace=True)
