#include "fxds/SelectHandler.h"

#include <unistd.h>

#include "fxds/Exec.h"

fxSelectHandler::fxSelectHandler(int fd_, fxBool wantRead_, fxBool wantWrite_,
                                 fxBool wantException_)
    : fd(fd_), wantRead(wantRead_), wantWrite(wantWrite_), wantException(wantException_) {}

fxSelectHandler::~fxSelectHandler() {
    fxExec::forget(this);
    if (fd >= 0) ::close(fd);
}

void fxSelectHandler::handleWrite() {}

void fxSelectHandler::handleException() {}
