// Elements that pass values on, drop them, or delay them.
#include <algorithm>
#include <chrono>
#include <deque>

#include "flow/Element.h"
#include "fxds/Xdr.h"

namespace {

class Gate final : public fxElement {
public:
    const char* className() const override { return "Gate"; }

    void pass(const fxStr& text) {
        if (isOpen) value.send(text, fxSendNow);
    }
    void setOpen(bool on) { isOpen = on; }
    bool xdrState(fxTranscriber& transcriber) override { return fxXdrAll(transcriber, isOpen); }

    bool isOpen = false;
    fxOutputView<fxStr> value;
};

// All values wait equally long, so one alarm for the first of them is enough. It passes on
// one value: a receiver may do anything, and another alarm runs if more values wait.
class Delay final : public fxElement {
public:
    const char* className() const override { return "Delay"; }

    void take(const fxStr& text) {
        if (waiting.size() >= static_cast<size_t>(limit)) {
            if (!isFull) complain("drops what comes: its limit is " + std::to_string(limit));
            isFull = true;
            return;
        }
        waiting.push_back({in(by), text});
        if (waiting.size() == 1) wait();
    }

    // Each value with the seconds that remain.
    bool xdrState(fxTranscriber& transcriber) override {
        typedef std::chrono::duration<double> Seconds;
        const fxAlarm::Time now = time().now();
        unsigned long count = waiting.size();
        if (!fxXdrAll(transcriber, count)) return false;
        if (transcriber.isReading()) waiting.clear();
        for (unsigned long i = 0; i < count; ++i) {
            if (transcriber.isReading()) waiting.emplace_back();
            Value& each = waiting[i];  // does not move when more are added
            double left = std::chrono::duration_cast<Seconds>(each.due - now).count();
            if (!fxXdrAll(transcriber, left, each.text)) return false;
            if (transcriber.isReading()) each.due = in(left <= by ? left : by);
        }
        if (transcriber.isReading() && !waiting.empty()) wait();
        return true;
    }

    double by = 1;
    long limit = 0;
    fxOutputView<fxStr> value;

private:
    struct Value {
        fxAlarm::Time due;
        fxStr text;
    };

    // That time, or the last one that can be represented.
    fxAlarm::Time in(double seconds) const {
        const fxAlarm::Time now = time().now();
        return now + std::min(fxFlowTime::seconds(seconds), fxAlarm::Time::max() - now);
    }
    void wait() {
        setBusy(true);
        alarm = time().after(waiting.front().due - time().now(), this, [this] { release(); });
    }
    void release() {
        const fxRef<fxObj> hold(this);
        const fxStr text = waiting.front().text;
        waiting.pop_front();
        isFull = false;
        if (waiting.empty()) {
            setBusy(false);
        } else {
            wait();
        }
        value.send(text, fxSendNow);
    }

    std::deque<Value> waiting;
    bool isFull = false;  // and a complaint was made
    fxRef<fxFlowAlarm> alarm;
};

}  // namespace

FX_ELEMENT(Gate, "lets values through while it is open") {
    element.property("open", &Gate::isOpen, false, "whether it is open at first");
    element.input("value", &Gate::pass, "what to let through");
    element.input("open", &Gate::setOpen, "whether it is open from now on");
    element.output("value", &Gate::value, "what came while it was open");
}

FX_ELEMENT(Delay, "passes values on later") {
    element.property("by", &Delay::by, 1.0, "how much later").unit("s").range(1e-6, 1e9);
    element.property("limit", &Delay::limit, 1000, "how many values may wait; others are dropped")
        .range(1, 1e7);
    element.input("value", &Delay::take, "what to pass on");
    element.output("value", &Delay::value, "each value, when its time has come");
}
