// One row of the display: a quantity, its recent past and how it is shown.
#ifndef MONITOR_GAUGE_H
#define MONITOR_GAUGE_H

#include "fxds/FloatArray.h"
#include "fxds/Obj.h"
#include "fxds/Str.h"

/// Which characters and colours the terminal can show.
struct Look {
    bool unicode = false;
    bool colour = false;
};

/// Takes a quantity in on "level" and shows it as text, bar and sparkline. What
/// it shows it passes on on "shown", and whether it is shown, on "existence".
class Gauge : public fxObj {
public:
    enum Unit { percent, plain, count, bytesPerSecond };

    /// The bar is full at `fullScale`, or at the largest value that can be seen
    /// when that is larger. `name` is borrowed.
    Gauge(const char* name, Unit unit, float fullScale);
    const char* className() const override { return "Gauge"; }

    const char* getName() const { return name; }
    bool hasAlarm() const { return alarm; }

    void setLevel(float level);
    void setDetail(const fxStr& words) { detail = words; }
    void setAlarm(int on) { alarm = on != 0; }
    /// Percentages with blanks between, which are bars in place of the detail.
    void setParts(const char* percentages);
    /// Whether there is what it measures, such as swap. A gauge without is not shown.
    void setPresent(int on);
    bool isPresent() const { return present; }

    /// The value with its unit, "-" before the first one.
    fxStr valueText() const;

    /// The whole row, at most `width` columns wide: what does not fit is left
    /// out, the least important first.
    fxStr row(unsigned int width, const Look& look) const;

private:
    float scaleFor(unsigned int columns) const;
    fxStr detailText(unsigned int columns, const Look& look) const;

    const fxOutput<float> shown;
    const fxOutput<bool> existence = addOutput<bool>("existence");
    const char* const name;
    const Unit unit;
    const float fullScale;
    fxFloatArray history;  // the newest last
    fxStr detail;
    fxFloatArray parts;
    bool alarm;
    bool present = true;
};

#endif
