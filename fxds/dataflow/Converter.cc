#include "fxds/Converter.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <type_traits>

#include "fxds/DataTypes.h"
#include "fxds/EventHandler.h"
#include "fxds/Str.h"

// A connection between unlike types holds a converter copy: an input channel whose closure
// is the real input and whose function converts the value and calls that. The registered
// converters serve only as originals of copies.
//
// Invariants:
// (1) fx_theConverters lists the registered converters, the latest first; copies are not in
//     it. find() returns the latest with the two types.
// (2) A copy has the converter bit and counts its closure. splice() gives it the replace
//     bit of its input.
// (3) A copy belongs to the output that it is an entry of; the messages that it is the
//     channel of hold it, too.
//
// A conversion calls the receiver from its own stack frame, so converted texts and strings
// are good for that call only.

fxConverter* fx_theConverters = nullptr;

fxConverter::fxConverter(unsigned short from, unsigned short to_, void (*function_)())
    : fxInputChannel(from, nullptr, function_, 0), to(to_), next(fx_theConverters) {
    fx_theConverters = this;
}

fxConverter::fxConverter(const fxConverter& found, void* spliced)
    : fxInputChannel(found.getType(), spliced, found.function, 0), to(found.to), next(nullptr) {
    word |= converterBit;
}

fxConverter::~fxConverter() {
    if (isConverter()) return;
    fxConverter** link = &fx_theConverters;
    while (*link != nullptr && *link != this) link = &(*link)->next;
    if (*link == this) *link = next;
}

const fxConverter* fxConverter::find(unsigned short from, unsigned short to) {
    const fxConverter* here = fx_theConverters;
    while (here != nullptr && (here->getType() != from || here->to != to)) here = here->next;
    return here;
}

bool fxConverter::converts(unsigned short from, unsigned short to) {
    return find(from, to) != nullptr;
}

fxInputChannel* fxConverter::findConverter(unsigned short from, unsigned short to) {
    const fxConverter* const found = find(from, to);
    return found != nullptr ? new fxConverter(*found, nullptr) : nullptr;
}

// The index of the queue finds messages by the input that they lead to, so it is emptied
// before that changes. The new input is held before the old one is released, which may be
// the same, and whose end may run code of the program.
void fxConverter::splice(fxInputChannel* input) {
    FX_ASSERT(isConverter() && input != nullptr);
    input->take();
    if (queued != 0 && fx_theEventHandler != nullptr) fx_theEventHandler->forgetInputs();
    fxInputChannel* old = static_cast<fxInputChannel*>(closure);
    if (old != nullptr) old->countMessages(-queued);
    closure = input;
    input->countMessages(queued);
    word = (word & ~replaceBit) | (input->isReplacing() ? replaceBit : 0);
    if (old != nullptr) old->release();
}

int fxTruncateToInt(double value) {
    // -2^31 - 1 and 2^31 are exact as doubles; NaN fails both comparisons.
    if (value > -2147483649.0 && value < 2147483648.0) return static_cast<int>(value);
    return INT_MIN;
}

namespace {

// Holds the longest number that %d and %lg make.
constexpr size_t numberSize = 64;

template <class Passed>
void feed(void* channel, Passed value) {
    static_cast<fxInputChannel*>(channel)->call<Passed>(value);
}

template <class Number>
void feedText(void* channel, const char* format, Number value) {
    char text[numberSize];
    std::snprintf(text, sizeof text, format, value);
    feed<char*>(channel, text);
}

void CBool2int(void* channel, unsigned char value) { feed<int>(channel, value); }

void CBool2float(void* channel, unsigned char value) { feed<float>(channel, value); }

void CBool2double(void* channel, unsigned char value) { feed<double>(channel, value); }

// Numbers become booleans by their low eight bits: 256 is false.
void Cint2Bool(void* channel, int value) {
    feed(channel, static_cast<unsigned char>(static_cast<unsigned int>(value)));
}

void Cint2float(void* channel, int value) { feed(channel, static_cast<float>(value)); }

void Cint2CharPtr(void* channel, int value) { feedText(channel, "%d", value); }

void Cfloat2Bool(void* channel, float value) {
    Cint2Bool(channel, fxTruncateToInt(static_cast<double>(value)));
}

void Cfloat2double(void* channel, float value) { feed(channel, static_cast<double>(value)); }

void Cfloat2int(void* channel, float value) {
    feed(channel, fxTruncateToInt(static_cast<double>(value)));
}

void Cfloat2CharPtr(void* channel, float value) {
    feedText(channel, "%g", static_cast<double>(value));
}

void Cdouble2Bool(void* channel, double value) { Cint2Bool(channel, fxTruncateToInt(value)); }

void Cdouble2float(void* channel, double value) { feed(channel, static_cast<float>(value)); }

void Cdouble2int(void* channel, double value) { feed(channel, fxTruncateToInt(value)); }

void Cdouble2CharPtr(void* channel, double value) { feedText(channel, "%lg", value); }

void CCharPtr2int(void* channel, char* text) {
    feed(channel, text != nullptr ? static_cast<int>(std::strtol(text, nullptr, 10)) : 0);
}

void CCharPtr2float(void* channel, char* text) {
    feed(channel, text != nullptr ? static_cast<float>(std::strtod(text, nullptr)) : 0.0f);
}

void CCharPtr2Str(void* channel, char* text) {
    fxStr value(text);
    feed<fxStr&>(channel, value);
}

void CStr2CharPtr(void* channel, fxStr& value) {
    feed<char*>(channel, const_cast<char*>(value.c_str()));
}

// The function's parameter must be that of receivers of `from`.
template <class Passed>
void create(unsigned short from, unsigned short to, void (*function)(void*, Passed)) {
    new fxConverter(from, to, reinterpret_cast<void (*)()>(function));
}

}  // namespace

