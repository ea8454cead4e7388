// Step 5: saving and loading, with evolving classes.
#include <unistd.h>

#include "Journal.h"

namespace {

bool report(const char* path) {
    const fxLoaded<Journal> journal = fxLoad<Journal>(path);
    if (!journal) {
        std::printf("%s\n", journal.fault().text().c_str());
        return false;
    }
    std::printf("%u lines, limit %g, place %s\n", journal->lines.length(),
                static_cast<double>(journal->limit), journal->place.c_str());
    return true;
}

bool saveAndReport(Journal& journal, const char* path) {
    if (const fxStreamFault fault = fxSave(path, &journal)) {
        std::fprintf(stderr, "%s\n", fault.text().c_str());
        return false;
    }
    return report(path);
}

}  // namespace

int main(int argc, char** argv) {
    fxInitializeToolkit();
    TunedAlarm alarm;
    Log log;
    bool isDone = runQuietly(alarm, log);

    Journal journal;
    journal.limit = alarm.limit();
    journal.lines = log.lines;
    journal.place = "south wall";
    const char* const path = argc > 1 ? argv[1] : "greenhouse.journal";
    journal.written = 1;  // as the first edition of the program did
    isDone = saveAndReport(journal, path) && isDone;
    journal.written = Journal::newest;
    isDone = saveAndReport(journal, path) && isDone;

    isDone = truncate(path, 100) == 0 && !report(path) && isDone;  // an accident
    std::remove(path);
    fxCleanupGlobalOrderings();
    return isDone ? 0 : 1;
}
