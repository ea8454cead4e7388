// The terminal: what it can do, and taking it over and giving it back.
#ifndef MONITOR_TERMINAL_H
#define MONITOR_TERMINAL_H

#include "Gauge.h"
#include "fxds/Str.h"

/// Takes the terminal at standard output over for drawing in place: no echo, no
/// waiting for the end of the line, no cursor, and the other screen, so that
/// what was there before comes back. It is given back by leave(), by the
/// destructor, by exit() and when the process dies of an error of its own.
///
/// There is one terminal, so there may be one Terminal at a time.
class Terminal {
public:
    Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    /// Whether standard output is a terminal on which the cursor can be moved.
    static bool canDraw();

    void enter();
    void leave();

    /// Its size now, in characters.
    unsigned int columns() const;
    unsigned int rows() const;
    const Look& getLook() const { return look; }

    /// Writes the text as it is. What the terminal does not take is lost.
    void write(const fxStr& text) const;

private:
    Look look;
};

#endif
