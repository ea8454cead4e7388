// Where the records of the writer go: to the stream, one by one or collected.
#ifndef FXDS_STREAMS_OUTBUFFER_H
#define FXDS_STREAMS_OUTBUFFER_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <typeinfo>

#include "fxds/MemoryStream.h"
#include "fxds/StdioStream.h"

// Invariants:
// (1) [bytes, next) was put and is not with the stream yet.
// (2) Only while a Collecting exists is there room, [next, end). Without, each
//     put() is one write of the stream. A stream that is not one of the library's
//     own always gets each put() as one write.
// (3) Once the stream has refused bytes, or fail() was called, it gets no more:
//     they would not be where a reader expects them.

class fxOutBuffer {
public:
    /// `stream` is borrowed; null refuses everything.
    explicit fxOutBuffer(fxStream* stream_) : stream(stream_) {
        if (stream == nullptr) return;
        const std::type_info& type = typeid(*stream);
        mayCollect = type == typeid(fxStdioStream) || type == typeid(fxMemoryStream);
    }

    ///@{
    /// Room to build up to `most` bytes in, of which added() says how many were used.
    /// Null when each put() is to be a write of its own, and when the stream does
    /// not take what is there.
    char* room(size_t most) { return left() >= most ? next : makeRoom(); }
    void added(size_t byteCount) { next += byteCount; }
    ///@}

    /// Appends the bytes. More than are collected at once go to the stream behind
    /// what was collected. False when the stream has failed.
    bool put(const char* from, size_t byteCount) {
        if (byteCount > left() && !send()) return false;
        if (byteCount > left()) return write(from, byteCount);
        if (byteCount != 0) std::memcpy(next, from, byteCount);
        next += byteCount;
        return true;
    }

    /// Hands what was collected to the stream. False when that has failed.
    bool send() {
        const size_t byteCount = static_cast<size_t>(next - bytes.get());
        next = bytes.get();
        return byteCount == 0 ? !hasFailed_ : write(next, byteCount);
    }

    /// How many bytes were put so far.
    size_t total() const { return sent + static_cast<size_t>(next - bytes.get()); }

    /// Whether the stream has refused bytes, or fail() was called.
    bool hasFailed() const { return hasFailed_; }
    void fail() { hasFailed_ = true; }

    /// For a scope, collects what is put, and hands it over in large pieces. What
    /// is collected when the scope ends is dropped: send() before.
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

    size_t left() const { return static_cast<size_t>(end - next); }
    // Out of line, which keeps room() small.
    [[gnu::noinline]] char* makeRoom() { return end != bytes.get() && send() ? next : nullptr; }
    bool write(const char* from, size_t byteCount) {
        hasFailed_ = hasFailed_ || stream == nullptr || !stream->isWriting() ||
                     !stream->putBytes(from, static_cast<unsigned int>(byteCount));
        sent += byteCount;
        return !hasFailed_;
    }

    fxStream* const stream;
    std::unique_ptr<char[]> bytes;
    char* next = nullptr;
    char* end = nullptr;
    size_t sent = 0;
    bool mayCollect = false;
    bool hasFailed_ = false;
};

#endif
