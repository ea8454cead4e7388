"""The printers. summary() and items() may raise any of READING_ERRORS."""

import struct

import gdb

from fxds_gdb.memory import (chain, complaint, Corrupt, data_type_name, fields_of, is_a, name_at,
                             plain, read, READING_ERRORS, reference_to, target_of, value_at, WORD,
                             word, words)
from fxds_gdb.structures import (array_length, CHANNEL_CLASSES, channel_place, channels_of,
                                 connections_from, connections_to, entries_in, held, in_one_line,
                                 input_type, is_channel_table, is_converter, nodes_in,
                                 properties_of, property_name, property_value)


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
        # The event's own links and numbers add nothing.
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


class RefPrinter(Printer):
    """fxRef<T>."""

    def summary(self):
        address = int(self.base["pointer"])
        target = self.base.type.template_argument(0)
        return f"{self.name} to {reference_to(address, target)}" if address else self.name
