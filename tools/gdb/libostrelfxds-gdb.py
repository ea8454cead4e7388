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

import os
import sys

import gdb
import gdb.printing

# The rest is in the folder beside this file, which may be a link.
sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))

from fxds_gdb import printers, search_and_streams  # noqa: E402
from fxds_gdb.memory import Corrupt, lineage, plain, whole

# Regular expressions of the family's names.
FAMILIES = (
    ("fxStr", "fxStr|fxTempStr", printers.TextPrinter),
    ("fxStackBuffer", "fxStackBuffer", printers.StackBufferPrinter),
    ("fxTypedArray", "fxTypedArray<.*>", printers.ArrayPrinter),
    ("fxArray", "fxArray", printers.RawArrayPrinter),
    ("fxTypedDictionary", "fxTypedDictionary<.*>", printers.DictionaryPrinter),
    ("fxDictionary", "fxDictionary", printers.RawDictionaryPrinter),
    ("fxTypedSet", "fxTypedSet<.*>", printers.SetPrinter),
    ("fxSet", "fxSet", printers.RawSetPrinter),
    ("fxTypedSetIter", "fxTypedSetIter<.*>", printers.IterPrinter),
    ("fxTypedDictIter", "fxTypedDictIter<.*>", printers.DictIterPrinter),
    ("GenericList", "GenericList", printers.GenericListPrinter),
    ("fxIndexableList", "fxIndexableList", printers.ListPrinter),
    ("HashTable", "HashTable", printers.HashTablePrinter),
    ("NameSpace", "NameSpace", printers.NameSpacePrinter),
    ("fxData", "fxData", printers.DataPrinter),
    ("fxProperty", "fxProperty", printers.PropertyPrinter),
    ("fxEvent", "fxEvent", printers.EventPrinter),
    ("fxObj", "fxObj", printers.ObjPrinter),
    ("fxEventQueue", "fxEventQueue", printers.EventQueuePrinter),
    ("fxInputChannel", "fxInputChannel", printers.InputPrinter),
    ("fxOutputChannel", "fxOutputChannel", printers.OutputPrinter),
    ("fxOutput", "fxOutput(View)?<.*>", printers.TypedOutputPrinter),
    ("fxTypeObj", "fxTypeObj", printers.TypeObjPrinter),
    ("RPtr", "RPtr<.*>", printers.RPtrPrinter),
    ("fxRef", "fxRef<.*>", printers.RefPrinter),
    ("fxregexp", "fxregexp", search_and_streams.CompiledPrinter),
    ("fxRegEx", "fxRegEx", search_and_streams.RegExPrinter),
    ("fxExpression", "fxExpression", search_and_streams.ExpressionPrinter),
    ("fxMatch", "fxMatch", search_and_streams.MatchPrinter),
    ("fxSLinearPattern", "fxSLinearPattern", search_and_streams.PatternPrinter),
    ("fxStdioStream", "fxStdioStream", search_and_streams.StreamPrinter),
    ("fxMemoryStream", "fxMemoryStream", search_and_streams.MemoryStreamPrinter),
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
                return printers.BrokenPrinter(value, error)
            printer, base = self.family(value.type)
        # gdb goes on with a value that is cast to its own type after Python has freed it.
        part = value if base == plain(value.type) else value.cast(base)
        return printer(value, part, name)


gdb.printing.register_pretty_printer(gdb.current_objfile(), Collection(), replace=True)
