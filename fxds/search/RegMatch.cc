#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fxds/search/RegInternals.h"

// The matcher walks the steps of the plan with one position in the subject. Where
// it may go on in more than one way it pushes the other ways on a stack, and when
// it gets stuck it takes the latest of them. So alternatives are tried in order,
// repetitions from the most to the least, and nothing recurses.
//
// Positions of groups are overwritten as the walk passes them; what they were is
// pushed too, so that going back restores them. In the end each group has what
// was passed last on the way that led to success. Nothing needs to be pushed when
// there is nothing to go back to, or when the same position was already pushed
// since the latest choice; so a walk without choices leaves the stack empty.
//
// How a walk ends from a step and a position on depends on these two alone. When
// a search has taken long, it begins to mark the steps and positions where it has
// been: coming there again means that it failed from there before, also from
// another start, because no loop comes back to a step without having moved on.
// Forgetting marks is always correct, so their memory has a limit.

namespace fxRegProgram {
namespace {

bool isWordByte(char c) { return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0; }

unsigned char byteAt(const char* p) { return static_cast<unsigned char>(*p); }

// What the walk can go back to.
struct Entry {
    const char* position;  // where to go on; for a group what was recorded before
    uint64_t step : 16;    // BRANCH: alternative to try; STAR, PLUS; OPEN, CLOSE: restore
    uint64_t fewer : 48;   // STAR, PLUS: how many shorter repetitions are left as well
};

// The first entries lie in the object, further ones on the heap.
class Stack {
public:
    Stack() = default;
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;
    ~Stack() {
        if (entries != near) std::free(entries);
    }

    bool isEmpty() const { return depth == 0; }
    void clear() { depth = 0; }
    Entry& top() { return entries[depth - 1]; }
    void pop() { --depth; }
    // False when memory runs out.
    bool push(const char* position, uint64_t step, uint64_t fewer) {
        if (depth == room && !grow()) return false;
        Entry& entry = entries[depth++];
        entry.position = position;
        entry.step = step & 0xFFFF;
        entry.fewer = fewer & 0xFFFFFFFFFFFF;
        return true;
    }

private:
    bool grow();

    static constexpr size_t nearCount = 128;
    Entry near[nearCount];
    Entry* entries = near;
    size_t depth = 0;
    size_t room = nearCount;
};

bool Stack::grow() {
    if (room > SIZE_MAX / (2 * sizeof(Entry))) return false;
    Entry* const old = entries == near ? nullptr : entries;
    Entry* const larger = static_cast<Entry*>(std::realloc(old, 2 * room * sizeof(Entry)));
    if (larger == nullptr) return false;
    if (old == nullptr) std::memcpy(larger, near, sizeof near);
    entries = larger;
    room *= 2;
    return true;
}

// Where the search has been. Bitmaps of one bit for each position are made for
// the steps that need one, up to a total in proportion to the subject. For
// repetitions the latest run is kept as well: its end need not be looked for
// again, and the lengths that were tried need not be tried again.
class Memory {
public:
    Memory(unsigned int stepCount, const char* from)
        : steps(stepCount), start(from), length(std::strlen(from)) {}
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    ~Memory() {
        for (const ForStep& step : steps) std::free(step.bits);
    }

    struct Run {
        const char* begin = nullptr;  // all of [begin, end) is in the set
        const char* end = nullptr;
        const char* tried = nullptr;  // what follows was tried from [tried, end]
    };

    // Marks and returns whether it was marked before.
    bool mark(unsigned short step, const char* p) {
        unsigned char*& bits = steps[step].bits;
        if (bits == nullptr && !(bits = makeBits())) return false;
        const size_t at = static_cast<size_t>(p - start);
        const unsigned char bit = static_cast<unsigned char>(1U << (at & 7));
        if ((bits[at >> 3] & bit) != 0) return true;
        bits[at >> 3] |= bit;
        return false;
    }

