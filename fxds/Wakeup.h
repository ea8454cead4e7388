// Reaches the loop from signal handlers and other threads.
#ifndef FXDS_WAKEUP_H
#define FXDS_WAKEUP_H

#include "fxds/SelectHandler.h"

/// Makes the loop turn and sends a void message on its output "wakeup" after
/// wake() was called, from whatever thread or signal handler. Calls that come
/// before the loop has noticed the first make one message together.
///
/// It registers itself with fx_theExecutive, so a program that has no other
/// handler, only timers, gets from it the one without which the loop does not
/// wait.
class FX_API fxWakeup : public fxSelectHandler {
public:
    /// Makes fx_theExecutive when there is none yet. When the system has no
    /// descriptor left, or none that the executive can serve, the object is made
    /// but isValid() is false.
    fxWakeup();
    /// Requires: no call of wake() is under way or still to come.
    ~fxWakeup() override;

    const char* className() const override;

    /// Whether there is a descriptor. Without one, wake() does nothing.
    bool isValid() const { return fd >= 0; }

    /// Safe in any thread and in signal handlers; never blocks; leaves errno
    /// as it was. Everything else here belongs to the loop's thread.
    void wake() const;

    /// Queues the message on the output "wakeup", which is looked up by its name; where
    /// there is none of that name and type, nothing is sent.
    void handleRead() override;

protected:
    /// Takes the calls of wake() that have not been noticed yet. Whether there
    /// were any.
    bool takeCalls();
};

#endif
