// Alarms by the steady clock, and by the time of day.
#ifndef FXDS_CLOCK_H
#define FXDS_CLOCK_H

#include <chrono>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "fxds/Connection.h"
#include "fxds/Obj.h"
#include "fxds/Ref.h"

class fxClock;

/// An action at a time, once or repeatedly: the base of fxClockTimer and of the results of
/// fxAfter(), fxEvery() and fxAt().
///
/// Time is that of the steady clock, unless startAt() is given a time of the system's
/// clock. It includes waiting, time in receivers, and time in which the loop did not run;
/// but the steady clock stops while the machine is suspended. The ticks of a repeating
/// alarm do not drift: they are due at whole multiples of its interval after its start. If
/// some have been missed, it ticks once for all of them, and continues with the next that
/// is due. Alarms that are due together tick in the order in which they were started.
///
/// Alarms run while the loop does. One descriptor serves all of a clock; its handler is
/// registered with fx_theExecutive only while there are active ones, and then poll() waits.
/// They belong to the loop's thread. An alarm may be started, stopped and destroyed from
/// anywhere, ticks included. An exception from a tick leaves poll(); the other due alarms
/// tick in the next turn.
///
/// Cost: starting is logarithmic in the number of active alarms, stopping constant.
class FX_API fxAlarm : public fxObj {
public:
    typedef std::chrono::steady_clock Clock;  ///< The steady clock.
    typedef Clock::time_point Time;           ///< A moment, to the nanosecond.
    /// A time of day by the system's clock.
    typedef std::chrono::system_clock::time_point WallTime;
    typedef std::chrono::nanoseconds Span;  ///< See spanOf() for other durations.

    fxAlarm(const fxAlarm&) = delete;
    fxAlarm& operator=(const fxAlarm&) = delete;
    /// Stops the alarm.
    ~fxAlarm() override;

    ///@{
    /// Starts the alarm, anew if it is active: to tick once, `delay` from now or at
    /// `due`, in the next turn of the loop if that is past; or every `interval`, for
    /// the first time one interval from now. False, and not active, when the system
    /// has no descriptor left.
    /// Requires: interval > 0.
    bool start(Span delay);
    template <class Rep, class Period>
    bool start(std::chrono::duration<Rep, Period> delay) {
        return start(spanOf(delay));
    }
    bool startAt(Time due);
    bool startAt(WallTime due);  ///< When the system's clock shows it, however often it is set.
    template <class Duration>
    bool startAt(std::chrono::time_point<Clock, Duration> moment) {
        return startAt(Time(spanOf(moment.time_since_epoch())));
    }
    template <class Duration>
    bool startAt(std::chrono::time_point<WallTime::clock, Duration> moment) {
        const Span span = spanOf(moment.time_since_epoch());
        return startAt(WallTime(std::chrono::duration_cast<WallTime::duration>(span)));
    }
    bool startEvery(Span interval);
    template <class Rep, class Period>
    bool startEvery(std::chrono::duration<Rep, Period> span) {
        return startEvery(spanOf(span));
    }
    ///@}
    /// Any duration of std::chrono, as whole nanoseconds. A duration beyond the longest
    /// Span, such as std::chrono::hours::max(), becomes the longest Span; so does NaN.
    template <class Rep, class Period>
    static constexpr Span spanOf(std::chrono::duration<Rep, Period> duration) {
        typedef std::chrono::duration<long double> Seconds;
        if (!(Seconds(duration) < Seconds(Span::max()))) return Span::max();
        if (Seconds(duration) <= Seconds(Span::min())) return Span::min();
        return std::chrono::duration_cast<Span>(duration);
    }
    void stop();                                        ///< Nothing when it is not active.
    bool isActive() const { return index != noIndex; }  ///< Whether a tick will come.
    /// Of the next tick, while active; of a time of day, where the clock is not set meanwhile.
    Time getDue() const;
    Span getInterval() const { return interval; }  ///< 0 for an alarm that ticks once.
    /// The number of ticks passed over before this one; 0 for most.
    unsigned long getMissed() const { return missed; }

protected:
    /// `isOwned`: the clock holds the alarm while it is active.
    explicit fxAlarm(bool isOwned_ = false) : isOwned(isOwned_) {}

    /// Called at the time due. A repeating alarm is active again by then.
    virtual void tick() = 0;

private:
    friend class fxClock;
    bool start(bool isWall, Time due, Span interval);
    void expire();

