// Blocks that grow and change owners: malloc() that is fatal on failure, and
// sources within a block that is about to move. Part of the public headers, not
// of the interface.
#ifndef FXDS_DETAIL_ALLOCATE_H
#define FXDS_DETAIL_ALLOCATE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fxds/Fatal.h"

/// Given: `bytes` bytes, release them with free(). Calls fxFatal() if memory is
/// exhausted.
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

/// The size of the block that malloc() makes for `bytes` bytes, all of which may be asked
/// for.
inline size_t fxWholeBlock(size_t bytes) { return ((bytes + 7) | 15) - 7; }

/// Resizes a block as realloc() does; `block` may be null. Fatal on failure.
/// Requires: bytes >= 1.
inline void* fxGrowBlock(void* block, size_t bytes) {
    block = std::realloc(block, bytes);
    if (block == nullptr) fxFatal("out of memory for %zu bytes", bytes);
    return block;
}

/// The same for a block, or null, of at least `used` bytes, which stay. A small block is
/// copied: malloc() keeps small ones at hand, where realloc() looks for room beside the old.
inline void* fxGrowBlock(void* block, size_t used, size_t bytes) {
    if (bytes > 2048) return fxGrowBlock(block, bytes);
    void* const resized = fxNewBlock(bytes);
    if (block != nullptr) std::memcpy(resized, block, std::min(used, bytes));
    std::free(block);
    return resized;
}

/// `bytes` as a 32-bit length field holds it; fatal when it does not fit.
inline unsigned int fxLengthField(size_t bytes) {
    if (bytes > UINT32_MAX) fxFatal("a length of %zu bytes does not fit 32 bits", bytes);
    return static_cast<unsigned int>(bytes);
}

/// The result of fxOffsetIn() for a place outside the block.
inline constexpr size_t fxOutside = SIZE_MAX;

/// The offset of `place` in the `bytes` bytes at `block`, or fxOutside. With it
/// a source within a block is found again after the block has moved.
inline size_t fxOffsetIn(const void* block, size_t bytes, const void* place) {
    const size_t offset = reinterpret_cast<uintptr_t>(place) - reinterpret_cast<uintptr_t>(block);
    return offset < bytes ? offset : fxOutside;
}

#endif
