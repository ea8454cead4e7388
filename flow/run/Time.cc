#include "flow/Time.h"

#include <algorithm>
#include <map>
#include <utility>

#include "flow/Element.h"
#include "fxds/EventHandler.h"

// A connection to its context calls an action. It is cut when the context begins to end, so
// no other check of the context is needed.

namespace {

std::function<void()> actionOf(fxObj* context, fxFlowTime::Action action) {
    if (context == nullptr) return action;
    return [context, action = std::move(action)] { fxFlowDetail::act(*context, action); };
}

class SteadyAlarm final : public fxFlowAlarm {
public:
    explicit SteadyAlarm(fxRef<fxAlarm> alarm_) : alarm(std::move(alarm_)) {}
    void stop() override { alarm->stop(); }
    void setInterval(fxAlarm::Span interval) override { alarm->startEvery(interval); }

private:
    const fxRef<fxAlarm> alarm;
};

class SteadyTime final : public fxFlowTime {
public:
    fxAlarm::Time now() const override { return fxAlarm::Clock::now(); }
    fxRef<fxFlowAlarm> after(fxAlarm::Span delay, fxObj* context, Action action) override {
        return new SteadyAlarm(fxAfter(delay, context, actionOf(context, std::move(action))));
    }
    fxRef<fxFlowAlarm> every(fxAlarm::Span interval, fxObj* context, Action action) override {
        return new SteadyAlarm(fxEvery(interval, context, actionOf(context, std::move(action))));
    }
};

}  // namespace

fxFlowTime& fxFlowTime::steady() {
    static SteadyTime time;
    return time;
}

fxAlarm::Span fxFlowTime::seconds(double count) {
    return std::max(fxAlarm::spanOf(std::chrono::duration<double>(count)), fxAlarm::Span(1));
}

// Invariant: an alarm is in `due` exactly while it is active, under its own key.
struct fxMadeUpTime::Alarms {
    typedef std::pair<fxAlarm::Time, unsigned long> Key;  // the time, and the order of the starts

    // That time, or the last one that can be represented.
    fxAlarm::Time in(fxAlarm::Span delay) const {
        const fxAlarm::Span rest = fxAlarm::Time::max() - now;
        return now + std::min(std::max(delay, fxAlarm::Span(0)), rest);
    }

    fxAlarm::Time now{};
    unsigned long started = 1;  // 0 is the key of an alarm that was never started
    std::map<Key, fxRef<Alarm>> due;
};

class fxMadeUpTime::Alarm final : public fxFlowAlarm {
public:
    Alarm(const std::shared_ptr<Alarms>& alarms_, fxObj* context, Action action)
        : alarms(alarms_), output(fxDT_void) {
        const fxOutputView<void> view(&output);
        if (context != nullptr) {
            connection = fxConnect(view, context, actionOf(context, std::move(action)));
        } else {
            connection = fxConnect(view, std::move(action));
        }
    }

    void start(fxAlarm::Span delay, fxAlarm::Span interval_) {
        const fxRef<Alarm> hold(this);
        stop();
        const std::shared_ptr<Alarms> all = alarms.lock();
        if (all == nullptr) return;
        interval = interval_;
        key = {all->in(delay), all->started++};
        all->due.emplace(key, this);
    }
    void stop() override {
        const fxRef<Alarm> hold(this);
        if (const std::shared_ptr<Alarms> all = alarms.lock()) all->due.erase(key);
    }
    void setInterval(fxAlarm::Span interval_) override {
        FX_ASSERT(interval_ > fxAlarm::Span(0));
        start(interval_, interval_);
    }

    // Requires: it is due, and held.
    void tick(Alarms& all) {
        all.due.erase(key);
        if (!connection.isConnected()) return;  // the context has been destroyed
        if (interval > fxAlarm::Span(0) && key.first < fxAlarm::Time::max()) {
            key.first = all.in(interval);
            all.due.emplace(key, this);
        }
        fxObj::sendVoid(&output, fxObj::fxSendNow);
    }

private:
    const std::weak_ptr<Alarms> alarms;
    fxOutputChannel output;
    fxConnection connection;
    fxAlarm::Span interval = fxAlarm::Span(0);  // 0 for an alarm that ticks once
    Alarms::Key key{};
};

fxMadeUpTime::fxMadeUpTime() : alarms(std::make_shared<Alarms>()) {}

fxMadeUpTime::~fxMadeUpTime() {
    while (!alarms->due.empty()) {
        const fxRef<Alarm> alarm = alarms->due.begin()->second;
        alarms->due.erase(alarms->due.begin());
    }
}

fxAlarm::Time fxMadeUpTime::now() const { return alarms->now; }

fxRef<fxFlowAlarm> fxMadeUpTime::after(fxAlarm::Span delay, fxObj* context, Action action) {
    const fxRef<Alarm> alarm = new Alarm(alarms, context, std::move(action));
    alarm->start(delay, fxAlarm::Span(0));
    return alarm;
}

fxRef<fxFlowAlarm> fxMadeUpTime::every(fxAlarm::Span interval, fxObj* context, Action action) {
    FX_ASSERT(interval > fxAlarm::Span(0));
    const fxRef<Alarm> alarm = new Alarm(alarms, context, std::move(action));
    alarm->start(interval, interval);
    return alarm;
}

namespace {

// Delivers the queue, and counts the messages. False when that has no end.
bool comesToRest(unsigned long& messages) {
    constexpr int mostRounds = 100'000;
    constexpr unsigned long mostMessages = 1'000'000;
    const unsigned long most = messages + mostMessages;
    for (int round = 0; !fx_theEventHandler->isEmpty(); ++round) {
        messages += fx_theEventHandler->getCount();
        if (round == mostRounds || messages > most) return false;
        fx_theEventHandler->distributeEvents();
    }
    return true;
}

}  // namespace

std::string fxMadeUpTime::pass(fxAlarm::Span span) {
    constexpr unsigned long mostAlarms = 1'000'000;
    constexpr unsigned long mostMessages = 10'000'000;
    const std::shared_ptr<Alarms> all = alarms;  // an action may destroy this object
    const fxAlarm::Time end = all->in(span);
    unsigned long messages = 0;
    for (unsigned long count = 0;; ++count) {
        if (!comesToRest(messages)) return "values go round without end";
        if (all->due.empty() || all->due.begin()->first.first > end) break;
        if (count == mostAlarms || messages > mostMessages) {
            return "too much happens in this time: more than 1000000 alarms or 10000000 messages";
        }
        const fxRef<Alarm> alarm = all->due.begin()->second;
        all->now = std::max(all->now, all->due.begin()->first.first);
        alarm->tick(*all);
    }
    all->now = std::max(all->now, end);
    return "";
}
