#include "Filters.h"

#include <cmath>
#include <limits>

namespace {

constexpr double notYet = std::numeric_limits<double>::quiet_NaN();

// How much a new value weighs in the average.
constexpr double newShare = 0.4;

}  // namespace

Rate::Rate(double scale_)
    : rate(addOutput<double>("rate")),
      scale(scale_),
      base(notYet),
      lastBase(notYet),
      lastCount(notYet) {
    addInput<&Rate::setBase>("base");
    addInput<&Rate::setCount>("count");
}

void Rate::setCount(double count) {
    const double grown = count - lastCount;
    const double passed = base - lastBase;
    lastCount = count;
    lastBase = base;
    // Neither holds for NaN, so the first count sends nothing.
    if (grown >= 0 && passed > 0) rate.send(scale * grown / passed, fxSendNow);
}

Smoothing::Smoothing() : smooth(addOutput<double>("smooth")), average(notYet) {
    addInput<&Smoothing::setValue>("value");
    addInput<&Smoothing::restart>("restart");
}

void Smoothing::setValue(float value) {
    average = std::isnan(average) ? value : average + newShare * (value - average);
    smooth.send(average, fxSendNow);
}

void Smoothing::restart() { average = notYet; }

Alarm::Alarm(double high, double low) : active(addOutput<bool>("active")), isActive(false) {
    fxSetProperty(*this, highTag, high);
    fxSetProperty(*this, lowTag, low);
    addInput<&Alarm::setValue>("value");
}

void Alarm::setValue(float value) {
    const double limit = fxGetProperty<double>(*this, isActive ? lowTag : highTag, notYet);
    const bool isOver = value >= limit;
    if (isOver == isActive || std::isnan(limit)) return;
    isActive = isOver;
    active.send(isActive, fxSendNow);
}
