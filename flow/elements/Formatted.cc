#include "flow/elements/Formatted.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

// A format is parsed once: text, conversion, text. Values are texts; for a number the
// conversion gets the result of strtod() at their start.

namespace fxFlowDetail {

namespace {

constexpr int mostColumns = 1000;  // of widths and precisions

struct Parts {
    std::string texts[2];  // before and after the conversion
    std::string flags;
    int width = 0;
    int precision = -1;
    char conversion = 0;
    std::string fault;
};

// The digits at `at`, which moves behind them.
int digits(const std::string& format, size_t& at) {
    int number = 0;
    for (; at < format.size() && format[at] >= '0' && format[at] <= '9'; ++at) {
        if (number <= mostColumns) number = 10 * number + (format[at] - '0');
    }
    return number;
}

// The conversion at `at`, behind the percent sign; `at` moves behind it.
void takeConversion(const std::string& format, size_t& at, Parts& parts) {
    for (; at < format.size() && std::strchr("-+ 0#", format[at]) != nullptr; ++at) {
        if (parts.flags.find(format[at]) == std::string::npos) parts.flags += format[at];
    }
    parts.width = digits(format, at);
    if (at < format.size() && format[at] == '.') parts.precision = digits(format, ++at);
    if (parts.width > mostColumns || parts.precision > mostColumns) {
        parts.fault = "asks for more than 1000 columns";
    } else if (at == format.size()) {
        parts.fault = "ends within a conversion; a percent sign is \"%%\"";
    } else if (format[at] == '\0' || std::strchr("sdxefg", format[at]) == nullptr) {
        parts.fault = std::string("has the conversion \"%") + format[at] +
                      "\"; there are %s, %d, %x, %e, %f and %g, and %% for a percent sign";
    } else {
        parts.conversion = format[at++];
    }
}

Parts taken(const std::string& format) {
    Parts parts;
    for (size_t at = 0; at < format.size() && parts.fault.empty();) {
        std::string& text = parts.texts[parts.conversion != 0];
        if (format[at] != '%') {
            text += format[at++];
        } else if (format.compare(at, 2, "%%") == 0) {
            text += '%';
            at += 2;
        } else if (parts.conversion != 0) {
            parts.fault = "has more than one conversion";
        } else {
            takeConversion(format, ++at, parts);
        }
    }
    return parts;
}

std::string shownStart(const fxStr& value) {
    return '"' + std::string(value.view().substr(0, 60)) + '"';
}

}  // namespace

std::string Formatted::whyNot(const std::string& format) { return taken(format).fault; }

Formatted::Formatted(const std::string& format) {
    const Parts parts = taken(format);
    before = parts.texts[0];
    flags = parts.flags;
    width = parts.width;
    precision = parts.precision;
    conversion = parts.conversion;
    after = parts.texts[1];
}

std::string Formatted::of(const fxStr& value) const {
    return conversion == 0 ? before : before + converted(value) + after;
}

std::string Formatted::converted(const fxStr& value) const {
    if (conversion == 's') {
        const size_t columns = static_cast<size_t>(width);
        std::string text(value.view());
        if (precision >= 0) text = text.substr(0, static_cast<size_t>(precision));
        const size_t blanks = text.size() < columns ? columns - text.size() : 0;
        const size_t place = flags.find('-') != std::string::npos ? text.size() : 0;
        return text.insert(place, blanks, ' ');
    }
    char* end = nullptr;
    const double number = std::strtod(value.c_str(), &end);
    if (end == value.c_str()) {
        throw std::invalid_argument(shownStart(value) + " is no number");
    }
    const std::string start = '%' + flags + '*' + (precision >= 0 ? ".*" : "");
    fxStr text;
    const auto format = [&](const std::string& form, auto what) {
        if (precision >= 0) {
            text.format(form.c_str(), width, precision, what);
        } else {
            text.format(form.c_str(), width, what);
        }
    };
    if (conversion == 'd' || conversion == 'x') {
        // Whole numbers that no double represents are read as whole numbers.
        char* endOfDigits = nullptr;
        errno = 0;
        const long whole = std::strtol(value.c_str(), &endOfDigits, 10);
        const bool isDigits = endOfDigits == end;
        if (isDigits ? errno == ERANGE : !(number < 9.2e18 && number > -9.2e18)) {
            throw std::invalid_argument(shownStart(value) + " is no whole number of 64 bits");
        }
        format(start + 'l' + conversion, isDigits ? whole : static_cast<long>(number));
    } else {
        format(start + conversion, number);
    }
    return std::string(text.view());
}

}  // namespace fxFlowDetail
