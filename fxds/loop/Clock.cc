#include "fxds/Clock.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "fxds/Exec.h"
#include "fxds/dataflow/TraceLines.h"
#include "fxds/loop/AlarmClock.h"

// AlarmClock.h has the invariants of the heap. Two more concern ownership and the turn:
// (5) The clock has one hold on each alarm in the heap that it owns. stop() and the tick of
//     an alarm that does not repeat release it; a destructor has none to release.
// (6) A turn begins with the earliest time in `armed`, so that alarms started during it do
//     not arm the descriptor one by one; its end arms the descriptor, also after an
//     exception. `served` is the time of the innermost turn.
//
// Code of the program runs in tick(), and in the trace. It may start, stop or destroy any
// alarm, this one too, and may poll, which serves a turn within the turn. So each step of a
// turn begins with the top of the heap.

namespace {

// Sums beyond the last moment are the last moment.
fxAlarm::Time later(fxAlarm::Time time, fxAlarm::Span span) {
    return span > fxAlarm::Time::max() - time ? fxAlarm::Time::max() : time + span;
}

double inSeconds(fxAlarm::Span span) {
    return std::chrono::duration_cast<std::chrono::duration<double>>(span).count();
}

}  // namespace

fxAlarm::Time fxClock::now() const {
    if (!isWall) return fxAlarm::Clock::now();
    return fxAlarm::Time(fxAlarm::spanOf(std::chrono::system_clock::now().time_since_epoch()));
}

