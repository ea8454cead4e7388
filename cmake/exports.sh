#!/usr/bin/env bash
# Compares what a library exports with its list, or writes the list anew; or
# looks in its objects for public functions that lack FX_API.
#   exports.sh check|update LIBRARY LIST
#   exports.sh hidden FOLDER OBJECT...
# The list holds functions and variables that are defined once. What a compiler
# emits in every program that needs it, or not at all, depends on compiler and
# optimisation, and the linking program has its own: templates and inline
# functions (weak), constants within classes, type information, tables and thunks
# of virtual functions. These are left out; exports.map bounds them.
set -euo pipefail

# What several sources share, but programs do not get: the classes, functions and
# namespaces of private headers, and two functions. The classes of elements, whose
# names do not begin with fx, are found by their descriptions alone.
hidden() {
    local folder=$1 found private
    shift
    private=$(find "$folder" -mindepth 2 -name '*.h' -not -path '*/detail/*' -exec cat {} + |
        sed -nE -e 's/^(class|struct|namespace) (FX_LOCAL )?(fx[A-Za-z:]+)( final)?( :.*| \{.*)$/\3::/p' \
            -e 's/^[a-zA-Z].* (fxFlow[A-Za-z]+)\(.*;$/\1[[(]/p' | paste -sd '|')
    private="^($private|fxEnterPropertyName\\(|makeBinaryReader\\()"
    [[ $folder != */flow ]] || private+='|^(f[^x]|[^f])'
    found=$(readelf -sW "$@" | awk '$5 == "GLOBAL" && $6 == "HIDDEN" && $7 != "UND" {print $8}' |
        sort -u | c++filt | grep -Ev "$private") || return 0
    echo 'Neither marked FX_API nor of a class in a private header:'
    echo "$found"
    exit 1
}

if [[ $1 == hidden ]]; then
    hidden "${@:2}"
    exit
fi
action=$1 library=$2 list=$3

exported() {
    nm -DC --defined-only --without-symbol-versions "$library" |
        awk '$2 ~ /^[BDRT]$/ {
            kind = $2
            sub(/^[0-9a-f]+ . /, "")
            if (kind == "R" && /::/) next
            if (/^(typeinfo|vtable|VTT|construction vtable|guard variable|(non-)?virtual thunk)/) next
            print
        }' | LC_ALL=C sort -u
}

if [[ $action == update ]]; then
    exported >"$list"
elif ! diff -u "$list" <(exported); then
    echo "$library does not export what $list says (-: missing, +: not listed)."
    echo 'If that is meant: cmake --build --preset dev --target update_exports'
    exit 1
fi
