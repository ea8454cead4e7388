// Step 6: finding lines, and parts of them.
#ifndef GUIDE_SEARCH_H
#define GUIDE_SEARCH_H

#include <memory>
#include <string_view>

#include "Settings.h"

// Takes any pattern, literal or expression.
inline void printMatches(const Log& log, const fxTextPattern& pattern) {
    for (const fxStr& line : log.lines) {
        int start, end;
        pattern.bracket(line, start, end);
        if (start < 0) continue;
        const unsigned int begin = static_cast<unsigned int>(start);
        std::printf("  %s: \"%s\" at %u\n", line.c_str(),
                    line.extract(begin, static_cast<unsigned int>(end) - begin).c_str(), begin);
    }
}

// What the user typed: an expression if it looks like one. Null when it is faulty.
inline std::unique_ptr<fxTextPattern> patternFor(const char* typed) {
    if (!fxIsRegEx(typed)) return std::make_unique<fxSLinearPattern>(typed, 0);
    auto expression = std::make_unique<fxRegEx>(typed);
    if (!expression->isValid()) return nullptr;
    return expression;
}

// The `group`-th parenthesis of the last match; empty when it took no part.
inline fxStr groupOf(const fxregexp& match, unsigned int group) {
    const char* const start = match.startp[group];
    if (start == nullptr) return fxStr();
    return fxStr(std::string_view(start, static_cast<size_t>(match.endp[group] - start)));
}

#endif