    static constexpr size_t noIndex = static_cast<size_t>(-1);

    Time due;  // of the clock that it is started by
    Span interval = Span(0);
    unsigned long order = 0;  // of the starts
    unsigned long missed = 0;
    size_t index = noIndex;  // in the clock's heap
    const bool isOwned;
    bool isWall = false;  // whether that is the system's clock
};

/// A timer as an object: queues a void message on its output "tick".
class FX_API fxClockTimer : public fxAlarm {
public:
    fxClockTimer() = default;
    const char* className() const override;

    fxOutput<void> ticked = addOutput<void>("tick");  ///< The output "tick".

protected:
    void tick() override;
};

namespace fxDetail {

// An alarm that calls a function object, unless its context has been destroyed.
template <class Function>
class AlarmCall final : public fxAlarm {
public:
    explicit AlarmCall(Function function_) : fxAlarm(true), function(std::move(function_)) {}

private:
    void tick() override {
        const fxRef<AlarmCall> hold(this);  // it may stop itself
        function();
    }
    Function function;
};

class FX_API AlarmSignal final : public fxAlarm {
public:
    AlarmSignal() : fxAlarm(true), output(fxDT_void) {}
    fxOutputView<void> getOutput() { return fxOutputView<void>(&output); }

private:
    void tick() override;
    fxOutputChannel output;
};

template <class Function>
fxRef<fxAlarm> newAlarm(fxObj* context, Function function) {
    if (context == nullptr) return new AlarmCall<Function>(std::move(function));
    const fxRef<AlarmSignal> alarm = new AlarmSignal;
    fxConnect(alarm->getOutput(), context, std::move(function));
    return alarm;
}

}  // namespace fxDetail

///@{
/// Calls `function`, which takes nothing, once after `delay`, every `interval`, or at
/// `due`, a time of the steady or of the system's clock; with a `context` (borrowed) only
/// until that object begins to end. The clock holds the alarm while it is active; keep the
/// reference to query or stop it.
///
///     fxAfter(2s, [] { giveUp(); });
///     blinking = fxEvery(500ms, this, [this] { blink(); });
///     fxAt(std::chrono::system_clock::from_time_t(std::mktime(&morning)), [] { ring(); });
template <class Rep, class Period, class Function,
          std::enable_if_t<std::is_invocable_v<Function&>, int> = 0>
fxRef<fxAlarm> fxAfter(std::chrono::duration<Rep, Period> delay, fxObj* context,
                       Function function) {
    fxRef<fxAlarm> alarm = fxDetail::newAlarm(context, std::move(function));
    alarm->start(delay);
    return alarm;
}
template <class Rep, class Period, class Function,
          std::enable_if_t<std::is_invocable_v<Function&>, int> = 0>
fxRef<fxAlarm> fxAfter(std::chrono::duration<Rep, Period> delay, Function function) {
    return fxAfter(delay, nullptr, std::move(function));
}
template <class Rep, class Period, class Function,
          std::enable_if_t<std::is_invocable_v<Function&>, int> = 0>
fxRef<fxAlarm> fxEvery(std::chrono::duration<Rep, Period> interval, fxObj* context,
                       Function function) {
    fxRef<fxAlarm> alarm = fxDetail::newAlarm(context, std::move(function));
    alarm->startEvery(interval);
    return alarm;
}
template <class Rep, class Period, class Function,
          std::enable_if_t<std::is_invocable_v<Function&>, int> = 0>
fxRef<fxAlarm> fxEvery(std::chrono::duration<Rep, Period> interval, Function function) {
    return fxEvery(interval, nullptr, std::move(function));
}
template <class Clock, class Duration, class Function,
          std::enable_if_t<std::is_invocable_v<Function&>, int> = 0>
fxRef<fxAlarm> fxAt(std::chrono::time_point<Clock, Duration> due, fxObj* context,
                    Function function) {
    fxRef<fxAlarm> alarm = fxDetail::newAlarm(context, std::move(function));
    alarm->startAt(due);
    return alarm;
}
template <class Clock, class Duration, class Function,
          std::enable_if_t<std::is_invocable_v<Function&>, int> = 0>
fxRef<fxAlarm> fxAt(std::chrono::time_point<Clock, Duration> due, Function function) {
    return fxAt(due, nullptr, std::move(function));
}
///@}

#endif
