#include "fxds/Array.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "fxds/Transcriber.h"
#include "fxds/detail/Allocate.h"

// The fields are 32-bit byte counts, but every offset and sum is computed in size_t and
// checked before it is stored.
//
// Invariants, between any two calls:
// (1) Two sizes describe the block: maxBytes is the capacity, which follows the growth
//     rules exactly and travels with copies; blockBytes() is the allocated size, which is
//     never less. So capacity can grow by four elements at a time while the block grows
//     geometrically.
// (2) lengthBytes <= maxBytes; the elements are the first lengthBytes of the block.
// (3) The block is one of malloc(), so that callers can hand one over and realloc() can
//     enlarge it.
// (4) Elements end by destroyElements(), which the destructor of this class cannot reach: a
//     subclass calls destroy() in its own.
//
// Elements that change place are moved as bytes; hooks run only where an element is
// created, destroyed or copied.

fxArray::fxArray(unsigned short size, unsigned int count)
    : data(nullptr),
      maxBytes(fxLengthField(std::size_t{size} * count)),
      lengthBytes(maxBytes),
      elementSize(size),
      ownsElements(false) {
    FX_ASSERT(size >= 1);
    fxArray::getmem();
    if (lengthBytes != 0) std::memset(data, 0, lengthBytes);
}

fxArray::fxArray(const fxArray& source)
    : fxXDRObj(source),
      data(nullptr),
      maxBytes(source.lengthBytes),
      lengthBytes(source.lengthBytes),
      elementSize(source.elementSize),
      ownsElements(source.ownsElements) {
    fxArray::getmem();
    if (lengthBytes != 0) fxArray::copyElements(source.data, data, lengthBytes);
}

fxArray::fxArray(fxArray&& source) noexcept
    // NOLINTNEXTLINE(performance-move-constructor-init): the base has no fields
    : fxXDRObj(source), elementSize(source.elementSize), ownsElements(source.ownsElements) {
    takeBlock(source);
}

fxArray::fxArray(unsigned int size, unsigned int byteCount, void* block)
    : data(static_cast<char*>(block)),
      maxBytes(byteCount),
      lengthBytes(byteCount),
      elementSize(static_cast<unsigned short>(size)),
      ownsElements(false) {
    noteBlock(byteCount);
    FX_ASSERT(size >= 1 && size <= 0xFFFF);
    FX_ASSERT(block != nullptr || byteCount == 0);
}

// An element size of 1 keeps length() harmless until the subclass sets its own.
fxArray::fxArray(fxTypeObj& type)
    : fxXDRObj(type),
      data(nullptr),
      maxBytes(0),
      lengthBytes(0),
      elementSize(1),
      ownsElements(false) {}

fxArray::~fxArray() { std::free(data); }

// The item may be an element of this array, whose block may move.
void fxArray::append(const void* item) {
    const std::size_t within = fxOffsetIn(data, lengthBytes, item);
    if (lengthBytes == maxBytes) {
        expand();
        if (within != fxOutside) item = data + within;
    }
    copyElements(item, data + lengthBytes, elementSize);
    lengthBytes += elementSize;
}

// With itself as operand: the length is taken before the growth and the block after it.
void fxArray::append(const fxArray& other) {
    FX_ASSERT(other.elementSize == elementSize);
    const unsigned int bytes = other.lengthBytes;
    if (bytes == 0) return;
    const std::size_t sum = std::size_t{lengthBytes} + bytes;
    if (sum > maxBytes) raiseCapacity(sum);
    copyElements(other.data, data + lengthBytes, bytes);
    lengthBytes += bytes;
}

void fxArray::insert(const void* item, unsigned int index) {
    FX_ASSERT(index <= length());
    const std::size_t within = fxOffsetIn(data, lengthBytes, item);
    const std::size_t offset = std::size_t{index} * elementSize;
    if (maxBytes <= lengthBytes) raiseCapacity(std::size_t{lengthBytes} + elementSize);
    if (within != fxOutside) item = data + within;
    copyElements(item, data + lengthBytes, elementSize);
    takeIn(offset, elementSize);
}

