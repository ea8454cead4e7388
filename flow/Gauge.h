// One row of a display: a quantity, its recent values and its appearance.
#ifndef FLOW_GAUGE_H
#define FLOW_GAUGE_H

#include <string>

#include "flow/Element.h"
#include "fxds/FloatArray.h"
#include "fxds/Str.h"

/// The characters and colours that a terminal can show.
struct fxLook {
    bool unicode = false;  ///< Parts of blocks, or "#" and "-".
    bool colour = false;   ///< By the sequences of ECMA-48.
};

/// Receives a quantity on "level" and shows it as text, bar and sparkline. Sends the shown
/// text on "shown", and whether it is shown, on "existence". The element Gauge; its
/// description explains the channels.
class FX_API fxGauge : public fxElement {
public:
    fxGauge();  ///< One without a name.
    /// The bar is full at `fullScale`, or at the largest value that can be seen when that is
    /// larger. Requires: `unit` is one of units().
    fxGauge(const char* name, const char* unit, double fullScale);
    const char* className() const override;
    bool xdrState(fxTranscriber& transcriber) override;

    static std::vector<std::string> units();  ///< "percent", "number", "count", "bytes".

    const fxStr& getName() const { return name; }  ///< The text before the value.
    bool hasAlarm() const { return alarm; }        ///< Whether it is marked.
    bool isPresent() const { return present; }     ///< Whether the measured quantity exists.

    /// Whether the measured quantity exists, such as swap. Without it, a gauge is not
    /// shown.
    void setPresent(bool on);

    /// The value with its unit, "-" before the first one.
    fxStr valueText() const;
    /// The whole row, at most `width` columns wide: parts that do not fit are left out, the
    /// least important first.
    fxStr row(unsigned int width, const fxLook& look) const;

    /// A bar in brackets, `columns` wide between them; a `share` from 0 to 1 of it is filled.
    static fxStr bar(float share, unsigned int columns, bool isUnicode);

    ///@{
    /// Properties for flows; the element's description explains them.
    fxStr name;
    std::string unit = "number";
    double full = 100;
    int width = 80;
    bool unicode = true;
    bool colour = false;
    ///@}

private:
    void setLevel(float level);
    void setFull(double value);
    void setParts(const fxStr& percentages);
    void setLook(const fxStr& words);
    void show();
    float scaleFor(unsigned int columns) const;
    fxStr detailText(unsigned int columns, bool isUnicode) const;

    const fxOutput<float> shown = addOutput<float>("shown");
    const fxOutput<bool> existence = addOutput<bool>("existence");
    const fxOutput<fxStr> text = addOutput<fxStr>("text");
    const fxOutput<fxStr> rowText = addOutput<fxStr>("row");
    fxFloatArray history;  // the newest last
    fxStr detail;
    fxFloatArray parts;
    bool alarm = false;
    bool present = true;
};

#endif
