// The active alarms of a clock and the handler that wakes the loop for them. Private to
// Clock.cc.
#ifndef FXDS_LOOP_ALARMCLOCK_H
#define FXDS_LOOP_ALARMCLOCK_H

#include <vector>

#include "fxds/Clock.h"
#include "fxds/SelectHandler.h"

// The active alarms are a binary heap, the one that is due first on top. An entry has what
// it is compared by, so that alarms, which are anywhere in memory, are not looked at. One
// that is stopped leaves its entry behind: most timers guard something that comes in time,
// and are stopped long before they reach the top. Such an entry goes when it is on top, or
// with all others when they are more than the alarms.
//
// One timer descriptor is armed for the top. It is never read: while it is readable, the
// loop comes here, and arming it anew makes it unreadable until the next time. It is armed
// for a moment, not for a duration: when the system's clock is set, the system itself makes
// the descriptor of that clock readable earlier or later. Moments of both clocks are kept
// as fxAlarm::Time, and compared with those of the same clock only.
//
// Invariants: (1) heap[i].alarm is null, or has the index i and the same time; an alarm
// that is not in the heap has noIndex. (2) No entry is due before its parent in the heap,
// and of two that are due together the one that was started first comes first. (3) `active`
// is the number of alarms in the heap. The handler is registered just while there are some.
// (4) While it is, the descriptor is readable from `armed` on, and no entry is due before
// that.

/// All active alarms of a clock, and the handler of their descriptor.
class fxClock : public fxSelectHandler {
public:
    /// The system's clock, or the steady one.
    static fxClock& theClock(bool isWall) {
        // Never freed: alarms may outlive main().
        static fxClock* const clocks[] = {new fxClock(false), new fxClock(true)};
        return *clocks[isWall ? 1 : 0];
    }

    fxAlarm::Time now() const;
    bool hasDescriptor();
    void add(fxAlarm& alarm);
    void remove(fxAlarm& alarm);

    const char* className() const override { return "fxClock"; }
    void handleRead() override;

private:
    // Arms the descriptor again, however serving the alarms ends.
    struct Serving;

    explicit fxClock(bool isWall_) : fxSelectHandler(-1, 1), isWall(isWall_) {}

    struct Entry {
        fxAlarm::Time due;
        unsigned long order;
        fxAlarm* alarm;  // null: stopped
    };

    static bool isBefore(const Entry& a, const Entry& b) {
        return a.due != b.due ? a.due < b.due : a.order < b.order;
    }
    void put(const Entry& entry, size_t index) {
        heap[index] = entry;
        if (entry.alarm != nullptr) entry.alarm->index = index;
    }
    void rise(Entry entry, size_t index);
    void sink(Entry entry, size_t index);
    void dropTop();
    void dropStopped();
    void leave(fxAlarm& alarm);
    void arm();

    const bool isWall;
    std::vector<Entry> heap;
    size_t active = 0;
    unsigned long lastOrder = 0;
    fxAlarm::Time armed = fxAlarm::Time::max();
    fxAlarm::Time served = fxAlarm::Time::min();  // the turn's, while it is served
};

#endif
