// The terminal: what it can do, and taking it over and giving it back.
#ifndef FLOW_TERMINAL_H
#define FLOW_TERMINAL_H

#include <vector>

#include "flow/Gauge.h"
#include "fxds/Str.h"

/// Takes the terminal at standard output over for drawing in place: no echo, no
/// waiting for the end of the line, no cursor, and the other screen, so that
/// what was there before comes back. It is given back by leave(), by the
/// destructor, by exit() and when the process dies of an error of its own.
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
    /// What it can show, by the environment.
    static fxLook look();

    /// Draws the lines from the top, as many as there is room for, and `last` below them, in
    /// place of what was there.
    void draw(const std::vector<fxStr>& lines, const fxStr& last) const;

    /// Writes the text as it is. Bytes that the terminal does not accept are lost.
    void write(const fxStr& text) const;
};

#endif
