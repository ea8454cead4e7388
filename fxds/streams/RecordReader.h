// The records of a binary stream, one at a time.
#ifndef FXDS_STREAMS_RECORDREADER_H
#define FXDS_STREAMS_RECORDREADER_H

#include <cstddef>
#include <cstring>

#include "fxds/StackBuffer.h"
#include "fxds/Stream.h"
#include "fxds/streams/RecordFormat.h"

// Bytes come from the window of the stream when it has them at hand, and from
// its getBytes() otherwise.
//
// Invariants, between any two calls:
// (1) Nothing beyond the current record has been asked for.
// (2) Of its payload, the `ready` bytes are at the front of the window of the
//     stream or of `staged`; `payloadLeft` bytes follow in the stream, behind them.
// (3) After the first failure of the stream nothing is at hand, and the stream is
//     not asked again.
// What the program does to the stream in between cannot harm: before each use the
// ready bytes are compared with what the window still has.

class fxRecordReader {
public:
    /// `heldStream` is borrowed and may be null. `stagingBuffer`, of that many
    /// bytes, is used for the payloads of streams without a window.
    fxRecordReader(fxStream* heldStream, char* stagingBuffer, unsigned int stagingBytes);

    /// Drops what is left of the payload and takes the head of the next record.
    /// False when the stream ends, and for a tag that does not exist.
    bool next() {
        if ((ready.count | payloadLeft) != 0 && !skip()) return false;
        if (source->size() < quickBytes) return readHead();
        const unsigned char* const head = reinterpret_cast<const unsigned char*>(*source->next);
        const unsigned int bytes = fxRecordFormat::quickHeadBytes.of[*head];
        if (bytes == 0) return readHead();
        headNext = *source->next;
        current = fxRecordFormat::decode(head);
        *source->next += bytes;
        payloadLeft = current.payloadBytes;
        idsRead += current.tag > fxTagNull;
        return true;
    }
    bool isOfNoTag() const { return current.tag >= fxRecordFormat::tagCount; }
    /// Makes the next piece of the payload ready, if there is one. False when the
    /// stream ends in it. Requires: no bytes are ready.
    bool stage() {
        if (payloadLeft > stagingBytes || source->size() < payloadLeft) return stagePiece();
        ready = {source, payloadLeft};
        payloadLeft = 0;
        return true;
    }

    const fxRecordFormat::Head& head() const { return current; }  ///< Of the current record.
    const char* name() const { return typeName.getBase(); }       ///< Of a type record.
    /// Bytes of payload not taken.
    size_t left() const { return size_t{ready.count} + payloadLeft; }

    /// The bytes of the payload that are ready, to take from.
    fxReadyBytes ready;

    /// Takes `byteCount` bytes of payload. False when the stream ends.
    /// Requires: byteCount <= left().
    bool take(char* bytes, size_t byteCount);

    void fail();                                          ///< Treats the stream as ended.
    bool hasFailed() const { return stream == nullptr; }  ///< Whether it has, or is so treated.

    ///@{
    /// Between readings others may move the window, as one who writes to the stream
    /// does: the count of bytes is kept apart from it until the next reading begins.
    void leaveWindow();
    void enterWindow() { mark = *source->next; }
    ///@}

    /// How many bytes of the stream stood before the current record.
    size_t recordAt() const { return headNext != nullptr ? takenUpTo(headNext) : headAt; }

    /// Number of records with an id so far.
    size_t numbered() const { return idsRead; }

private:
    // Rare, and kept out of the way of what is not.
    [[gnu::noinline]] bool skip();
    [[gnu::noinline]] bool stagePiece();
    [[gnu::noinline]] bool readHead();
    [[gnu::noinline]] bool readName();
    bool get(char* bytes, size_t byteCount);
    size_t taken() const { return takenUpTo(*source->next); }
    size_t takenUpTo(const char* next) const { return marked + static_cast<size_t>(next - mark); }

    fxStream* stream;
    const fxStreamWindow* source;  // of the stream
    size_t marked = 0;             // bytes taken when `mark` was next in the window
    const char* mark = nullptr;
    const char* headNext = nullptr;  // the current record, where the window still shows it,
    size_t headAt = 0;               // or else how many bytes were taken before it
    unsigned int payloadLeft = 0;
    fxRecordFormat::Head current;
    fxRecordFormat::Filler filler;
    size_t quickBytes = fxRecordFormat::maxHeadBytes;  // how many let a head be taken at once
    size_t idsRead = 0;

    char* const staging;
    const unsigned int stagingBytes;
    char* stagedNext = nullptr;
    char* stagedEnd = nullptr;
    const fxStreamWindow staged{&stagedNext, &stagedEnd};
    fxStackBuffer typeName;
};

#endif
