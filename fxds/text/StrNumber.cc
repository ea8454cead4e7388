#include <charconv>

#include "fxds/Fatal.h"
#include "fxds/Str.h"

// Numbers from and to text, in the C locale, not in the present one. Integers
// are converted as sign and magnitude, so that each direction is written once
// for all types.

namespace {

// The text without a plus sign, if a digit or the like follows it.
std::string_view withoutPlus(std::string_view text) {
    const bool hasPlus = text.size() > 1 && text[0] == '+' && text[1] != '-';
    return text.substr(hasPlus ? 1 : 0);
}

template <class Fraction>
std::optional<Fraction> readAs(std::string_view text) {
    text = withoutPlus(text);
    const char* const end = text.data() + text.size();
    Fraction value = 0;
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

template <class Fraction>
fxStr written(Fraction value) {
    char digits[64];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    return fxStr(digits, static_cast<unsigned int>(result.ptr - digits));
}

void checkBase(int base) {
    if (base < 2 || base > 36) fxFatal("fxStr: %d is no base of numbers: 2 to 36 are", base);
}

}  // namespace

fxStr fxStr::writtenInteger(bool isNegative, unsigned long long magnitude, int base) {
    checkBase(base);
    char digits[1 + 64] = "-";
    char* const begin = digits + 1;
    const auto result = std::to_chars(begin, digits + sizeof digits, magnitude, base);
    const char* const first = isNegative ? digits : begin;
    return fxStr(first, static_cast<unsigned int>(result.ptr - first));
}

fxStr fxStr::writtenFraction(double value) { return written(value); }

fxStr fxStr::writtenFraction(float value) { return written(value); }

bool fxStr::readInteger(bool& isNegative, unsigned long long& magnitude, int base) const {
    checkBase(base);
    std::string_view digits = withoutPlus(view());
    isNegative = !digits.empty() && digits[0] == '-';
    if (isNegative) digits.remove_prefix(1);
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, magnitude, base);
    return result.ec == std::errc() && result.ptr == end;
}

std::optional<int> fxStr::toInt(int base) const { return toNumber<int>(base); }
std::optional<long> fxStr::toLong(int base) const { return toNumber<long>(base); }
std::optional<double> fxStr::toDouble() const { return readFraction(); }
std::optional<double> fxStr::readFraction() const { return readAs<double>(view()); }

std::optional<float> fxStr::readFloat() const { return readAs<float>(view()); }
