// Converters: let an output of one data type feed an input of another.
#ifndef FXDS_CONVERTER_H
#define FXDS_CONVERTER_H

#include "fxds/Channel.h"

/// Turns values of one data type into values of another. Making one enters it
/// in the list of converters, the newest first, so it shadows older ones for
/// the same two types; destroying it takes it out again.
///
/// Converters are made by add(), from a function that takes the one value and
/// returns the other:
///
///     float halved(int value) { return 0.5f * static_cast<float>(value); }
///     fxConverter::add<halved>();
///
/// Connections that were made with a converter go on calling its function when
/// the converter is destroyed.
class FX_API fxConverter : public fxInputChannel {
public:
    /// Enters a converter that calls `function` as function(value); the two data
    /// types are those of its argument and of its result. The argument is
    /// declared as receivers declare theirs. The converter is given (`delete`).
    template <auto function>
    static fxConverter* add();

    /// Enters a converter for the data type numbers `from` and `to`, of which one
    /// may be the application's own; add() is for all others. `function` has the
    /// receiving signature of `from`. Its closure is the fxInputChannel to feed,
    /// on which it calls call() with a value of exactly the type `to`.
    fxConverter(unsigned short from, unsigned short to, void (*function)());
    ~fxConverter();

    /// A new converter copy for the two types, owned by the caller and without
    /// holders, or null when there is no converter.
    static fxInputChannel* findConverter(unsigned short from, unsigned short to);

    /// Makes this copy feed `input`, which it holds from now on. What it fed
    /// before is released. Requires: this is a copy that findConverter() made, in
    /// no connection yet; `input` not null.
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

template <auto function>
inline fxConverter* fxConverter::add() {
    typedef fxDetail::Conversion<decltype(+function)> Conversion;
    static_assert(Conversion::isFit,
                  "a conversion is a function that takes and returns one of:" FX_SENT_NAMES);
    if constexpr (Conversion::isFit) {
        auto thunk = &Conversion::template run<function, fxInputChannel>;
        return new fxConverter(Conversion::from(), Conversion::to(),
                               reinterpret_cast<void (*)()>(thunk));
    }
    return nullptr;
}

/// The newest converter; each leads to the next older one.
extern FX_API fxConverter* fx_theConverters;

/// Truncates toward zero; a value that no int can hold, NaN included, gives
/// the smallest int, as the processor's own conversion does.
FX_API int fxTruncateToInt(double value);

#endif
