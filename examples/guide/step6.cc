// Step 6: searching text.
#include <cmath>

#include "Search.h"

int main() {
    fxInitializeToolkit();
    TunedAlarm alarm;
    Log log;
    const bool isDone = runQuietly(alarm, log);

    for (const char* const pattern : {"31", "1.5", "alarm: [^ ]+", "(oops"}) {
        std::printf("%s\n", pattern);
        printMatches(log, fxExpression(pattern));
    }
    const fxStr literal = fxExpression::escape("1.5");
    std::printf("%s\n", literal.c_str());
    printMatches(log, fxExpression(literal));

    const fxExpression reading("^celsius ([0-9]+)(\\.[0-9]+)?$");
    for (const fxStr& line : log.lines) {
        if (const fxMatch match = reading.search(line)) {
            std::printf("%s|%s\n", fxStr(match[1]).c_str(), fxStr(match[2]).c_str());
        }
    }
    const fxExpression fraction("[0-9]+\\.[0-9]+");
    const auto round = [](const fxMatch& match) {
        return fxStr::number(std::lround(*fxStr(match.text()).toDouble()));
    };
    std::printf("%s\n", fraction.replace(log.lines[0], round).c_str());
    fxCleanupGlobalOrderings();
    return isDone ? 0 : 1;
}
