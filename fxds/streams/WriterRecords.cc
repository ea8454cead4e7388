#include <algorithm>
#include <cstring>

#include "fxds/BinaryWriter.h"
#include "fxds/Fatal.h"
#include "fxds/TypeObj.h"
#include "fxds/base/CopyShort.h"
#include "fxds/base/StreamTrace.h"
#include "fxds/streams/OutBuffer.h"
#include "fxds/streams/RecordFormat.h"
#include "fxds/streams/WriterStack.h"

// The writer's construction of records. A graph has five of them for each object with a
// text and two pointers, and all but one of these are of the two kinds that putEarly() and
// putShort() write in one step.

using namespace fxRecordFormat;

namespace {

constexpr unsigned int shortBytes = 64;  // of payloads that are copied without a loop

}  // namespace

// Data without a payload is no record, and a record that putEarly() has put is complete
// already.
bool fxBinaryWriter::flush() {
    if (isPut) {
        isPut = false;
        tag = fxTagData;
        return true;
    }
    fxBinaryTranscriber& staged = *this;  // a virtual base, found once
    if (staged.used == 0 && tag == fxTagData) return !outgoing->hasFailed();
    if (!writeRecord(staged.buffer, staged.used)) return fail();
    staged.used = 0;
    staged.room = bufferBytes;
    staged.cursor = staged.buffer;
    return true;
}

unsigned int fxBinaryWriter::putHeader(char* place, unsigned int tag, unsigned long payloadBytes) {
    if (tag > fxTagPartAgain) fxFatal("Whoops!");
    return putLength(place, tag, static_cast<unsigned int>(payloadBytes));
}

bool fxBinaryWriter::writeBytes(const void* bytes, size_t byteCount) {
    fxBinaryTranscriber& staged = *this;  // a virtual base, found once
    if (isPut) takeBack();
    if (byteCount != sizeof(long) || staged.room <= sizeof(long)) {
        return writePieces(static_cast<const char*>(bytes), byteCount);
    }
    char* const place = staged.cursor;  // all numbers but shorts and floats
    staged.cursor = place + sizeof(long);
    staged.used += static_cast<unsigned int>(sizeof(long));
    staged.room -= static_cast<unsigned int>(sizeof(long));
    std::memcpy(place, bytes, sizeof(long));
    return true;
}

// Private functions.

// The same for any bytes. Out of line, which keeps writeBytes() small.
bool fxBinaryWriter::writePieces(const char* from, size_t byteCount) {
    if (outgoing->hasFailed()) return false;
    while (byteCount > 0) {
        if (used == 0 && byteCount >= bufferBytes) {
            const size_t many = writeMany(from, byteCount);
            if (many == 0 && !writeRecord(from, bufferBytes)) return fail();
            from += std::max<size_t>(many, bufferBytes);
            byteCount -= std::max<size_t>(many, bufferBytes);
            continue;
        }
        const unsigned int piece = static_cast<unsigned int>(std::min<size_t>(byteCount, room));
        std::memcpy(cursor, from, piece);
        cursor += piece;
        used += piece;
        room -= piece;
        from += piece;
        byteCount -= piece;
        if (room == 0 && !flush()) return false;
    }
    return true;
}

// Writes many records of data, a buffer's length each. Returns how many bytes it took.
size_t fxBinaryWriter::writeMany(const char* from, size_t byteCount) {
    if (tag != fxTagData || fxStreamTrace::isOn()) return 0;
    char head[maxHeadBytes];
    const size_t headLength = putHead(head, bufferBytes);
    return outgoing->putPieces<bufferBytes>(head, headLength, from, byteCount);
}

// The record that putEarly() has put gets a payload.
void fxBinaryWriter::takeBack() {
    outgoing->takeBack(1U + fieldBytes[tag]);
    isPut = false;
}

