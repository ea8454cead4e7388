#include "fxds/StdioStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <typeinfo>
#include <utility>

// Every operation comes down to get() or put() of a number of bytes. Both go on
// after an interrupted system call from where it left off, which fread() and
// fwrite() tell by a short count, an error flag and errno. What stood in the
// buffer of the FILE is lost when its system call is interrupted, though, so a
// FILE whose calls may block, and so be interrupted, writes without a buffer.
//
// A FILE open both ways must be positioned between reading and writing; turn()
// does it when the direction changes.

namespace {

constexpr size_t fileBufferBytes = size_t{1} << 16;

bool wasInterrupted(FILE* file) {
    if (!std::ferror(file) || errno != EINTR) return false;
    std::clearerr(file);
    return true;
}

// Makes no difference to a FILE without a descriptor, which is never interrupted.
void keepFromLosing(FILE* file) {
    const int fd = ::fileno(file);
    struct stat status;
    if (fd < 0 || ::fstat(fd, &status) != 0) return;
    if (!S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode) && !::isatty(fd)) return;
    std::setvbuf(file, nullptr, _IONBF, 0);
}

int openUninterrupted(const char* path, int flags, unsigned int mode) {
    int fd = -1;
    do {
        fd = ::open(path, flags, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

const char* fdopenMode(fxStream::fxStreamType type) {
    switch (type) {
        case fxStream::fxStreamRead:
            return "r";
        case fxStream::fxStreamWrite:
            return "w";
        default:
            return "r+";
    }
}

int accessFlags(fxStream::fxStreamType type) {
    switch (type) {
        case fxStream::fxStreamRead:
            return O_RDONLY;
        case fxStream::fxStreamWrite:
            return O_WRONLY;
        default:
            return O_RDWR;
    }
}

}  // namespace

fxStdioStream::fxStdioStream(const char* path, fxStreamType type_, unsigned int mode)
    : file(nullptr), type(type_), errorFlag(1), endFlag(0) {
    const int flags = accessFlags(type) | O_CLOEXEC;
    int fd = openUninterrupted(path, flags, 0);
    if (fd < 0 && type != fxStreamRead) fd = openUninterrupted(path, flags | O_CREAT, mode);
    if (fd < 0) return;
    adopt(fd);
    if (errorFlag) ::close(fd);
}

fxStdioStream::fxStdioStream(int fd, fxStreamType type_)
    : file(nullptr), type(type_), errorFlag(1), endFlag(0) {
    adopt(fd);
}

fxStdioStream::fxStdioStream(FILE* openFile, fxStreamType type_)
    : file(openFile), type(type_), errorFlag(openFile == nullptr), endFlag(0) {
    if (file != nullptr && type == fxStreamWrite) keepFromLosing(file);
}

fxStdioStream::~fxStdioStream() { close(); }

void fxStdioStream::adopt(int fd) {
    file = ::fdopen(fd, fdopenMode(type));
    errorFlag = file == nullptr;
    if (file == nullptr) return;
    // A buffer of this size keeps the system calls out of the profile. It is ours,
    // because setvbuf() heeds the size only then.
    fileBuffer.reset(new char[fileBufferBytes]);
    std::setvbuf(file, fileBuffer.get(), _IOFBF, fileBufferBytes);
    if (type == fxStreamWrite) keepFromLosing(file);
}

bool fxStdioStream::hasError() { return errorFlag != 0; }
bool fxStdioStream::atEOF() { return endFlag != 0; }
bool fxStdioStream::isReading() { return type == fxStreamRead || type == fxStreamReadWrite; }
bool fxStdioStream::isWriting() { return type == fxStreamWrite || type == fxStreamReadWrite; }
fxStream::fxStreamType fxStdioStream::getType() { return type; }

bool fxStdioStream::getBytes(char* bytes, unsigned int count) {
    if (count == 1 && file != nullptr && type == fxStreamRead) {
        const int byte = std::getc(file);
        if (byte != EOF) {
            *bytes = static_cast<char>(byte);
            return true;
        }
        if (!wasInterrupted(file)) return false;
    }
    return get(bytes, count);
}

bool fxStdioStream::putBytes(const char* bytes, unsigned int count) {
    if (count == 1 && file != nullptr && type == fxStreamWrite) {
        if (std::putc(static_cast<unsigned char>(*bytes), file) != EOF) return true;
        if (!wasInterrupted(file)) return lose();
    }
    return put(bytes, count);
}

// Nothing in standard I/O tells where its buffer is; the library that we know
// keeps it where its getc_unlocked(), a macro once, has always looked for it.
const fxStreamWindow& fxStdioStream::window() {
#ifdef __GLIBC__
    if (file != nullptr && type == fxStreamRead && typeid(*this) == typeid(fxStdioStream)) {
        fileWindow.next = &file->_IO_read_ptr;
        fileWindow.end = &file->_IO_read_end;
    }
#endif
    return fileWindow;
}

bool fxStdioStream::flush() {
    if (file == nullptr) return false;
    if (!isWriting()) return true;
    while (std::fflush(file) != 0) {
        if (!wasInterrupted(file)) return lose();
    }
    return !hasLost && !std::ferror(file);
}

bool fxStdioStream::close() {
    const bool isFlushed = flush();
    fileWindow = fxStreamWindow();
    FILE* const closing = std::exchange(file, nullptr);
    return closing != nullptr && std::fclose(closing) == 0 && isFlushed;
}

// Private functions.

// The FILE remembers a failure, too, but forgets it with the next interruption.
bool fxStdioStream::lose() {
    hasLost = true;
    return false;
}

bool fxStdioStream::turn(Direction direction) {
    if (type != fxStreamReadWrite || last == direction) return true;
    const bool isFirst = last == Direction::none;
    last = direction;
    if (isFirst || std::fseek(file, 0, SEEK_CUR) == 0) return true;
    return std::ferror(file) ? lose() : false;
}

bool fxStdioStream::get(void* bytes, size_t byteCount) {
    if (file == nullptr || !isReading() || !turn(Direction::in)) return false;
    char* place = static_cast<char*>(bytes);
    while (byteCount > 0) {
        const size_t moved = std::fread(place, 1, byteCount, file);
        place += moved;
        byteCount -= moved;
        if (byteCount > 0 && !wasInterrupted(file)) return false;
    }
    return true;
}

bool fxStdioStream::put(const void* bytes, size_t byteCount) {
    if (file == nullptr || !isWriting() || !turn(Direction::out)) return false;
    const char* place = static_cast<const char*>(bytes);
    while (byteCount > 0) {
        const size_t moved = std::fwrite(place, 1, byteCount, file);
        place += moved;
        byteCount -= moved;
        if (byteCount > 0 && !wasInterrupted(file)) return lose();
    }
    return true;
}
