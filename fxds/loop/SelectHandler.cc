#include "fxds/SelectHandler.h"

#include <unistd.h>

#include "fxds/loop/HandlerTable.h"

// A handler owns its descriptor. It leaves the table of handlers before the
// descriptor is closed, because the number may then be given to another file.

fxSelectHandler::fxSelectHandler(int fd_, fxBool wantRead_, fxBool wantWrite_,
                                 fxBool wantException_)
    : fd(fd_), wantRead(wantRead_), wantWrite(wantWrite_), wantException(wantException_) {}

fxSelectHandler::~fxSelectHandler() {
    fxHandlerTable::forget(this);
    if (fd >= 0) ::close(fd);
}

void fxSelectHandler::setWishes(bool read, bool write, bool exception) {
    wantRead = read;
    wantWrite = write;
    wantException = exception;
    if (fd >= 0) fxHandlerTable::renew(this, fd);
}

void fxSelectHandler::handleWrite() {}

void fxSelectHandler::handleException() {}
