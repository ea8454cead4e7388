// Step 6: finding lines, and parts of them.
#ifndef GUIDE_SEARCH_H
#define GUIDE_SEARCH_H

#include "Settings.h"

// Prints the matches in each line, or where the expression is faulty.
inline void printMatches(const Log& log, const fxExpression& expression) {
    if (!expression.isValid()) {
        std::printf("  %s at %zu\n", expression.error(), expression.errorOffset());
    }
    for (const fxStr& line : log.lines) {
        for (const fxMatch& match : expression.all(line)) {
            std::printf("  %s: \"%s\" at %zu\n", line.c_str(), fxStr(match.text()).c_str(),
                        match.start());
        }
    }
}

#endif
