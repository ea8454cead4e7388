// fxgrep: prints the lines of files that a pattern occurs in.
#include <dirent.h>
#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "fxds/PathFunctions.h"
#include "fxds/RegEx.h"
#include "fxds/SLinearPattern.h"
#include "fxds/SearchList.h"

// A file is read in blocks of whole lines, which grow with the longest line. For
// an expression each line is made a zero-terminated text, in place. Where every
// matching line must contain a certain text, whole blocks are searched for that,
// and the lines in between are never looked at.

namespace {

const char usage[] =
    "usage: fxgrep [-EFcno] [--replace TEMPLATE] PATTERN [FILE...]\n"
    "       fxgrep [-EFcno] [--replace TEMPLATE] --path DIR:DIR... [--name REGEX] PATTERN\n";

const char help[] =
    "\n"
    "Prints the lines that contain PATTERN, of the FILEs, or of standard input\n"
    "without FILE or for -. Letter case always counts: there is no -i.\n"
    "\n"
    "  -E                  PATTERN is a regular expression\n"
    "  -F                  PATTERN is a literal text; without either option it is an\n"
    "                      expression if it contains one of .+*^$(){}[]\n"
    "  -n                  number the lines\n"
    "  -c                  only print how many lines matched\n"
    "  -o                  print each match on a line of its own; empty ones are left out\n"
    "  --replace TEMPLATE  as -o, but print TEMPLATE, in which & and \\0 stand for the\n"
    "                      match and \\1 to \\9 for its groups\n"
    "  --path DIR:DIR...   search files in these directories, in which a leading ~ or\n"
    "                      ~USER and any $NAME are expanded\n"
    "  --name REGEX        of those, only files whose whole name matches (default .*)\n"
    "  --help              print this\n"
    "\n"
    "An expression: a|b alternatives; x* x+ x? repetition; (x) group; . any character;\n"
    "^ $ start and end of the line; [a-z] [^a-z] sets; \\< start of a word; \\> no word\n"
    "character follows; \\x the character x itself. A zero byte ends a line for it.\n"
    "\n"
    "Names of files are printed when there can be several. Matches are coloured on a\n"
    "terminal, unless NO_COLOR is set.\n"
    "Exit status: 0 a line matched, 1 none did, 2 there was trouble.\n";

struct Options {
    enum Kind { guess, expression, literal } kind = guess;
    bool isNumbered = false;
    bool isCount = false;
    bool isOnly = false;
    const char* replacement = nullptr;
    const char* path = nullptr;
    const char* name = ".*";
    bool isColoured = false;
};

void complain(const char* subject, const char* why) {
    std::fflush(stdout);  // keeps the order where both go to the same place
    std::fprintf(stderr, "fxgrep: %s: %s\n", subject, why);
}

class Literal;

/// Something to look for in a line. The byte behind the line is ours to write.
class Search {
public:
    virtual ~Search() = default;

    /// Finds the first match in [line, end) that starts at `from` or later and
    /// sets its ends. `from` is `line` first and then lies behind the last match.
    virtual bool find(char* line, char* end, const char* from) = 0;

    /// Text that is in every line with a match; null when nothing is known.
    virtual const Literal* required() const = 0;

    const char* matchBegin = nullptr;
    const char* matchEnd = nullptr;
};

/// A literal text. The library's offsets are ints, so long texts are searched in
/// parts that overlap.
class Literal {
public:
    explicit Literal(const fxStr& text) : length(text.length()), pattern(text) {}

    const char* find(const char* from, const char* end) const {
        constexpr size_t part = size_t{1} << 30;
        for (;;) {
            const size_t left = static_cast<size_t>(end - from);
            const int at =
                pattern.findBuffer(from, static_cast<unsigned int>(std::min(left, part)));
            if (at >= 0) return from + at;
            if (left <= part) return nullptr;
            from += part - length;
        }
    }

    const size_t length;

private:
    const fxSLinearPattern pattern;
};

class LiteralSearch : public Search {
public:
    explicit LiteralSearch(const fxStr& text) : literal(text) {}

    bool find(char*, char* end, const char* from) override {
        matchBegin = literal.find(from, end);
        if (matchBegin == nullptr) return false;
        matchEnd = matchBegin + literal.length;
        return true;
    }

    const Literal* required() const override { return literal.length != 0 ? &literal : nullptr; }

private:
    const Literal literal;
};

class ExpressionSearch : public Search {
public:
    explicit ExpressionSearch(const fxStr& text) : expression(text) {
        const fxregexp* const compiled = expression.expression();
        if (compiled == nullptr || compiled->regmust == nullptr) return;
        must = std::make_unique<Literal>(compiled->regmust);
    }

    bool isValid() const { return expression.isValid(); }

