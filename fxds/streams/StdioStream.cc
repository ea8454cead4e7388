#include "fxds/StdioStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <typeinfo>
#include <utility>

#include "fxds/base/Uninterrupted.h"

// Every operation comes down to get() or put() of a number of bytes. Both resume after an
// interrupted system call, which fread() and fwrite() report by a short count, an error
// flag and errno. The content of a FILE's buffer is lost, though, when its system call is
// interrupted, so a FILE whose calls may block, and so be interrupted, writes without a
// buffer.
//
// A FILE open both ways must be positioned between reading and writing; turn() does it when
// the direction changes.
//
// A stream that only reads, and that made its FILE itself, reads from the descriptor into
// `buffer`, so that window() can show it. Only this stream refers to the FILE, which holds
// nothing but the descriptor. The behaviour of a FILE is kept: the end is final once it was
// met, and closing leaves the descriptor's offset, which others may share, behind the last
// byte that was taken.
//
// Invariants, between any two calls:
// (1) `next` is not null exactly for such a stream while it is open. [next, end) are then
//     the bytes that were read from the descriptor and not taken. They lie in `buffer`,
//     and between readAhead() and endAhead() in the room that was lent.
// (2) hasEnded, once set, stays: no further read() is made.
// (3) hasLost, once set, stays: nothing more is written, and flush() and close() report
//     the loss.
// (4) `last` is the direction of the last transfer of a stream that is open both ways.

namespace {

bool wasInterrupted(FILE* file) {
    if (!std::ferror(file) || errno != EINTR) return false;
    std::clearerr(file);
    return true;
}

// Has no effect on a FILE without a descriptor, which is never interrupted.
void keepFromLosing(FILE* file) {
    const int fd = ::fileno(file);
    struct stat status;
    if (fd < 0 || ::fstat(fd, &status) != 0) return;
    if (!S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode) && !::isatty(fd)) return;
    std::setvbuf(file, nullptr, _IONBF, 0);
}

int openUninterrupted(const char* path, int flags, unsigned int mode) {
    return fxUninterrupted([&] { return ::open(path, flags, mode); });
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
    if (file != nullptr && isWriting()) keepFromLosing(file);
}

fxStdioStream::~fxStdioStream() { close(); }

void fxStdioStream::adopt(int fd) {
    file = ::fdopen(fd, fdopenMode(type));
    errorFlag = file == nullptr;
    if (file == nullptr) return;
    // A buffer of this size keeps the system calls out of the profile. It is allocated
    // here, because setvbuf() respects the size only then.
    buffer.reset(new char[bufferBytes]);
    if (type == fxStreamRead) {
        next = end = buffer.get();
    } else {
        std::setvbuf(file, buffer.get(), _IOFBF, bufferBytes);
    }
    if (isWriting()) keepFromLosing(file);
}

bool fxStdioStream::hasError() { return errorFlag != 0; }
bool fxStdioStream::atEOF() { return endFlag != 0; }
bool fxStdioStream::isReading() { return type == fxStreamRead || type == fxStreamReadWrite; }
bool fxStdioStream::isWriting() { return type == fxStreamWrite || type == fxStreamReadWrite; }
fxStream::fxStreamType fxStdioStream::getType() { return type; }

// A derived class may have other bytes than those of the file.
const fxStreamWindow& fxStdioStream::window() {
    return typeid(*this) == typeid(fxStdioStream) ? unread : fxStream::window();
}

size_t fxStdioStream::bytesToCome() {
    const size_t here = window().size();
    if (next == nullptr || hasEnded || typeid(*this) != typeid(fxStdioStream)) return here;
    struct stat status = {};
    const int fd = ::fileno(file);
    const bool isFile = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    const off_t at = isFile ? ::lseek(fd, 0, SEEK_CUR) : -1;
    return at >= 0 && at < status.st_size ? here + static_cast<size_t>(status.st_size - at) : here;
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
    if (file != nullptr && !isWriting()) std::fflush(file);  // moves the offset
    if (next != end) ::lseek(::fileno(file), next - end, SEEK_CUR);
    next = end = nullptr;
    FILE* const closing = std::exchange(file, nullptr);
    return closing != nullptr && std::fclose(closing) == 0 && isFlushed;
}

