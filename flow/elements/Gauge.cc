#include "flow/Gauge.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "flow/elements/Settings.h"
#include "fxds/Xdr.h"

// A row is  name value bar sparkline detail.  The columns are shared out from the left; bar
// and sparkline get the rest behind the fixed columns. With few columns the value precedes
// the name.

namespace {

constexpr unsigned int historyLength = 512;  // more columns than a terminal has
constexpr unsigned int nameColumns = 8;
constexpr unsigned int valueColumns = 11;
constexpr unsigned int detailColumns = 24;
constexpr unsigned int leastGraphColumns = 6;
constexpr unsigned int leastBesideDetail = 36;
constexpr unsigned int mostBarColumns = 30;
constexpr int mostColumns = 10000;  // of a row
constexpr double leastFull = 1e-9;
constexpr double mostFull = 1e18;

// Eighths of a column, from the left and from below, and the replacement without Unicode.
const char* const leftEighths[] = {" ", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};
const char* const lowerEighths[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
const char* const asciiBar[] = {" ", " ", " ", " ", "-", "-", "-", "-", "#"};
const char* const asciiLevels[] = {" ", "_", "_", ".", ".", "-", "-", "=", "#"};

// A share of `columns` columns, in eighths of a column.
unsigned int eighths(float share, unsigned int columns) {
    const float shown = std::clamp(share, 0.0F, 1.0F);  // of NaN it is NaN
    return shown >= 0
               ? static_cast<unsigned int>(std::lround(shown * 8 * static_cast<float>(columns)))
               : 0;
}

fxStr sparkline(const fxFloatArray& values, float full, unsigned int columns, bool unicode) {
    const char* const* const parts = unicode ? lowerEighths : asciiLevels;
    const unsigned int shown = std::min(columns, values.length());
    fxStr text;
    for (unsigned int i = shown; i < columns; ++i) text.append(' ');
    for (unsigned int i = values.length() - shown; i < values.length(); ++i) {
        text.append(parts[eighths(values[i] / full, 1)]);
    }
    return text;
}

fxStr bytesText(double value) {
    static const char* const units[] = {"B/s", "kB/s", "MB/s", "GB/s", "TB/s"};
    unsigned int unit = 0;
    for (; value >= 999.5 && unit < 4; ++unit) value /= 1000;
    fxStr text;
    text.format(unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text;
}

}  // namespace

fxGauge::fxGauge() {
    addInput("level", [this](float level) { setLevel(level); });
    addInput("detail", [this](const fxStr& words) { detail = words; });
    addInput("alarm", [this](bool on) { alarm = on; });
    addInput("parts", [this](const fxStr& percentages) { setParts(percentages); });
    addInput("present", [this](bool on) { setPresent(on); });
    addInput("full", [this](double value) { setFull(value); });
    addInput("columns", [this](int columns) { width = std::clamp(columns, 0, mostColumns); });
    addInput("look", [this](const fxStr& words) { setLook(words); });
    addInput("show", [this] { show(); });
}

fxGauge::fxGauge(const char* name_, const char* unit_, double fullScale) : fxGauge() {
    name = name_;
    unit = unit_;
    full = fullScale;
}

const char* fxGauge::className() const { return "Gauge"; }

bool fxGauge::xdrState(fxTranscriber& transcriber) {
    if (!fxXdrAll(transcriber, history, parts, detail, alarm, present)) return false;
    if (history.length() > historyLength) history.remove(0, history.length() - historyLength);
    return true;
}

std::vector<std::string> fxGauge::units() { return {"percent", "number", "count", "bytes"}; }

fxStr fxGauge::bar(float share, unsigned int columns, bool isUnicode) {
    const char* const* const pieces = isUnicode ? leftEighths : asciiBar;
    const unsigned int filled = eighths(share, columns);
    fxStr text = "[";
    for (unsigned int i = 0; i < columns; ++i) {
        text.append(pieces[std::min(8U, filled > 8 * i ? filled - 8 * i : 0)]);
    }
    text.append(']');
    return text;
}

void fxGauge::setPresent(bool on) {
    present = on;
    existence.send(present, fxSendNow);
}

// The range is that of the property, so that the flow can be read back.
void fxGauge::setFull(double value) {
    if (value >= leastFull && value <= mostFull) {
        full = value;
    } else {
        complain("cannot be full at " + fxFlowDetail::textOf(value));
    }
}

// Percentages with blanks between.
void fxGauge::setParts(const fxStr& percentages) {
    parts.resize(0);
    const char* at = percentages.c_str();
    char* end = nullptr;
    for (float part = std::strtof(at, &end); end != at; part = std::strtof(at, &end)) {
        parts.append(part);
        at = end;
    }
}

void fxGauge::setLook(const fxStr& words) {
    unicode = words.view().find("unicode") != std::string_view::npos;
    colour = words.view().find("colour") != std::string_view::npos;
}

void fxGauge::show() {
    const unsigned int columns = static_cast<unsigned int>(std::max(width, 0));
    text.send(present ? fxStr(name | " " | valueText() | (alarm ? "!" : "")) : fxStr(), fxSendNow);
    rowText.send(present ? row(columns, {unicode, colour}) : fxStr(), fxSendNow);
}

void fxGauge::setLevel(float level) {
    if (history.length() == historyLength) history.remove(0, 1);
    history.append(level);
    shown.send(level, fxSendNow);
}

fxStr fxGauge::valueText() const {
    if (history.length() == 0) return "-";
    const double value = history[history.length() - 1];
    if (unit == "bytes") return bytesText(value);
    fxStr words;
    words.format(unit == "percent" ? "%.1f%%" : unit == "count" ? "%.0f" : "%.2f", value);
    return words;
}

float fxGauge::scaleFor(unsigned int columns) const {
    float largest = static_cast<float>(full);
    if (unit == "percent") return largest;
    const unsigned int visible = std::min(columns, history.length());
    for (unsigned int i = history.length() - visible; i < history.length(); ++i) {
        largest = std::max(largest, history[i]);
    }
    return largest;
}

// A column for each part, or for several if there are more than columns: the busiest of
// them.
fxStr fxGauge::detailText(unsigned int columns, bool isUnicode) const {
    if (parts.length() == 0) return detail.head(std::min(detail.length(), columns));
    const unsigned int each = (parts.length() + columns - 1) / columns;
    constexpr float leastShown = 100.0F / 12;  // draws something
    fxFloatArray bars;
    for (unsigned int i = 0; i < parts.length(); ++i) {
        if (i % each == 0) bars.append(leastShown);
        bars[bars.length() - 1] = std::max(bars[bars.length() - 1], parts[i]);
    }
    fxStr line = sparkline(bars, 100, bars.length(), isUnicode);
    const fxStr words = fxStr(" ") | fxStr::number(static_cast<int>(parts.length())) |
                        (parts.length() == 1 ? " core" : " cores");
    if (bars.length() + words.length() <= columns) line.append(words);
    return line;
}

fxStr fxGauge::row(unsigned int most, const fxLook& look) const {
    if (most < nameColumns + valueColumns - 1) {
        const fxStr words = valueText() | (alarm ? "!" : " ") | name;
        const fxStr row = words.head(std::min(words.length(), most));
        return alarm && look.colour ? fxStr("\33[1;31m" | row | "\33[0m") : row;
    }
    fxStr line;
    line.format("%-*s%*s", nameColumns, name.c_str(), valueColumns - 1, valueText().c_str());
    if (line.length() >= most) return line;
    unsigned int left = most - line.length() - 1;
    line.append(alarm ? '!' : ' ');
    if (alarm && look.colour) line = fxStr("\33[1;31m" | line | "\33[0m");

    const unsigned int graphs =
        left >= detailColumns + leastBesideDetail ? left - detailColumns : left;
    const unsigned int barColumns = std::min(mostBarColumns, graphs / 2);
    if (barColumns < leastGraphColumns + 3) {
        // Room for one of them at best.
        if (left < leastGraphColumns + 1) return line;
        line.append(' ');
        line.append(sparkline(history, scaleFor(left - 1), left - 1, look.unicode));
        return line;
    }
    const unsigned int sparkColumns = graphs - barColumns - 1;
    const float scale = scaleFor(sparkColumns);
    const float level = history.length() > 0 ? history[history.length() - 1] : 0;
    const fxStr graph = bar(level / scale, barColumns - 3, look.unicode);
    line.append(' ');
    line.append(look.colour ? fxStr((alarm ? "\33[31m" : "\33[32m") | graph | "\33[0m") : graph);
    line.append(' ');
    line.append(sparkline(history, scale, sparkColumns, look.unicode));
    if (graphs < left) {
        line.append(' ');
        line.append(detailText(detailColumns - 1, look.unicode));
    }
    return line;
}

namespace {

typedef fxGauge Gauge;

class Bar final : public fxElement {
public:
    const char* className() const override { return "Bar"; }

    std::string settle() override {
        return lowest < highest ? "" : "wants a lowest that is below highest";
    }
    void take(double value) {
        const double share = (value - lowest) / (highest - lowest);
        fxStr drawn =
            fxGauge::bar(static_cast<float>(share), static_cast<unsigned int>(width), unicode);
        if (!label.isEmpty()) drawn = label | " " | drawn;
        text.send(fxStr(drawn | " " | fxStr(value, "%g")), fxSendNow);
    }

    double lowest = 0;
    double highest = 100;
    int width = 20;
    fxStr label;
    bool unicode = true;
    fxOutputView<fxStr> text;
};

}  // namespace

FX_ELEMENT(Gauge, "shows a quantity as text, bar and sparkline") {
    element.property("name", &Gauge::name, "what stands before the value")
        .testedBy(fxFlowDetail::whyZeroByte);
    element.property("unit", &Gauge::unit, "number", "what the value is").oneOf(Gauge::units());
    element.property("full", &Gauge::full, 100.0, "at what the bar is full")
        .range(leastFull, mostFull);
    element.property("width", &Gauge::width, 80, "of a row").unit("columns").range(0, mostColumns);
    element.property("unicode", &Gauge::unicode, true, "whether to draw with parts of blocks");
    element.property("colour", &Gauge::colour, false, "whether to draw in colours");
    element.input<float>("level", "the value");
    element.input<fxStr>("detail", "words behind the value");
    element.input<bool>("alarm", "whether to mark the value");
    element.input<fxStr>("parts", "percentages with blanks between, drawn in place of the detail");
    element.input<bool>("present", "whether there is what it measures; without it is not shown");
    element.input<double>("full", "at what the bar is full");
    element.input<int>("columns", "the width of a row");
    element.input<fxStr>("look", "words for how to draw: unicode, colour");
    element.input<void>("show", "sends what there is to show");
    element.output<float>("shown", "each value");
    element.output<bool>("existence", "whether it is shown");
    element.output<fxStr>("text", "name and value; empty when it is not shown");
    element.output<fxStr>("row", "name, value, bar, sparkline and detail");
}

FX_ELEMENT(Bar, "draws numbers as bars") {
    element.property("lowest", &Bar::lowest, 0.0, "where the bar is empty");
    element.property("highest", &Bar::highest, 100.0, "where the bar is full");
    element.property("width", &Bar::width, 20, "of the bar").unit("columns").range(1, 1000);
    element.property("label", &Bar::label, "", "what stands before the bar");
    element.property("unicode", &Bar::unicode, true, "whether to draw with parts of blocks");
    element.input("value", &Bar::take, "the number");
    element.output("text", &Bar::text, "label, bar and number");
}
