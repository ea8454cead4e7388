// The output of the writer: records go to the stream, one by one or collected.
#ifndef FXDS_STREAMS_OUTBUFFER_H
#define FXDS_STREAMS_OUTBUFFER_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <typeinfo>

#include "fxds/MemoryStream.h"
#include "fxds/StdioStream.h"
#include "fxds/streams/NewFile.h"

// Invariants:
// (1) [bytes, next) holds the bytes that were put and are not yet in the stream.
// (2) The buffer has room, [next, end), only during the lifetime of a Collecting, and only
//     for the library's own stream classes. Without room each put() of bytes is one write
//     of the stream; a stream of any other class always receives them so. A put() of no
//     bytes writes nothing.
// (3) Once the stream has refused bytes, or fail() was called, it gets no more: they would
//     be at a wrong offset for the reader.

class fxOutBuffer {
public:
    /// `stream` is borrowed; null refuses everything.
    explicit fxOutBuffer(fxStream* stream_) : stream(stream_) {
        if (stream == nullptr) return;
        const std::type_info& type = typeid(*stream);
        mayCollect = type == typeid(fxStdioStream) || type == typeid(fxMemoryStream) ||
                     type == typeid(fxNewFile);
    }

    ///@{
    /// Room to build up to `most` bytes in; added() then takes the number of used ones.
    /// Null if each put() is a write of its own, and if the stream does not take the
    /// collected bytes.
    char* room(size_t most) { return left() >= most ? next : makeRoom(); }
    void added(size_t byteCount) { next += byteCount; }
    ///@}
    /// Takes back bytes that were added since room() was called last.
    void takeBack(size_t byteCount) { next -= byteCount; }

    /// Appends the bytes. More than fit are written to the stream behind the collected
    /// bytes. False if the stream has failed.
    bool put(const char* from, size_t byteCount) {
        if (byteCount > left() && !send()) return false;
        if (byteCount > left()) return write(from, byteCount);
        if (byteCount != 0) std::memcpy(next, from, byteCount);
        next += byteCount;
        return true;
    }

    /// Puts as many whole pieces of pieceBytes bytes as there are, each behind the head, which is
    /// shorter than a piece, if they are so many that a large buffer is worth it. Returns how
    /// many of the bytes were put; none if that is not possible, or if the stream has failed.
    template <size_t pieceBytes>
    size_t putPieces(const char* head, size_t headLength, const char* from, size_t byteCount) {
        if (byteCount < manyBytes || end == bytes.get() || !send()) return 0;
        if (large == nullptr) large.reset(new char[manyBytes + 2 * pieceBytes]);
        const size_t done = byteCount / pieceBytes * pieceBytes;
        size_t have = 0;
        for (size_t i = 0; i < done; i += pieceBytes) {
            std::memcpy(large.get() + have, head, headLength);
            copyPiece<pieceBytes>(large.get() + have + headLength, from + i);
            have += headLength + pieceBytes;
            // Writes end where blocks of the file do, which file systems take best.
            const size_t wanted = manyBytes - sent % manyBytes;
            if (have < wanted) continue;
            if (!write(large.get(), wanted)) return 0;
            have -= wanted;
            std::memmove(large.get(), large.get() + wanted, have);
        }
        return put(large.get(), have) ? done : 0;
    }

    /// Writes the collected bytes to the stream. False if that has failed.
    bool send() {
        const size_t byteCount = static_cast<size_t>(next - bytes.get());
        next = bytes.get();
        return byteCount == 0 ? !hasFailed_ : write(next, byteCount);
    }

    /// The number of bytes put so far.
    size_t total() const { return sent + static_cast<size_t>(next - bytes.get()); }

    /// Whether the stream has refused bytes, or fail() was called.
    bool hasFailed() const { return hasFailed_; }
    void fail() { hasFailed_ = true; }

    /// For a scope, collects the bytes put, and writes them in large pieces. Bytes that are
    /// still collected when the scope ends are dropped: send() before.
    class Collecting {
    public:
        explicit Collecting(fxOutBuffer& buffer_) : buffer(buffer_) {
            if (!buffer.mayCollect) return;
            if (buffer.bytes == nullptr) buffer.bytes.reset(new char[collectedBytes]);
            buffer.next = buffer.bytes.get();
            buffer.end = buffer.next + collectedBytes;
        }
        Collecting(const Collecting&) = delete;
        Collecting& operator=(const Collecting&) = delete;
        ~Collecting() { buffer.next = buffer.end = buffer.bytes.get(); }

    private:
        fxOutBuffer& buffer;
    };

private:
    static constexpr size_t collectedBytes = size_t{1} << 13;  // stays in the nearest cache
    static constexpr size_t manyBytes = size_t{1} << 18;       // stays in the next one

    size_t left() const { return static_cast<size_t>(end - next); }
    // Out of line, which keeps room() small.
    [[gnu::noinline]] char* makeRoom() { return end != bytes.get() && send() ? next : nullptr; }
    // In lines of the cache, because compilers copy a piece as a whole at a third of the speed.
    // They are asked for early, and only into the next cache; their page earlier still, as its
    // address may have to be looked up in memory.
    template <size_t pieceBytes>
    static void copyPiece(char* to, const char* from) {
        constexpr size_t line = 64;
        constexpr size_t pageAhead = size_t{1} << 15;
        constexpr size_t lineAhead = size_t{1} << 13;
        constexpr size_t placeAhead = 512;
        __builtin_prefetch(from + pageAhead, 0, 2);
        for (size_t i = 0; i < pieceBytes; i += line) {
            __builtin_prefetch(from + i + lineAhead, 0, 2);
            __builtin_prefetch(to + i + placeAhead, 1);
            std::memcpy(to + i, from + i, line);
        }
    }
    bool write(const char* from, size_t byteCount) {
        hasFailed_ = hasFailed_ || stream == nullptr || !stream->isWriting() ||
                     !stream->putBytes(from, static_cast<unsigned int>(byteCount));
        sent += byteCount;
        return !hasFailed_;
    }

    fxStream* const stream;
    std::unique_ptr<char[]> bytes;
    std::unique_ptr<char[]> large;  // of putPieces()
    char* next = nullptr;
    char* end = nullptr;
    size_t sent = 0;
    bool mayCollect = false;
    bool hasFailed_ = false;
};

#endif
