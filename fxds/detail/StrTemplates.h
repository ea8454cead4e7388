// The member templates of fxStr, and how std::format() writes one. Str.h
// includes this at its end.
#ifndef FXDS_DETAIL_STRTEMPLATES_H
#define FXDS_DETAIL_STRTEMPLATES_H

#include <limits>
#if __has_include(<version>)
#include <version>
#endif
#ifdef __cpp_lib_format
#include <format>
#endif

#include "fxds/Str.h"

#ifdef __cpp_lib_format
/// Formatted as a std::string_view is, zero bytes included.
template <>
struct std::formatter<fxStr, char> : std::formatter<std::string_view, char> {
    template <class Context>
    auto format(const fxStr& text, Context& context) const {
        return std::formatter<std::string_view, char>::format(text.view(), context);
    }
};
#endif

template <class Parts>
fxStr fxStr::join(const Parts& parts, fxTextView separator) {
    fxStr joined;
    bool isFirst = true;
    for (const auto& part : parts) {
        if (!isFirst) joined += separator;
        joined += part;
        isFirst = false;
    }
    return joined;
}

template <class Number>
fxStr fxStr::number(Number value, int base) {
    static_assert(fxDetail::isNumber<Number>,
                  "a number is an integer, but no char or bool, or a float or double");
    if constexpr (std::is_integral_v<Number>) {
        const bool isNegative = value < 0;
        const auto bits = static_cast<unsigned long long>(value);
        return writtenInteger(isNegative, isNegative ? 0 - bits : bits, base);
    } else {
        FX_ASSERT(base == 10);
        return writtenFraction(value);
    }
}

template <class Number>
std::optional<Number> fxStr::toNumber(const int& base) const {
    static_assert(fxDetail::isNumber<Number>,
                  "a number is an integer, but no char or bool, or a float or double");
    if constexpr (std::is_integral_v<Number>) {
        constexpr unsigned long long most = std::numeric_limits<Number>::max();
        bool isNegative = false;
        unsigned long long magnitude = 0;
        if (!readInteger(isNegative, magnitude, base)) return std::nullopt;
        const unsigned long long beyond = isNegative && std::is_signed_v<Number> ? 1 : 0;
        if (isNegative && std::is_unsigned_v<Number> && magnitude != 0) return std::nullopt;
        if (magnitude > most + beyond) return std::nullopt;
        return static_cast<Number>(isNegative ? 0 - magnitude : magnitude);
    } else if constexpr (std::is_same_v<Number, float>) {
        return readFloat();
    } else {
        return readFraction();
    }
}

#endif