void fxArray::insert(const fxArray& other, unsigned int index) {
    FX_ASSERT(other.elementSize == elementSize);
    FX_ASSERT(index <= length());
    const unsigned int bytes = other.lengthBytes;
    if (bytes == 0) return;
    const std::size_t offset = std::size_t{index} * elementSize;
    const std::size_t sum = std::size_t{lengthBytes} + bytes;
    if (sum > maxBytes) raiseCapacity(sum);
    copyElements(other.data, data + lengthBytes, bytes);
    takeIn(offset, bytes);
}

void fxArray::remove(unsigned int start, unsigned int count) {
    if (count == 0) return;
    FX_ASSERT(start <= length() && count <= length() - start);
    const std::size_t offset = std::size_t{start} * elementSize;
    const std::size_t bytes = std::size_t{count} * elementSize;
    destroyElements(data + offset, static_cast<unsigned int>(bytes));
    closeGap(offset, bytes);
}

// In growth the length changes last: an exception in the creation of elements leaves the
// old ones.
void fxArray::resize(unsigned int n) {
    const unsigned int bytes = fxLengthField(std::size_t{n} * elementSize);
    const unsigned int had = lengthBytes;
    maxBytes = bytes;
    if (bytes > had) {
        getmem();
        std::memset(data + had, 0, bytes - had);
        createElements(data + had, bytes - had);
    } else if (bytes < had) {
        destroyElements(data + bytes, had - bytes);
        getmem();
    }
    lengthBytes = bytes;
}

void fxArray::setMaxLength(unsigned int n) {
    const std::size_t target =
        std::max(std::size_t{n} * elementSize, static_cast<std::size_t>(lengthBytes));
    if (target != maxBytes) raiseCapacity(target);
}

void fxArray::swap(unsigned int i, unsigned int j) {
    FX_ASSERT(i < length() && j < length());
    if (i != j) std::swap_ranges(at(i), at(i) + elementSize, at(j));
}

unsigned int fxArray::find(const void* item, unsigned int start) const {
    for (unsigned int i = start, n = length(); i < n; ++i) {
        if (compareElements(item, at(i)) == 0) return i;
    }
    return notFound;
}

void fxArray::destroy() {
    if (lengthBytes != 0) destroyElements(data, lengthBytes);
}

void* fxArray::raw_extract(unsigned int start, unsigned int count) const {
    FX_ASSERT(start <= length() && count <= length() - start);
    return copyOf(std::size_t{start} * elementSize, std::size_t{count} * elementSize);
}

void* fxArray::raw_head(unsigned int count) const { return raw_extract(0, count); }

void* fxArray::raw_tail(unsigned int count) const { return raw_extract(length() - count, count); }

void* fxArray::raw_copy() const { return copyOf(0, lengthBytes); }

// The elements leave as bytes. No hook runs: they go on living in the block.
void* fxArray::raw_cut(unsigned int start, unsigned int count) {
    if (count == 0) return nullptr;
    FX_ASSERT(start <= length() && count <= length() - start);
    const std::size_t offset = std::size_t{start} * elementSize;
    const std::size_t bytes = std::size_t{count} * elementSize;
    void* const block = fxNewBlock(bytes);
    std::memcpy(block, data + offset, bytes);
    closeGap(offset, bytes);
    return block;
}

fxBool fxArray::xdr(fxTranscriber& transcriber) {
    return transcriber.xdr(fxXDRObj_type, static_cast<void*>(this), static_cast<void*>(this));
}

fxTypeObj* fxArray::getTypeObj() const { return &fxArray_type; }

// A block is at least doubled, from a page on enlarged by half, and freed when less than
// half of it is needed, so that neither growth nor shrinkage in small steps moves it each
// time.
void fxArray::getmem() {
    if (maxBytes == 0) {
        std::free(data);
        data = nullptr;
        noteBlock(0);
        return;
    }
    constexpr unsigned int page = 4096;
    const std::size_t had = blockBytes();
    const std::size_t roomy = had + (had < page ? had : had / 2);
    std::size_t bytes = had;
    if (maxBytes > had) {
        bytes = std::min<std::size_t>(fxWholeBlock(std::max<std::size_t>(maxBytes, roomy)),
                                      std::numeric_limits<unsigned int>::max());
    } else if (maxBytes < had / 2) {
        bytes = maxBytes;
    }
    if (bytes == had) return;
    data = static_cast<char*>(fxGrowBlock(data, had, bytes));
    noteBlock(bytes);
}

