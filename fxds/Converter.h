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

    /// Enters a converter that calls a function object without state, such as a
    /// lambda that captures nothing; otherwise as the other add().
    template <class Function, std::enable_if_t<std::is_class_v<Function>, int> = 0>
    static fxConverter* add(Function function);

    /// Whether there is a converter for the two types.
    static bool converts(unsigned short from, unsigned short to);

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
    /// Text is `const char*`; receivers of std::string and std::string_view are of the
    /// type fxStr.
    ///
    /// A number is cut to an int as fxTruncateToInt() does. It becomes a
    /// boolean by the low eight bits of that int, so 256 is false. Text is read
    /// as far as it is a number, and is 0 when it does not begin with one.
    static void createStandardConverters();

    /// Adds conversions that the list above lacks. To be called once, at the start.
    ///
    /// | From | To |
    /// |---|---|
    /// | boolean | long, fxStr |
    /// | int | long, double, fxStr |
    /// | long | double, fxStr |
    /// | float, double | fxStr |
    /// | text | long, double |
    /// | fxStr | boolean, int, long, float, double |
    ///
    /// Numbers become text that reads back as the same number, booleans "true" and
    /// "false". Text becomes a number as far as it is one, cut to the range of the
    /// type, and is 0 when it does not begin with one; "true" and numbers other than
    /// 0 are true.
    static void createMoreConverters();

    static bool hasMoreConverters;  ///< Whether createMoreConverters() was called.

    unsigned short to;  ///< Data type number of what it converts to.
    fxConverter* next;  ///< The next older converter.

private:
    template <class Conversion, class Call>
    static fxConverter* make();
    static const fxConverter* find(unsigned short from, unsigned short to);
    fxConverter(const fxConverter& found, void* spliced);
};

template <auto function>
inline fxConverter* fxConverter::add() {
    return make<fxDetail::Conversion<decltype(+function)>, fxDetail::FixedCall<function>>();
}

template <class Function, std::enable_if_t<std::is_class_v<Function>, int>>
inline fxConverter* fxConverter::add(Function function) {
    static_assert(std::is_empty_v<Function>,
                  "a conversion has no state: it is called as long as there are connections");
    fxDetail::StatelessCall<Function>::function.emplace(function);
    return make<fxDetail::Conversion<decltype(&Function::operator())>,
                fxDetail::StatelessCall<Function>>();
}

template <class Conversion, class Call>
inline fxConverter* fxConverter::make() {
    static_assert(Conversion::isFit,
                  "a conversion is a function that takes and returns one of:" FX_SENT_NAMES);
    if constexpr (Conversion::isFit) {
        auto thunk = &Conversion::template run<Call, fxInputChannel>;
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
