// Where the records of the writer go: to the stream, one by one or collected.
#ifndef FXDS_STREAMS_OUTBUFFER_H
#define FXDS_STREAMS_OUTBUFFER_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <typeinfo>
#include <utility>

#include "fxds/MemoryStream.h"
#include "fxds/StdioStream.h"
#include "fxds/streams/RecordFormat.h"

// Invariants:
// (1) bytes[0, used) was put and is not with the stream yet; used <= capacity.
// (2) Only while a Collecting exists is there a capacity. Without, each put() is
//     one write of the stream. A stream that is not one of the library's own
//     always gets each put() as one write.
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

    /// Room for the head of a record, which may be built there and then put().
    char* headRoom() { return capacity - used >= sizeof spare ? bytes.get() + used : spare; }

    /// Appends the bytes. More than are collected at once go to the stream behind
    /// what was collected. False when the stream has failed.
    bool put(const char* from, size_t byteCount) {
        if (byteCount > capacity - used && !send()) return false;
        if (byteCount > capacity) return write(from, byteCount);
        if (from != bytes.get() + used) std::memcpy(bytes.get() + used, from, byteCount);
        used += byteCount;
        return true;
    }

    /// Hands what was collected to the stream. False when that has failed.
    bool send() {
        const size_t byteCount = std::exchange(used, 0);
        return byteCount == 0 ? !hasFailed_ : write(bytes.get(), byteCount);
    }

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
            buffer.capacity = collectedBytes;
        }
        Collecting(const Collecting&) = delete;
        Collecting& operator=(const Collecting&) = delete;
        ~Collecting() { buffer.capacity = buffer.used = 0; }

    private:
        fxOutBuffer& buffer;
    };

private:
    static constexpr size_t collectedBytes = size_t{1} << 13;  // stays in the nearest cache

    bool write(const char* from, size_t byteCount) {
        hasFailed_ = hasFailed_ || stream == nullptr || !stream->isWriting() ||
                     !stream->putBytes(from, static_cast<unsigned int>(byteCount));
        return !hasFailed_;
    }

    fxStream* const stream;
    std::unique_ptr<char[]> bytes;
    size_t capacity = 0;
    size_t used = 0;
    bool mayCollect = false;
    bool hasFailed_ = false;
    char spare[fxRecordFormat::maxHeadBytes];
};

#endif
