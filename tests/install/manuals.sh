#!/usr/bin/env bash
# Holds the manual pages against what the programs say: each option of --help is
# described, and no other.
#   manuals.sh FOLDER PROGRAM...
set -euo pipefail
folder=$1
for program in "${@:2}"; do
    page=$folder/$(basename "$program").1
    said=$("$program" --help | sed -En 's/^  (--?[A-Za-z-]+).*/\1/p' | sort)
    described=$(sed -n '/^\.SH OPTIONS/,/^\.SH [^O]/{/^\.TP/{n;p}}' "$page" |
        sed -E 's/^\.[BI]+ //; s/\\-/-/g; s/[\\ ].*//' | sort)
    [[ -n $said ]] && diff <(echo "$said") <(echo "$described") ||
        { echo "$page and --help do not agree"; exit 1; }
done
