"""The structures of the library, without regard to how they are shown."""

import struct

import gdb

from fxds_gdb.memory import (chain, Corrupt, cut_to_limit, data_type_name, read, READING_ERRORS,
                             reference_to, symbol_at, target_of, value_at, WORD, words)


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


def name_of(name):
    """The text of an fxChannelName, which is in place unless its last byte is set."""
    in_place = read(int(name.address), 16)
    if in_place[15] == 0:
        return in_place.split(b"\0")[0].decode("utf-8", "backslashreplace")
    block = gdb.Value(struct.unpack("<Q", in_place[:8])[0])
    return block.cast(gdb.lookup_type("char").pointer()).string("utf-8", "backslashreplace")


def properties_of(obj):
    """The properties of an fxObj, as pointers."""
    if int(obj["properties"]) == 0:
        return iter(())
    listed = target_of(obj["properties"])["properties"]
    count, room = int(listed["count"]), int(listed["room"])
    if count > room:
        raise Corrupt(f"{count} properties in room for {room}")
    type_ = gdb.lookup_type("fxProperty").pointer()
    return (gdb.Value(pointer).cast(type_) for pointer in words(int(listed["items"]), count))


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
    if int(obj["properties"]) != 0:
        sole = target_of(obj["properties"])["sole" + end.capitalize()]
        if int(sole["channel"]) != 0:
            yield name_of(sole["name"]), sole["channel"]
            return
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
    type_ = gdb.lookup_type("fxInputChannel")
    listed = output["links"] if int(output["links"]) != 0 else output["inputs"]
    if int(listed) == 0:
        return
    listed = listed.cast(gdb.lookup_type("fxVoidPtrArray").pointer())
    for pointer in pointers_in(target_of(listed), type_):
        if int(pointer) == 0:
            continue  # a hole among many entries
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
    if int(channel["feeds"]) == 1:  # fxInputChannel::one
        yield channel_place(target_of(channel["onlyOutput"]), "output")
        return
    for pointer in pointers_in(target_of(channel["outputs"]), type_):
        if int(pointer) != 0:
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
