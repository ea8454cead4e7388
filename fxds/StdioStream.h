// A stream over a standard-I/O file.
#ifndef FXDS_STDIOSTREAM_H
#define FXDS_STDIOSTREAM_H

#include <cstddef>
#include <cstdio>
#include <memory>

#include "fxds/TypedStream.h"

/// Owns a FILE and closes it when destroyed. All operations of a stream
/// without a FILE, and those against its type, answer false. An interrupted
/// system call is no failure: the operation goes on.
///
/// Written bytes wait in the FILE's buffer, so that success of an operation
/// does not mean that they are on the disk: check flush() or close(). A pipe, a
/// socket and a terminal get every operation's bytes at once.
class FX_API fxStdioStream : public fxTypedStream<fxStdioStream> {
public:
    /// Opens the file at `path`. One that is to be written and does not exist
    /// is created with the permission bits `mode` (less the umask). An existing
    /// file is overwritten from its start and not truncated: when the new
    /// content is shorter, the old tail stays behind it. See hasError().
    fxStdioStream(const char* path, fxStreamType type, unsigned int mode);
    /// Adopts an open descriptor; when no FILE can be made for it (hasError()),
    /// the descriptor stays open and the caller's.
    fxStdioStream(int fd, fxStreamType type);
    /// Adopts an open FILE, which may be null (hasError()).
    fxStdioStream(FILE* openFile, fxStreamType type);
    /// Flushes and closes, as close() does, without reporting the result.
    ~fxStdioStream() override;

    bool hasError() override;  ///< Whether there was no FILE from the start.
    bool atEOF() override;     ///< Always false: no operation looks ahead.
    bool isReading() override;
    bool isWriting() override;
    fxStreamType getType() override;

    /// The buffered bytes of a stream that is only read and made its FILE
    /// itself; empty for any other, and for a derived class, which may have
    /// other bytes.
    const fxStreamWindow& window() override;
    /// Of a stream that is only read and made its FILE itself: the rest of a regular
    /// file, by its size. Otherwise the bytes of the window.
    size_t bytesToCome() override;

    /// Hands everything written so far to the system. False when that failed,
    /// now or in an earlier operation, as on a full disk. True for a stream
    /// that is only read.
    bool flush();

    /// Flushes and closes the FILE; the stream then has none. False when
    /// anything written did not arrive, or when there was no FILE.
    bool close();

private:
    friend class fxTypedStream<fxStdioStream>;
    friend class fxRecordReader;

    enum class Direction : unsigned char { none, in, out };
    static constexpr size_t bufferBytes = size_t{1} << 16;

    void adopt(int fd);
    bool turn(Direction direction);
    bool lose();
    bool get(void* bytes, size_t byteCount);
    bool takeBytes(void* bytes, size_t byteCount);
    bool put(const void* bytes, size_t byteCount);
    bool send(const char* bytes, size_t byteCount);
    size_t receive(char* place, size_t byteCount);

    ///@{
    /// From readAhead() to endAhead() the window lies in `room`, which has place for
    /// bufferBytes. readAhead() moves what the window has there and reads behind it.
    /// Requires: the window is one of this stream.
    void readAhead(char* room);
    void endAhead();
    ///@}

    FILE* file;  // owned, null when there is none
    fxStreamType type;
    fxBool errorFlag;
    fxBool endFlag;

    Direction last = Direction::none;  // of a read-write stream
    bool hasLost = false;              // whether anything written did not arrive
    bool hasEnded = false;             // whether takeBytes() has met the end
    std::unique_ptr<char[]> buffer;    // of takeBytes(), or of a FILE that we made and write
    char* next = nullptr;              // [next, end) was read and not taken;
    char* end = nullptr;               // null for a stream that does not use it
    fxStreamWindow unread{&next, &end};
};

#endif
