// One line on standard error for every send, delivery, timer and loop phase.
#ifndef FXDS_TRACE_H
#define FXDS_TRACE_H

#include <cstddef>

#include "fxds/DataTypes.h"

class fxInputChannel;
class fxOutputChannel;

/// The kinds of lines that are written now; 0 while nothing is traced. To be
/// changed through fxTrace only.
extern FX_API unsigned int fx_traceKinds;

/// A value on its way that nobody has boxed.
class fxTracedValue {
public:
    fxTracedValue() : type(fxDT_void), value(nullptr) {}
    /// Borrows the value for the call that it is handed to.
    template <class T>
    explicit fxTracedValue(const T& value_) : type(typeOf(&value_, 0)), value(&value_) {}

    unsigned short type;  ///< Of the C++ type, which the channel's need not be.
    const void* value;    ///< View.

private:
    template <class T>
    static auto typeOf(const T*, int) -> decltype(fxChannelType<T>::type()) {
        return fxChannelType<T>::type();
    }
    template <class T>
    static unsigned short typeOf(const T*, long) {
        return fxDT_VoidPtr;
    }
};

/// Shows what a program does. Switched on by the environment, as in
/// `FXDS_TRACE=send,loop`, when the library is loaded, or by a call at any
/// time. Off, it costs a branch. Each line is "fxds", its kind and what
/// happened; docs/debugging.md describes them all.
///
/// Objects are called by their class (by what the compiler calls it when it has
/// no className() of its own) and a number, as in "Counter#2": the second
/// Counter that a line spoke of since tracing began.
class FX_API fxTrace {
public:
    /// Kinds of lines, to be combined with |.
    enum Kind : unsigned int {
        sends = 1,   ///< values leaving an output
        events = 2,  ///< values reaching an input, events being delivered
        timers = 4,  ///< timers being started and stopped, and their ticks
        loop = 8,    ///< the phases of a poll
        all = 15
    };

    /// Receives a line, which has no newline and ends with a zero byte: a view.
    /// It may not destroy objects or channels, nor throw; what it does is not
    /// traced.
    typedef void Sink(void* closure, const char* line, size_t length);

    /// Traces these kinds and no other from now on; 0 switches tracing off and
    /// forgets the numbers of objects.
    static void enable(unsigned int kinds);

    /// Traces the kinds named in `words`, as in "send,timers" or "all";
    /// separated by commas, with spaces around as you like. Unknown words are
    /// told in one line of the trace each, and make the answer false; the rest
    /// counts. Null and "" switch tracing off.
    static bool enable(const char* words);

    /// Whether any of the kinds is traced.
    static bool isOn(unsigned int kinds) { return (fx_traceKinds & kinds) != 0; }

    /// Sends all lines to `sink` with `closure`, both borrowed; null brings
    /// back standard error, where each line is written at once and in one piece.
    static void setSink(Sink* sink, void* closure);

    ///@{
    /// Not for programs to call: tells of a value that is sent at once, which
    /// inline functions do. Writes nothing when its kind is off, and only looks
    /// at what it is given.
    [[gnu::cold]] static void sending(const fxOutputChannel& output, const fxTracedValue& value);
    [[gnu::cold]] static void delivering(fxInputChannel& input, const fxTracedValue& value);
    ///@}
};

#endif
