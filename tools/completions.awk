# Makes the completion of a shell from what a program says about its options:
#   PROGRAM --help | awk -v tool=NAME -v shell=bash|zsh|fish -f completions.awk
# An option is in a line such as "  -A N, -B N    lines after, before" or
# "  --color[=WHEN]    when to colour": names with their arguments, then two
# spaces or more, then what it does. A command, which may be the first word, is in a
# line such as "  test    runs the tests".

/^  -/ {
    flush()
    head = substr($0, 3)
    if (match(head, /   *[^ ]/)) {
        text = substr(head, RSTART + RLENGTH - 1)
        head = substr(head, 1, RSTART - 1)
    }
    next
}
/^  [a-z]+  +[^ ]/ {
    flush()
    command = $1
    sub(/^  [a-z]+ +/, "")
    text = $0
    next
}
(head != "" || command != "") && /^       *[^ ]/ { text = text substr($0, match($0, /[^ ]/) - 1) }
!/^  / { flush() }

# Enters the names of the line with the text, of which more lines may have followed.
function flush(names, count, i, name, argument) {
    gsub(/: /, ", ", text)
    gsub(/['\[\]:\\]/, "", text)
    sub(/;.*/, "", text)
    if (command != "") {
        commands = commands (commands == "" ? "" : " ") command
        if (shell == "fish") {
            lines = lines sprintf("complete -c %s -n __fish_use_subcommand -a %s -d '%s'\n", tool, command, text)
        }
    }
    count = split(head, names, ", ")
    for (i = 1; i <= count; ++i) {
        name = argument = names[i]
        sub(/[ \[=].*/, "", name)
        argument = substr(names[i], length(name) + 1)
        gsub(/[\[\]= ]|\.\.\./, "", argument)
        if (argument ~ /:/) argument = "DIR"
        add(name, argument, names[i] ~ /\[/, text)
    }
    head = text = command = ""
}

# An option that needs an argument may be given several times; that of a letter may follow it at
# once.
function add(name, argument, isOptional, text, needed, isFile) {
    needed = argument != "" && !isOptional
    isFile = argument ~ /FILE|DIR/
    if (shell == "bash") {
        words = words (words == "" ? "" : " ") name
    } else if (shell == "zsh") {
        lines = lines sprintf(" \\\n    '%s%s%s[%s]%s'", needed ? "*" : "", name,
            argument == "" ? "" : isOptional ? "=-" : name ~ /^--/ ? "=" : "+", text,
            argument == "" ? "" : (isOptional ? "::" : ":") argument ":" (isFile ? "_files" : ""))
    } else {
        lines = lines sprintf("complete -c %s %s %s%s -d '%s'\n", tool,
            name ~ /^--/ ? "-l" : "-s", substr(name, name ~ /^--/ ? 3 : 2), !needed ? "" : isFile ? " -r" : " -x", text)
    }
}

END {
    flush()
    if (shell == "bash") {
        printf "_%s() {\n    [[ $2 != -* ]] || mapfile -t COMPREPLY < <(compgen -W '%s' -- \"$2\")\n", tool, words
        if (commands != "") {
            printf "    [[ ${COMP_CWORD-} != 1 || $2 == -* ]] || mapfile -t COMPREPLY < <(compgen -f -W '%s' -- \"$2\")\n", commands
        }
        printf "}\n"
        printf "complete -o default -F _%s %s\n", tool, tool
    } else if (shell == "zsh") {
        if (commands != "") {
            lines = lines sprintf(" \\\n    '1: :{_alternative \"commands:command:(%s)\" \"files:file:_files\"}'", commands)
        }
        printf "#compdef %s\n_arguments -s%s \\\n    '*:file:_files'\n", tool, lines
    } else {
        printf "%s", lines
    }
}
