#include "fxds/Timer.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "fxds/dataflow/TraceLines.h"
#include "fxds/detail/Allocate.h"

// Active timers are listed in the order of expiry, each with its delay behind its
// predecessor, so that passing time changes only the first one.
//
// A tick may start, stop and destroy any timer, may call alarm() itself, and may throw. One
// mechanism covers all of this, the pass: every alarm() has one on its stack, and stopping
// or destroying a timer withdraws it from all of them.
//
// The delta of a new timer is computed by subtracting each delta before it in turn; adding
// floats up in another order would round differently. So the list is walked, and the cost
// of the walk is the access from timer to timer. The list is therefore also kept in chunks
// of pointers, which the processor reads ahead while the subtractions wait for each other.
//
// Invariants:
// (1) Every delta is at least 0.
// (2) A timer is in the list exactly when its `chunk` contains it. `next` links the timers
//     in the order of the chunks. `active` agrees unless the program has written to it, so
//     the list is changed only by what the chunks contain. No chunk but the first is empty.
// (3) A timer that waits for the end of a pass is in the list and active, as every started
//     timer is, with a delta of 0, so a pass that begins meanwhile finds it due. Only
//     startedIn, the number of the pass, distinguishes it from the others.
// (4) A pass refers only to timers that withdraw() removes from it.

// Repeating timers that ticked in a pass, in that order. They are started again when the
// pass ends, also by an exception.
struct fxTimer::Restarts {
    Restarts() = default;
    Restarts(const Restarts&) = delete;
    Restarts& operator=(const Restarts&) = delete;
    ~Restarts() {
        for (void* timer : timers) static_cast<fxTimer*>(timer)->startTimer();
    }

    fxVoidPtrArray timers;
};

// A part of the list. The first one always exists.
struct fxTimer::Chunk {
    // The timer at the index, which may be in the next chunk; null behind the last.
    fxTimer* at(unsigned int index) const {
        if (index < count) return timers[index];
        return next != nullptr ? next->timers[0] : nullptr;
    }
    fxTimer* before(unsigned int index) const {
        if (index > 0) return timers[index - 1];
        return previous != nullptr && previous->count > 0 ? previous->timers[previous->count - 1]
                                                          : nullptr;
    }
    unsigned int indexOf(const fxTimer* timer) const {
        unsigned int index = 0;
        while (timers[index] != timer) ++index;
        return index;
    }
    void insert(fxTimer* timer, unsigned int index) {
        if (count == capacity) {
            split();
            if (index > count) return next->insert(timer, index - count);
        }
        std::memmove(timers + index + 1, timers + index, (count - index) * sizeof *timers);
        timers[index] = timer;
        timer->chunk = this;
        ++count;
    }
    void erase(unsigned int index) {
        timers[index]->chunk = nullptr;
        --count;
        std::memmove(timers + index, timers + index + 1, (count - index) * sizeof *timers);
        if (count > 0 || previous == nullptr) return;
        previous->next = next;
        if (next != nullptr) next->previous = previous;
        std::free(this);
    }
    void split() {
        Chunk* const upper = new (fxNewBlock(sizeof(Chunk))) Chunk();
        upper->next = next;
        upper->previous = this;
        if (next != nullptr) next->previous = upper;
        next = upper;
        upper->count = count - capacity / 2;
        count = capacity / 2;
        std::memcpy(upper->timers, timers + count, upper->count * sizeof *timers);
        for (unsigned int i = 0; i < upper->count; ++i) upper->timers[i]->chunk = upper;
    }

    static constexpr unsigned int capacity = 60;
    static Chunk first;

    Chunk* next = nullptr;
    Chunk* previous = nullptr;
    unsigned int count = 0;
    fxTimer* timers[capacity];
};

struct fxTimer::Pass : fxWalk<Pass> {
    Pass(unsigned long number_, float seconds_, Restarts& restarts_)
        : fxWalk(passes),
          number(number_),
          seconds(seconds_),
          ticking(nullptr),
          restarts(restarts_) {}

    // Subtracts the remaining time from the remaining timers. Some of them are due only if
    // a tick has thrown; they tick in the next pass.
    ~Pass() {
        endTick();
        for (fxTimer* timer = activeTimers; timer != nullptr; timer = timer->next) {
            if (seconds < timer->delta) {
                timer->delta -= seconds;
                return;
            }
            seconds -= timer->delta;
            timer->delta = 0;
        }
    }

    bool isWaitedFor(const fxTimer& timer) const {
        return timer.startedIn >= number && !(timer.delta > 0);
    }

    // Unlinks and returns the timer that ticks next; null when none is due.
    fxTimer* takeFirstDue() {
        fxTimer* timer = activeTimers;
        while (timer != nullptr && isWaitedFor(*timer)) timer = timer->next;
        if (timer == nullptr || seconds < timer->delta) return nullptr;
        seconds -= timer->delta;
        timer->unlink();
        ticking = timer;
        return timer;
    }

