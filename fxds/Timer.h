// Objects that send a message when their time has come.
#ifndef FXDS_TIMER_H
#define FXDS_TIMER_H

#include "fxds/Obj.h"
#include "fxds/detail/Walk.h"

/// Sends a void message on its output "tick" some seconds after it was
/// started: once, or again and again.
///
/// Only the time that fxExec::poll() waits in select() counts:
///  - Timers run only while the loop does and a select handler is registered (an
///    fxWakeup will do).
///  - Time spent in handlers, ticks and receivers does not count. The timers of a
///    busy program are late by all of it, without bound.
///  - Time counts in hundredths of a second. A wait that nothing interrupts ends
///    with the exact time of the timer that is due; a wait that a descriptor ends
///    counts as 0, 10, 20 ... ms.
///  - The remaining time is a float, from which each turn of the loop is subtracted.
///    If every turn takes 10 ms, an hour ends 0.1 % wrong, a day 2 %, 72 hours 13 %,
///    and more than 72.8 hours never end. An idle loop, which waits for its timers
///    alone, is exact.
///
/// So timers are good for short intervals that may be late: blinking, retrying,
/// polling. For long or exact ones there is fxClockTimer (Clock.h).
///
/// A timer may be started, stopped and destroyed from anywhere, ticks included.
/// Copies make no sense and are not allowed.
///
/// Cost: starting takes the delta of each active timer that is due before it, some
/// 1.5 ns each; stopping is O(1).
class FX_API fxTimer : public fxObj {
public:
    /// The interval is 0 until setInterval() is called.
    explicit fxTimer(unsigned char repeating = 0);
    fxTimer(const fxTimer&) = delete;
    fxTimer& operator=(const fxTimer&) = delete;
    /// Stops the timer.
    ~fxTimer() override;

    float getInterval() const { return interval; }  ///< In seconds; see setInterval().
    /// Whether it waits for its time. Not during its own tick.
    bool isActive() const { return active != 0; }

    /// The seconds from start to tick, from the next start on. Negative values
    /// and NaN count as 0.
    void setInterval(float seconds);

    /// Starts the timer, or starts it again, with its full interval. Timers
    /// that are due together tick in the order in which they were started.
    ///
    /// The interval counts from the moment in which the timer is due, not from
    /// now: when much more time has passed than its interval, as after a
    /// suspended process, a timer that starts itself in its tick() ticks once
    /// for each interval in it, all in one turn. A repeating timer ticks once.
    ///
    /// When timers are being advanced (that is, from a tick): a timer with
    /// interval 0, or one too short to take anything from the time that is
    /// still to be accounted for, waits for the next advance. A repeating timer
    /// that has ticked is started again anyhow when the advance ends, so
    /// starting it here brings it no more than that.
    void startTimer();

    /// Stops the timer. From within a tick this also keeps a repeating timer
    /// that has ticked, the caller included, from being started again. Where the
    /// program has written to `active`, the list stays as it is.
    void stopTimer();

    /// Called when the time has come; the timer is not active meanwhile. This one
    /// queues a void message on the output "tick", which is looked up by its name; where
    /// there is none of that name and type, nothing is sent.
    ///
    /// An exception leaves alarm(), and with it poll(). The timers that were still
    /// due tick in the next turn, and the repeating ones that have ticked, this
    /// one included, are started again.
    virtual void tick();

    /// Lets `seconds` pass: every timer that is due (a whole wait passed counts)
    /// ticks, in the order of expiry. Repeating timers are started again at the
    /// end with their full interval, counted from now: an overrun is not made
    /// up for. For fxExec::poll(), which measures the time, and for tests; may be
    /// called from a tick. NaN counts as 0.
    static void alarm(float seconds);

    float interval;               ///< Seconds from start to tick.
    float delta;                  ///< Seconds after the predecessor's expiry; first: from now.
    unsigned char active;         ///< Whether it is in the list of active timers.
    unsigned char repeating;      ///< Whether it is started again after a tick.
    fxOutputChannel* tickOutput;  ///< The output "tick" as of construction or the last tick().
    fxTimer* next;                ///< The active timer that is due after this one.

    /// The active timer that is due first; null when there is none.
    static fxTimer* activeTimers;

private:
    struct Pass;
    struct Restarts;
    struct Chunk;

    void addToActiveList();
    bool isListed() const { return chunk != nullptr; }
    void removeFromActiveList();
    fxTimer* unlink();
    bool withdraw();

    Chunk* chunk;             // contains this timer; null when it is not listed
    unsigned long startedIn;  // number of the pass whose end it waits for; 0: none

    static fxWalkList<Pass> passes;
};

#endif
