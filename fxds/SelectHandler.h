// Objects that are called when a file descriptor is ready.
#ifndef FXDS_SELECTHANDLER_H
#define FXDS_SELECTHANDLER_H

#include "fxds/Obj.h"

/// Owns a file descriptor and is called by the executive when it is ready. Derive, pass to
/// the constructor what to wait for, and call serve(), which registers the handler with
/// fx_theExecutive, for descriptors 0 to 16383. Without serve() it is never called.
///
/// Close the descriptor by destroying the handler. One that is closed otherwise
/// is not served until its number is open again, perhaps as another file.
///
/// The descriptor should be non-blocking when handlers come and go or when poll()
/// is called from within a handler: what was found ready may have been read
/// empty, or be another file, by the time the handler is called.
class FX_API fxSelectHandler : public fxObj {
public:
    fxSelectHandler(const fxSelectHandler&) = delete;
    fxSelectHandler& operator=(const fxSelectHandler&) = delete;
    /// Closes the descriptor and, where it is still registered, takes the
    /// handler out of the executive's table. A handler may destroy itself, or
    /// another one, from within any of its functions.
    ~fxSelectHandler() override;

    const char* className() const override = 0;  ///< The name of the deriving class.

    int getFd() const { return fd; }  ///< Negative when there is none.

    /// Called in each poll() that finds something to read, or the end, at the
    /// descriptor. What is left unread is found again by the next one.
    virtual void handleRead() = 0;
    /// Called when the descriptor takes data. This one does nothing.
    virtual void handleWrite();
    /// Called for an exceptional condition, such as urgent data. This one does
    /// nothing.
    virtual void handleException();

protected:
    /// `fd_` is adopted: the destructor closes it, unless it is negative.
    explicit fxSelectHandler(int fd_ = -1, fxBool wantRead_ = 0, fxBool wantWrite_ = 0,
                             fxBool wantException_ = 0);

    /// Registers the handler, for the constructor of a class that registers itself. A
    /// descriptor that the executive cannot serve is closed; getFd() is negative then.
    /// Returns whether the handler is registered.
    bool serve();

    /// Sets what to wait for. A handler that is registered for its descriptor is registered
    /// again, so that the next poll() reads the new values.
    void setWishes(bool read, bool write, bool exception = false);

    int fd;  ///< The descriptor, which the destructor closes unless it is negative.
    ///@{
    /// What to wait for; see setWishes(). After writing to them register the handler again:
    /// the executive reads them only then.
    unsigned char wantRead;
    unsigned char wantWrite;
    unsigned char wantException;
    ///@}

    friend class fxExec;
};

#endif
