// A stream over bytes in memory.
#ifndef FXDS_MEMORYSTREAM_H
#define FXDS_MEMORYSTREAM_H

#include <cstdint>
#include <string_view>

#include "fxds/TypedStream.h"

/// Writes go to the end of a buffer that grows; reads come from its front, from
/// a separate position, so writes and reads can be mixed in any order. Or it
/// reads given bytes.
///
/// An operation that returns false has changed nothing: neither the content,
/// nor the position, nor the buffer that was to be read into.
class FX_API fxMemoryStream : public fxTypedStream<fxMemoryStream> {
public:
    /// Starts empty, to be written and read. It takes at most `limitBytes`: a
    /// write that would go beyond is refused, and so is one for which there is
    /// no memory.
    explicit fxMemoryStream(size_t limitBytes = SIZE_MAX);
    /// Reads the `byteCount` bytes at `bytes`, which are borrowed, and refuses
    /// to be written to. Null with a count is an error (hasError()) and reads
    /// as no bytes at all.
    fxMemoryStream(const void* bytes, size_t byteCount);
    ~fxMemoryStream() override;

    bool hasError() override;  ///< Whether there were no bytes where some should be.
    bool atEOF() override;     ///< Whether everything has been read.
    bool isReading() override;
    bool isWriting() override;
    fxStreamType getType() override;

    /// The whole content, what was read already included: a view, good until
    /// the next write.
    const char* bytes() const { return base; }
    size_t length() const {
        return static_cast<size_t>(end - base);
    }  ///< Number of bytes in bytes().
    /// The same as bytes() and length().
    std::string_view view() const { return {base, length()}; }

    /// Where the next read takes its first byte: in [0, length()].
    size_t getPosition() const { return static_cast<size_t>(next - base); }
    /// Moves there. False, and nothing moves, beyond length().
    bool setPosition(size_t newPosition);
    void rewind() { next = base; }  ///< Lets everything be read again.

    /// The bytes not read yet. Empty for a derived class, which may have other
    /// bytes.
    const fxStreamWindow& window() override;

    /// Forgets the content; allocated memory is kept. A stream over given bytes
    /// has none afterwards.
    void reset();

    /// Gives the content to the caller: a block to release with free(), and its
    /// length in `byteCount`. The stream is empty afterwards. Null when the
    /// content is empty, or when the bytes are borrowed, which stay.
    char* give(size_t& byteCount);

private:
    friend class fxTypedStream<fxMemoryStream>;

    bool get(void* bytes, size_t byteCount);
    bool put(const void* bytes, size_t byteCount);
    bool grow(size_t byteCount);

    char* base;  // `block`, or the borrowed bytes, which stay as they are
    char* next;  // the first byte that was not read
    char* end;
    fxStreamWindow unread;
    size_t limit;
    char* block;  // owned; null before the first write and for borrowed bytes
    size_t blockBytes;
    fxStreamType type;
    fxBool errorFlag;
};

#endif
