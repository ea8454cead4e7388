"""The printers of expressions, patterns and streams; see printers.py."""

from fxds_gdb.memory import Corrupt, read, target_of
from fxds_gdb.printers import Printer
from fxds_gdb.structures import held


class CompiledPrinter(Printer):
    """fxregexp: the last match and its groups."""

    def items(self):
        for group in range(10):
            start, end = self.base["startp"][group], self.base["endp"][group]
            length = int(end) - int(start)
            if int(start) == 0 or int(end) == 0:
                continue
            if length < 0:
                raise Corrupt(f"group {group} ends before it starts")
            read(int(start), 1)
            yield "match" if group == 0 else str(group), start.lazy_string("", length)


class RegExPrinter(CompiledPrinter):
    """fxRegEx: as its compiled form."""

    has_vtable = True

    def summary(self):
        return f"{self.name}{'' if int(self.base['compiled']) else ', not valid'}"

    def items(self):
        compiled = self.base["compiled"]
        if int(compiled) != 0:
            self.base = target_of(compiled)
            yield from super().items()


class ExpressionPrinter(Printer):
    """fxExpression."""

    def items(self):
        yield "source", self.base["source"]
        if int(self.base["message"]) != 0:
            yield "message", self.base["message"]


class MatchPrinter(Printer):
    """fxMatch."""

    def items(self):
        groups = self.base["groups"]
        for group in range(10):
            start, length = (groups[group][field] for field in ("_M_str", "_M_len"))
            if int(start) != 0:
                read(int(start), 1)
                yield "match" if group == 0 else str(group), start.lazy_string("", int(length))


class PatternPrinter(Printer):
    """fxSLinearPattern: the text that it finds."""

    has_vtable = True

    def items(self):
        text = self.base["pattern"]
        if int(text) != 0:
            read(int(text), 1)
            yield "text", text.lazy_string("", int(self.base["patternLength"]))


class StreamPrinter(Printer):
    """fxStdioStream, and what streams have in common."""

    has_vtable = True

    def state(self):
        """What else there is to say, as texts."""
        if int(self.base["file"]) == 0:
            yield "closed"
        if self.base["endFlag"]:
            yield "at its end"

    def summary(self):
        ways = ("read", "write", "read and write")
        way = int(self.base["type"])
        if way >= len(ways):
            raise Corrupt(f"type {way}")
        failed = ["failed"] if self.base["errorFlag"] else []
        state = ", ".join([ways[way], *failed, *self.state()])
        return f"{self.name} ({state}{held(self.base['refCount'])})"


class MemoryStreamPrinter(StreamPrinter):
    """fxMemoryStream."""

    def state(self):
        base, next_, end = (int(self.base[field]) for field in ("base", "next", "end"))
        if not base <= next_ <= end:
            raise Corrupt("its bytes end before they begin")
        yield f"{end - base} bytes, {end - next_} unread"
