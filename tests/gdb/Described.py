"""Prints which of CLASSES and of VARIABLES the debugger has no description of."""

import os

import gdb


def is_described(name):
    """Whether there is more than the name; a class with virtual functions has a size."""
    try:
        return gdb.lookup_type(name).sizeof >= 8
    except gdb.error:
        return False


def has_type(variable):
    """Whether the debugger needs no cast to show it."""
    try:
        return "type = " in gdb.execute(f"whatis {variable}", to_string=True)
    except gdb.error:
        return False


missing = [name for name in os.environ["CLASSES"].split() if not is_described(name)]
missing += [name for name in os.environ["VARIABLES"].split() if not has_type(name)]
if missing:
    print("Not described in fxds/library/GdbTypes.cc:", *missing)
gdb.execute(f"quit {1 if missing else 0}")
