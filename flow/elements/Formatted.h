// Texts made by a format with one conversion, as those of printf().
#ifndef FLOW_ELEMENTS_FORMATTED_H
#define FLOW_ELEMENTS_FORMATTED_H

#include <string>

#include "flow/Element.h"
#include "fxds/Str.h"

namespace fxFlowDetail {

/// A format such as "%s errors" or "%6.2f s": text around one conversion, or without one;
/// "%%" is a percent sign. A hostile format does no harm: conversions by which printf()
/// would read or write memory, and widths above 1000 columns, are faults.
class Formatted {
public:
    /// The fault of a format; "" for none.
    static std::string whyNot(const std::string& format);

    Formatted() = default;
    /// Requires: whyNot() is "".
    explicit Formatted(const std::string& format);

    /// The text with the value in it. Throws std::invalid_argument where the conversion
    /// wants a number and the value does not begin with one.
    std::string of(const fxStr& value) const;

private:
    std::string converted(const fxStr& value) const;

    std::string before;
    std::string flags;
    int width = 0;
    int precision = -1;   // -1: none was given
    char conversion = 0;  // s, d, x, e, f or g; 0: there is none
    std::string after;
};

/// Base of elements that make texts by a format.
class FormattingElement : public fxElement {
public:
    std::string settle() override {
        formatted = Formatted(format);
        return "";
    }

    std::string format;

protected:
    Formatted formatted;
};

}  // namespace fxFlowDetail

#endif
