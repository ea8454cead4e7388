#!/bin/sh
# described.sh GDB LIBRARY OBJECT VARIABLES: every class with virtual functions that
# LIBRARY exports is described for the debugger in OBJECT, which is of
# fxds/library/GdbTypes.cc, and so are VARIABLES.
gdb=$1 library=$2 object=$3
export VARIABLES=$4

if ! command -v "$gdb" >/dev/null; then
    echo 'skipped: there is no gdb'
    exit 77
fi
# Those made from templates are bases of others.
CLASSES=$(nm -DC --defined-only --without-symbol-versions "$library" |
    sed -n 's/.* vtable for \([A-Za-z_]*\)$/\1/p')
export CLASSES
[ -n "$CLASSES" ] || { echo 'no classes were found'; exit 1; }
exec "$gdb" -nx -batch -iex 'set debuginfod enabled off' -x "$(dirname "$0")/Described.py" "$object"