    // What lies between zero bytes is searched as a line of its own. Going on
    // behind a match starts in the part of that match.
    bool find(char* line, char* end, const char* from) override {
        const char behind = *end;
        *end = 0;
        const bool isNew = from == line || from[-1] == 0;
        if (isNew) part = from;
        bool isFound =
            isFoundBy(isNew ? expression.search(part, from) : expression.searchNext(part, from));
        while (!isFound) {
            from += std::strlen(from) + 1;
            if (from > end) break;
            part = from;
            isFound = isFoundBy(expression.search(part, from));
        }
        *end = behind;
        return isFound;
    }

    const Literal* required() const override { return must.get(); }

    /// The template with the last match, which must still be there.
    std::string expand(const char* text) const {
        const fxregexp* const compiled = expression.expression();
        std::string result(static_cast<size_t>(fxregsub(compiled, text, nullptr, 0)), '\0');
        fxregsub(compiled, text, result.data(), result.size() + 1);
        return result;
    }

private:
    bool isFoundBy(const fxregexp* found) {
        if (found == nullptr) return false;
        matchBegin = found->startp[0];
        matchEnd = found->endp[0];
        return true;
    }

    const fxRegEx expression;
    std::unique_ptr<Literal> must;
    const char* part = nullptr;
};

/// The lines of a file, a block at a time.
class Blocks {
public:
    explicit Blocks(int file_) : file(file_), buffer(size_t{1} << 17) {}

    /// Reads on until there is a block of whole lines; the last one may lack its
    /// newline. Returns false at the end and on trouble, which `error` tells.
    bool next() {
        if (kept != 0) std::memmove(buffer.data(), end, kept);
        while (error == 0 && !isAtEnd) {
            const size_t searched = kept;
            // One byte stays free, for a terminator behind the last line.
            if (kept + 1 == buffer.size()) buffer.resize(2 * buffer.size());
            const ssize_t count = read(file, buffer.data() + kept, buffer.size() - 1 - kept);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) error = errno;
            if (count == 0) isAtEnd = true;
            if (count <= 0) break;
            kept += static_cast<size_t>(count);
            const void* const newline =
                memrchr(buffer.data() + searched, '\n', static_cast<size_t>(count));
            if (newline != nullptr) return take(static_cast<const char*>(newline) + 1);
        }
        return kept != 0 && take(buffer.data() + kept);
    }

    char* begin = nullptr;
    char* end = nullptr;
    int error = 0;

private:
    bool take(const char* blockEnd) {
        begin = buffer.data();
        end = begin + (blockEnd - begin);
        kept -= static_cast<size_t>(end - begin);
        return true;
    }

    const int file;
    std::vector<char> buffer;
    size_t kept = 0;  // bytes behind the block, for the next one
    bool isAtEnd = false;
};

/// Searches one file after the other and prints.
class Grep {
public:
    Grep(const Options& options_, Search& search_, const ExpressionSearch* expander_)
        : options(options_), search(search_), expander(expander_) {
        if (fstat(STDOUT_FILENO, &output) != 0) output.st_mode = 0;
    }

    /// Searches a file that the user named, or - for standard input.
    void searchNamed(const char* path);

    /// Searches a file that was found in a directory. Only regular ones are read:
    /// reading from others might wait for ever or change something.
    void searchFound(const char* path);

    bool showsNames = false;
    bool hasFound = false;
    bool hadTrouble = false;

private:
    const char* searchFile(int file, bool isNamed);
    void searchBlocks(Blocks& blocks);
    void reportTrouble(const char* why) {
        complain(name, why);
        hadTrouble = true;
    }
    void searchBlock(char* begin, char* end);
    char* skipLines(char* begin, char* end);
    void printMatches(char* line, char* end);
    void printLine(char* line, char* end);
    void printHead();
    void print(const char* begin, const char* end) const {
        std::fwrite(begin, 1, static_cast<size_t>(end - begin), stdout);
    }
    void colour(const char* code) const {
        if (options.isColoured) std::printf("\33[%sm", code);
    }
    void printColoured(const char* code, const char* begin, const char* end) const {
        colour(code);
        print(begin, end);
        colour("");
    }

    const Options& options;
    Search& search;
    const ExpressionSearch* const expander;  // for templates
    struct stat output = {};
    const char* name = "";
    unsigned long lineNumber = 0;
    unsigned long lineCount = 0;
};

void Grep::searchNamed(const char* path) {
    const bool isStandard = std::strcmp(path, "-") == 0;
    name = isStandard ? "(standard input)" : path;
    const int file = isStandard ? STDIN_FILENO : open(path, O_RDONLY | O_CLOEXEC);
    const char* const why = file < 0 ? std::strerror(errno) : searchFile(file, true);
    if (why != nullptr) reportTrouble(why);
    if (file >= 0 && !isStandard) close(file);
}

