// The byte stream that transcribers read and write.
#ifndef FXDS_STREAM_H
#define FXDS_STREAM_H

#include <cstddef>
#include <cstring>

#include "fxds/RCObj.h"

/// The bytes in a stream's own buffer: [*next, *end) are the next ones. Code
/// that takes some advances `*next`, and the stream continues from there. Any
/// operation of the stream may change both.
struct fxStreamWindow {
    /// Number of bytes at hand.
    size_t size() const { return static_cast<size_t>(*end - *next); }

    char** next = &nothing;  ///< Address of the pointer to the next byte.
    char** end = &nothing;   ///< Address of the pointer behind the last one.

private:
    inline static char* nothing = nullptr;
};

/// The next `count` bytes of a window, as far as it has them.
struct fxReadyBytes {
    /// Takes `byteCount` bytes, or takes none and returns false.
    bool take(void* bytes, size_t byteCount) {
        if (byteCount > count || byteCount > window->size()) return false;
        if (byteCount == 0) return true;  // the window may have no buffer
        std::memcpy(bytes, *window->next, byteCount);
        *window->next += byteCount;
        count -= static_cast<unsigned int>(byteCount);
        return true;
    }

    const fxStreamWindow* window;
    unsigned int count;
};

/// Moves elements in the machine's own byte order and representation; it
/// converts nothing. Each operation takes a pointer to `count` elements and
/// returns true only when every one of them was moved; after a false result
/// the contents of a buffer that was read into are unspecified.
///
/// A stream starts with no holder. A transcriber holds the stream it is made
/// on, so a stream without another holder is deleted with its transcriber. A
/// stream on the stack must be taken (take()) before it is given to one.
class FX_API fxStream : public fxRCObj {
public:
    /// The direction of a stream.
    enum fxStreamType { fxStreamRead = 0, fxStreamWrite = 1, fxStreamReadWrite = 2 };

    fxStream() = default;
    fxStream(const fxStream&) = delete;
    fxStream& operator=(const fxStream&) = delete;
    ~fxStream() override;

    virtual bool hasError() = 0;         ///< Whether the stream could not be opened.
    virtual bool atEOF() = 0;            ///< Whether the end is known to be reached.
    virtual bool isReading() = 0;        ///< Whether the stream may be read from.
    virtual bool isWriting() = 0;        ///< Whether the stream may be written to.
    virtual fxStreamType getType() = 0;  ///< Its direction, also when it could not be opened.

    ///@{
    /// Takes the next `count` elements. False when the stream ends or fails
    /// first, or is not to be read.
    virtual bool getBytes(char* bytes, unsigned int count) = 0;
    virtual bool getShorts(short* shorts, unsigned int count) = 0;
    virtual bool getInts(int* ints, unsigned int count) = 0;
    virtual bool getLongs(long* longs, unsigned int count) = 0;
    virtual bool getFloats(float* floats, unsigned int count) = 0;
    virtual bool getDoubles(double* doubles, unsigned int count) = 0;
    ///@}

    ///@{
    /// Hands `count` elements over. False when not all were taken, or the
    /// stream is not to be written.
    virtual bool putBytes(const char* bytes, unsigned int count) = 0;
    virtual bool putShorts(const short* shorts, unsigned int count) = 0;
    virtual bool putInts(const int* ints, unsigned int count) = 0;
    virtual bool putLongs(const long* longs, unsigned int count) = 0;
    virtual bool putFloats(const float* floats, unsigned int count) = 0;
    virtual bool putDoubles(const double* doubles, unsigned int count) = 0;
    ///@}

    /// The buffered bytes, for readers that take many small pieces; a view,
    /// good as long as the stream. This one is always empty.
    virtual const fxStreamWindow& window();
    /// How many bytes are left to read, as far as that is known without reading: a file may
    /// lose some, and more may come. Readers make room for long values that claim no more.
    /// This one counts the bytes of the window.
    virtual size_t bytesToCome();
};

#endif
