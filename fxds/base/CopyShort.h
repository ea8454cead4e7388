// Copying a few bytes without a call. Private to the library.
#ifndef FXDS_BASE_COPYSHORT_H
#define FXDS_BASE_COPYSHORT_H

#include <cstddef>
#include <cstring>

/// memcpy() that is faster for 8 to 16 bytes, the length of most names.
inline void fxCopyShort(char* to, const char* from, size_t byteCount) {
    if (byteCount - 8 > 8) {
        std::memcpy(to, from, byteCount);
        return;
    }
    char first[8];
    char last[8];
    std::memcpy(first, from, sizeof first);
    std::memcpy(last, from + byteCount - sizeof last, sizeof last);
    std::memcpy(to, first, sizeof first);
    std::memcpy(to + byteCount - sizeof last, last, sizeof last);
}

#endif
