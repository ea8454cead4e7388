// Memory of the blocks that change hands: malloc() with the failures taken out.
#ifndef FXDS_DETAIL_ALLOCATE_H
#define FXDS_DETAIL_ALLOCATE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "fxds/Fatal.h"

/// Given: `bytes` bytes, release them with free(). Fatal when there are none.
/// Requires: bytes >= 1.
inline void* fxNewBlock(size_t bytes) {
    void* block = std::malloc(bytes);
    if (block == nullptr) fxFatal("out of memory for %zu bytes", bytes);
    return block;
}

/// Given: as fxNewBlock(), with all bytes zero.
inline void* fxNewZeroBlock(size_t bytes) {
    void* block = std::calloc(bytes, 1);
    if (block == nullptr) fxFatal("out of memory for %zu bytes", bytes);
    return block;
}

/// Resizes a block as realloc() does; `block` may be null. Fatal on failure.
/// Requires: bytes >= 1.
inline void* fxGrowBlock(void* block, size_t bytes) {
    block = std::realloc(block, bytes);
    if (block == nullptr) fxFatal("out of memory for %zu bytes", bytes);
    return block;
}

/// `bytes` as a 32-bit length field holds it; fatal when it does not fit.
inline unsigned int fxLengthField(size_t bytes) {
    if (bytes > UINT32_MAX) fxFatal("a length of %zu bytes does not fit 32 bits", bytes);
    return static_cast<unsigned int>(bytes);
}

#endif
