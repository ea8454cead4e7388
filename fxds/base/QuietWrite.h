// Writes to a pipe or socket whose reader may be gone. Private to the library.
#ifndef FXDS_BASE_QUIETWRITE_H
#define FXDS_BASE_QUIETWRITE_H

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

/// A write() that fails with EPIPE instead of ending the program with SIGPIPE: the signal
/// is blocked in this thread and consumed, unless one was pending before.
inline ssize_t fxWriteWithoutSignal(int fd, const char* bytes, size_t count) {
    sigset_t pipe;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    sigpending(&pending);
    const ssize_t written = write(fd, bytes, count);
    const int writesErrno = errno;
    if (written < 0 && writesErrno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        const timespec noWait = {0, 0};
        sigtimedwait(&pipe, nullptr, &noWait);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = writesErrno;
    return written;
}

#endif
