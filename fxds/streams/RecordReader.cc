#include "fxds/streams/RecordReader.h"

#include <algorithm>
#include <cstdint>
#include <typeinfo>

// The functions in the header take the usual heads, which are in the window as a whole. The
// slow paths are here: heads that cross the end of the window, fillers, names of types, and
// payload in pieces.
//
// get() alone requests bytes beyond the window. The request may move or refill the window,
// so the count of bytes is settled before, and begins anew at the window as it is
// afterwards. A failed request ends the stream for good, so no record is read behind one
// that is incomplete.

using namespace fxRecordFormat;

namespace {

const fxStreamWindow nothing;

}  // namespace

fxRecordReader::fxRecordReader(fxStream* heldStream, char* stagingBuffer,
                               unsigned int stagingBytes_)
    : ready(nothing),
      stream(heldStream),
      source(&nothing),
      staging(stagingBuffer),
      stagingBytes(stagingBytes_) {
    if (stream != nullptr && !stream->isReading()) stream = nullptr;
    if (stream != nullptr) ready.window = source = &stream->window();
    if (stream != nullptr && typeid(*stream) == typeid(fxStdioStream)) {
        file = static_cast<fxStdioStream*>(stream);
    }
    ready.quickBytes = maxHeadBytes;
    setMark();
}

bool fxRecordReader::take(char* bytes, size_t byteCount) {
    while (byteCount > 0) {
        if (ready.count == 0 && byteCount < std::min(ready.payloadLeft, stagingBytes)) {
            if (!stage()) return false;
        } else if (ready.count == 0) {
            // A long value goes straight to its place.
            ready.payloadLeft -= static_cast<unsigned int>(byteCount);
            return get(bytes, byteCount);
        }
        const size_t piece = std::min<size_t>(byteCount, ready.count);
        if (!ready.take(bytes, piece)) return false;
        bytes += piece;
        byteCount -= piece;
    }
    return true;
}

// The end of the stream, and any other record, are left to the usual path.
void fxRecordReader::takeRun(char*& bytes, size_t& byteCount) {
    constexpr size_t nearlyEmpty = 1024;  // the window, which is used up first
    while (file != nullptr && source->size() < nearlyEmpty &&
           byteCount >= fxStdioStream::bufferBytes && *source->next != nullptr) {
        count();
        file->readAhead(bytes);
        const bool isTaken = takeRecords(bytes, byteCount);
        file->endAhead();
        setMark();
        if (!isTaken) return;
    }
}

// The payloads move down, and are no more than was read, which the value has place for.
bool fxRecordReader::takeRecords(char*& bytes, size_t& byteCount) {
    const char* const first = *source->next;
    const char* const end = *source->end;
    const char* next = first;
    const char* last = nullptr;
    while (static_cast<size_t>(end - next) >= maxHeadBytes) {
        const unsigned char* const head = reinterpret_cast<const unsigned char*>(next);
        const size_t headLength = headBytes.of[*head];
        const size_t payloadBytes = decode(head).payloadBytes;
        const bool isData = (*head & 0x3FU) == fxTagData && payloadBytes != 0;
        if (!isData || payloadBytes > static_cast<size_t>(end - next) - headLength) {
            break;
        }
        last = next;
        next += headLength;
        std::memmove(bytes, next, payloadBytes);
        next += payloadBytes;
        bytes += payloadBytes;
        byteCount -= payloadBytes;
    }
    if (last == nullptr) return false;
    current = {fxTagData, 0, {}};
    headAt = marked + static_cast<size_t>(last - first);
    marked += static_cast<size_t>(next - first);
    *source->next += next - first;
    return true;
}

// The window becomes an empty one of static storage: the quick paths test only its size,
// and the stream is not used again.
void fxRecordReader::fail() {
    count();
    stream = file = nullptr;
    source = &nothing;
    setMark();
    ready.window = &nothing;
    ready.count = 0;
    ready.payloadLeft = 0;
}

// Begins anew with what is in the window. One that others have filled again is left out: it is
// elsewhere, or farther from the mark than bytes were at hand.
void fxRecordReader::count() {
    const uintptr_t moved =
        reinterpret_cast<uintptr_t>(*source->next) - reinterpret_cast<uintptr_t>(mark);
    if (moved <= markedAtHand) {
        headAt = recordAt();
        marked += moved;
    }
    ready.record = nullptr;
    setMark();
}

// Private functions.

// Payload that the window has is left there. Otherwise it is copied to the staging buffer,
// piece by piece, so that a claimed length allocates nothing.
bool fxRecordReader::stagePiece() {
    const unsigned int piece = std::min(ready.payloadLeft, stagingBytes);
    ready.window = source;
    if (source->size() < piece) {
        if (!get(staging, piece)) return false;
        stagedNext = staging;
        stagedEnd = staging + piece;
        ready.window = &staged;
    }
    ready.payloadLeft -= piece;
    ready.count = piece;
    return true;
}

// The window may be smaller than the ready bytes if the program has read from the stream
// meanwhile.
bool fxRecordReader::skip() {
    while (left() > 0) {
        if (ready.count == 0 && !stage()) return false;
        *ready.window->next += std::min<size_t>(ready.count, ready.window->size());
        ready.count = 0;
    }
    return true;
}

bool fxRecordReader::get(char* bytes, size_t byteCount) {
    const size_t atHand = std::min(byteCount, source->size());
    if (atHand > 0) {
        std::memcpy(bytes, *source->next, atHand);
        *source->next += atHand;
    }
    const unsigned int rest = static_cast<unsigned int>(byteCount - atHand);
    if (rest == 0) return true;
    if (stream == nullptr) return false;
    count();
    const bool isDone = stream->getBytes(bytes + atHand, rest);
    setMark();
    if (isDone) marked += rest;
    if (!isDone) fail();
    return isDone;
}

// Reads a head that the window has only in part, that a filler may precede, or
// that is of a rare kind.
bool fxRecordReader::readHead() {
    char bytes[maxHeadBytes] = {};
    const unsigned char* const head = reinterpret_cast<unsigned char*>(bytes);
    sync();
    filler.follow(current);
    do {
        if (!get(bytes, 1)) return false;
    } while (filler.takes(*head));
    if (filler.isWide()) ready.quickBytes = fxReadyRecords::never;
    ready.record = nullptr;
    headAt = taken() - 1;
    const size_t rest = size_t{headBytes.of[*head]} - 1 + filler.bytesIn(*head & 0x3FU);
    if (!get(bytes + 1, rest)) return false;
    ready.window = source;
    current = decode(head);
    if (isOfNoTag()) return false;
    ready.payloadLeft = current.payloadBytes;
    ready.idCount += current.tag > fxTagNull;
    return current.tag != fxTagType || readName();
}

bool fxRecordReader::readName() {
    constexpr unsigned int longest = 1U << 24U;  // no type has a name like that
    typeName.reset();
    char byte = 0;
    do {
        if (!get(&byte, 1)) return false;
        if (typeName.length() < longest || byte == '\0') typeName.addc(byte);
    } while (byte != '\0');
    return true;
}
