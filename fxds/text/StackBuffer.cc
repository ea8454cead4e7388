#include "fxds/StackBuffer.h"

#include <algorithm>
#include <cstdlib>

#include "fxds/detail/Allocate.h"

// Invariant: the storage is the buffer in the object until it first grows, and
// a block owned by the object from then on; `base` points to the one in use.

fxStackBuffer::fxStackBuffer(unsigned int increment)
    : next(buffer),
      end(buffer + inlineBytes),
      base(buffer),
      growthIncrement(increment != 0 ? increment : 500) {}

fxStackBuffer::fxStackBuffer(const fxStackBuffer& src) : growthIncrement(src.growthIncrement) {
    const size_t bytes = src.capacity();
    base = bytes <= inlineBytes ? buffer : static_cast<char*>(fxNewBlock(bytes));
    if (src.length() != 0) std::memcpy(base, src.base, src.length());
    next = base + src.length();
    end = base + bytes;
}

fxStackBuffer::~fxStackBuffer() {
    if (base != buffer) std::free(base);
}

void fxStackBuffer::grow(unsigned int n) {
    const size_t used = length();
    const size_t bytes = fxLengthField(size_t{capacity()} + std::max({n, growthIncrement, 1U}));
    if (base == buffer) {
        base = static_cast<char*>(fxNewBlock(bytes));
        std::memcpy(base, buffer, used);
    } else {
        base = static_cast<char*>(fxGrowBlock(base, bytes));
    }
    end = base + bytes;
    next = base + used;
}

// The source may lie in the storage that moves.
void fxStackBuffer::putGrown(const char* s, unsigned int n) {
    const size_t within = fxOffsetIn(base, length(), s);
    grow(n - static_cast<unsigned int>(end - next));
    std::memcpy(next, within != fxOutside ? base + within : s, n);
    next += n;
}
