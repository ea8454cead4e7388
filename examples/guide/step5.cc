// Step 5: saving and loading, with evolving classes.
#include "Journal.h"

namespace {

bool report(const char* path) {
    Journal* const journal = canBeLoaded<Journal>(path) ? load<Journal>(path) : nullptr;
    if (journal == nullptr) return false;
    journal->take();  // what was read has no holder yet
    std::printf("%u lines, limit %g, place %s\n", journal->lines.length(),
                static_cast<double>(journal->limit), journal->place.c_str());
    journal->release();
    return true;
}

bool saveAndReport(Journal& journal, const char* path) {
    if (save(journal, path)) return report(path);
    std::fprintf(stderr, "cannot save %s: %s\n", path, std::strerror(errno));
    return false;
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

    isDone = truncate(path, 100) == 0 && isDone;  // an accident
    std::printf("%s\n", report(path) ? "whole" : "no journal, or damaged");
    std::remove(path);
    fxCleanupGlobalOrderings();
    return isDone ? 0 : 1;
}
