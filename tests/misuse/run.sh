#!/usr/bin/env bash
# What cannot work does not compile, and the compiler says why: the tables *.cc
# of this folder are rows of misuses, each below what the compiler must say of it:
#
#     // what the compiler must say of the next lines, in just these words
#     MISUSE(CharacterAsText, const fxStr text('a');)
#     MISUSE(CharacterAssigned, text = 'a';)
#
# The words of a deleted function stand behind its declaration, in the same line,
# which both compilers show.
#
# Each table is compiled once with nothing defined, which leaves the right uses
# between the rows and must succeed, and once with all rows, where an error about the
# lines of a row must have its sentence. A row of which that does not show is compiled
# alone, with its name defined, and must fail with its sentence: some errors hide others.
#   run.sh COMPILER SOURCE-DIRECTORY WORK-DIRECTORY TABLE...
set -euo pipefail
compiler=$1 sources=$2 work=$3
shift 3
export LC_ALL=C  # the compilers' messages, untranslated
rm -rf "$work" && mkdir -p "$work"

# Qt takes the names that are defined here.
flags=(-std=c++17 -Wall -Wextra -Dslots= -Dsignals=public -Demit= -I"$sources" -fdiagnostics-color=never -fmessage-length=0)
cat >"$work/all.h" <<'END'
#include "fxds/fxds.h"
// The code of a row whose name is defined, as `~, _now`; other names end in nothing.
#define MISUSE(row, ...) FX_PICK(row, _never, ~)(__VA_ARGS__)
#define FX_PICK(...) FX_CALL(__VA_ARGS__)
#define FX_CALL(first, second, ...) FX_ROW##second
#define FX_ROW_now(...) __VA_ARGS__
#define FX_ROW_never(...)
END
cat >"$work/every.h" <<'END'
#undef MISUSE
#define MISUSE(row, ...) __VA_ARGS__
END
precompiled=$work/all.h.gch
if [[ $("$compiler" --version) == *clang* ]]; then
    precompiled=$work/all.h.pch
    flags+=(-ferror-limit=0)
fi
"$compiler" "${flags[@]}" -x c++-header "$work/all.h" -o "$precompiled"

compile() {  # TABLE DEFINITION...
    "$compiler" "${flags[@]}" -fsyntax-only -include "$work/all.h" "${@:2}" "$1" >"$work/messages" 2>&1
}

# The messages, each as one line, with the notes that follow and the calls that g++ names before.
joined() {
    awk 'error && (/: error: / || /: In [a-z]/ || /required from/) {print message; message = ""; error = 0}
        {message = message " " $0}
        / error: / {error = 1}
        END {if (error) print message}' "$work/messages"
}

# isRefused TABLE LINE SENTENCE: whether an error of every.txt is about the row in this line.
isRefused() {
    local last
    last=$(awk -v row="$2" 'NR > row && /^ *(\/\/|MISUSE)/ {exit} NR >= row {last = NR} END {print last}' "$1")
    grep -E "/${1##*/}:($(seq -s '|' "$2" "$last")):" "$work/every.txt" | grep -qF -- "$3"
}

rows=0 alone=0 faults=0
fault() {
    printf '%s\n' "$1"
    sed 's/^/    /' "$work/messages"
    faults=$((faults + 1))
}
for table; do
    compile "$table" -Werror || fault "${table##*/}: the right uses do not compile"
    ! compile "$table" -include "$work/every.h" || fault "${table##*/}: all misuses compile"
    joined >"$work/every.txt"
    sentence= line=0
    while read -r word rest; do
        line=$((line + 1))
        case $word in
            //) sentence=$rest ;;
            MISUSE*)
                row=${word#MISUSE(} row=${row%,}
                rows=$((rows + 1))
                ! isRefused "$table" $line "$sentence" || continue
                alone=$((alone + 1))
                if compile "$table" "-D$row=~, _now"; then
                    fault "${table##*/}: $row compiles"
                elif ! grep -qF -- "$sentence" "$work/messages"; then
                    fault "${table##*/}: $row does not compile, but without the words: $sentence"
                fi
                ;;
        esac
    done <"$table"
done
echo "$rows misuses, $alone compiled alone, $faults faults"
((rows > 0 && faults == 0))
