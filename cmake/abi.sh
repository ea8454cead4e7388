#!/usr/bin/env bash
# Compares the binary interface of the library with its baseline, or writes that anew.
#   abi.sh check-types|update-types LIBRARY HEADERS BASELINE
#   abi.sh check-symbols|update-symbols LIBRARY PACKAGE VERSION BASELINE
# Types: sizes, layouts, virtual tables, enumerators and signatures, by libabigail, from
# the debug information. Symbols: what a Debian package says about each, by
# dpkg-gensymbols; those that a compiler may emit or not are optional.
# Status 77: the tool or the baseline is missing.
set -euo pipefail
action=$1 library=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/abi.XXXXXX")
trap 'rm -rf "$work"' EXIT

skip() {
    echo "Skipped: $1"
    exit 77
}
need() { command -v "$1" >/dev/null || skip "no $1 (apt-get install $2)"; }
baseline() { [[ -f $1 ]] || skip "no baseline $1 (cmake --build --preset dev --target update_abi)"; }

case $action in
    *-types)
        headers=$3 list=$4
        need abidw abigail-tools
        need xz xz-utils
        [[ $action == update-types ]] || baseline "$list"
        abidw --headers-dir "$headers" --drop-private-types --no-corpus-path \
            --no-comp-dir-path --no-show-locs --out-file "$work/new.xml" "$library"
        if [[ $action == update-types ]]; then
            xz -9c "$work/new.xml" >"$list"
        else
            xz -dc "$list" >"$work/old.xml"
            abidiff --no-added-syms "$work/old.xml" "$work/new.xml"
        fi
        ;;
    *-symbols)
        package=$3 version=$4 list=$5
        need dpkg-gensymbols dpkg-dev
        cd "$work"
        if [[ $action == update-symbols ]]; then
            dpkg-gensymbols -p"$package" -v"$version" -e"$library" -Onew >/dev/null
            nm -D --defined-only --without-symbol-versions "$library" |
                awk '$2 ~ /^[VWu]$/ {print $3}' >weak
            awk 'FNR == NR {weak[$1]; next}
                {name = $1; sub(/@.*/, "", name); print (name in weak ? " (optional)" $1 " " $2 : $0)}' \
                weak new >"$list"
        else
            # A symbol counts as missing only from a later version than its own.
            baseline "$list"
            dpkg-gensymbols -p"$package" -v"$version-1" -I"$list" -e"$library" -Onew -c1 >log ||
                { grep '#MISSING' log || cat log; exit 1; }
        fi
        ;;
esac
