// Signals as messages.
#ifndef FXDS_SIGNAL_H
#define FXDS_SIGNAL_H

#include "fxds/Obj.h"

/// Sends the number of a signal on its output "signal" after the process has got
/// it, in whatever thread. The message is queued from the loop, where everything is
/// allowed.
///
///     fxSignal stop(SIGTERM);  // the numbers are in <csignal>
///     fxConnect(stop.signal(), [](int) { fx_theExecutive->quit(); });
///
/// No signal is lost, but those that come before the loop has noticed the first are
/// one message. A poll() whose wait a signal ends calls no handlers; the message
/// comes with the next one. System calls elsewhere are restarted.
///
/// The library's handler is installed while objects for the signal exist; each of them
/// sends. When the last one is destroyed, the disposition from before the first is
/// restored, unless the program has installed another one meanwhile. The descriptor through
/// which signal handlers reach the loop is shared by all objects and stays open. A child
/// made by fork() has the handler too, and its signals do nothing unless it polls in the
/// parent's place; exec() removes it.
class FX_API fxSignal : public fxObj {
public:
    /// Registers with fx_theExecutive and makes it when there is none yet. An object
    /// for a number that is no signal, for SIGKILL or SIGSTOP, for one that reports
    /// faults of the program (SIGSEGV, SIGBUS, SIGFPE, SIGILL), or without a
    /// descriptor left, is made but isValid() is false.
    explicit fxSignal(int number);
    fxSignal(const fxSignal&) = delete;
    fxSignal& operator=(const fxSignal&) = delete;
    ~fxSignal() override;

    const char* className() const override;

    bool isValid() const { return valid; }    ///< Whether the signal is caught.
    int getNumber() const { return number; }  ///< As it was given.
    /// The output "signal", looked up by its name. Without an output of that name and type,
    /// values are dropped.
    fxOutputView<int> signal() const;

private:
    class Catcher;

    const int number;
    bool valid;
    fxSignal* next;  // of the objects for all signals
};

#endif
