#include "fxds/MemoryStream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <typeinfo>
#include <utility>

#include "fxds/detail/Allocate.h"

// The buffer doubles, so the average cost of a write does not depend on how
// many came before. It comes from malloc(), because give() hands it out.
//
// Invariants, between any two calls:
// (1) The content is [base, end), of which [base, next) has been read.
// (2) A stream that writes has base == block, and end - base <= blockBytes <=
//     limit. A stream that only reads has no block; base points to borrowed
//     bytes.

namespace {

constexpr size_t firstBlockBytes = 256;

}  // namespace

fxMemoryStream::fxMemoryStream(size_t limitBytes)
    : base(nullptr),
      next(nullptr),
      end(nullptr),
      unread{&next, &end},
      limit(limitBytes),
      block(nullptr),
      blockBytes(0),
      type(fxStreamReadWrite),
      errorFlag(0) {}

fxMemoryStream::fxMemoryStream(const void* bytes, size_t byteCount)
    : base(static_cast<char*>(const_cast<void*>(bytes))),
      next(base),
      end(base + (bytes != nullptr ? byteCount : 0)),
      unread{&next, &end},
      limit(0),
      block(nullptr),
      blockBytes(0),
      type(fxStreamRead),
      errorFlag(bytes == nullptr && byteCount != 0) {}

fxMemoryStream::~fxMemoryStream() { std::free(block); }

bool fxMemoryStream::hasError() { return errorFlag != 0; }
bool fxMemoryStream::atEOF() { return next == end; }
bool fxMemoryStream::isReading() { return true; }
bool fxMemoryStream::isWriting() { return type != fxStreamRead; }
fxStream::fxStreamType fxMemoryStream::getType() { return type; }

bool fxMemoryStream::setPosition(size_t newPosition) {
    if (newPosition > length()) return false;
    next = base + newPosition;
    return true;
}

const fxStreamWindow& fxMemoryStream::window() {
    return typeid(*this) == typeid(fxMemoryStream) ? unread : fxStream::window();
}

void fxMemoryStream::reset() {
    base = block;
    next = end = base;
}

char* fxMemoryStream::give(size_t& byteCount) {
    byteCount = 0;
    if (type == fxStreamRead || length() == 0) return nullptr;
    byteCount = length();
    char* const given = std::exchange(block, nullptr);
    blockBytes = 0;
    reset();
    return given;
}

// Private functions.

bool fxMemoryStream::get(void* bytes, size_t byteCount) {
    if (byteCount > unread.size()) return false;
    if (byteCount != 0) std::memcpy(bytes, next, byteCount);
    next += byteCount;
    return true;
}

// `bytes` may lie in the buffer, which moves when it grows.
bool fxMemoryStream::put(const void* bytes, size_t byteCount) {
    if (!isWriting()) return false;
    if (byteCount == 0) return true;
    const char* from = static_cast<const char*>(bytes);
    const size_t within = fxOffsetIn(block, length(), from);
    if (!grow(byteCount)) return false;
    if (within != fxOutside) from = block + within;
    std::memcpy(end, from, byteCount);
    end += byteCount;
    return true;
}

// Makes room for `byteCount` more bytes.
bool fxMemoryStream::grow(size_t byteCount) {
    if (length() > limit || byteCount > limit - length()) return false;
    const size_t content = length();
    const size_t position = getPosition();
    const size_t needed = content + byteCount;
    if (needed <= blockBytes) return true;
    const size_t doubled = blockBytes <= SIZE_MAX / 2 ? 2 * blockBytes : SIZE_MAX;
    const size_t wanted = std::max(needed, std::min(std::max(doubled, firstBlockBytes), limit));
    char* const grown = static_cast<char*>(std::realloc(block, wanted));
    if (grown == nullptr) return false;
    base = block = grown;
    next = grown + position;
    end = grown + content;
    blockBytes = wanted;
    return true;
}
