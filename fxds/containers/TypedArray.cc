#include "fxds/TypedArray.h"

#include <algorithm>
#include <vector>

#include "fxds/BoolArray.h"
#include "fxds/IntArray.h"

// An int travels as 8 bytes. n ints at once are packed:
//
//     4n bytes  the ints
//     4n bytes  zero
//
// A transcriber's int operation may itself be the long operation of the same
// address, which touches 8n bytes; so it is given 8n bytes. That is for arrays
// of moderate size. Larger ones pass through the long operation in pieces,
// which makes the same bytes.

namespace {

constexpr std::size_t stagedLongs = 4096;

bool xdrStaged(fxTranscriber& transcriber, void* at, unsigned int count) {
    const std::size_t bytes = count * sizeof(int);
    std::vector<int> staged(2 * std::size_t{count});
    if (!transcriber.isReading()) std::memcpy(staged.data(), at, bytes);
    if (!transcriber.xdr(staged.data(), count)) return false;
    if (transcriber.isReading()) std::memcpy(at, staged.data(), bytes);
    return true;
}

// The packed half. `count` is even but in the last piece.
bool xdrPacked(fxTranscriber& transcriber, void* at, unsigned int count) {
    char* place = static_cast<char*>(at);
    std::size_t left = count * sizeof(int);
    while (left > 0) {
        long staged[stagedLongs] = {};
        const std::size_t bytes = std::min(left, sizeof staged);
        const std::size_t longs = (bytes + sizeof(long) - 1) / sizeof(long);
        if (!transcriber.isReading()) std::memcpy(staged, place, bytes);
        if (!transcriber.xdr(staged, static_cast<unsigned int>(longs))) return false;
        if (transcriber.isReading()) std::memcpy(place, staged, bytes);
        place += bytes;
        left -= bytes;
    }
    return true;
}

// The zero half; an odd last int has brought four bytes of it along.
bool xdrZeros(fxTranscriber& transcriber, unsigned int count) {
    std::size_t left = count / 2;
    while (left > 0) {
        long zeros[stagedLongs] = {};
        const std::size_t longs = std::min(left, stagedLongs);
        if (!transcriber.xdr(zeros, static_cast<unsigned int>(longs))) return false;
        left -= longs;
    }
    return true;
}

}  // namespace

fxBool fxIntArray::xdr(fxTranscriber& transcriber) {
    unsigned int byteCount = 0;
    if (!xdrSizes(transcriber, byteCount)) return 0;
    if (byteCount <= pieceBytes / 2) return xdrElements(transcriber, byteCount, xdrStaged);
    if (!xdrElements(transcriber, byteCount, xdrPacked)) return 0;
    if (xdrZeros(transcriber, length())) return 1;
    if (transcriber.isReading()) discard();
    return 0;
}

fxBool fxBoolArray::xdr(fxTranscriber& transcriber) {
    if (!fxRecordedArray::xdr(transcriber)) return 0;
    if (transcriber.isReading()) {
        std::transform(begin(), end(), begin(), [](fxBool byte) { return fxBool{byte != 0}; });
    }
    return 1;
}
