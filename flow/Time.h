// The time of a flow: that of the clock, or one that a test controls.
#ifndef FLOW_TIME_H
#define FLOW_TIME_H

#include <functional>
#include <memory>
#include <string>

#include "fxds/Clock.h"
#include "fxds/Ref.h"

/// A future action of a flow. Counted: it stays active while nothing holds it.
class FX_API fxFlowAlarm : public fxRCObj {
public:
    virtual void stop() = 0;                               ///< Nothing when it is not active.
    virtual void setInterval(fxAlarm::Span interval) = 0;  ///< Starts it anew. Requires: > 0.
};

/// The source of time for the elements of a flow, so that a test can replace it.
class FX_API fxFlowTime {
public:
    typedef std::function<void()> Action;  ///< The function that an alarm calls.

    virtual ~fxFlowTime() = default;

    virtual fxAlarm::Time now() const = 0;  ///< Never goes back.
    ///@{
    /// Calls `action` once after `delay`, or every `interval`, until the alarm is stopped
    /// or `context` (borrowed; or null) begins to end. An exception of an action is a
    /// complaint of the context if that is an object of a flow. Requires: interval > 0.
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

    /// Lets time pass: alarms run in the order of their times, and at one time in the order
    /// of their starts; before the first and after each, all queued values are delivered. A
    /// span of zero or less delivers the queued values. Returns "", or the reason why it
    /// stops: the queue does not empty in 100,000 rounds or a million messages, or one call
    /// needs more than a million alarms or ten million messages.
    std::string pass(fxAlarm::Span span);

private:
    class Alarm;
    struct Alarms;

    const std::shared_ptr<Alarms> alarms;  // held while time passes
};

#endif