void fxArray::expand() { raiseCapacity(std::size_t{maxBytes} + 4 * std::size_t{elementSize}); }

void fxArray::createElements(void*, unsigned int) {}

void fxArray::destroyElements(void*, unsigned int) {}

void fxArray::copyElements(const void* from, void* to, unsigned int byteCount) const {
    if (byteCount != 0) std::memmove(to, from, byteCount);
}

int fxArray::compareElements(const void* a, const void* b) const {
    return std::memcmp(a, b, elementSize);
}

fxBool fxArray::xdr(void* object, fxTranscriber& transcriber) {
    fxArray& self = *static_cast<fxArray*>(object);
    return transcriber.conclude(self.xdr(transcriber) != 0, self, object);
}

fxArray& fxArray::operator=(const fxArray& source) {
    FX_ASSERT(source.elementSize == elementSize);
    if (&source != this) {
        destroy();
        discard();
        fillFrom(source, *this);
    }
    return *this;
}

fxArray& fxArray::operator=(fxArray&& source) noexcept {
    FX_ASSERT(source.elementSize == elementSize);
    if (&source != this) {
        destroy();
        std::free(data);
        takeBlock(source);
    }
    return *this;
}

// The own hooks are not in force in a constructor; the source is complete.
void fxArray::copyFrom(const fxArray& source) {
    fillFrom(source, source);
    ownsElements = source.ownsElements;
}

void fxArray::fillFrom(const fxArray& source, const fxArray& hooks) {
    FX_ASSERT(data == nullptr);
    maxBytes = source.maxBytes;
    getmem();
    if (source.lengthBytes != 0) hooks.copyElements(source.data, data, source.lengthBytes);
    lengthBytes = source.lengthBytes;
}

// In the stream:
//
//     8 bytes   byte length (4), element size (2), zero (2)
//     2 bytes   element size
//     ...       the elements
//
// The second half of the first word is filler: a length travels as 8 bytes.
bool fxArray::xdrSizes(fxTranscriber& transcriber, unsigned int& byteCount) {
    struct Word {
        unsigned int length;
        unsigned short size;
        unsigned short zero;
    };
    static_assert(sizeof(Word) == sizeof(unsigned long));

    if (transcriber.isReading()) {
        // Texts that a reader still owes may have their places in a block that was read: it
        // is not freed.
        if (ownsElements && wasRead && lengthBytes != 0) {
            data = nullptr;
        } else {
            destroy();
        }
        discard();
        wasRead = true;
    } else {
        setMaxLength(length());
    }
    Word fields = {lengthBytes, elementSize, 0};
    unsigned long word = 0;
    std::memcpy(&word, &fields, sizeof word);
    unsigned short size = elementSize;
    if (!transcriber.xdr(&word, 1) || !transcriber.xdr(&size, 1)) return false;
    std::memcpy(&fields, &word, sizeof word);
    byteCount = fields.length;
    return size == elementSize && byteCount % elementSize == 0;
}

// A length in a stream is only a claim: where the transcriber reads in pieces, the block
// grows with the elements that have arrived, unless the stream has enough bytes for all.
// Until all have arrived, the length stays 0.
bool fxArray::xdrElements(fxTranscriber& transcriber, unsigned int byteCount,
                          XdrElements* operation) {
    if (byteCount == 0) return true;
    if (!transcriber.isReading()) return operation(transcriber, data, byteCount / elementSize);

    const bool isInPieces = transcriber.readsInPieces();
    const std::size_t pieceLength = std::max(1U, pieceBytes / elementSize);
    const std::size_t step = isInPieces ? pieceLength * elementSize : byteCount;
    std::size_t have = 0;
    while (have < byteCount) {
        const std::size_t piece = std::min(step, byteCount - have);
        if (!growTo(transcriber, have + piece, byteCount)) break;
        const unsigned int count = static_cast<unsigned int>(piece / elementSize);
        if (!operation(transcriber, data + have, count)) break;
        have += piece;
    }
    return endReading(have == byteCount, byteCount);
}

