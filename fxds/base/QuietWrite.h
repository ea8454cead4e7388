// Writes that raise no signal. Private to the library.
#ifndef FXDS_BASE_QUIETWRITE_H
#define FXDS_BASE_QUIETWRITE_H

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

/// A write() that fails with EPIPE instead of ending the program with SIGPIPE, or with EFBIG
/// instead of SIGXFSZ, if `signal` is that: it is blocked in this thread and consumed, unless
/// one was pending before.
inline ssize_t fxWriteWithoutSignal(int fd, const char* bytes, size_t count, int signal = SIGPIPE) {
    sigset_t blocked;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&blocked);
    sigaddset(&blocked, signal);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    sigpending(&pending);
    const ssize_t written = write(fd, bytes, count);
    const int writesErrno = errno;
    const int itsErrno = signal == SIGPIPE ? EPIPE : EFBIG;
    if (written < 0 && writesErrno == itsErrno && sigismember(&pending, signal) == 0) {
        const timespec noWait = {0, 0};
        sigtimedwait(&blocked, nullptr, &noWait);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = writesErrno;
    return written;
}

#endif
