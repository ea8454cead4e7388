"""Compares what gdb prints with a table, within gdb and on a core.

A line `p expression` of the table is followed by the output expected, in the frame
of the function that the last line `frame function NAME` names. Addresses are written
0x#, and so is what else stands in for them: `<symbol>` goes.
"""

import os
import re
import traceback

import gdb


def shown(command):
    """What gdb says, without what differs from run to run."""
    try:
        text = gdb.execute(command, to_string=True)
    except gdb.error as error:
        text = str(error)
    text = re.sub(r"^\$\d+ = ", "", text.strip())
    text = re.sub(r"0x[0-9a-f]{5,}", "0x#", text)
    text = re.sub(r"0x# <(?!corrupt).*?>(?=, \w+ = |\}|$)", "0x#", text)
    return text.replace("(anonymous namespace)::", "")


def cases(lines):
    """The commands of the table, each with the output expected, or None."""
    command, expected = None, []
    for line in [*lines, "p end"]:
        if line.startswith(("p ", "frame ")):
            if command is not None:
                yield command, "\n".join(expected).strip()
            command, expected = line, []
        elif not line.startswith("#"):
            expected.append(line)


def main():
    """Shows what differs; the exit status tells whether anything did."""
    gdb.execute("set print elements 20")
    gdb.execute("set width 0")
    failures = 0
    with open(os.environ["TABLE"], encoding="utf-8") as table:
        for command, expected in cases(table.read().splitlines()):
            if command.startswith("frame "):
                gdb.execute(command, to_string=True)
                continue
            text = shown(command)
            if text != expected:
                failures += 1
                print(f"{command}\n  expected:\n{expected}\n  shown:\n{text}\n")
    print(f"{failures} differences")
    gdb.execute(f"quit {1 if failures else 0}")


try:
    main()
except Exception:  # gdb itself would end with 0
    traceback.print_exc()
    gdb.execute("quit 1")
