// The keyboard as a source of messages.
#ifndef MONITOR_KEYBOARD_H
#define MONITOR_KEYBOARD_H

#include "fxds/SelectHandler.h"

/// Sends a void message on the output of the key pressed: "quit", "pause", "longer",
/// "shorter", "smoothing", "save", "help", "draw again". The end of the terminal is "quit"
/// too.
class Keyboard : public fxSelectHandler {
public:
    /// Listens to standard input from now on.
    Keyboard();
    ~Keyboard() override;
    const char* className() const override { return "Keyboard"; }

    void handleRead() override;

private:
    const bool isTerminal;
};

#endif
