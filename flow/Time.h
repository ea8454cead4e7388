// The time of a flow: that of the clock, or one that is made up for a test.
#ifndef FLOW_TIME_H
#define FLOW_TIME_H

#include <functional>
#include <memory>
#include <string>

#include "fxds/Clock.h"
#include "fxds/Ref.h"

/// Something that a flow does later. Counted: it stays active while nothing holds it.
class FX_API fxFlowAlarm : public fxRCObj {
public:
    virtual void stop() = 0;                               ///< Nothing when it is not active.
    virtual void setInterval(fxAlarm::Span interval) = 0;  ///< Starts it anew. Requires: > 0.
};

/// Where the elements of a flow get the time from, so that a test can make it up.
class FX_API fxFlowTime {
public:
    typedef std::function<void()> Action;  ///< What an alarm calls.

    virtual ~fxFlowTime() = default;

    virtual fxAlarm::Time now() const = 0;  ///< Never goes back.
    ///@{
    /// Calls `action` once after `delay`, or every `interval`, until the alarm is stopped
    /// or `context` (borrowed; or null) begins to end. An exception of an action is a complaint
    /// of the context where that is an object of a flow. Requires: interval > 0.
    virtual fxRef<fxFlowAlarm> after(fxAlarm::Span delay, fxObj* context, Action action) = 0;
    virtual fxRef<fxFlowAlarm> every(fxAlarm::Span interval, fxObj* context, Action action) = 0;
    ///@}

    static fxFlowTime& steady();  ///< The time of the steady clock.
    /// A duration from a number of seconds, as properties give it; at least 1 ns.
    static fxAlarm::Span seconds(double count);
};

/// A time that only its owner advances, for tests. It begins at 0.
class FX_API fxMadeUpTime : public fxFlowTime {
public:
    fxMadeUpTime();
    ~fxMadeUpTime() override;

    fxAlarm::Time now() const override;
    fxRef<fxFlowAlarm> after(fxAlarm::Span delay, fxObj* context, Action action) override;
    fxRef<fxFlowAlarm> every(fxAlarm::Span interval, fxObj* context, Action action) override;

    /// Lets time pass: what becomes due is done in the order of its moments, and what was
    /// started first goes first; before the first and after each, all that is queued is
    /// delivered. No time, or less, delivers what is queued. Returns "", or why it lets no
    /// more time pass: the queue does not come to rest in 100,000 rounds or a million
    /// messages, or one call needs more than a million alarms or ten million messages.
    std::string pass(fxAlarm::Span span);

private:
    class Alarm;
    struct Alarms;

    const std::shared_ptr<Alarms> alarms;  // held while time passes
};

#endif
