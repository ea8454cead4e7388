#include "Grep.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "Json.h"

// A file is read in blocks of whole lines, which grow with the longest line. For an
// expression each line is made a zero-terminated text, in place. If every matching line
// must contain a certain text, whole blocks are searched for that, and the lines in between
// are skipped.

Grep::Grep(const Options& options_, Search& search_, Printer& printer_)
    : options(options_),
      searcher(search_),
      filter(options_.isInverted || options_.hasContext ? nullptr : search_.required()),
      printer(printer_) {
    if (fstat(STDOUT_FILENO, &output) != 0) output.st_mode = 0;
}

// A file found in a folder may be replaced before it is opened, so opening does not wait.
void Grep::search(const std::string& path, Kind kind, Findings& ours) {
    findings = &ours;
    const bool isStandard = kind == named && path == "-";
    name = isStandard ? "(standard input)" : path.c_str();
    const int flags = kind == named ? 0 : O_NOCTTY | O_NONBLOCK;
    const int file = isStandard ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | flags);
    const char* const why = file < 0 ? std::strerror(errno) : searchFile(file, kind);
    if (why != nullptr) ours.complaint = complaintText(name, why);
    if (file >= 0 && !isStandard) close(file);
}

// Returns the reason why not all of the file was searched, or null. A file that is also the
// output would grow by each match that is found in it.
const char* Grep::searchFile(int file, Kind kind) {
    struct stat status;
    if (fstat(file, &status) != 0) return std::strerror(errno);
    const bool isRegular = S_ISREG(status.st_mode);
    if (kind != named && !isRegular) return nullptr;
    if (isRegular && status.st_dev == output.st_dev && status.st_ino == output.st_ino) {
        return "the input is also the output";
    }
    try {
        blocks.start(file, kind == foundText);
        lineNumber = lineCount = toFollow = lastPrinted = 0;
        before.clear();
        bool goesOn = blocks.next();
        if (blocks.isBinary) return nullptr;
        while (goesOn && searchBlock(blocks.begin, blocks.end)) {
            goesOn = printer.print(*findings) && blocks.next();
        }
        finishFile();
        return blocks.error != 0 ? std::strerror(blocks.error) : nullptr;
    } catch (const std::bad_alloc&) {
        return "a line is too long for the memory";
    }
}

void Grep::finishFile() {
    const bool isListed = lineCount == 0 ? options.output == Options::namesWithout
                                         : options.output == Options::namesWith;
    if (lineCount != 0) findings->hasFound = true;
    if (options.output == Options::counts) {
        if (options.isJson) {
            text() += "{\"path\": " + jsonText(name) + ", \"count\": " + std::to_string(lineCount) +
                      "}\n";
            return;
        }
        if (options.names == Options::always) printName(':');
        text() += std::to_string(lineCount) + '\n';
    } else if (isListed && options.isJson) {
        text() += "{\"path\": " + jsonText(name) + "}\n";
    } else if (isListed) {
        printName('\n');
    }
}

// Returns false when the rest of the file does not matter.
bool Grep::searchBlock(char* begin, char* end) {
    const bool isNameEnough = options.output == Options::namesWith ||
                              options.output == Options::namesWithout ||
                              options.output == Options::nothing;
    // Whether a line that was not skipped matches, and it does not matter where.
    const bool isProven = filter != nullptr && filter->isExact && !options.needsPlaces();
    char* line = begin;
    while ((line = skipLines(line, end)) != end) {
        char* lineEnd =
            static_cast<char*>(std::memchr(line, '\n', static_cast<size_t>(end - line)));
        if (lineEnd == nullptr) lineEnd = end;
        ++lineNumber;
        if (lineCount < options.most &&
            (isProven || searcher.find(line, lineEnd, line) != options.isInverted)) {
            ++lineCount;
            if (isNameEnough) return false;
            take(line, lineEnd);
        } else if (options.hasContext) {
            printContext(line, lineEnd);
        }
        if (lineCount >= options.most && toFollow == 0) return false;
        line = lineEnd == end ? end : lineEnd + 1;
    }
    return true;
}

// The first line from `begin` on that may be selected: skips those that cannot match, if
// these do not matter.
char* Grep::skipLines(char* begin, char* end) {
    if (filter == nullptr || begin == end) return begin;
    const char* const hit = filter->find(begin, end);
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
    if (options.hasContext) {
        const unsigned long first = lineNumber - before.size();
        if (lastPrinted != 0 && lastPrinted + 1 < first) text() += "--\n";
        unsigned long number = first;
        for (const std::string& earlier : before) {
            printHead(number++, '-');
            (text() += earlier) += '\n';
        }
        before.clear();
        toFollow = options.after;
        lastPrinted = lineNumber;
    }
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
        printText(line, end);
        text() += '\n';
        return;
    }
    if (options.before == 0) return;
    if (before.size() == options.before) before.pop_front();
    before.emplace_back(line, end);
}

void Grep::printName(char separator) {
    printColoured("35", name);
    text() += options.endsNamesWithZero ? '\0' : separator;
}

void Grep::printColoured(const char* code, std::string_view words) {
    if (options.isColoured) ((text() += "\33[") += code) += 'm';
    text() += words;
    if (options.isColoured) text() += "\33[m";
}

void Grep::printHead(unsigned long number, char separator) {
    if (options.names == Options::always) printName(separator);
    if (!options.isNumbered) return;
    printColoured("32", std::to_string(number));
    text() += separator;
}

// The match behind the last one. An empty match does not stop the search.
bool Grep::nextMatch(char* line, char* end) {
    const char* const next = std::max(searcher.matchEnd, searcher.matchBegin + 1);
    return next <= end && searcher.find(line, end, next);
}

// Prints each match on a separate line. The first one has been found.
void Grep::printMatches(char* line, char* end) {
    if (options.isInverted) return;
    do {
        if (searcher.matchBegin == searcher.matchEnd) continue;
        printHead(lineNumber, ':');
        if (options.replacement != nullptr) {
            text() += searcher.expand(options.replacement);
        } else {
            printColoured("1;31", {searcher.matchBegin,
                                   static_cast<size_t>(searcher.matchEnd - searcher.matchBegin)});
        }
        text() += '\n';
    } while (nextMatch(line, end));
}

// The whole line; on a terminal with the matches marked.
void Grep::printLine(char* line, char* end) {
    printHead(lineNumber, ':');
    const char* at = line;
    if (options.isColoured && !options.isInverted) {
        do {
            printText(at, searcher.matchBegin);
            const auto length = static_cast<size_t>(searcher.matchEnd - searcher.matchBegin);
            if (length != 0) printColoured("1;31", {searcher.matchBegin, length});
            at = searcher.matchEnd;
        } while (nextMatch(line, end));
    }
    printText(at, end);
    text() += '\n';
}

void Grep::printJson(char* line, char* end) {
    const bool hasReplacement = options.replacement != nullptr;
    std::string matches;
    const char* separator = "";
    if (!options.isInverted) {
        do {
            const auto from = searcher.matchBegin - line;
            matches += separator + ("{\"start\": " + std::to_string(from)) +
                       ", \"end\": " + std::to_string(searcher.matchEnd - line);
            if (hasReplacement) {
                matches += ", \"replacement\": " + jsonText(searcher.expand(options.replacement));
            }
            matches += '}';
            separator = ", ";
        } while (nextMatch(line, end));
    }
    text() += "{\"path\": " + jsonText(name) + ", \"line\": " + std::to_string(lineNumber) +
              ", \"text\": " + jsonText({line, static_cast<size_t>(end - line)}) +
              ", \"matches\": [" + matches + "]}\n";
}
