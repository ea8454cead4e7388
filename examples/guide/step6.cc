// Step 6: searching text.
#include "Search.h"

int main() {
    fxInitializeToolkit();
    TunedAlarm alarm;
    Log log;
    const bool isDone = runQuietly(alarm, log);

    for (const char* const typed : {"31", "1.5", "alarm: [^ ]+", "(oops"}) {
        std::printf("%s\n", typed);
        if (const auto pattern = patternFor(typed)) {
            printMatches(log, *pattern);
        } else {
            std::printf("  no expression\n");
        }
    }

    const fxRegEx reading("^celsius ([0-9]+)(\\.[0-9]+)?$");
    for (const fxStr& line : log.lines) {
        const fxregexp* const match = reading.search(line, line);
        if (match == nullptr) continue;
        std::printf("%s|%s\n", groupOf(*match, 1).c_str(), groupOf(*match, 2).c_str());
    }
    fxCleanupGlobalOrderings();
    return isDone ? 0 : 1;
}
