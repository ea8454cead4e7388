// What happens to a value between its sampler and the screen.
#ifndef MONITOR_FILTERS_H
#define MONITOR_FILTERS_H

#include "fxds/Obj.h"
#include "fxds/PropertyAccess.h"

/// Turns counters into rates: by how much "count" grew, for each unit by which
/// "base" grew, times a scale. Each count is taken together with the base that
/// came before it. When the base has not grown or the count has shrunk (it was
/// reset), nothing is sent.
class Rate : public fxObj {
public:
    explicit Rate(double scale);
    const char* className() const override { return "Rate"; }

    void setBase(double value) { base = value; }
    void setCount(double count);

private:
    const fxOutput<double> rate;
    const double scale;
    double base;
    double lastBase;  // base and count of the last count; NaN before the first
    double lastCount;
};

/// Sends the exponential moving average of what comes in.
class Smoothing : public fxObj {
public:
    Smoothing();
    const char* className() const override { return "Smoothing"; }

    void setValue(float value);
    /// Forgets the past: the next value is taken as it is.
    void restart();

private:
    const fxOutput<double> smooth;
    double average;  // NaN before the first value
};

/// Sends on its output "active" when the value has risen to the property "high"
/// and when it has fallen below the property "low" again. Both are numbers and
/// may be changed at any time; without them nothing is sent.
class Alarm : public fxObj {
public:
    Alarm(double high, double low);
    const char* className() const override { return "Alarm"; }

    void setValue(float value);

private:
    const fxOutput<bool> active;
    const unsigned short highTag = fxPropertyTag("high");  // looked up once
    const unsigned short lowTag = fxPropertyTag("low");
    bool isActive;
};

#endif
