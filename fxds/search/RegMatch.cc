#include <optional>

#include "fxds/search/RegBacktracker.h"
#include "fxds/search/RegInStep.h"
#include "fxds/search/RegInternals.h"
#include "fxds/search/RegStarts.h"

// A search finds places where a match may start and tries each by backtracking. If that
// takes too much work, it walks in step instead, from that start on and while a way is
// open; behind that, backtracking resumes. Both find the same match. Walking alone takes
// 1.2 to 5.4 times as long on the rows of PatternBench; backtracking alone is exponential.
//
// Invariant of a search: no match starts in [start, from). The time is proportional to the
// subject times the program: the work of all tries is bounded by the bytes seen, and walks
// never overlap.

namespace fxRegProgram {
namespace {

class Search : private RegReader {
public:
    Search(const Plan& plan_, const char* subject_, const char* from, Patience patience)
        : RegReader(plan_, subject_),
          start(from),
          starts(plan_, subject_),
          tries(plan_, subject_, from, patience) {}

    /// The slots of the match, null when there is none.
    const char* const* run();
    size_t workGoingBack() const { return tries.workDone(); }
    size_t workDone() const { return tries.workDone() + (walks ? walks->workDone() : 0); }

private:
    const char* const start;
    StartFinder starts;
    Backtracker tries;
    std::optional<InStep> walks;
};

const char* const* Search::run() {
    const char* from = start;
    while (from != nullptr && (from = starts.find(from)) != nullptr) {
        const Backtracker::Outcome outcome = tries.tryAt(from);
        if (outcome == Backtracker::Outcome::match) return tries.match();
        if (outcome == Backtracker::Outcome::none) {
            from = tries.afterFailure(from);
        } else {
            if (!walks) walks.emplace(plan, subject);
            if (walks->walk(from)) return walks->match();
            from = walks->behind();
        }
    }
    return nullptr;
}

}  // namespace

// Searches that continue in one subject may each look far ahead for a short match. When
// backtracking has taken more than one search may spend on all the bytes passed, the rest
// is walked, because walks record dead ends.
bool search(const Plan& plan, const char* subject, const char* from, const char** startp,
            const char** endp, size_t& effort, Patience patience, bool goesOn) {
    DeadEnds& known = *plan.room.known;
    if (!goesOn || known.subject != subject || from < known.begin) {
        known.subject = subject;
        known.begin = from;
        known.work = known.count = 0;
    }
    const size_t way = static_cast<size_t>(from - known.begin);
    if (known.work > 16 * patience.atLeast + patience.perByte * way) patience = {0, 0};
    Search search(plan, subject, from, patience);
    const char* const* const slots = search.run();
    known.work += search.workGoingBack();
    effort += search.workDone();
    if (slots == nullptr) return false;
    startp[0] = slots[0];
    endp[0] = slots[1];
    for (size_t slot = 2; slot < plan.slotCount; slot += 2) {
        startp[slot / 2] = slots[slot];
        endp[slot / 2] = slots[slot + 1];
    }
    return true;
}

}  // namespace fxRegProgram
