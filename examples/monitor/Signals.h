// Signals as a source of messages.
#ifndef MONITOR_SIGNALS_H
#define MONITOR_SIGNALS_H

#include "fxds/Wakeup.h"

/// Sends "quit" after SIGINT, SIGTERM and SIGHUP, "resized" after SIGWINCH and
/// "suspend" after SIGTSTP, from the loop and not from within the signal.
/// While there is a Signals these signals have no other effect; there may be
/// one at a time.
class Signals : public fxObj {
public:
    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals() override;
    const char* className() const override { return "Signals"; }

    /// The signal that asked to quit, or 0.
    static int quitSignal();

    fxWakeup& getWakeup() { return wakeup; }

private:
    void look();

    fxWakeup wakeup;
    const fxOutput<void> quit;
    const fxOutput<void> resized;
    const fxOutput<void> suspend;
};

#endif
