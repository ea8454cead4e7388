#include "Grep.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "Json.h"

// A file is read in blocks of whole lines, which grow with the longest line. For
// an expression each line is made a zero-terminated text, in place. Where every
// matching line must contain a certain text, whole blocks are searched for that,
// and the lines in between are never looked at.

Grep::Grep(const Options& options_, Search& search_)
    : options(options_), search(search_), mayCopy(options_.before != 0 || options_.after != 0) {
    if (fstat(STDOUT_FILENO, &output) != 0) output.st_mode = 0;
}

void Grep::reportTrouble(const char* path, const char* why) {
    if (!options.isSilent) complain(path, why);
    hadTrouble = true;
}

void Grep::searchNamed(const char* path) {
    const bool isStandard = std::strcmp(path, "-") == 0;
    name = isStandard ? "(standard input)" : path;
    const int file = isStandard ? STDIN_FILENO : open(path, O_RDONLY | O_CLOEXEC);
    const char* const why = file < 0 ? std::strerror(errno) : searchFile(file, {true, true});
    if (why != nullptr) reportTrouble(name, why);
    if (file >= 0 && !isStandard) close(file);
}

// The file may become another between the two looks, so opening does not wait.
void Grep::searchFound(const char* path, bool mayBeBinary) {
    name = path;
    struct stat status;
    if (stat(path, &status) == 0 && !S_ISREG(status.st_mode)) return;
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    const char* const why =
        file < 0 ? std::strerror(errno) : searchFile(file, {false, mayBeBinary});
    if (why != nullptr) reportTrouble(name, why);
    if (file >= 0) close(file);
}

// Returns what kept it from searching all of the file, null for nothing. A file that
// is also the output would grow by each match that is found in it.
const char* Grep::searchFile(int file, Kinds kinds) {
    struct stat status;
    if (fstat(file, &status) != 0) return std::strerror(errno);
    const bool isRegular = S_ISREG(status.st_mode);
    if (!kinds.special && !isRegular) return nullptr;
    if (isRegular && status.st_dev == output.st_dev && status.st_ino == output.st_ino) {
        return "the input is also the output";
    }
    try {
        Blocks blocks(file);
        lineNumber = lineCount = toFollow = lastPrinted = 0;
        before.clear();
        bool goesOn = blocks.next();
        if (goesOn && !kinds.binary && isBinary(blocks)) return nullptr;
        while (goesOn && searchBlock(blocks.begin, blocks.end)) goesOn = blocks.next();
        finishFile();
        return blocks.error != 0 ? std::strerror(blocks.error) : nullptr;
    } catch (const std::bad_alloc&) {
        return "a line is too long for the memory";
    }
}

bool Grep::isBinary(const Blocks& blocks) const {
    return std::memchr(blocks.begin, 0, static_cast<size_t>(blocks.end - blocks.begin)) != nullptr;
}

void Grep::finishFile() {
    const bool isListed = lineCount == 0 ? options.output == Options::namesWithout
                                         : options.output == Options::namesWith;
    if (lineCount != 0) hasFound = true;
    if (options.output == Options::counts) {
        if (options.isJson) {
            std::printf("{\"path\": %s, \"count\": %lu}\n", jsonText(name).c_str(), lineCount);
            return;
        }
        if (options.names == Options::always) printName(':');
        std::printf("%lu\n", lineCount);
    } else if (isListed && options.isJson) {
        std::printf("{\"path\": %s}\n", jsonText(name).c_str());
    } else if (isListed) {
        printName('\n');
    }
}

// False when the rest of the file does not matter.
bool Grep::searchBlock(char* begin, char* end) {
    const bool isNameEnough = options.output == Options::namesWith ||
                              options.output == Options::namesWithout ||
                              options.output == Options::nothing;
    char* line = begin;
    while ((line = skipLines(line, end)) != end) {
        char* lineEnd =
            static_cast<char*>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        if (lineEnd == nullptr) lineEnd = end;
        ++lineNumber;
        if (lineCount < options.most && search.find(line, lineEnd, line) != options.isInverted) {
            ++lineCount;
            if (isNameEnough) return false;
            take(line, lineEnd);
        } else if (mayCopy) {
            printContext(line, lineEnd);
        }
        if (lineCount >= options.most && toFollow == 0) return false;
        line = lineEnd == end ? end : lineEnd + 1;
    }
    return true;
}