// Writes the record of a short block of bytes if there is room; otherwise does nothing.
inline bool fxBinaryWriter::putShort(const fxBinaryWriterTarget& item) {
    if (item.tag != fxTagBytes || item.byteCount - 1 >= shortBytes || fxStreamTrace::isOn()) {
        return false;
    }
    char* const place = outgoing->room(maxHeadBytes + shortBytes);
    if (place == nullptr) return false;
    char* const fields = place + putLength(place, fxTagBytes, item.byteCount);
    putWord(fields, item.id);
    putWord(fields + 4, item.byteCount);
    fxCopyShort(fields + 8, static_cast<const char*>(item.address), item.byteCount);
    outgoing->added(ShortBlock::headBytes + item.byteCount);
    return true;
}

// Writes the record being built with this payload, of up to a buffer's length. Data comes
// next. Most payloads are short, and those are copied by a fixed length. Requires: a short
// one is at the front of `buffer`.
bool fxBinaryWriter::writeRecord(const char* payload, unsigned int payloadBytes) {
    if (fxStreamTrace::isOn()) trace();
    char* const place = outgoing->room(maxHeadBytes + shortBytes);
    if (place == nullptr || tag == fxTagType || payloadBytes > shortBytes) {
        return writeParts(payload, payloadBytes);
    }
    const unsigned int length = putHead(place, payloadBytes);
    std::memcpy(place + length, payload, shortBytes);
    outgoing->added(length + payloadBytes);
    tag = fxTagData;
    return true;
}

void fxBinaryWriter::trace() const {
    const unsigned long id = tag == fxTagType ? fieldB : fieldA;
    const char* className = itemType != nullptr ? itemType->name : nullptr;
    if (tag == fxTagType) className = name;
    if (isContents(tag)) className = nullptr;
    fxStreamTrace::record("write", headerBytes + outgoing->total(), tagName(tag),
                          fieldBytes[tag] > 0 ? static_cast<unsigned int>(id) : 0, className);
}

// The same for a payload in several parts.
bool fxBinaryWriter::writeParts(const char* payload, unsigned int payloadBytes) {
    char head[maxHeadBytes];
    if (!outgoing->put(head, putHead(head, payloadBytes))) return false;
    if (tag == fxTagType && !outgoing->put(name, std::strlen(name) + 1)) return false;
    if (payloadBytes != 0 && !outgoing->put(payload, payloadBytes)) return false;
    tag = fxTagData;
    return true;
}

// Keeps invariant (4) of BinaryWriter.cc. Without room, the quick path of writeBytes()
// leads to writePieces(), which refuses; so a scalar costs no test for failure. The pending
// items are dropped, because their objects may be gone by the next call.
bool fxBinaryWriter::fail() {
    outgoing->fail();
    dropPending();
    isPut = false;
    tag = fxTagData;
    used = room = 0;
    cursor = buffer;
    return false;
}

// Puts the head of the record being built and returns its length. Requires: there is room
// for maxHeadBytes, which may all change.
inline unsigned int fxBinaryWriter::putHead(char* place, unsigned int payloadBytes) const {
    // All fields are read before bytes are put: as far as the compiler knows, these might
    // be the bytes of the fields.
    const unsigned int tag_ = tag;
    const unsigned int first = static_cast<unsigned int>(tag_ == fxTagType ? fieldB : fieldA);
    const unsigned int second = tag_ == fxTagObject ? static_cast<unsigned int>(fieldB) : fieldD;
    const unsigned int third = static_cast<unsigned int>(fieldC);
    const unsigned int length = putHeader(place, tag_, payloadBytes);
    char* const fields = place + length;
    putWord(fields, first);
    putWord(fields + 4, second);
    putWord(fields + 8, third);
    return length + fieldBytes[tag_];
}

bool fxBinaryWriter::writeBlock(const fxBinaryWriterTarget& item) {
    if (putShort(item)) return true;
    tag = item.tag;
    fieldD = item.byteCount;
    if (!item.isOfInts) return writeBytes(item.address, item.byteCount);
    const unsigned int count = static_cast<unsigned int>(item.byteCount / sizeof(long));
    return fxBinaryTranscriber::xdr(static_cast<int*>(const_cast<void*>(item.address)), count);
}
