// Converters: let an output of one data type feed an input of another.
#ifndef FXDS_CONVERTER_H
#define FXDS_CONVERTER_H

#include "fxds/Channel.h"

/// Turns values of one data type into values of another. Making one enters it
/// in the list of converters, the newest first, so it shadows older ones for
/// the same two types; destroying it takes it out again.
///
/// The conversion function has the receiving signature of the source type. Its
/// closure is the fxInputChannel to feed, which it calls with the converted
/// value: static_cast<fxInputChannel*>(closure)->call(converted).
class FX_API fxConverter : public fxInputChannel {
public:
    /// Enters the converter for the types `from` and `to`; both are data type
    /// numbers.
    fxConverter(unsigned short from, unsigned short to, void (*function)());
    ~fxConverter();

    /// A new converter copy for the two types, owned by the caller and without
    /// holders, or null when there is no converter.
    static fxInputChannel* findConverter(unsigned short from, unsigned short to);

    /// Makes this copy feed `input`, which it holds from now on. What it fed
    /// before is released. Requires: the copy is in no connection yet.
    void splice(fxInputChannel* input);

    /// Makes the library's converters. Called once at start-up. Whatever is
    /// not in this list is converted by converters of the application only, or
    /// by two connections with an object between them.
    ///
    /// | From | To |
    /// |---|---|
    /// | boolean | int, float, double |
    /// | int | boolean, float, text |
    /// | float | boolean, int, double, text |
    /// | double | boolean, int, float, text |
    /// | text | int, float, fxStr |
    /// | fxStr | text |
    ///
    /// A number is cut to an int as fxTruncateToInt() does. It becomes a
    /// boolean by the low eight bits of that int, so 256 is false. Text is read
    /// as far as it is a number, and is 0 when it does not begin with one.
    static void createStandardConverters();

    unsigned short to;  ///< Data type number of what it converts to.
    fxConverter* next;  ///< The next older converter.

private:
    fxConverter(const fxConverter& found, void* spliced);
};

/// The newest converter; each leads to the next older one.
extern FX_API fxConverter* fx_theConverters;

/// Truncates toward zero; a value that no int can hold, NaN included, gives
/// the smallest int, as the processor's own conversion does.
FX_API int fxTruncateToInt(double value);

#endif
