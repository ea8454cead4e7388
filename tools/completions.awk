# Makes the completion of a shell from what a program says about its options:
#   PROGRAM --help | awk -v tool=NAME -v shell=bash|zsh|fish -f completions.awk
# An option is in a line such as "  -A N, -B N    lines after, before" or
# "  --color[=WHEN]    when to colour": names with their arguments, then two
# spaces or more, then what it does.

/^  -/ {
    flush()
    head = substr($0, 3)
    if (match(head, /   *[^ ]/)) {
        text = substr(head, RSTART + RLENGTH - 1)
        head = substr(head, 1, RSTART - 1)
    }
    next
}
head != "" && /^       *[^ ]/ { text = text substr($0, match($0, /[^ ]/) - 1) }
!/^  / { flush() }

# Enters the names of the line with the text, of which more lines may have followed.
function flush(names, count, i, name, argument) {
    gsub(/['\[\]:\\]/, "", text)
    sub(/;.*/, "", text)
    count = split(head, names, ", ")
    for (i = 1; i <= count; ++i) {
        name = argument = names[i]
        sub(/[ \[=].*/, "", name)
        argument = substr(names[i], length(name) + 1)
        gsub(/[\[\]= ]|\.\.\./, "", argument)
        if (argument ~ /:/) argument = "DIR"
        add(name, argument, names[i] ~ /\[/, text)
    }
    head = text = ""
}

function add(name, argument, isOptional, text, needed) {
    needed = argument != "" && !isOptional
    if (shell == "bash") {
        words = words (words == "" ? "" : " ") name
    } else if (shell == "zsh") {
        lines = lines sprintf(" \\\n    '%s%s[%s]%s'", name,
            argument == "" ? "" : isOptional ? "=-" : name ~ /^--/ ? "=" : "", text,
            argument == "" ? "" : (isOptional ? "::" : ":") argument ":" (argument ~ /FILE|DIR/ ? "_files" : ""))
    } else {
        lines = lines sprintf("complete -c %s %s %s%s -d '%s'\n", tool,
            name ~ /^--/ ? "-l" : "-s", substr(name, name ~ /^--/ ? 3 : 2), needed ? " -r" : "", text)
    }
}

END {
    flush()
    if (shell == "bash") {
        printf "_%s() {\n    [[ $2 != -* ]] || mapfile -t COMPREPLY < <(compgen -W '%s' -- \"$2\")\n}\n", tool, words
        printf "complete -o default -F _%s %s\n", tool, tool
    } else if (shell == "zsh") {
        printf "#compdef %s\n_arguments -s%s \\\n    '*:file:_files'\n", tool, lines
    } else {
        printf "%s", lines
    }
}
