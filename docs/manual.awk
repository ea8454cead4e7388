# Filters a header for the manual. What all classes have in common is told here
# once instead of in each header; what has no contract of its own goes: what the
# compiler writes or refuses, copying without a word, storage of small objects.
# A line stays a line, so that messages name the right one.
#
# Doxygen's own means do not do this. Its deleted and defaulted members, and
# destructors, are listed without a word unless HIDE_UNDOC_MEMBERS is set; then it
# warns of no forgotten contract either. Names of operators in EXCLUDE_SYMBOLS take
# contracts of other members with them. It has no words for members that all classes
# have, reads no comment of // as a file's, and a group wants a line in each header.
#
# A class belongs to the group of its room. The file `rooms` has a line for each
# header: its path and its room.

BEGIN {
    while ((getline line < rooms) > 0) {
        split(line, words, " ")
        roomOf[words[1]] = words[2]
    }
}

function room(path) {
    path = FILENAME
    sub(/.*\/fxds\//, "", path)
    sub(/.*\/flow\//, "flow/", path)
    return roomOf[path]
}

function isCopying(line, parts) {  # X(const X&), operator=(const X&), X(X&&)
    if (line ~ /operator=\(/) return line ~ /operator=\((const )?[A-Za-z_]+(<[A-Za-z, ]+>)?&&? ?[a-z]*\)/
    if (!match(line, /[A-Za-z_]+\((const )?[A-Za-z_]+&&? ?[a-z]*\)/)) return 0
    split(substr(line, RSTART, RLENGTH), parts, /\((const )?|&/)
    return parts[1] == parts[2]
}

function common(line) {
    if (line ~ /isEmpty\(\) const/) return "Whether there is nothing in it."
    if (line ~ /(length|size|getCount)\(\) const/) return "Number of elements."
    if (line ~ /[ *](begin|end)\(\)/) return "For range-for, and for algorithms where these are pointers."
    if (line ~ /notDone\(\) const|explicit operator bool\(\) const/) return "Whether there is something here."
    if (line ~ /operator\+\+\(/) return "Goes on to the next."
    if (line ~ /operator\*\(\) const/) return "What is here. Requires: there is something."
    if (line ~ /operator!=\(fxHashEnd\)/) return "For range-for: whether there is something here."
    if (line ~ /static void\* newInstance\(fxTypeObj&/) return "What the type record makes an object with."
    if (line ~ /static void deleteInstance\(void\*/) return "What the type record destroys an object with."
    if (line ~ /static fxBool xdr\(void\*/) return "What the type record transcribes an object with."
    if (line ~ /explicit [A-Za-z]+\(fxTypeObj&/) return "Empty, for xdr() to fill; what the type record makes."
    if (line ~ /getTypeObj\(\) const/) return "The type record of the class."
    if (line ~ /^extern FX_API fxTypeObj [A-Za-z]+_type;/) return "The type record of the class."
    # Inherited words get lost where a base depends on a template's argument.
    if (line ~ / override/ && FILENAME ~ /Typed|Str(Str|Set)|VoidPtrDict|OTDict|Data\.h/) return "As the base class tells."
    return ""
}

# The comment that a header begins with tells what the file is for.
NR == 1 { heading = /^\/\/ / }
heading && /^\/\/ / {
    sub(/^\/\/ /, "")
    printf "%s%s", NR == 1 ? "/** " : "\n", $0
    next
}
heading { heading = 0; printf " @file */\n" }

# So does a comment that stands between empty lines.
/^\/\// && !/^\/\/\// && (block != "" || previous == "") {
    block = block (block == "" ? "" : "\n") $0
    next
}
block != "" {
    if ($0 == "") {
        gsub(/(^|\n)\/\/ ?/, "&\001", block)
        gsub(/\/\/ ?\001/, "", block)
        block = "/** " block " @file */"
    }
    print block
    block = ""
}
{ previous = $0 }

{
    isDocumented = wasComment || /\/\/\/</
    wasComment = /^ *\/\/\/[^@]/
    if (/^ *using [A-Za-z]+::[A-Za-z]+;/) $0 = ""
    if (/ = (delete|default);/ || /operator (new|delete)\(/) $0 = ""
    if (/^ *(virtual )?~[A-Za-z_]+\(\).*[;}]/ && !isDocumented) sub(/[^ ].*/, "")
    if (!isDocumented && isCopying($0) && /;|\}/) sub(/[^ ].*/, "")
    if (!isDocumented && !wasComment && (text = common($0)) != "") {
        match($0, /^ */)
        $0 = substr($0, 1, RLENGTH) "/** " text " */ " substr($0, RLENGTH + 1)
    }
}

# The last line of a comment is kept back until it shows whether it is a class's.
/^\/\/\/ / { print_held(); held = $0; next }
held != "" && /^template </ { behind = behind "\n" $0; next }
held != "" && /^(class|struct) / && room() != "" { held = held " @ingroup " room() }
{ print_held(); print }
END { print_held() }

function print_held() {
    if (held != "") print held behind
    held = behind = ""
}
