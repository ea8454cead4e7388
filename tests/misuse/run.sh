#!/usr/bin/env bash
# What cannot work does not compile, and the compiler says why: the tables *.cc
# of this folder are rows of a use that compiles and a misuse that does not:
#
#     #ifdef CharacterAsText
#     // what the compiler must say of the next line, in just these words
#     const fxStr text('a');
#     #else
#     const fxStr text("a");
#     #endif
#
# The words of a deleted function stand behind its declaration, in the same line,
# which both compilers show.
#
# Each table is compiled once with nothing defined, which must succeed, and once
# per row with the row's name defined, which must fail with its sentence.
#   run.sh COMPILER SOURCE-DIRECTORY WORK-DIRECTORY TABLE...
set -euo pipefail
compiler=$1 sources=$2 work=$3
shift 3
export LC_ALL=C  # the compilers' messages, untranslated
rm -rf "$work" && mkdir -p "$work"

flags=(-std=c++17 -Wall -Wextra -I"$sources" -fdiagnostics-color=never -fmessage-length=0)
echo '#include "fxds/fxds.h"' >"$work/all.h"
case $("$compiler" --version) in *clang*) precompiled=$work/all.h.pch ;; *) precompiled=$work/all.h.gch ;; esac
"$compiler" "${flags[@]}" -x c++-header "$work/all.h" -o "$precompiled"

compile() {  # TABLE DEFINITION...
    "$compiler" "${flags[@]}" -fsyntax-only -include "$work/all.h" "${@:2}" "$1" >"$work/messages" 2>&1
}

rows=0 faults=0
fault() {
    printf '%s\n' "$1"
    sed 's/^/    /' "$work/messages"
    faults=$((faults + 1))
}
for table; do
    compile "$table" -Werror || fault "${table##*/}: the right uses do not compile"
    while IFS=$'\t' read -r row sentence; do
        rows=$((rows + 1))
        if compile "$table" -D"$row"; then
            fault "${table##*/}: $row compiles"
        elif ! grep -qF -- "$sentence" "$work/messages"; then
            fault "${table##*/}: $row does not compile, but without the words: $sentence"
        fi
    done < <(sed -n '/^#ifdef /{s///;N;s,\n *\(// \)\?,\t,p}' "$table")
done
echo "$rows misuses, $faults faults"
((rows > 0 && faults == 0))