    Run& run(unsigned short step) { return steps[step].run; }

    // Work that is in proportion to the subject and so worth no marks.
    size_t fairWork() const { return 4 * length; }

private:
    unsigned char* makeBits() {
        const size_t bytes = length / 8 + 1;
        const size_t limit = 8 * length + (size_t{1} << 20);
        if (bytes > limit - used) return nullptr;
        used += bytes;
        return static_cast<unsigned char*>(std::calloc(bytes, 1));
    }

    struct ForStep {
        unsigned char* bits = nullptr;
        Run run;
    };
    std::vector<ForStep> steps;
    const char* const start;  // where the search began
    const size_t length;
    size_t used = 0;
};

class Matcher {
public:
    Matcher(const Plan& plan_, const char* subject_, size_t patience)
        : plan(plan_),
          steps(plan_.steps),
          tables(plan_.tables),
          subject(subject_),
          firstRun(plan_.runFirst != Step::none ? steps + plan_.runFirst : nullptr),
          workLimit(patience) {}
    ~Matcher() { delete memory; }
    Matcher(const Matcher&) = delete;
    Matcher& operator=(const Matcher&) = delete;

    bool search(const char* from);
    void report(const char** startp, const char** endp) const;

private:
    const char* findStart(const char* from) const;
    const char* findRunAndText(const char* from) const;
    const char* skipToStart(const char* from) const;
    const char* afterFailure(const char* tried) const;
    bool match(const char* from);
    const Step* take(const Step* step);
    const Step* choose(const Step* step);
    const Step* alternative(unsigned short index) const;
    const Step* repeat(const Step* step);
    const Step* repeatRemembered(const Step* step);
    const Step* shorten(const Step* step, const char* from, const char* least);
    const Step* resume();
    const char* runEnd(const Step* step, const char* from) const;
    bool isIn(unsigned int table, unsigned char mask, const char* p) const {
        return (tables[table + byteAt(p)] & mask) != 0;
    }
    bool isWordStart() const { return isWordByte(*at) && (at == subject || !isWordByte(at[-1])); }
    void record(const Step* step);
    void push(const Step* step, const char* position, uint64_t fewer);
    void pushChoice(const Step* step, const char* position, uint64_t fewer) {
        savedSlots = 0;
        push(step, position, fewer);
    }
    bool remembers(size_t cost);
    void considerRemembering();

