// Matching by trying one way at a time: fast, as long as it rarely goes back.
// Private to the library.
#ifndef FXDS_SEARCH_REGBACKTRACKER_H
#define FXDS_SEARCH_REGBACKTRACKER_H

#include "fxds/search/RegReader.h"

namespace fxRegProgram {

class Backtracker : private RegReader {
public:
    enum class Outcome { match, none, unknown };

    Backtracker(const Plan& plan_, const char* subject_, const char* from, Patience patience_)
        : RegReader(plan_, subject_),
          firstRun(plan_.runFirst != Step::none ? steps + plan_.runFirst : nullptr),
          searchStart(from),
          patience(patience_),
          workLimit(patience_.atLeast) {}
    Backtracker(const Backtracker&) = delete;
    Backtracker& operator=(const Backtracker&) = delete;

    /// Whether a match starts at `from`. Unknown when the answer takes more
    /// work than the patience allows, or more open ways than there is room for.
    Outcome tryAt(const char* from);

    /// The next place where a match may start after none was found at `tried`,
    /// or null.
    const char* afterFailure(const char* tried) const;

    /// The positions of the match: slots of the plan.
    const char* const* match() const { return positions; }

    size_t workDone() const { return work; }

private:
    const Step* take(const Step* step);
    const Step* choose(const Step* step);
    const Step* enter(const Step* alternative);
    const Step* repeat(const Step* step);
    const Step* shorten(const Step* step, const char* from, const char* least);
    const Step* resume();
    const char* runEnd(const Step* step, const char* from) const;
    void record(const Step* step);
    void push(const Step* step, const char* position, size_t fewer);
    void pushChoice(const Step* step, const char* position, size_t fewer);
    bool spend(size_t cost, const char* reached);
    bool isWorthMore(const char* reached);

    const Step* const firstRun;  // the repetition that every match starts with, or null
    const char* const searchStart;
    const Patience patience;
    size_t workLimit;  // work at which giving up is considered
    size_t work = 0;
    bool hasGivenUp = false;
    const char* at = nullptr;  // the position
    const char* tryStart = nullptr;
    const char* firstRunStart = nullptr;  // the latest run of firstRun
    const char* firstRunEnd = nullptr;
    const char* positions[2 * groupCount];  // those of the plan's slots are in use
    uint32_t savedSlots = 0;                // bits of the slots pushed since the latest choice
    size_t depth = 0;                       // entries in use
    static constexpr size_t room = 512;
    Entry entries[room];
};

}  // namespace fxRegProgram

#endif
