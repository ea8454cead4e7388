// Repeats system calls that a signal interrupts. Private to the library.
#ifndef FXDS_BASE_UNINTERRUPTED_H
#define FXDS_BASE_UNINTERRUPTED_H

#include <cerrno>

/// Calls `call` until it does not fail with EINTR; returns its result. Not for close(), which
/// has closed the descriptor in any case.
template <class Call>
auto fxUninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

#endif