bool fxClock::hasDescriptor() {
    if (fxExec::canServe(fd)) return true;
    if (fd >= 0) ::close(fd);
    fd = timerfd_create(isWall ? CLOCK_REALTIME : CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    return fxExec::canServe(fd);
}

// Moves the gap at `index` towards the top until `entry` fits in.
void fxClock::rise(Entry entry, size_t index) {
    while (index > 0 && isBefore(entry, heap[(index - 1) / 2])) {
        put(heap[(index - 1) / 2], index);
        index = (index - 1) / 2;
    }
    put(entry, index);
}

// The same away from the top.
void fxClock::sink(Entry entry, size_t index) {
    for (size_t child = 2 * index + 1; child < heap.size(); child = 2 * index + 1) {
        if (child + 1 < heap.size() && isBefore(heap[child + 1], heap[child])) ++child;
        if (!isBefore(heap[child], entry)) break;
        put(heap[child], index);
        index = child;
    }
    put(entry, index);
}

// An alarm that a tick starts for a past time comes behind those due now; otherwise it
// would keep them from ticking in this turn, and in each if it is started so again.
void fxClock::add(fxAlarm& alarm) {
    alarm.order = ++lastOrder;
    alarm.due = std::max(alarm.due, served);
    const Entry entry = {alarm.due, alarm.order, &alarm};
    heap.push_back(entry);
    rise(entry, heap.size() - 1);
    if (++active == 1) fxExec::theExecutive()->addSelectHandler(this);
    if (heap.front().due < armed) arm();
}

// The last entry takes the place of the top, and goes down to where it belongs.
void fxClock::dropTop() {
    const Entry last = heap.back();
    heap.pop_back();
    if (!heap.empty()) sink(last, 0);
}

// Afterwards the top, if there is one, is an alarm.
void fxClock::dropStopped() {
    if (active == 0) heap.clear();
    while (!heap.empty() && heap.front().alarm == nullptr) dropTop();
}

// Makes the alarm's entry one of those that are left behind. There are never many more of
// them than alarms, so that their memory is bounded, and a sweep is paid for by the stops
// before it. Neither arms the descriptor nor leaves the loop: the caller does.
void fxClock::leave(fxAlarm& alarm) {
    heap[std::exchange(alarm.index, fxAlarm::noIndex)].alarm = nullptr;
    constexpr size_t few = 64;
    --active;
    if (heap.size() - active <= active + few) return;
    const auto isStopped = [](const Entry& entry) { return entry.alarm == nullptr; };
    heap.erase(std::remove_if(heap.begin(), heap.end(), isStopped), heap.end());
    // From the end, so that both parts below an entry are heaps when it goes down.
    for (size_t i = heap.size(); i-- > 0;) sink(heap[i], i);
}

void fxClock::remove(fxAlarm& alarm) {
    leave(alarm);
    if (active == 0) arm();
}

// For the top of the heap. Without one, the handler leaves the loop.
void fxClock::arm() {
    dropStopped();
    armed = heap.empty() ? fxAlarm::Time::max() : heap.front().due;
    itimerspec spec = {};
    if (!heap.empty()) {
        const auto due = std::max<fxAlarm::Span>(armed.time_since_epoch(), fxAlarm::Span(1));
        spec.it_value.tv_sec = static_cast<time_t>(due.count() / 1000000000);
        spec.it_value.tv_nsec = static_cast<long>(due.count() % 1000000000);
    }
    timerfd_settime(fd, TFD_TIMER_ABSTIME, &spec, nullptr);
    if (heap.empty()) fxExec::theExecutive()->removeSelectHandler(this);
}

// One turn. Turns are nested when a tick polls.
struct fxClock::Serving {
    Serving(fxClock& clock_, fxAlarm::Time now)
        : clock(clock_), outer(std::exchange(clock.served, now)) {
        clock.armed = fxAlarm::Time::min();
    }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
    ~Serving() {
        clock.served = outer;
        clock.arm();
    }
    fxClock& clock;
    const fxAlarm::Time outer;
};

// Serves the alarms that are due now and were started before. An alarm leaves the heap, or
// has its next time, before it ticks; it is not touched afterwards.
void fxClock::handleRead() {
    const fxAlarm::Time turn = now();
    const Serving serving(*this, turn);
    const unsigned long last = lastOrder;
    for (dropStopped(); !heap.empty(); dropStopped()) {
        Entry top = heap.front();
        if (top.due > turn || top.order > last) break;
        fxAlarm& alarm = *top.alarm;
        if (alarm.interval.count() > 0) {
            const auto passed = (turn - alarm.due) / alarm.interval;
            alarm.missed = static_cast<unsigned long>(passed);
            alarm.due = later(alarm.due + passed * alarm.interval, alarm.interval);
            top.due = alarm.due;
            sink(top, 0);
            alarm.expire();
            continue;
        }
        leave(alarm);
        const fxRef<fxAlarm> hold(alarm.isOwned ? &alarm : nullptr);
        if (alarm.isOwned) alarm.release();
        alarm.expire();
    }
}

void fxAlarm::expire() {
    if (fxTrace::isOn(fxTrace::timers)) fxTraceLines::timer("tick", *this, inSeconds(interval));
    tick();
}

fxAlarm::~fxAlarm() {
    // An alarm that is destroyed has no holder, so the clock's hold is not released.
    if (isActive()) fxClock::theClock(isWall).remove(*this);
}

fxAlarm::Time fxAlarm::getDue() const {
    if (!isWall) return due;
    const Time now = fxClock::theClock(true).now();
    return later(Clock::now(), due > now ? due - std::max(now, Time()) : Span(0));
}

bool fxAlarm::startAt(Time due_) { return start(false, due_, Span(0)); }

bool fxAlarm::startAt(WallTime due_) {
    return start(true, Time(spanOf(due_.time_since_epoch())), Span(0));
}

bool fxAlarm::start(Span delay) {
    return start(false, later(Clock::now(), std::max(delay, Span(0))), Span(0));
}

bool fxAlarm::startEvery(Span interval_) {
    FX_ASSERT(interval_.count() > 0);
    const Span positive = std::max(interval_, Span(1));
    return start(false, later(Clock::now(), positive), positive);
}

// An active alarm that the clock owns is held meanwhile: stop() releases the clock's hold,
// which may be the last. Without a descriptor the alarm stays stopped.
bool fxAlarm::start(bool isWall_, Time due_, Span interval_) {
    fxClock& clock = fxClock::theClock(isWall_);
    const fxRef<fxAlarm> hold(isOwned && isActive() ? this : nullptr);
    stop();
    if (!clock.hasDescriptor()) return false;
    isWall = isWall_;
    due = due_;
    interval = interval_;
    missed = 0;
    if (fxTrace::isOn(fxTrace::timers)) {
        const double seconds =
            inSeconds(due.time_since_epoch()) - inSeconds(clock.now().time_since_epoch());
        fxTraceLines::timer("start", *this, seconds);
    }
    if (isOwned) take();
    clock.add(*this);
    return true;
}

void fxAlarm::stop() {
    if (!isActive()) return;
    if (fxTrace::isOn(fxTrace::timers)) fxTraceLines::timer("stop", *this, inSeconds(interval));
    fxClock::theClock(isWall).remove(*this);
    if (isOwned) release();
}

const char* fxClockTimer::className() const { return "fxClockTimer"; }

void fxClockTimer::tick() { ticked.send(); }

// Without a connection there is no receiver left. stop() may then destroy the alarm, and is
// the last use of it.
void fxDetail::AlarmSignal::tick() {
    if (output.getNumberOfConnections() == 0) return stop();
    const fxRef<AlarmSignal> hold(this);
    output.deliver();
}