// The first line from `begin` on that may be selected: past those without the
// required text, where these do not matter.
char* Grep::skipLines(char* begin, char* end) {
    const Literal* const required = search.required();
    if (required == nullptr || begin == end || options.isInverted || mayCopy) return begin;
    const char* const hit = required->find(begin, end);
    char* const stop = hit != nullptr ? begin + (hit - begin) : end;
    const size_t skipped = static_cast<size_t>(stop - begin);
    const void* const newline = memrchr(begin, '\n', skipped);
    if (options.isNumbered) lineNumber += static_cast<unsigned long>(std::count(begin, stop, '\n'));
    if (hit == nullptr) return end;
    return newline != nullptr ? begin + (static_cast<const char*>(newline) + 1 - begin) : begin;
}

// A line that was selected.
void Grep::take(char* line, char* end) {
    if (options.output == Options::counts) return;
    if (options.isJson) return printJson(line, end);
    if (options.output == Options::matches) return printMatches(line, end);
    if (mayCopy) {
        const unsigned long first = lineNumber - before.size();
        if (hasPrinted && (lastPrinted == 0 || lastPrinted + 1 < first)) std::puts("--");
        unsigned long number = first;
        for (const std::string& earlier : before) {
            printHead(number++, '-');
            print(earlier.data(), earlier.data() + earlier.size());
            std::putchar('\n');
        }
        before.clear();
        toFollow = options.after;
        lastPrinted = lineNumber;
    }
    hasPrinted = true;
    printLine(line, end);
}

// A line that was not selected: printed behind one that was, or kept for the next.
void Grep::printContext(const char* line, const char* end) {
    if (options.output != Options::lines || options.isJson) {
        toFollow = 0;
        return;
    }
    if (toFollow != 0) {
        --toFollow;
        lastPrinted = lineNumber;
        printHead(lineNumber, '-');
        print(line, end);
        std::putchar('\n');
        return;
    }
    if (options.before == 0) return;
    if (before.size() == options.before) before.pop_front();
    before.emplace_back(line, end);
}

void Grep::printName(char separator) {
    printColoured("35", name);
    std::putchar(options.endsNamesWithZero ? '\0' : separator);
}

void Grep::printHead(unsigned long number, char separator) {
    if (options.names == Options::always) printName(separator);
    if (!options.isNumbered) return;
    printColoured("32", std::to_string(number));
    std::putchar(separator);
}

// The match behind the last one; an empty one does not stop the search.
bool Grep::nextMatch(char* line, char* end) {
    const char* const next = std::max(search.matchEnd, search.matchBegin + 1);
    return next <= end && search.find(line, end, next);
}

// Each match on a line of its own. The first one has been found.
void Grep::printMatches(char* line, char* end) {
    if (options.isInverted) return;
    do {
        if (search.matchBegin == search.matchEnd) continue;
        printHead(lineNumber, ':');
        if (options.replacement != nullptr) {
            const std::string text = search.expand(options.replacement);
            print(text.data(), text.data() + text.size());
        } else {
            printColoured("1;31", {search.matchBegin,
                                   static_cast<size_t>(search.matchEnd - search.matchBegin)});
        }
        std::putchar('\n');
    } while (nextMatch(line, end));
}

// The whole line; on a terminal with the matches marked.
void Grep::printLine(char* line, char* end) {
    printHead(lineNumber, ':');
    const char* at = line;
    if (options.isColoured && !options.isInverted) {
        do {
            print(at, search.matchBegin);
            const auto length = static_cast<size_t>(search.matchEnd - search.matchBegin);
            if (length != 0) printColoured("1;31", {search.matchBegin, length});
            at = search.matchEnd;
        } while (nextMatch(line, end));
    }
    print(at, end);
    std::putchar('\n');
}

void Grep::printJson(char* line, char* end) {
    const bool hasReplacement = options.replacement != nullptr;
    std::string matches;
    const char* separator = "";
    if (!options.isInverted) {
        do {
            const auto from = search.matchBegin - line;
            matches += separator + ("{\"start\": " + std::to_string(from)) +
                       ", \"end\": " + std::to_string(search.matchEnd - line);
            if (hasReplacement) {
                matches += ", \"replacement\": " + jsonText(search.expand(options.replacement));
            }
            matches += '}';
            separator = ", ";
        } while (nextMatch(line, end));
    }
    const std::string text = jsonText({line, static_cast<size_t>(end - line)});
    std::printf("{\"path\": %s, \"line\": %lu, \"text\": %s, \"matches\": [%s]}\n",
                jsonText(name).c_str(), lineNumber, text.c_str(), matches.c_str());
}