namespace {

template <class To, class From>
To widen(From value) {
    return static_cast<To>(value);
}

// A float needs 9 digits to read back as the same value, a double 17; fewer are tried
// first.
template <class Number>
fxStr asText(Number value) {
    if constexpr (std::is_integral_v<Number>) {
        return fxStr(std::to_string(value));
    } else {
        char text[numberSize];
        for (int digits = std::numeric_limits<Number>::digits10;; ++digits) {
            std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(value));
            const auto read = static_cast<Number>(std::strtod(text, nullptr));
            if (read == value || digits >= std::numeric_limits<Number>::max_digits10) break;
        }
        return fxStr(text);
    }
}

template <class Number>
Number asNumber(const char* text) {
    if (text == nullptr) return 0;
    if constexpr (std::is_integral_v<Number>) {
        constexpr long lowest = std::numeric_limits<Number>::min();
        constexpr long highest = std::numeric_limits<Number>::max();
        char* endOfDigits = nullptr;
        char* end = nullptr;
        const long whole = std::strtol(text, &endOfDigits, 10);
        const double fraction = std::strtod(text, &end);
        if (end <= endOfDigits) return static_cast<Number>(std::clamp(whole, lowest, highest));
        if (!(fraction < static_cast<double>(highest))) return std::isnan(fraction) ? 0 : highest;
        return fraction > static_cast<double>(lowest) ? static_cast<Number>(fraction) : lowest;
    } else if constexpr (std::is_same_v<Number, float>) {
        return std::strtof(text, nullptr);
    } else {
        return std::strtod(text, nullptr);
    }
}

template <class Number>
Number fromString(const fxStr& text) {
    return asNumber<Number>(text.c_str());
}

fxStr truthAsText(bool value) { return value ? "true" : "false"; }

bool truthFromString(const fxStr& text) {
    return text == "true" || asNumber<double>(text.c_str()) != 0;
}

}  // namespace

bool fxConverter::hasMoreConverters = false;

void fxConverter::createMoreConverters() {
    hasMoreConverters = true;
    add<widen<long, bool>>();
    add<widen<long, int>>();
    add<widen<double, int>>();
    add<widen<double, long>>();
    add<truthAsText>();
    add<asText<int>>();
    add<asText<long>>();
    add<asText<float>>();
    add<asText<double>>();
    add<asNumber<long>>();
    add<asNumber<double>>();
    add<truthFromString>();
    add<fromString<int>>();
    add<fromString<long>>();
    add<fromString<float>>();
    add<fromString<double>>();
}

void fxConverter::createStandardConverters() {
    create(fxDT_fxBool, fxDT_int, CBool2int);
    create(fxDT_fxBool, fxDT_float, CBool2float);
    create(fxDT_fxBool, fxDT_double, CBool2double);
    create(fxDT_int, fxDT_fxBool, Cint2Bool);
    create(fxDT_int, fxDT_float, Cint2float);
    create(fxDT_int, fxDT_CharPtr, Cint2CharPtr);
    create(fxDT_float, fxDT_fxBool, Cfloat2Bool);
    create(fxDT_float, fxDT_double, Cfloat2double);
    create(fxDT_float, fxDT_int, Cfloat2int);
    create(fxDT_float, fxDT_CharPtr, Cfloat2CharPtr);
    create(fxDT_double, fxDT_fxBool, Cdouble2Bool);
    create(fxDT_double, fxDT_float, Cdouble2float);
    create(fxDT_double, fxDT_int, Cdouble2int);
    create(fxDT_double, fxDT_CharPtr, Cdouble2CharPtr);
    create(fxDT_CharPtr, fxDT_int, CCharPtr2int);
    create(fxDT_CharPtr, fxDT_float, CCharPtr2float);
    create(fxDT_CharPtr, fxDT_fxStr, CCharPtr2Str);
    create(fxDT_fxStr, fxDT_CharPtr, CStr2CharPtr);
}
