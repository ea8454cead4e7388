#include "Gauge.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

// A row is  name value bar sparkline detail.  The columns are shared out from
// the left; bar and sparkline get what the fixed columns leave. In a few columns the
// value goes before the name.

namespace {

constexpr unsigned int historyLength = 512;  // more columns than a terminal has
constexpr unsigned int nameColumns = 8;
constexpr unsigned int valueColumns = 11;
constexpr unsigned int detailColumns = 24;
constexpr unsigned int leastGraphColumns = 6;
constexpr unsigned int leastBesideDetail = 36;
constexpr unsigned int mostBarColumns = 30;

// Eighths of a column, from the left and from below, and what is used instead
// where there is no Unicode.
const char* const leftEighths[] = {" ", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};
const char* const lowerEighths[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
const char* const asciiBar[] = {" ", " ", " ", " ", "-", "-", "-", "-", "#"};
const char* const asciiLevels[] = {" ", "_", "_", ".", ".", "-", "-", "=", "#"};

// `value` of `full`, in eighths of `columns` columns.
unsigned int eighths(float value, float full, unsigned int columns) {
    const float share = std::clamp(value / full, 0.0F, 1.0F);  // of NaN it is NaN
    return share >= 0
               ? static_cast<unsigned int>(std::lround(share * 8 * static_cast<float>(columns)))
               : 0;
}

fxStr bar(float value, float full, unsigned int columns, bool unicode) {
    const char* const* const parts = unicode ? leftEighths : asciiBar;
    const unsigned int filled = eighths(value, full, columns);
    fxStr text = "[";
    for (unsigned int i = 0; i < columns; ++i) {
        text.append(parts[std::min(8U, filled > 8 * i ? filled - 8 * i : 0)]);
    }
    text.append(']');
    return text;
}

fxStr sparkline(const fxFloatArray& values, float full, unsigned int columns, bool unicode) {
    const char* const* const parts = unicode ? lowerEighths : asciiLevels;
    const unsigned int shown = std::min(columns, values.length());
    fxStr text;
    for (unsigned int i = shown; i < columns; ++i) text.append(' ');
    for (unsigned int i = values.length() - shown; i < values.length(); ++i) {
        text.append(parts[eighths(values[i], full, 1)]);
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

Gauge::Gauge(const char* name_, Unit unit_, float fullScale_)
    : shown(addOutput<float>("shown")),
      name(name_),
      unit(unit_),
      fullScale(fullScale_),
      alarm(false) {
    addInput<&Gauge::setLevel>("level");
    addInput<&Gauge::setDetail>("detail");
    addInput<&Gauge::setAlarm>("alarm");
    addInput<&Gauge::setParts>("parts");
    addInput<&Gauge::setPresent>("present");
}

void Gauge::setPresent(int on) {
    present = on != 0;
    existence.send(present, fxSendNow);
}

void Gauge::setParts(const char* percentages) {
    parts.resize(0);
    char* end = nullptr;
    for (float part = std::strtof(percentages, &end); end != percentages;
         part = std::strtof(percentages, &end)) {
        parts.append(part);
        percentages = end;
    }
}

void Gauge::setLevel(float level) {
    if (history.length() == historyLength) history.remove(0, 1);
    history.append(level);
    shown.send(level, fxSendNow);
}

fxStr Gauge::valueText() const {
    if (history.length() == 0) return "-";
    const double value = history[history.length() - 1];
    fxStr text;
    switch (unit) {
        case percent:
            text.format("%.1f%%", value);
            break;
        case plain:
            text.format("%.2f", value);
            break;
        case count:
            text.format("%.0f", value);
            break;
        case bytesPerSecond:
            text = bytesText(value);
            break;
    }
    return text;
}

float Gauge::scaleFor(unsigned int columns) const {
    float largest = fullScale;
    if (unit == percent) return largest;
    const unsigned int visible = std::min(columns, history.length());
    for (unsigned int i = history.length() - visible; i < history.length(); ++i) {
        largest = std::max(largest, history[i]);
    }
    return largest;
}

// A column for each part, or for several where there are more than columns; those of
// the most busy one.
fxStr Gauge::detailText(unsigned int columns, const Look& look) const {
    if (parts.length() == 0) return detail.head(std::min(detail.length(), columns));
    const unsigned int each = (parts.length() + columns - 1) / columns;
    constexpr float leastShown = 100.0F / 12;  // draws something
    fxFloatArray bars;
    for (unsigned int i = 0; i < parts.length(); ++i) {
        if (i % each == 0) bars.append(leastShown);
        bars[bars.length() - 1] = std::max(bars[bars.length() - 1], parts[i]);
    }
    fxStr text = sparkline(bars, 100, bars.length(), look.unicode);
    const fxStr words = fxStr(" ") | fxStr::number(static_cast<int>(parts.length())) |
                        (parts.length() == 1 ? " core" : " cores");
    if (bars.length() + words.length() <= columns) text.append(words);
    return text;
}

fxStr Gauge::row(unsigned int width, const Look& look) const {
    if (width < nameColumns + valueColumns - 1) {
        const fxStr words = valueText() | (alarm ? "!" : " ") | name;
        const fxStr row = words.head(std::min(words.length(), width));
        return alarm && look.colour ? fxStr("\33[1;31m" | row | "\33[0m") : row;
    }
    fxStr text;
    text.format("%-*s%*s", nameColumns, name, valueColumns - 1, valueText().c_str());
    if (text.length() >= width) return text;
    unsigned int left = width - text.length() - 1;
    text.append(alarm ? '!' : ' ');
    if (alarm && look.colour) text = fxStr("\33[1;31m" | text | "\33[0m");

    const unsigned int graphs =
        left >= detailColumns + leastBesideDetail ? left - detailColumns : left;
    const unsigned int barColumns = std::min(mostBarColumns, graphs / 2);
    if (barColumns < leastGraphColumns + 3) {
        // Room for one of them at best.
        if (left < leastGraphColumns + 1) return text;
        text.append(' ');
        text.append(sparkline(history, scaleFor(left - 1), left - 1, look.unicode));
        return text;
    }
    const unsigned int sparkColumns = graphs - barColumns - 1;
    const float scale = scaleFor(sparkColumns);
    const float level = history.length() > 0 ? history[history.length() - 1] : 0;
    const fxStr graph = bar(level, scale, barColumns - 3, look.unicode);
    text.append(' ');
    text.append(look.colour ? fxStr((alarm ? "\33[31m" : "\33[32m") | graph | "\33[0m") : graph);
    text.append(' ');
    text.append(sparkline(history, scale, sparkColumns, look.unicode));
    if (graphs < left) {
        text.append(' ');
        text.append(detailText(detailColumns - 1, look));
    }
    return text;
}