// The file may become another between the two looks, so opening does not wait.
void Grep::searchFound(const char* path) {
    name = path;
    struct stat status;
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode)) return;
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    const char* const why = file < 0 ? std::strerror(errno) : searchFile(file, false);
    if (why != nullptr) reportTrouble(why);
    if (file >= 0) close(file);
}

// Returns what kept it from searching all of the file, null for nothing. A file that
// is also the output would grow by each match that is found in it.
const char* Grep::searchFile(int file, bool isNamed) {
    struct stat status;
    if (fstat(file, &status) != 0) return std::strerror(errno);
    const bool isRegular = S_ISREG(status.st_mode);
    if (!isNamed && !isRegular) return nullptr;
    if (isRegular && status.st_dev == output.st_dev && status.st_ino == output.st_ino) {
        return "the input is also the output";
    }
    try {
        Blocks blocks(file);
        searchBlocks(blocks);
        return blocks.error != 0 ? std::strerror(blocks.error) : nullptr;
    } catch (const std::bad_alloc&) {
        return "a line is too long for the memory";
    }
}

void Grep::searchBlocks(Blocks& blocks) {
    lineNumber = lineCount = 0;
    while (blocks.next()) searchBlock(blocks.begin, blocks.end);
    if (lineCount != 0) hasFound = true;
    if (!options.isCount) return;
    printHead();
    std::printf("%lu\n", lineCount);
}

void Grep::searchBlock(char* begin, char* end) {
    char* line = begin;
    while ((line = skipLines(line, end)) != end) {
        char* lineEnd =
            static_cast<char*>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        if (lineEnd == nullptr) lineEnd = end;
        ++lineNumber;
        if (search.find(line, lineEnd, line)) {
            ++lineCount;
            if (options.isOnly) {
                printMatches(line, lineEnd);
            } else if (!options.isCount) {
                printLine(line, lineEnd);
            }
        }
        line = lineEnd == end ? end : lineEnd + 1;
    }
}

// The first line from `begin` on that may match: past those without the required
// text.
char* Grep::skipLines(char* begin, char* end) {
    const Literal* const required = search.required();
    if (required == nullptr || begin == end) return begin;
    const char* const hit = required->find(begin, end);
    char* const stop = hit != nullptr ? begin + (hit - begin) : end;
    const size_t skipped = static_cast<size_t>(stop - begin);
    const void* const newline = memrchr(begin, '\n', skipped);
    if (options.isNumbered) lineNumber += static_cast<unsigned long>(std::count(begin, stop, '\n'));
    if (hit == nullptr) return end;
    return newline != nullptr ? begin + (static_cast<const char*>(newline) + 1 - begin) : begin;
}

void Grep::printHead() {
    if (showsNames) {
        printColoured("35", name, name + std::strlen(name));
        std::putchar(':');
    }
    if (options.isNumbered && !options.isCount) {
        const std::string number = std::to_string(lineNumber);
        printColoured("32", number.data(), number.data() + number.size());
        std::putchar(':');
    }
}

// Each match on a line of its own. The first one has been found.
void Grep::printMatches(char* line, char* end) {
    if (options.isCount) return;
    do {
        const char* const next = std::max(search.matchEnd, search.matchBegin + 1);
        if (search.matchBegin != search.matchEnd) {
            printHead();
            if (options.replacement != nullptr) {
                const std::string text = expander->expand(options.replacement);
                print(text.data(), text.data() + text.size());
            } else {
                printColoured("1;31", search.matchBegin, search.matchEnd);
            }
            std::putchar('\n');
        }
        if (next > end) break;
        if (!search.find(line, end, next)) break;
    } while (true);
}

// The whole line; on a terminal with the matches marked.
void Grep::printLine(char* line, char* end) {
    printHead();
    const char* at = line;
    while (options.isColoured) {
        print(at, search.matchBegin);
        if (search.matchBegin != search.matchEnd) {
            printColoured("1;31", search.matchBegin, search.matchEnd);
        }
        at = search.matchEnd;
        const char* const next = std::max(search.matchEnd, search.matchBegin + 1);
        if (next > end || !search.find(line, end, next)) break;
    }
    print(at, end);
    std::putchar('\n');
}

// An expression that matches exactly this text.
fxStr quoted(const char* text) {
    fxStr result;
    for (; *text != 0; ++text) {
        if (std::strchr("\n$().[^|*+?\\", *text) != nullptr) result.append('\\');
        result.append(*text);
    }
    return result;
}

