// The terminal: its abilities, and control over it.
#ifndef FLOW_TERMINAL_H
#define FLOW_TERMINAL_H

#include <vector>

#include "flow/Gauge.h"
#include "fxds/Str.h"

/// Takes over the terminal at standard output for drawing in place: no echo, no waiting for
/// the end of the line, no cursor, and the other screen, so that the previous content comes
/// back. leave(), the destructor, exit() and the signals of fatal errors give it back.
///
/// There is one terminal, so there may be one fxTerminal at a time.
class FX_API fxTerminal {
public:
    fxTerminal();  ///< Takes nothing over yet; see enter().
    fxTerminal(const fxTerminal&) = delete;
    fxTerminal& operator=(const fxTerminal&) = delete;
    ~fxTerminal();

    /// Whether standard output is a terminal on which the cursor can be moved.
    static bool canDraw();

    void enter();  ///< Takes the terminal over.
    void leave();  ///< Gives it back; nothing when it is not taken over.

    ///@{
    /// Its size now, in characters; 80 by 24 where there is none.
    static unsigned int columns();
    static unsigned int rows();
    ///@}
    /// Its abilities, by the environment.
    static fxLook look();

    /// Draws the lines from the top, as many as there is room for, and `last` below them;
    /// replaces the previous picture.
    void draw(const std::vector<fxStr>& lines, const fxStr& last) const;

    /// Writes the text unchanged. Bytes that the terminal does not accept are lost. Like
    /// draw(), writes nothing while the terminal is not taken over: a value that was queued
    /// before leave() must not be drawn over the previous content.
    void write(const fxStr& text) const;
};

#endif
