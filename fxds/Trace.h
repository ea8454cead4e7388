// One line on standard error for every send, delivery, timer and loop phase.
#ifndef FXDS_TRACE_H
#define FXDS_TRACE_H

#include <cstddef>

#include "fxds/Config.h"
#include "fxds/detail/TraceHooks.h"

/// Shows what a program does. Switched on by the environment, as in
/// `FXDS_TRACE=send,loop`, when the library is loaded, or by a call at any
/// time. Off, it costs a branch. Each line is "fxds", its kind and what
/// happened; docs/debugging.md describes them all.
///
/// Objects are shown by their class (by the compiler's name for it when it has no
/// className() of its own) and a number, as in "Counter#2": the second Counter that a line
/// named since tracing began.
class FX_API fxTrace {
public:
    /// Kinds of lines, to be combined with |.
    enum Kind : unsigned int {
        sends = 1,      ///< values leaving an output
        events = 2,     ///< values reaching an input, events being delivered
        timers = 4,     ///< timers being started and stopped, and their ticks
        loop = 8,       ///< the phases of a poll
        all = 15,       ///< these four
        held = 16,      ///< objects that are deleted while they have holders
        connects = 32,  ///< attempts to join channels, those that do nothing included
        streams = 64    ///< records of streams being read and written
    };

    /// Receives a line, which has no newline and ends with a zero byte: a view.
    /// It may not destroy objects or channels, nor throw; what it does is not
    /// traced.
    typedef void Sink(void* closure, const char* line, size_t length);

    /// Traces these kinds and no other from now on; 0 switches tracing off and
    /// forgets the numbers of objects.
    static void enable(unsigned int kinds);

    /// Traces the kinds named in `words`, as in "send,timers", "all" or "held";
    /// separated by commas, with spaces around as you like. Unknown words are
    /// reported in one line of the trace each, and make the result false; the rest
    /// takes effect. Null and "" switch tracing off.
    static bool enable(const char* words);

    /// Whether any of the kinds is traced.
    static bool isOn(unsigned int kinds) { return (fx_traceKinds & kinds) != 0; }

    /// Sends all lines to `sink` with `closure`, both borrowed; null restores standard
    /// error, where each line is written at once and in one piece.
    static void setSink(Sink* sink, void* closure);
};

#endif
