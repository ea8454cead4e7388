#include "fxds/MemoryStream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

// The content is [base, base + contentBytes), of which [0, position) was read.
// The buffer doubles, so that a write costs the same however many came before.
// It comes from malloc(), because it changes hands.

namespace {

constexpr size_t firstBlockBytes = 256;

}  // namespace

fxMemoryStream::fxMemoryStream(size_t limitBytes)
    : base(nullptr),
      contentBytes(0),
      position(0),
      limit(limitBytes),
      block(nullptr),
      blockBytes(0),
      type(fxStreamReadWrite),
      errorFlag(0) {}

fxMemoryStream::fxMemoryStream(const void* bytes, size_t byteCount)
    : base(static_cast<const char*>(bytes)),
      contentBytes(bytes != nullptr ? byteCount : 0),
      position(0),
      limit(0),
      block(nullptr),
      blockBytes(0),
      type(fxStreamRead),
      errorFlag(bytes == nullptr && byteCount != 0) {}

fxMemoryStream::~fxMemoryStream() { std::free(block); }

bool fxMemoryStream::hasError() { return errorFlag != 0; }
bool fxMemoryStream::atEOF() { return position == contentBytes; }
bool fxMemoryStream::isReading() { return true; }
bool fxMemoryStream::isWriting() { return type != fxStreamRead; }
fxStream::fxStreamType fxMemoryStream::getType() { return type; }

bool fxMemoryStream::setPosition(size_t newPosition) {
    if (newPosition > contentBytes) return false;
    position = newPosition;
    return true;
}

void fxMemoryStream::reset() {
    base = block;
    contentBytes = position = 0;
}

char* fxMemoryStream::give(size_t& byteCount) {
    byteCount = 0;
    if (type == fxStreamRead || contentBytes == 0) return nullptr;
    byteCount = contentBytes;
    char* const given = std::exchange(block, nullptr);
    blockBytes = 0;
    reset();
    return given;
}

// Private functions.

bool fxMemoryStream::get(void* bytes, size_t byteCount) {
    if (byteCount > contentBytes - position) return false;
    if (byteCount != 0) std::memcpy(bytes, base + position, byteCount);
    position += byteCount;
    return true;
}

// What is written may lie in the buffer, which moves when it grows.
bool fxMemoryStream::put(const void* bytes, size_t byteCount) {
    if (!isWriting()) return false;
    if (byteCount == 0) return true;
    const char* from = static_cast<const char*>(bytes);
    const uintptr_t offset = reinterpret_cast<uintptr_t>(from) - reinterpret_cast<uintptr_t>(block);
    const bool isOwn = block != nullptr && offset < contentBytes;
    if (!grow(byteCount)) return false;
    if (isOwn) from = block + offset;
    std::memcpy(block + contentBytes, from, byteCount);
    contentBytes += byteCount;
    return true;
}

// Makes room for so many more bytes.
bool fxMemoryStream::grow(size_t byteCount) {
    if (contentBytes > limit || byteCount > limit - contentBytes) return false;
    const size_t needed = contentBytes + byteCount;
    if (needed <= blockBytes) return true;
    const size_t doubled = blockBytes <= SIZE_MAX / 2 ? 2 * blockBytes : SIZE_MAX;
    const size_t wanted = std::max(needed, std::min(std::max(doubled, firstBlockBytes), limit));
    char* const grown = static_cast<char*>(std::realloc(block, wanted));
    if (grown == nullptr) return false;
    block = grown;
    base = block;
    blockBytes = wanted;
    return true;
}
