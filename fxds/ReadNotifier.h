// Sends a message when a descriptor can be read.
#ifndef FXDS_READNOTIFIER_H
#define FXDS_READNOTIFIER_H

#include "fxds/SelectHandler.h"

/// Sends a void message on its output "readable", at once, in each poll() that finds
/// something to read, a connection to accept, or the end at its descriptor. For
/// descriptors that need no class of their own:
///
///     fxReadNotifier listener(socket);
///     fxConnect(listener.readable(), this, [this] { accept(listener.getFd()); });
///
/// What is left unread is found again by the next poll(). A receiver may destroy the
/// notifier. It registers itself with fx_theExecutive.
class FX_API fxReadNotifier : public fxSelectHandler {
public:
    /// `fd` is adopted. isValid() is false for a descriptor that the executive cannot
    /// serve; it is closed then.
    explicit fxReadNotifier(int fd);

    const char* className() const override;

    bool isValid() const { return fd >= 0; }  ///< Whether there is a descriptor.
    /// The output "readable", looked up by its name. Without an output of that name and
    /// type, nothing is sent.
    fxOutputView<void> readable() const;

    /// Sends the message.
    void handleRead() override;
};

#endif
