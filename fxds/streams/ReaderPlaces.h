// How the places of an fxReaderGraph are filled. Inline, because a graph has as many as pointers
// and texts.
#ifndef FXDS_STREAMS_READERPLACES_H
#define FXDS_STREAMS_READERPLACES_H

#include <cstddef>
#include <cstring>

#include "fxds/Str.h"
#include "fxds/base/CopyShort.h"
#include "fxds/detail/Allocate.h"
#include "fxds/streams/ReaderGraph.h"

namespace fxReaderPlaces {

inline void setPointer(void* slot, void* value) { std::memcpy(slot, &value, sizeof value); }

}  // namespace fxReaderPlaces

// Whether the place may have the object or block of its number; counts the copy. A text
// must end where its string does. Memory that a field has is out of reach.
inline bool fxReaderGraph::admits(const fxBinaryReaderItem& item, const fxReaderEntry& entry) {
    if (item.isObject()) {
        follow(entry);
        return true;
    }
    if (item.isText()) return admitsText(item.wanted, entry.source());
    return !item.isOwnBlock() || (entry.source() != nullptr && admitsCopy(entry.bytes()));
}

inline bool fxReaderGraph::admitsText(unsigned int textBytes, const char* bytes) {
    return bytes != nullptr && bytes[textBytes - 1] == '\0' && admitsCopy(textBytes);
}

// Limits the bytes that a graph may hold in texts and in blocks with one owner. Each place
// has its own copy, so a stream could name a long one very often. A stream of our writer
// names each text once in a graph, unless an object transcribes a string repeatedly.
inline bool fxReaderGraph::admitsCopy(unsigned int byteCount) {
    constexpr size_t freeBytes = size_t{1} << 16;
    constexpr size_t copiesOfEach = 16;
    copiedBytes += byteCount;
    return copiedBytes <= freeBytes + copiesOfEach * blockBytes;
}

inline bool fxReaderGraph::fillIfAdmitted(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (item.isObject()) {
        follow(entry);
        fillPointer(item, entry);
        return true;
    }
    return item.isText() ? fillTextIfAdmitted(item, entry.source())
                         : fillBlockIfAdmitted(item, entry);
}

inline bool fxReaderGraph::fillTextIfAdmitted(const fxBinaryReaderItem& item, const char* bytes) {
    const bool isAdmitted = admitsText(item.wanted, bytes);
    if (isAdmitted) fillText(item, bytes);
    return isAdmitted;
}

inline void fxReaderGraph::fillPointer(const fxBinaryReaderItem& item, const fxReaderEntry& entry) {
    fxTypeObj& declared = typeOf(item.wanted);
    fxReaderPlaces::setPointer(item.slot, &entry.record() == &declared
                                              ? entry.address()
                                              : entry.record().upcast(entry.address(), declared));
}

inline void fxReaderGraph::fillText(const fxBinaryReaderItem& item, const char* bytes) {
    char* const copy = static_cast<char*>(fxNewBlock(item.wanted));
    fxCopyShort(copy, bytes, item.wanted);
    static_cast<fxStr*>(item.slot)->adopt(copy, item.wanted);
}

inline void fxReaderGraph::fillBlock(const fxBinaryReaderItem& item, fxReaderEntry& entry) {
    if (item.isText()) {
        fillText(item, entry.source());
    } else if (item.isOwnBlock()) {
        fxReaderPlaces::setPointer(item.slot, numbers.takeMemoryOf(entry));
    } else {
        fxReaderPlaces::setPointer(item.slot, numbers.memoryOf(entry));
        blocks.push_back(&entry);
    }
}

#endif
