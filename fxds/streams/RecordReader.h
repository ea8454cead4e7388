// The records of a binary stream, one at a time.
#ifndef FXDS_STREAMS_RECORDREADER_H
#define FXDS_STREAMS_RECORDREADER_H

#include <cstddef>
#include <cstring>
#include <utility>

#include "fxds/StackBuffer.h"
#include "fxds/StdioStream.h"
#include "fxds/streams/RecordFormat.h"

// Bytes come from the window of the stream if it has enough of them, and from its
// getBytes() otherwise.
//
// Invariants, between any two calls:
// (1) Nothing beyond the current record has been requested from the stream.
// (2) The `ready` bytes of the payload are at the front of the window of the stream or of
//     `staged`; `ready.payloadLeft` bytes follow in the stream, behind them. If `ready.tag`
//     is set, it is the tag of the current record, which has no payload left.
// (3) After the first failure of the stream the window is empty, and the stream is not used
//     again.
// (4) During a reading, marked + (*source->next - mark) bytes of the stream have been
//     taken, behind its header. Between readings others may move the window, too; then
//     count() adds what it can have taken of the bytes that were at hand.
//     During takeRun(), the window lies in the place of the value, behind what was taken.
// (5) If ready.record is set, it points to the head of the current record in the window;
//     otherwise headAt is the position of that head.
// The program cannot do harm by using the stream in between: before each use the ready
// bytes are compared with the rest of the window.

class fxRecordReader {
public:
    /// `heldStream` is borrowed and may be null. `stagingBuffer` has `stagingBytes` bytes
    /// and is used for the payloads of streams without a window.
    fxRecordReader(fxStream* heldStream, char* stagingBuffer, unsigned int stagingBytes);

    /// Drops the rest of the payload and takes the head of the next record. Returns false
    /// when the stream ends, and for a tag that does not exist.
    bool next() {
        if ((ready.count | ready.payloadLeft) != 0 && !skip()) return false;
        if (source->size() < ready.quickBytes) return readHead();
        const unsigned char* const head = reinterpret_cast<const unsigned char*>(*source->next);
        const unsigned int bytes = fxRecordFormat::quickHeadBytes.of[*head];
        if (bytes == 0) return readHead();
        current = fxRecordFormat::decode(head);
        advance(bytes);
        ready.payloadLeft = current.payloadBytes;
        ready.idCount += current.tag > fxTagNull;
        return true;
    }
    /// The next record, when the current one has no payload left and the head is in the
    /// window as a whole; otherwise null.
    const unsigned char* peek() const {
        const bool isAtHand =
            (ready.count | ready.payloadLeft) == 0 && source->size() >= ready.quickBytes;
        return isAtHand ? reinterpret_cast<unsigned char*>(*source->next) : nullptr;
    }
    /// Does what next() does, and makes the payload ready, if the record that peek() found,
    /// which may be null, defines an object or a block, is short, and is in the window as a
    /// whole. Otherwise nothing happens, and next() must be called.
    bool nextDefinition(const unsigned char* record) {
        using namespace fxRecordFormat;
        constexpr unsigned int longest = 2 + fieldBytes[fxTagObject];
        if (record == nullptr) return false;
        const unsigned int tag = *record - (1U << 6U);  // with a length of one byte
        const unsigned int payloadBytes = record[1];
        if (tag - fxTagBytes > fxTagObject - fxTagBytes ||
            source->size() - longest < payloadBytes) {
            return false;
        }
        const unsigned int fields[] = {word(record + 2), word(record + 6), word(record + 10)};
        current = {tag, payloadBytes, {fields[0], fields[1], fields[2]}};
        advance(tag == fxTagObject ? longest : longest - 4);
        ready.count = payloadBytes;
        ++ready.idCount;
        return true;
    }
    /// The record that peek() found, which may be null, if it is a block of bytes whose
    /// length takes one byte and which is in the window as a whole.
    fxRecordFormat::ShortBlock shortBlock(const unsigned char* record) const {
        using fxRecordFormat::ShortBlock;
        if (record == nullptr || *record != (1U << 6U | fxTagBytes)) return {nullptr};
        const ShortBlock block{record};
        const bool isWhole =
            record[1] == block.byteCount() && record[1] <= source->size() - ShortBlock::headBytes;
        return isWhole ? block : ShortBlock{nullptr};
    }
    void pass(const fxRecordFormat::ShortBlock& block) {
        advance(fxRecordFormat::ShortBlock::headBytes + block.record[1]);
        ready.tag = fxTagBytes;
        ++ready.idCount;
    }
    bool isOfNoTag() const { return current.tag >= fxRecordFormat::tagCount; }
    /// Makes the next piece of the payload ready, if there is one. Returns false when the
    /// stream ends in it. Requires: no bytes are ready.
    bool stage() {
        if (ready.payloadLeft > stagingBytes || source->size() < ready.payloadLeft) {
            return stagePiece();
        }
        ready.window = source;
        ready.count = std::exchange(ready.payloadLeft, 0);
        return true;
    }