bool fxArray::growTo(const fxTranscriber& transcriber, std::size_t bytes, unsigned int mostBytes) {
    const std::size_t have = blockBytes();
    if (bytes <= have) return true;
    if (transcriber.hasToCome(mostBytes - have) && resizeBlock(mostBytes)) return true;
    return resizeBlock(std::min<std::size_t>(std::max(bytes, 2 * have), mostBytes));
}

bool fxArray::endReading(bool isRead, unsigned int byteCount) {
    if (!isRead) {
        discard();
        return false;
    }
    maxBytes = lengthBytes = byteCount;
    return true;
}

bool fxArray::reserve(std::size_t byteCount) {
    FX_ASSERT(byteCount >= lengthBytes && byteCount <= UINT32_MAX && byteCount != 0);
    if (!resizeBlock(byteCount)) return false;
    maxBytes = static_cast<unsigned int>(byteCount);
    return true;
}

void fxArray::discard() {
    std::free(data);
    data = nullptr;
    maxBytes = lengthBytes = 0;
    noteBlock(0);
}

// With a limit, one comparison shows an inline append() that a capacity is within the block
// and has not wrapped. Of a block so large that it might, only that is noted.
constexpr std::size_t largestNoted = UINT32_MAX - std::size_t{4} * 0xFFFF;

void fxArray::noteBlock(std::size_t bytes) {
    blockLimit = bytes < largestNoted ? static_cast<unsigned int>(bytes) + 1 : 0;
}

// Of the largest blocks, not quite the size.
std::size_t fxArray::blockBytes() const {
    return blockLimit != 0 ? blockLimit - std::size_t{1} : largestNoted;
}

bool fxArray::resizeBlock(std::size_t bytes) {
    void* const block = std::realloc(data, bytes);
    if (block == nullptr) return false;
    data = static_cast<char*>(block);
    noteBlock(bytes);
    return true;
}

// The source is empty afterwards and keeps its element size, so it can be used again.
void fxArray::takeBlock(fxArray& source) {
    data = source.data;
    maxBytes = source.maxBytes;
    lengthBytes = source.lengthBytes;
    blockLimit = source.blockLimit;
    wasRead = source.wasRead;
    source.data = nullptr;
    source.maxBytes = source.lengthBytes = 0;
    source.noteBlock(0);
}

void fxArray::raiseCapacity(std::size_t bytes) {
    maxBytes = fxLengthField(bytes);
    getmem();
}

// Copies are made behind the last element, where one that throws leaves the array as it is;
// then their bytes change place with the elements from `offset` on.
void fxArray::takeIn(std::size_t offset, std::size_t bytes) {
    if (offset < lengthBytes) {
        char few[256];
        char* const aside = bytes <= sizeof few ? few : static_cast<char*>(fxNewBlock(bytes));
        std::memcpy(aside, data + lengthBytes, bytes);
        std::memmove(data + offset + bytes, data + offset, lengthBytes - offset);
        std::memcpy(data + offset, aside, bytes);
        if (aside != few) std::free(aside);
    }
    lengthBytes += static_cast<unsigned int>(bytes);
}

void fxArray::closeGap(std::size_t offset, std::size_t bytes) {
    const std::size_t end = offset + bytes;
    if (end < lengthBytes) std::memmove(data + offset, data + end, lengthBytes - end);
    lengthBytes -= static_cast<unsigned int>(bytes);
}

void* fxArray::copyOf(std::size_t offset, std::size_t bytes) const {
    if (bytes == 0) return nullptr;
    std::unique_ptr<void, decltype(&std::free)> block(fxNewBlock(bytes), &std::free);
    copyElements(data + offset, block.get(), static_cast<unsigned int>(bytes));
    return block.release();
}

void fxZeroFilledArray::createElements(void* start, unsigned int byteCount) {
    if (byteCount != 0) std::memset(start, 0, byteCount);
}
