#include <algorithm>
#include <cstring>
#include <optional>

#include "fxds/search/RegBacktracker.h"
#include "fxds/search/RegInStep.h"
#include "fxds/search/RegInternals.h"

// A search looks for places where a match may start, with what the C library and a
// table do quickly, and tries each by going back. Where that takes too much it walks
// in step instead, from that start on and for as long as a way is open; behind that,
// the search goes on as before. Both find the same match. Walking alone takes 1.2 to
// 5.4 times as long on the rows of PatternBench; going back alone is exponential.
//
// Invariant of a search: no match starts in [start, from). So the time is in
// proportion to the subject times the program: the work of all tries is bounded by
// what has been looked at, and walks never overlap.

namespace fxRegProgram {
namespace {

class Search : private RegReader {
public:
    Search(const Plan& plan_, const char* subject_, const char* from, Patience patience)
        : RegReader(plan_, subject_), start(from), tries(plan_, subject_, from, patience) {}

    /// The slots of the match, null when there is none.
    const char* const* run();
    size_t workGoingBack() const { return tries.workDone(); }
    size_t workDone() const { return tries.workDone() + (walks ? walks->workDone() : 0); }

private:
    const char* findStart(const char* from) const;
    const char* findRunAndText(const char* from) const;
    const char* skipToStart(const char* from) const;

    const char* const start;
    Backtracker tries;
    std::optional<InStep> walks;
};

const char* const* Search::run() {
    const char* from = start;
    while (from != nullptr && (from = findStart(from)) != nullptr) {
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

// The first place at `from` or later where a match may start, null for none. What
// each kind saves against the table: text 84 % of the time (needle[a-z]*), runAndText
// 37 % ([a-z]+ing [a-z]+), byte 35 % (z[0-9]).
const char* Search::findStart(const char* from) const {
    switch (plan.startKind) {
        case Start::text:
            return std::strstr(from, plan.program + steps[plan.startStep].text);
        case Start::runAndText:
            return findRunAndText(from);
        case Start::byte:
            return std::strchr(from, plan.startByte);
        case Start::set:
            from = skipToStart(from);
            return *from != 0 || plan.startsAtEnd ? from : nullptr;
        case Start::anchored:
            return from == subject ? from : nullptr;
        default:
            return from;
    }
}

// The first byte that is in the set of starts, which has the end of the text in it.
// Four bytes a turn save 8 % of the time of [0-9]+[.][0-9]+.
const char* Search::skipToStart(const char* from) const {
    const unsigned int set = plan.start;
    const unsigned char mask = plan.startMask;
    while (!isIn(set, mask, from)) {
        if (isIn(set, mask, from + 1)) return from + 1;
        if (isIn(set, mask, from + 2)) return from + 2;
        if (isIn(set, mask, from + 3)) return from + 3;
        from += 4;
    }
    return from;
}

// Where every match is a run and then a text, the first text tells where the first
// run may be, all of it up to there.
const char* Search::findRunAndText(const char* from) const {
    const char* const text = plan.program + steps[plan.startStep].text;
    const Step* const firstRun = &steps[plan.runFirst];
    for (const char* least = from; *least != 0; ++least) {
        least = std::strstr(least, text);
        if (least == nullptr) return nullptr;
        const char* first = least;
        while (first != from && isIn(firstRun->set, firstRun->setMask, first - 1)) --first;
        if (least - first >= firstRun->least) return first;
    }
    return nullptr;
}

}  // namespace

// Searches that go on in a subject may each look far ahead, for little. When going
// back has taken more than a search may for all the way that they have come, the rest
// is walked, as walks remember what they have found to lead nowhere.
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