    void endTick() {
        if (ticking != nullptr && ticking->repeating) restarts.timers.append(ticking);
        ticking = nullptr;
    }

    const unsigned long number;  // higher than that of the enclosing pass
    float seconds;               // what is still to be accounted for
    fxTimer* ticking;            // null after withdraw()
    Restarts& restarts;
};

fxTimer* fxTimer::activeTimers = nullptr;
fxTimer::Chunk fxTimer::Chunk::first;
fxWalkList<fxTimer::Pass> fxTimer::passes;

namespace {

const char tickName[] = "tick";

unsigned long lastPass = 0;

// Keeps NaN and infinity out of the list, where they would spread.
float usable(float seconds) { return seconds > 0 ? std::min(seconds, FLT_MAX) : 0; }

}  // namespace

fxTimer::fxTimer(unsigned char repeating_)
    : interval(0),
      delta(0),
      active(0),
      repeating(repeating_),
      tickOutput(addOutput(tickName, fxDT_void)),
      next(nullptr),
      chunk(nullptr),
      startedIn(0) {}

fxTimer::~fxTimer() {
    active = isListed();
    stopTimer();
}

void fxTimer::setInterval(float seconds) { interval = usable(seconds); }

// Removes the timer from the list only: in a pass, a repeating timer stays among those to
// start again, which then get the same full interval.
void fxTimer::startTimer() {
    if (fxTrace::isOn(fxTrace::timers)) fxTraceLines::timer("start", *this, interval);
    removeFromActiveList();
    addToActiveList();
}

void fxTimer::stopTimer() {
    const bool wasWaiting = active && isListed();
    if (wasWaiting) removeFromActiveList();
    const bool wasToStart = withdraw();
    if ((wasWaiting || wasToStart) && fxTrace::isOn(fxTrace::timers)) {
        fxTraceLines::timer("stop", *this, interval);
    }
}

void fxTimer::tick() {
    tickOutput = getOutput(tickName, fxDT_void);
    sendVoid(tickOutput, fxSendQueued);
}

void fxTimer::alarm(float seconds) {
    Restarts restarts;
    Pass pass(++lastPass, std::isnan(seconds) ? 0 : seconds, restarts);
    while (fxTimer* timer = pass.takeFirstDue()) {
        if (fxTrace::isOn(fxTrace::timers)) fxTraceLines::timer("tick", *timer, timer->interval);
        timer->tick();
        pass.endTick();
    }
}

// In a pass, a timer whose wait is too short to reduce the remaining time would tick for
// ever if each tick started it again. It waits for the end of the pass instead, and is due
// at once then.
void fxTimer::addToActiveList() {
    float wait = usable(interval);
    startedIn = 0;
    if (!passes.isEmpty() && !(passes.innermost().seconds - wait < passes.innermost().seconds)) {
        startedIn = lastPass;
        wait = 0;
    }
    Chunk* place = &Chunk::first;
    unsigned int index = 0;
    while (true) {
        for (index = 0; index < place->count; ++index) {
            const float step = place->timers[index]->delta;
            if (!(wait >= step)) break;
            wait -= step;
        }
        if (index < place->count || place->next == nullptr) break;
        place = place->next;
    }
    delta = wait;
    active = 1;
    next = place->at(index);
    fxTimer* const before = place->before(index);
    (before != nullptr ? before->next : activeTimers) = this;
    if (next != nullptr) next->delta -= wait;
    place->insert(this, index);
}

void fxTimer::removeFromActiveList() {
    if (!isListed()) return;
    if (fxTimer* const after = unlink()) after->delta += delta;
}

// Unlinks the timer without adding its delta to its successor, which is returned.
fxTimer* fxTimer::unlink() {
    const unsigned int index = chunk->indexOf(this);
    fxTimer* const before = chunk->before(index);
    fxTimer* const after = chunk->at(index + 1);
    (before != nullptr ? before->next : activeTimers) = after;
    chunk->erase(index);
    next = nullptr;
    active = 0;
    return after;
}

// Removes the timer from all passes. Returns whether one would have started it again.
bool fxTimer::withdraw() {
    bool wasToStart = false;
    if (passes.isEmpty()) return wasToStart;
    passes.each([&](Pass& pass) {
        if (pass.ticking == this) {
            pass.ticking = nullptr;
            wasToStart = repeating != 0;
        }
        fxVoidPtrArray& timers = pass.restarts.timers;
        for (unsigned int i = timers.length(); i-- > 0;) {
            if (timers[i] != this) continue;
            timers.remove(i, 1);
            wasToStart = true;
        }
    });
    return wasToStart;
}
