#!/bin/sh
# run.sh GDB PROGRAM TABLE LIBRARY_DIRECTORY: lets PROGRAM abort, and compares
# what gdb shows of its core with TABLE (see Compare.py). Sound local variables
# must not be shown as corrupt, in twenty runs.
#
# The core is written by gdb, not by the kernel: where the kernel puts a core,
# and whether it writes one, is the machine's business. It is as real a core:
# the second gdb knows nothing else.
gdb=$1 program=$2 table=$3 library=$4
here=$(dirname "$0")
directory=$(mktemp -d) || exit 1
trap 'rm -rf "$directory"' EXIT
core=$directory/core
: >"$directory/gdbinit"

debugger() {
    HOME=$directory "$gdb" -nx -batch -iex 'set debuginfod enabled off' \
        -iex "add-auto-load-safe-path $library" "$@" </dev/null 2>&1
}

if ! command -v "$gdb" >/dev/null; then
    echo 'skipped: there is no gdb'
    exit 77
fi
made=$(debugger -iex 'set auto-load python-scripts off' -ex run \
    -ex "generate-core-file $core" "$program")
if [ ! -s "$core" ]; then
    printf '%s\n' "$made"
    case $made in
        *ptrace:*|*'Could not trace'*)
            echo 'skipped: programs may not be traced here'
            exit 77 ;;
    esac
    exit 1
fi
# A printer that gives gdb a value which Python frees fails in some runs only.
for run in $(seq 20); do
    debugger -ex 'frame function showSound' -ex 'info locals' -ex 'bt full -2' "$program" "$core" |
        grep '<corrupt' && exit 1
done
TABLE=$table debugger -ex 'python import gdb' -x "$here/Compare.py" "$program" "$core"