// One directory of --path with its abbreviations expanded; false when a variable
// in it is not set. The slash lets a name be expanded that ends the text.
bool appendExpanded(const fxStr& directory, fxStr& list) {
    char* const home = pathexpandtilde(directory);
    std::string text = home;
    std::free(home);
    text += '/';
    char* const expanded = environmentVariableExtendedName(text.data(), 0);
    if (expanded == nullptr) return false;
    fxStr result(expanded);
    std::free(expanded);
    while (result.length() > 1 && result[result.length() - 1] == '/') {
        result.remove(result.length() - 1);
    }
    if (!list.isEmpty()) list.append(':');
    if (!result.isEmpty()) list.append(result, result.length());
    return true;
}

bool isGoodExpression(const char* text) {
    const char* message;
    fxregexp* const compiled = fxregcomp(text, &message);
    std::free(compiled);
    if (compiled == nullptr) complain(text, message);
    return compiled != nullptr;
}

void searchPath(Grep& grep, const Options& options) {
    const fxStr path(options.path);
    fxStr directories;
    for (unsigned int at = 0; at < path.length();) {
        const fxStr directory = path.token(at, ':');
        if (directory.isEmpty() || appendExpanded(directory, directories)) continue;
        complain(directory, "a variable is not set");
        grep.hadTrouble = true;
    }
    for (unsigned int at = 0; at < directories.length();) {
        const fxStr directory = directories.token(at, ':');
        DIR* const entries = directory.isEmpty() ? nullptr : opendir(directory);
        if (entries != nullptr) {
            closedir(entries);
        } else if (!directory.isEmpty()) {
            complain(directory, std::strerror(errno));
            grep.hadTrouble = true;
        }
    }
    for (const fxStr& file : fxSearchList(directories, options.name)) grep.searchFound(file);
}

// Returns the index of the pattern in `argv`, 0 to go no further.
int readOptions(int argc, char** argv, Options& options) {
    enum { replaceOption = 256, pathOption, nameOption, helpOption };
    const option longOptions[] = {{"replace", required_argument, nullptr, replaceOption},
                                  {"path", required_argument, nullptr, pathOption},
                                  {"name", required_argument, nullptr, nameOption},
                                  {"help", no_argument, nullptr, helpOption},
                                  {nullptr, 0, nullptr, 0}};
    const char* name = nullptr;
    for (int c; (c = getopt_long(argc, argv, "EFcno", longOptions, nullptr)) != -1;) {
        switch (c) {
            case 'E':
                options.kind = Options::expression;
                break;
            case 'F':
                options.kind = Options::literal;
                break;
            case 'c':
                options.isCount = true;
                break;
            case 'n':
                options.isNumbered = true;
                break;
            case 'o':
                options.isOnly = true;
                break;
            case replaceOption:
                options.replacement = optarg;
                options.isOnly = true;
                break;
            case pathOption:
                options.path = optarg;
                break;
            case nameOption:
                name = optarg;
                break;
            case helpOption:
                std::fputs(usage, stdout);
                std::fputs(help, stdout);
                std::exit(std::fflush(stdout) == 0 ? 0 : 2);
            default:
                std::fputs(usage, stderr);
                return 0;
        }
    }
    if (name != nullptr) options.name = name;
    if (optind == argc || (name != nullptr && options.path == nullptr)) {
        std::fputs(usage, stderr);
        return 0;
    }
    const char* const term = std::getenv("TERM");
    options.isColoured = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr &&
                         term != nullptr && std::strcmp(term, "dumb") != 0;
    return optind;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int trouble = 2;
    Options options;
    const int at = readOptions(argc, argv, options);
    if (at == 0) return trouble;
    const char* const pattern = argv[at];
    const bool isExpression = options.kind == Options::expression ||
                              (options.kind == Options::guess && fxIsRegEx(pattern));
    if (isExpression && !isGoodExpression(pattern)) return trouble;
    if (!isGoodExpression(options.name)) return trouble;

    // Templates are expanded by the engine, so with one it also finds literals.
    LiteralSearch literal{fxStr(pattern)};
    ExpressionSearch expression(isExpression ? fxStr(pattern) : quoted(pattern));
    const bool usesEngine = isExpression || options.replacement != nullptr;
    if (usesEngine && !expression.isValid()) {
        complain("the pattern", "too long");
        return trouble;
    }
    static char outputBuffer[1 << 16];
    if (!isatty(STDOUT_FILENO)) std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);
    Grep grep(options, usesEngine ? static_cast<Search&>(expression) : literal, &expression);

    const int fileCount = argc - at - 1;
    grep.showsNames = fileCount > 1 || options.path != nullptr;
    if (options.path != nullptr) searchPath(grep, options);
    if (options.path == nullptr && fileCount == 0) grep.searchNamed("-");
    for (int i = at + 1; i < argc; ++i) grep.searchNamed(argv[i]);

    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output", std::strerror(errno));
        return trouble;
    }
    return grep.hadTrouble ? trouble : grep.hasFound ? 0 : 1;
}
