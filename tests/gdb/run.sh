#!/bin/sh
# run.sh GDB PROGRAM TABLE LIBRARY_DIRECTORY [FIRST PAGE]: lets PROGRAM abort, and
# compares what gdb shows of its core with TABLE (see Compare.py). Sound local variables
# must not be shown as corrupt, at twenty times. Then what it shows of FIRST, while that
# runs, is compared with the session in PAGE.
#
# The core is written by gdb, not by the kernel: where the kernel puts a core,
# and whether it writes one, is the machine's business. It is as real a core:
# the second gdb knows nothing else.
arguments=$# gdb=$1 program=$2 table=$3 library=$4 first=$5 page=$6
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
# A printer that gives gdb a value which Python frees fails at some of the times only, and
# gdb may end.
for time in $(seq 20); do set -- "$@" -ex 'info locals' -ex 'bt full -2'; done
shift $arguments
shown=$(debugger -ex 'frame function showSound' "$@" "$program" "$core") || exit 1
printf '%s\n' "$shown" | grep '<corrupt' && exit 1
[ "$(printf '%s\n' "$shown" | grep -c '"a record", numbers = ')" = 40 ] || exit 1
TABLE=$table debugger -ex 'python import gdb' -x "$here/Compare.py" "$program" "$core" || exit 1
[ -n "$first" ] || exit 0

# Lines that are wrapped in the page are one.
sed -n '/^    (gdb) print/,/^$/s/^    //p' "$page" |
    sed -e 's/^(gdb) print/p/' -e 's/^(gdb) //' -e 's/^\$[0-9]* = //' \
        -e 's/0x[0-9a-f]\{5,\}\( <[^>]*>\)\{0,1\}/0x#/g' |
    awk '/^  / { printf " %s", substr($0, 3); next } { printf "%s%s", n++ ? "\n" : "", $0 }
        END { print "" }' >"$directory/session"
[ "$(grep -c '^p ' "$directory/session")" = 3 ] || { echo "no session in $page"; exit 1; }
TABLE=$directory/session debugger -ex 'break Printer::print' -ex run -ex 'python import gdb' \
    -x "$here/Compare.py" "$first"