// Private functions.

// The FILE keeps an error flag, too, but the next interruption clears it.
bool fxStdioStream::lose() {
    hasLost = true;
    return false;
}

bool fxStdioStream::turn(Direction direction) {
    if (type != fxStreamReadWrite || last == direction) return true;
    const bool isFirst = last == Direction::none;
    last = direction;
    if (isFirst || std::fseek(file, 0, SEEK_CUR) == 0) return true;
    if (errno == ESPIPE) return true;  // two directions of a socket, without a buffer
    return std::ferror(file) ? lose() : false;
}

bool fxStdioStream::get(void* bytes, size_t byteCount) {
    if (file == nullptr || !isReading() || !turn(Direction::in)) return false;
    if (next != nullptr) return takeBytes(bytes, byteCount);
    char* place = static_cast<char*>(bytes);
    while (byteCount > 0) {
        const size_t moved = std::fread(place, 1, byteCount, file);
        place += moved;
        byteCount -= moved;
        if (byteCount > 0 && !wasInterrupted(file)) return false;
    }
    return true;
}

// The same from the buffer. A request as long as the buffer is read directly to its
// destination.
bool fxStdioStream::takeBytes(void* bytes, size_t byteCount) {
    char* place = static_cast<char*>(bytes);
    while (byteCount > 0) {
        if (next != end) {
            const size_t piece = std::min(byteCount, unread.size());
            std::memcpy(place, next, piece);
            next += piece;
            place += piece;
            byteCount -= piece;
            continue;
        }
        const bool isLong = byteCount >= bufferBytes;
        const size_t got = isLong ? receive(place, byteCount) : receive(buffer.get(), bufferBytes);
        if (got == 0) return false;
        if (isLong) {
            place += got;
            byteCount -= got;
        } else {
            next = buffer.get();
            end = next + got;
        }
    }
    return true;
}

// Reads some bytes. 0 at the end, and after an error.
size_t fxStdioStream::receive(char* place, size_t byteCount) {
    const ssize_t got =
        fxUninterrupted([&] { return hasEnded ? 0 : ::read(::fileno(file), place, byteCount); });
    hasEnded = got == 0;
    return got > 0 ? static_cast<size_t>(got) : 0;
}

void fxStdioStream::readAhead(char* room) {
    const size_t have = unread.size();
    std::memcpy(room, next, have);
    next = room;
    end = room + have;
    end += receive(end, bufferBytes - have);
}

void fxStdioStream::endAhead() {
    const size_t have = unread.size();
    std::memcpy(buffer.get(), next, have);
    next = buffer.get();
    end = next + have;
}

// As many bytes as the buffer has go to the system from where they are; a FILE would copy some
// of them. One that is also read must see all, because it remembers its offset.
bool fxStdioStream::put(const void* bytes, size_t byteCount) {
    if (file == nullptr || hasLost || !isWriting() || !turn(Direction::out)) return false;
    const char* place = static_cast<const char*>(bytes);
    if (byteCount >= bufferBytes && buffer != nullptr && !isReading()) {
        return flush() && (send(place, byteCount) || lose());
    }
    while (byteCount > 0) {
        const size_t moved = std::fwrite(place, 1, byteCount, file);
        place += moved;
        byteCount -= moved;
        if (byteCount > 0 && !wasInterrupted(file)) return lose();
    }
    return true;
}

bool fxStdioStream::send(const char* bytes, size_t byteCount) {
    while (byteCount > 0) {
        const ssize_t moved =
            fxUninterrupted([&] { return ::write(::fileno(file), bytes, byteCount); });
        if (moved <= 0) return false;
        bytes += moved;
        byteCount -= static_cast<size_t>(moved);
    }
    return true;
}
