"""What memory holds, of which nothing is trusted, and what class it is of."""

import re
import struct

import gdb

WORD = 8
CHUNK_WORDS = 512

# The names of fxDataTypeName(), by their fxDT_ numbers.
DATA_TYPES = ("void", "bool", "int", "long", "float", "double", "char*", "fxStr", "void*",
              "fxObj*", "fxData*", "fxStrArray")


class Corrupt(Exception):
    """Says what cannot be right about the memory that was read."""


# Raised by reading unreadable, unmapped or undescribed memory.
READING_ERRORS = (gdb.error, Corrupt, OverflowError)


def complaint(error):
    """What is wrong, for a value that cannot be shown."""
    text = str(error)
    if text.startswith(("There is no member", "No type named", "No symbol")):
        return "<no debug information of the library>"
    return f"<corrupt: {text}>"


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
