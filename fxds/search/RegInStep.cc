#include "fxds/search/RegInStep.h"

#include <algorithm>
#include <utility>

#include "fxds/Fatal.h"

// All ways are walked at once, byte by byte. Between two bytes each way is a thread: the
// step that takes the next byte, and the positions recorded so far. The rest of a way
// depends only on its step and the position, so of two ways that reach the same step, the
// one that backtracking would try first is kept.
//
// Invariants, when the threads `ahead` wait for the byte at `at`:
// (1) There is at most one thread for each place. A place is a step, and for an EXACTLY the
//     number of bytes of its text taken so far. Each thread can take the byte.
// (2) The threads are in the order in which backtracking would try them. Ways from an
//     earlier start precede those from a later one.
// (3) marks[place] == turn when a way has reached the place at this position. A repetition
//     that has had its minimum is another place.
// (4) When there is a match, every thread precedes it in that order: a thread that reaches
//     END replaces it.
// (5) A place from which no match was reached at a position is a dead end in every search
//     of the subject: notes on later positions stay true until a match is found there. A
//     later walk treats such places as reached.
// While the ways from a thread are followed, `pending` contains those not followed yet, the
// next one on top, each below the positions to restore before it. A step is pushed only
// when it is reached first at a position, so there is room for all.

namespace fxRegProgram {

InStep::InStep(const Plan& plan_, const char* subject_)
    : RegReader(plan_, subject_),
      slotCount(plan_.slotCount),
      here(plan_.room.lists[0]),
      ahead(plan_.room.lists[1]) {
    std::fill_n(plan.room.marks, plan.placeCount, 0);
}

inline void InStep::beginTurn() {
    if (++turn != 0) return;
    std::fill_n(plan.room.marks, plan.placeCount, 0);
    turn = 1;
}

bool InStep::walk(const char* from) {
    at = walkStart = from;
    ahead.count = 0;
    forgetUpTo(from);
    beginTurn();
    start();
    DeadEnds& known = *plan.room.known;
    size_t next = 0;  // of the known positions
    size_t distance = DeadEnds::closest;
    while (ahead.count != 0) {
        std::swap(here, ahead);
        ahead.count = 0;
        ++at;
        beginTurn();
        isCut = false;
        const bool isKnown = next < known.count && known.positions[next].at == at;
        if (isKnown) recall(known.positions[next]);
        for (size_t i = 0; i < here.count && !isCut; ++i) {
            advance(here.threads[i], here.slots + i * slotCount);
        }
        if (!hasMatch) start();
        const bool isDistant = at == from + distance;
        if (isDistant) distance *= DeadEnds::widening;
        if (isCut) {
            forgetUpTo(at);
            next = 0;
        } else if (isKnown || isDistant) {
            next = keep(next, isKnown);
        }
    }
    return hasMatch;
}

// Marks the places from which no match can be reached as reached.
void InStep::recall(const DeadEnds::Position& position) {
    for (size_t place = 0; place < plan.placeCount; ++place) {
        if ((position.places[place / 64] >> place % 64 & 1) != 0) plan.room.marks[place] = turn;
    }
}

// Records all places reached here. They are dead ends unless a match is found from here on,
// and then this position is dropped. Returns the index of the next position.
size_t InStep::keep(size_t index, bool isKnown) {
    DeadEnds& known = *plan.room.known;
    DeadEnds::Position* const kept = known.positions;
    if (!isKnown) {
        if (known.count == DeadEnds::room) index -= thinOut() < index;
        std::rotate(kept + index, kept + known.count, kept + known.count + 1);
        kept[index].at = at;
        ++known.count;
    }
    std::fill_n(kept[index].places, known.words, 0);
    for (size_t place = 0; place < plan.placeCount; ++place) {
        const uint64_t isHere = plan.room.marks[place] == turn;
        kept[index].places[place / 64] |= isHere << place % 64;
    }
    return index + 1;
}

// Drops a position between two that are close together, relative to their distance from the
// start of the walk, and returns its index. Up to a gigabyte such a position exists,
// because there is room for twice as many as the widenings up to there; beyond, the last
// but one is dropped.
size_t InStep::thinOut() {
    DeadEnds& known = *plan.room.known;
    const auto distance = [&](size_t i) { return known.positions[i].at - walkStart; };
    size_t index = 1;
    while (index + 2 < known.count &&
           distance(index + 1) / static_cast<long>(DeadEnds::widening) > distance(index - 1)) {
        ++index;
    }
    drop(index, index + 1);
    return index;
}

void InStep::forgetUpTo(const char* position) {
    const DeadEnds& known = *plan.room.known;
    size_t count = 0;
    while (count < known.count && known.positions[count].at <= position) ++count;
    drop(0, count);
}

// Drops the positions [from, to).
void InStep::drop(size_t from, size_t to) {
    DeadEnds& known = *plan.room.known;
    std::rotate(known.positions + from, known.positions + to, known.positions + known.count);
    known.count -= to - from;
}

// Adds the ways that start here.
void InStep::start() {
    if (plan.start.mask != 0 && !isIn(plan.start, at)) return;
    std::fill_n(slots, slotCount, nullptr);
    slots[0] = at;
    follow(&steps[plan.first]);
}

// Continues behind the byte that the thread has taken. Most threads reach a place where an
// earlier one has been, so nothing is copied before that is known.
inline void InStep::advance(const Thread& thread, const char* const* recorded) {
    ++work;
    const Step* const step = &steps[thread.step];
    if (step->op == EXACTLY && thread.offset + 1U < step->length) {
        if (!isNew(step->place + thread.offset + 1U)) return;
        copySlots(recorded, slots);
        wait(step, thread.offset + 1U);
    } else if ((step->op == STAR || step->op == PLUS) && step->run != Step::ofOptional) {
        if (!isNew(step->place + 1U)) return;
        copySlots(recorded, slots);
        if (isNew(step->place)) wait(step, 0);
        if (isIn(step->follow, step->followMask, at)) follow(&steps[step->next]);
    } else if (plan.room.marks[steps[step->next].place] != turn) {
        copySlots(recorded, slots);
        follow(&steps[step->next]);
    }
}

// Follows all ways from a step to the steps where they wait for a byte or end, in order.
void InStep::follow(const Step* step) {
    depth = 0;
    for (;;) {
        while (step != nullptr) step = pass(step);
        if (isCut || depth == 0) return;
        const Entry entry = plan.room.pending[--depth];
        step = &steps[entry.step];
        if (step->op == BRANCH) {
            step = enter(step);
        } else {
            slots[step->slot] = entry.position;
            step = nullptr;
        }
    }
}

// Passes one step. Returns the next one, or null when the way ends or waits.
inline const Step* InStep::pass(const Step* step) {
    ++work;
    if (!isNew(step->place)) return nullptr;
    switch (step->op) {
        case BRANCH: {
            const Step* const chosen = alternative(step, at, work);
            return chosen != nullptr ? enter(chosen) : nullptr;
        }
        case STAR:
            isNew(step->place + 1U);
            wait(step, 0);
            return isIn(step->follow, step->followMask, at) ? &steps[step->next] : nullptr;
        case OPEN:
        case CLOSE:
            if (depth != 0) push(step, slots[step->slot]);
            slots[step->slot] = at;
            return &steps[step->next];
        case BOL:
        case EOL:
        case WORDA:
        case WORDZ:
            return holds(step->op, at) ? &steps[step->next] : nullptr;
        case END:
            finish();
            return nullptr;
        default:
            wait(step, 0);
            return nullptr;
    }
}

inline bool InStep::isNew(unsigned int place) {
    if (plan.room.marks[place] == turn) return false;
    plan.room.marks[place] = turn;
    return true;
}

inline void InStep::push(const Step* step, const char* position) {
    FX_ASSERT(depth < plan.stepCount);
    Entry& entry = plan.room.pending[depth++];
    entry.position = position;
    entry.step = static_cast<uint64_t>(step - steps) & 0xFFFF;
}

// Enters an alternative and pushes those after it.
inline const Step* InStep::enter(const Step* chosen) {
    const Step* const other = alternative(chosen->later, at, work);
    if (other != nullptr) push(other, at);
    return &steps[chosen->body];
}

// Adds a thread, if it can take the next byte.
inline void InStep::wait(const Step* step, unsigned int offset) {
    const bool canTake = step->op == EXACTLY ? plan.program[step->text + offset] == *at
                         : step->op == ANY   ? *at != 0
                                             : isIn(step->set, step->setMask, at);
    if (!canTake) return;
    Thread& thread = ahead.threads[ahead.count];
    thread.step = static_cast<unsigned short>(step - steps);
    thread.offset = static_cast<unsigned short>(offset);
    copySlots(slots, ahead.slots + ahead.count * slotCount);
    ++ahead.count;
}

// Records a match. The ways not followed yet come after it in the order.
inline void InStep::finish() {
    hasMatch = isCut = true;
    copySlots(slots, positions);
    positions[1] = at;
}

// There is at least one slot, and often only one.
inline void InStep::copySlots(const char* const* from, const char** to) const {
    to[0] = from[0];
    for (size_t i = 1; i < slotCount; ++i) to[i] = from[i];
}

}  // namespace fxRegProgram
