// Elements that count and calculate.
#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "flow/Element.h"
#include "fxds/Xdr.h"

namespace {

constexpr double noAverage = std::numeric_limits<double>::quiet_NaN();

class Count final : public fxElement {
public:
    const char* className() const override { return "Count"; }

    void count() {
        if (number == std::numeric_limits<long>::max())
            throw std::overflow_error("counts no further");
        value.send(++number, fxSendNow);
    }
    void reset() { value.send(number = 0, fxSendNow); }
    bool xdrState(fxTranscriber& transcriber) override { return fxXdrAll(transcriber, number); }

    fxOutputView<long> value;

private:
    long number = 0;
};

// Time is cut into slots of length `every`, each with the number of values in it; the sum
// of the newest slots is the value. The alarm that ends slots runs only while the sum may
// change. Memory is bounded by the number of slots, not by the number of values.
class Rate final : public fxElement {
public:
    const char* className() const override { return "Rate"; }

    std::string settle() override {
        const double wanted = per / every;
        if (std::abs(wanted - std::round(wanted)) > 1e-6 * wanted || wanted < 0.5)
            return "wants a per that is a multiple of every";
        if (wanted > 1e6) return "wants an every of at least a millionth of per";
        slotCount = static_cast<size_t>(std::lround(wanted));
        return "";
    }

    void count() {
        if (slots.empty()) begin();
        ++slots.back();
        setBusy(true);
    }
    // Includes the slots that are over, as if the newest had just begun.
    bool xdrState(fxTranscriber& transcriber) override {
        constexpr long most = 1'000'000'000'000;  // in a slot: a million of them make a sum
        unsigned long size = slots.size();
        if (!fxXdrAll(transcriber, size, sent)) return false;
        if (transcriber.isReading()) {
            if (size > slotCount + 1) return false;
            if (size != 0) begin();
            slots.resize(size);
        }
        for (long& slot : slots) {
            if (!fxXdrAll(transcriber, slot) || slot < 0 || slot > most) return false;
        }
        if (transcriber.isReading() && size != 0) {
            sum = std::accumulate(slots.begin(), slots.end() - 1, 0L);
            setBusy(slots.back() != 0);
        }
        return true;
    }

    double per = 60;
    double every = 1;
    fxOutputView<double> value;

private:
    void begin() {
        slots.push_back(0);
        alarm = time().every(fxFlowTime::seconds(every), this, [this] { endSlot(); });
    }
    void endSlot() {
        const fxRef<fxObj> hold(this);
        sum += slots.back();
        if (slots.size() > slotCount) {
            sum -= slots.front();
            slots.pop_front();
        }
        if (sum == 0) {
            slots.clear();
            alarm->stop();
        } else {
            slots.push_back(0);
        }
        setBusy(false);
        if (sum != std::exchange(sent, sum)) value.send(static_cast<double>(sum), fxSendNow);
    }

    size_t slotCount = 1;
    std::deque<long> slots;  // the newest, which is not in the sum yet, last
    long sum = 0;
    long sent = 0;
    fxRef<fxFlowAlarm> alarm;
};

class Smooth final : public fxElement {
public:
    const char* className() const override { return "Smooth"; }

    void take(double number) {
        average = std::isnan(average) ? number : average + weight * (number - average);
        value.send(average, fxSendNow);
    }
    void restart() { average = noAverage; }
    bool xdrState(fxTranscriber& transcriber) override { return fxXdrAll(transcriber, average); }

    double weight = 0;
    fxOutputView<double> value;

private:
    double average = noAverage;  // before the first value
};

class Level final : public fxElement {
public:
    const char* className() const override { return "Level"; }

    std::string settle() override { return low > high ? "wants a low that is not above high" : ""; }

    void take(double level) {
        const bool isNowHigh = level >= (isHigh ? low : high);
        if (isNowHigh == isHigh || std::isnan(level)) return;
        isHigh = isNowHigh;
        active.send(isHigh, fxSendNow);
        (isNowHigh ? becameHigh : becameLow).send(fxSendNow);
    }
    bool xdrState(fxTranscriber& transcriber) override { return fxXdrAll(transcriber, isHigh); }

    double high = 0;
    double low = 0;
    fxOutputView<bool> active;
    fxOutputView<void> becameHigh;
    fxOutputView<void> becameLow;

private:
    bool isHigh = false;
};

}  // namespace

FX_ELEMENT(Count, "counts what comes") {
    element.input("count", &Count::count, "counts one more");
    element.input("reset", &Count::reset, "begins at 0 again");
    element.output("value", &Count::value, "the number, whenever it changes");
}

FX_ELEMENT(Rate, "tells how much has come in the last while") {
    element.property("per", &Rate::per, 60.0, "how far to look back, a multiple of every")
        .unit("s")
        .range(1e-6, 1e9);
    element.property("every", &Rate::every, 1.0, "how often to look").unit("s").range(1e-6, 1e9);
    element.input("count", &Rate::count, "counts one more");
    element.output("value", &Rate::value, "the number, when it has changed since the last look");
}

FX_ELEMENT(Smooth, "smooths numbers by their moving average") {
    element.property("weight", &Smooth::weight, 0.4, "how much a new number counts; 1: all")
        .range(1e-9, 1);
    element.input("value", &Smooth::take, "a number");
    element.input("restart", &Smooth::restart, "forgets what was before");
    element.output("value", &Smooth::value, "the average that is exponentially weighted");
}

FX_ELEMENT(Level, "tells when a number has become high, and low again") {
    element.property("high", &Level::high, "what is high: this and above");
    element.property("low", &Level::low, "what is low again: below this");
    element.input("level", &Level::take, "the number");
    element.output("active", &Level::active, "whether it is high, when that changes");
    element.output("high", &Level::becameHigh, "it has become high");
    element.output("low", &Level::becameLow, "it has become low");
}
