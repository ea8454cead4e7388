# Filters a page in Markdown for the manual, which knows less of it than the places
# where pages are read as they are: headings get the anchors that links to them have
# there, and lose their code marks; links to files that are no pages lose the link.

function slug(text) {
    text = tolower(text)
    gsub(/[^-a-z0-9_ ]/, "", text)
    gsub(/ /, "-", text)
    return text
}
function base(path) {
    sub(/.*\//, "", path)
    sub(/\.md$/, "", path)
    return path
}
# [text](folder/page.md#heading) refers to the heading of the page.
function linked(line, target, page) {
    while (match(line, /\]\([-A-Za-z0-9_\/.]*#[-a-z0-9_]+\)/)) {
        target = substr(line, RSTART + 2, RLENGTH - 3)
        page = target
        sub(/#.*/, "", page)
        sub(/.*#/, "", target)
        line = substr(line, 1, RSTART + 1) "@ref " base(page != "" ? page : FILENAME) "-" target ")" \
            substr(line, RSTART + RLENGTH)
    }
    while (match(line, /\[[^\]]*\]\(([-A-Za-z0-9_\/.]*\.(cmake|cc|h|awk|py|txt)|[.\/]*LICENSE)\)/)) {
        target = substr(line, RSTART + 1, RLENGTH - 1)
        sub(/\]\(.*/, "", target)
        line = substr(line, 1, RSTART - 1) target substr(line, RSTART + RLENGTH)
    }
    return line
}

/^ *```/ { isCode = !isCode }
isCode || /^    / { print; next }
/^#/ {
    gsub(/`/, "")
    if (/^##/) {
        title = $0
        sub(/^#+ */, "", title)
        $0 = $0 " {#" base(FILENAME) "-" slug(title) "}"
    }
}
{ print linked($0) }