    const Plan& plan;
    const Step* const steps;
    const unsigned char* const tables;
    const char* const subject;
    const char* at = nullptr;  // the position
    const char* matchStart = nullptr;
    const char* searchStart = nullptr;
    const Step* const firstRun;           // what every match starts with, or null
    const char* firstRunStart = nullptr;  // the latest such run
    const char* firstRunEnd = nullptr;
    const char* positions[2 * groupCount] = {};  // start and end of each group
    uint32_t savedSlots = 0;                     // pushed since the latest choice
    bool isOutOfMemory = false;
    Stack stack;
    size_t work = 0;
    size_t workLimit;  // where to think about remembering
    Memory* memory = nullptr;
    bool isRemembering = false;
};

bool Matcher::search(const char* from) {
    searchStart = from;
    from = findStart(from);
    while (from != nullptr) {
        if (match(from)) return true;
        if (isOutOfMemory) {
            fxregerror("out of space");
            return false;
        }
        from = afterFailure(from);
        if (from != nullptr) from = findStart(from);
    }
    return false;
}

void Matcher::report(const char** startp, const char** endp) const {
    startp[0] = matchStart;
    endp[0] = at;
    for (ptrdiff_t group = 1; group < groupCount; ++group) {
        startp[group] = positions[2 * group];
        endp[group] = positions[2 * group + 1];
    }
}

// The first place at `from` or later where a match may start, null for none.
const char* Matcher::findStart(const char* from) const {
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

// The first byte that is in the set of starts, which has the end of the text in
// it. Several bytes a turn, as this is all that is done with most of a text.
const char* Matcher::skipToStart(const char* from) const {
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

// The same when every match is a run and then a text: the first text tells where
// the first run may be, all of it up to there.
const char* Matcher::findRunAndText(const char* from) const {
    const char* const text = plan.program + steps[plan.startStep].text;
    for (const char* least = from; *least != 0; ++least) {
        least = std::strstr(least, text);
        if (least == nullptr) return nullptr;
        const char* start = least;
        while (start != from && isIn(firstRun->set, firstRun->setMask, start - 1)) --start;
        if (least - start >= firstRun->least) return start;
    }
    return nullptr;
}

// Where to look next, null at the end. When every match starts with a repetition,
// a later start within the same run could only be followed by what has failed
// already; and at the end of the run that has been tried too, or cannot start.
const char* Matcher::afterFailure(const char* tried) const {
    const char* last = tried;
    if (firstRunStart == tried) {
        last = firstRunEnd;
    } else if (firstRun != nullptr) {
        last = runEnd(firstRun, tried);
    }
    return *last != 0 ? last + 1 : nullptr;
}

// One try. On success `at` is the end of the match.
bool Matcher::match(const char* from) {
    std::memset(positions, 0, plan.slotCount * sizeof *positions);
    stack.clear();
    at = matchStart = from;
    const Step* step = &steps[plan.first];
    while (step->op != END) {
        step = take(step);
        if (step == nullptr) step = resume();
        if (step == nullptr) return false;
    }
    return !isOutOfMemory;
}

// Takes one step and returns the next, null when it fails.
inline const Step* Matcher::take(const Step* step) {
    bool isMatched = true;
    switch (step->op) {
        case BOL:
            isMatched = at == subject;
            break;
        case EOL:
            isMatched = *at == 0;
            break;
        case ANY:
            isMatched = *at != 0;
            ++at;
            break;
        case ANYOF:
        case ANYBUT:
            isMatched = isIn(step->set, step->setMask, at);
            ++at;
            break;
        case EXACTLY: {
            const char* const text = plan.program + step->text;
            size_t i = 0;
            while (i < step->length && at[i] == text[i]) ++i;
            isMatched = i == step->length;
            at += i;
            break;
        }
        case WORDA:
            isMatched = isWordStart();
            break;
        case WORDZ:
            isMatched = !isWordByte(*at);
            break;
        case OPEN:
        case CLOSE:
            record(step);
            break;
        case BRANCH:
            return choose(step);
        default:
            return repeat(step);
    }
    return isMatched ? &steps[step->next] : nullptr;
}

inline void Matcher::push(const Step* step, const char* position, uint64_t fewer) {
    const uint64_t index = static_cast<uint64_t>(step - steps);
    if (!stack.push(position, index, fewer)) isOutOfMemory = true;
}

inline void Matcher::record(const Step* step) {
    const uint32_t bit = uint32_t{1} << step->slot;
    if (!stack.isEmpty() && (savedSlots & bit) == 0) {
        savedSlots |= bit;
        push(step, positions[step->slot], 0);
    }
    positions[step->slot] = at;
}

// The alternative `index`, or the first after it, that can succeed here.
inline const Step* Matcher::alternative(unsigned short index) const {
    while (index != Step::none) {
        const Step* const step = &steps[index];
        if (isIn(step->follow, step->followMask, at)) return step;
        index = step->later;
    }
    return nullptr;
}

inline const Step* Matcher::choose(const Step* step) {
    if (remembers(1) && memory->mark(step->memory, at)) return nullptr;
    const Step* const chosen = alternative(static_cast<unsigned short>(step - steps));
    if (chosen == nullptr) return nullptr;
    const Step* const other = alternative(chosen->later);
    if (other != nullptr) pushChoice(other, at, 0);
    return &steps[chosen->body];
}

// The end of the longest run from `from` of what `step` repeats.
inline const char* Matcher::runEnd(const Step* step, const char* from) const {
    switch (step->run) {
        case Step::ofAny:
            return from + std::strlen(from);
        case Step::ofAllBut: {
            const char* const other = std::strchr(from, step->byte);
            return other != nullptr ? other : from + std::strlen(from);
        }
        case Step::ofOne:
            while (byteAt(from) == step->byte) ++from;
            return from;
        default:
            while (isIn(step->set, step->setMask, from)) ++from;
            return from;
    }
}

inline const Step* Matcher::repeat(const Step* step) {
    if (isRemembering) return repeatRemembered(step);
    const char* const end = runEnd(step, at);
    if (step == firstRun && at == matchStart) {
        firstRunStart = at;
        firstRunEnd = end;
    }
    remembers(1 + static_cast<size_t>(end - at) / 8);
    if (end - at < step->least) return nullptr;
    if (step->isPossessive) {
        at = end;
        return &steps[step->next];
    }
    return shorten(step, end, at + step->least);
}

// The same with the memory of earlier runs.
const Step* Matcher::repeatRemembered(const Step* step) {
    if (memory->mark(step->memory, at)) return nullptr;
    Memory::Run& run = memory->run(step->memory);
    const char* end = at;
    const bool isInRun = run.begin != nullptr && at >= run.begin && at <= run.end;
    if (!isInRun) {
        while (end != run.begin && isIn(step->set, step->setMask, end)) ++end;
        if (end != run.begin) {
            run.end = end;
            run.tried = end + 1;
        }
        run.begin = at;
    }
    const char* const least = at + step->least;
    const char* const most = run.tried - 1;
    if (least > most) return nullptr;
    run.tried = least;
    return shorten(step, most, least);
}

// Goes on behind the longest of the repetitions that end in [least, from] and
// can be followed by what comes next; leaves the shorter ones for later.
inline const Step* Matcher::shorten(const Step* step, const char* from, const char* least) {
    while (from >= least && !isIn(step->follow, step->followMask, from)) --from;
    if (from < least) return nullptr;
    if (from > least && !step->isPossessive) {
        pushChoice(step, from - 1, static_cast<uint64_t>(from - 1 - least));
    }
    at = from;
    return &steps[step->next];
}

// Goes back to the latest choice, null when there is none.
const Step* Matcher::resume() {
    while (!stack.isEmpty()) {
        const Entry entry = stack.top();
        const Step* step = &steps[entry.step];
        stack.pop();
        savedSlots = 0;
        if (step->op == BRANCH) {
            remembers(1);
            at = entry.position;
            const Step* const other = alternative(step->later);
            if (other != nullptr) pushChoice(other, at, 0);
            return &steps[step->body];
        }
        if (step->op == OPEN || step->op == CLOSE) {
            positions[step->slot] = entry.position;
            continue;
        }
        remembers(1);
        step = shorten(step, entry.position, entry.position - entry.fewer);
        if (step != nullptr) return step;
    }
    return nullptr;
}

// Adds to the work done and tells whether to use the memory.
inline bool Matcher::remembers(size_t cost) {
    work += cost;
    if (__builtin_expect(work > workLimit, false)) considerRemembering();
    return isRemembering;
}

// Puts the use of the memory off until the work is out of proportion to the
// length of the subject, which is not known before.
void Matcher::considerRemembering() {
    if (memory == nullptr) {
        memory = new Memory(plan.memoryCount, searchStart);
        if (workLimit != 0) workLimit += memory->fairWork();
        if (work <= workLimit) return;
    }
    isRemembering = true;
    workLimit = SIZE_MAX;
}

}  // namespace

bool search(const Plan& plan, const char* subject, const char* from, const char** startp,
            const char** endp, size_t patience) {
    Matcher matcher(plan, subject, patience);
    if (!matcher.search(from)) return false;
    matcher.report(startp, endp);
    return true;
}

}  // namespace fxRegProgram
