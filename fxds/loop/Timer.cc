#include "fxds/Timer.h"

#include <cfloat>
#include <cmath>
#include <utility>

#include "fxds/dataflow/TraceLines.h"

// Active timers stand in one list in the order of expiry, each with the time by
// which it is due after its predecessor, so that letting time pass changes only
// the first one.
//
// A tick may start, stop and destroy any timer and may itself let time pass.
// The one mechanism for this is the pass: every alarm() keeps one on its stack,
// and stopping a timer, which destroying it does too, withdraws it from all of
// them. Between ticks a pass holds on to nothing but the timers in it.

struct fxTimer::Pass : fxWalk<Pass> {
    Pass(unsigned long number_, float seconds_)
        : fxWalk(passes), number(number_), seconds(seconds_), ticking(nullptr) {}

    unsigned long number;         // higher than those of the passes around it
    float seconds;                // what is still to be accounted for
    fxTimer* ticking;             // null once it is withdrawn
    fxVoidPtrArray toStartAgain;  // repeating timers that ticked, in that order
};

fxTimer* fxTimer::activeTimers = nullptr;
fxWalkList<fxTimer::Pass> fxTimer::passes;

namespace {

const char tickName[] = "tick";

unsigned long lastPass = 0;

// Keeps NaN and infinity out of the list, where they would spread.
float usable(float seconds) { return seconds > 0 ? std::fmin(seconds, FLT_MAX) : 0; }

}  // namespace

fxTimer::fxTimer(unsigned char repeating_)
    : interval(0),
      delta(0),
      active(0),
      repeating(repeating_),
      tickOutput(addOutput(tickName, fxDT_void)),
      next(nullptr),
      previous(nullptr),
      startedIn(0) {}

fxTimer::~fxTimer() { stopTimer(); }

void fxTimer::setInterval(float seconds) { interval = usable(seconds); }

// Taken off the list only: in a pass, a repeating timer stays among those that
// are started again, which then gives it the same full interval.
void fxTimer::startTimer() {
    if (fxTrace::isOn(fxTrace::timers)) fxTraceLines::timer("start", *this, interval);
    removeFromActiveList();
    addToActiveList();
}

void fxTimer::stopTimer() {
    const bool wasActive = active != 0;
    removeFromActiveList();
    const bool wasWaiting = withdraw();
    if ((wasActive || wasWaiting) && fxTrace::isOn(fxTrace::timers)) {
        fxTraceLines::timer("stop", *this, interval);
    }
}

void fxTimer::tick() {
    tickOutput = getOutput(tickName, fxDT_void);
    sendVoid(tickOutput, fxSendQueued);
}

void fxTimer::alarm(float seconds) {
    fxVoidPtrArray toStartAgain;
    {
        Pass pass(++lastPass, std::isnan(seconds) ? 0 : seconds);
        while (fxTimer* timer = firstDue(pass)) {
            pass.seconds -= timer->delta;
            timer->unlink();
            pass.ticking = timer;
            if (fxTrace::isOn(fxTrace::timers))
                fxTraceLines::timer("tick", *timer, timer->interval);
            timer->tick();
            if (pass.ticking != nullptr && timer->repeating) pass.toStartAgain.append(timer);
        }
        toStartAgain = std::move(pass.toStartAgain);
    }
    for (void* timer : toStartAgain) static_cast<fxTimer*>(timer)->startTimer();
}

// The timer whose turn it is in the pass, or null after the remaining time was
// taken from the one that is due next. Timers that wait for the end of the pass
// are due at once, so they take no part in the sum of the deltas.
fxTimer* fxTimer::firstDue(const Pass& pass) {
    fxTimer* timer = activeTimers;
    while (timer != nullptr && timer->waitsFor(pass)) timer = timer->next;
    if (timer == nullptr || !(pass.seconds < timer->delta)) return timer;
    timer->delta -= pass.seconds;
    return nullptr;
}

bool fxTimer::waitsFor(const Pass& pass) const { return startedIn >= pass.number; }

// In a pass, a timer that would take nothing from the time still to pass would
// tick for ever if each tick started it again; it waits for the end of the
// pass instead and is due at once then.
void fxTimer::addToActiveList() {
    float wait = usable(interval);
    startedIn = 0;
    if (!passes.isEmpty() && !(passes.innermost().seconds - wait < passes.innermost().seconds)) {
        startedIn = lastPass;
        wait = 0;
    }
    fxTimer* before = nullptr;
    fxTimer* after = activeTimers;
    while (after != nullptr && wait >= after->delta) {
        wait -= after->delta;
        before = after;
        after = after->next;
    }
    delta = wait;
    active = 1;
    next = after;
    previous = before;
    (before != nullptr ? before->next : activeTimers) = this;
    if (after != nullptr) {
        after->previous = this;
        after->delta -= wait;
    }
}

void fxTimer::removeFromActiveList() {
    if (!active) return;
    if (next != nullptr) next->delta += delta;
    unlink();
}

// Unlinks the timer without adding its delta to its successor.
void fxTimer::unlink() {
    (previous != nullptr ? previous->next : activeTimers) = next;
    if (next != nullptr) next->previous = previous;
    next = previous = nullptr;
    active = 0;
}

bool fxTimer::withdraw() {
    bool hasBeenInPass = false;
    passes.each([&](Pass& pass) {
        if (pass.ticking == this) {
            pass.ticking = nullptr;
            hasBeenInPass = repeating != 0;
        }
        for (unsigned int i = pass.toStartAgain.length(); i-- > 0;) {
            if (pass.toStartAgain[i] != this) continue;
            pass.toStartAgain.remove(i, 1);
            hasBeenInPass = true;
        }
    });
    return hasBeenInPass;
}
