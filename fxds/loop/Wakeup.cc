#include "fxds/Wakeup.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "fxds/Exec.h"

// An event descriptor is a counter in the kernel: writing adds to it and
// reading clears it, so many calls of wake() are one turn of the loop. Writing
// is one system call that uses no memory of this process, so wake() works in
// signal handlers.

namespace {

const char outputName[] = "wakeup";

}  // namespace

fxWakeup::fxWakeup() : fxSelectHandler(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), 1) {
    addOutput(outputName, fxDT_void);
    serve();
}

fxWakeup::~fxWakeup() = default;

const char* fxWakeup::className() const { return "fxWakeup"; }

// A full counter is an unread call, so a write that fails because of it loses
// nothing.
void fxWakeup::wake() const {
    if (!isValid()) return;
    const int callersErrno = errno;
    const std::uint64_t one = 1;
    const ssize_t written = write(fd, &one, sizeof one);
    static_cast<void>(written);
    errno = callersErrno;
}

void fxWakeup::handleRead() {
    if (takeCalls()) sendVoid(getOutput(outputName, fxDT_void), fxSendQueued);
}

bool fxWakeup::takeCalls() {
    std::uint64_t calls = 0;
    return read(fd, &calls, sizeof calls) == static_cast<ssize_t>(sizeof calls);
}