    /// The head of the current record. After a place that was taken from `ready`, or a
    /// short block, sync() must come first, and the fields stay unknown.
    const fxRecordFormat::Head& head() const { return current; }
    void sync() {
        if (ready.tag != 0) current = {std::exchange(ready.tag, 0), 0, {}};
    }
    const char* name() const { return typeName.getBase(); }  ///< Of a type record.
    /// Bytes of payload not taken.
    size_t left() const { return size_t{ready.count} + ready.payloadLeft; }

    /// The ready bytes of the payload, and the places that were entered.
    fxReadyRecords ready;

    /// Takes `byteCount` bytes of payload. Returns false when the stream ends.
    /// Requires: byteCount <= left().
    bool take(char* bytes, size_t byteCount);

    /// Takes the data records of a long value, whole ones only, if the stream is a file. It is
    /// read into the place of the value, where the payloads then move together; this costs half
    /// of copying them out of a buffer. Moves `bytes` and `byteCount` on by what was taken.
    /// Requires: left() is 0, and sync() came before.
    void takeRun(char*& bytes, size_t& byteCount);

    void fail();  ///< Treats the stream as ended.
    bool hasFailed() const {
        return stream == nullptr;
    }  ///< Whether it has ended or is treated so.

    /// Counts what was taken of the window. To be called when a reading begins and ends: others
    /// may move the window in between, for instance by writing to the stream.
    void count();

    /// Number of bytes of the stream that have been taken. Perhaps some of the payload, up to
    /// the size of the staging buffer, is among them before its values are.
    size_t taken() const { return takenUpTo(*source->next); }
    /// Number of bytes of the stream before the current record.
    size_t recordAt() const { return ready.record != nullptr ? takenUpTo(ready.record) : headAt; }

    /// Number of records with an id so far.
    size_t numbered() const { return ready.idCount; }

private:
    // Takes a head from the window.
    void advance(unsigned int headBytes) {
        ready.tag = 0;
        ready.window = source;
        ready.record = *source->next;
        *source->next += headBytes;
    }
    // Rare, and kept out of the inline paths.
    [[gnu::noinline]] bool skip();
    [[gnu::noinline]] bool stagePiece();
    [[gnu::noinline]] bool readHead();
    [[gnu::noinline]] bool readName();
    void setMark() {
        mark = *source->next;
        markedAtHand = source->size();
    }
    bool get(char* bytes, size_t byteCount);
    bool takeRecords(char*& bytes, size_t& byteCount);
    size_t takenUpTo(const char* next) const { return marked + static_cast<size_t>(next - mark); }

    fxStream* stream;
    fxStdioStream* file = nullptr;  // the stream if it is one that has a window
    const fxStreamWindow* source;   // of the stream
    size_t marked = 0;              // bytes taken when `mark` was next in the window
    const char* mark = nullptr;
    size_t markedAtHand = 0;  // bytes in the window then
    size_t headAt = 0;        // see (5)
    fxRecordFormat::Head current;
    fxRecordFormat::Filler filler;

    char* const staging;
    const unsigned int stagingBytes;
    char* stagedNext = nullptr;
    char* stagedEnd = nullptr;
    const fxStreamWindow staged{&stagedNext, &stagedEnd};
    fxStackBuffer typeName;
};

#endif
