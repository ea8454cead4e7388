#include "fxds/CheckStream.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "fxds/Stream.h"
#include "fxds/base/OpenFile.h"
#include "fxds/streams/StreamWalk.h"

namespace {

// Keeps the first fault.
class Check : public fxStreamParts::StreamVisitor {
public:
    void fault(const fxStreamParts::StreamWalk&, const fxStreamFault& fault) override {
        if (!first) first = fault;
    }

    fxStreamFault first;
};

// A file, one piece of which is in memory: [pieceAt, pieceAt + pieceBytes).
// Memory does not grow with the file. `bytes` is its size when it was opened; a file that
// shrinks meanwhile ends early. After the first error nothing more is read: the file seems
// to end there.
class FileBytes : public fxStreamParts::StreamBytes {
public:
    // `fd` is adopted. If it is negative, errno has the reason.
    explicit FileBytes(int fd_) : fd(fd_) {
        struct stat status;
        if (fd < 0 || fstat(fd, &status) != 0) error = errno;
        if (error == 0) bytes = static_cast<size_t>(status.st_size);
    }
    FileBytes(const FileBytes&) = delete;
    FileBytes& operator=(const FileBytes&) = delete;
    ~FileBytes() override {
        if (fd >= 0) ::close(fd);
    }

    size_t size() const override { return bytes; }
    std::string_view at(size_t offset, size_t count) override {
        const bool isHeld = offset >= pieceAt && offset + count <= pieceAt + pieceBytes;
        if (!isHeld) read(offset);
        const size_t skipped = std::min(offset - pieceAt, pieceBytes);
        return std::string_view(piece, pieceBytes).substr(skipped, count);
    }
    std::string_view held(size_t, size_t) override { return {}; }

    int error = 0;

private:
    // A read error counts as the end of the file.
    void read(size_t offset) {
        pieceAt = offset;
        pieceBytes = 0;
        ssize_t got = 1;
        while (got != 0 && pieceBytes < sizeof piece && error == 0) {
            got = ::pread(fd, piece + pieceBytes, sizeof piece - pieceBytes,
                          static_cast<off_t>(offset + pieceBytes));
            if (got > 0) pieceBytes += static_cast<size_t>(got);
            if (got < 0 && errno != EINTR) error = errno;
        }
    }

    const int fd;
    size_t bytes = 0;
    size_t pieceAt = 0;
    size_t pieceBytes = 0;
    char piece[1 << 16];
};

}  // namespace

fxStreamFault fxCheckStream(const void* bytes, size_t byteCount) {
    Check check;
    fxStreamParts::StreamWalk(check).run({static_cast<const char*>(bytes), byteCount});
    return check.first;
}

fxStreamFault fxCheckStream(fxStream& stream) {
    std::string bytes;
    // A byte that is requested makes the stream fill its window, if it has one, which is
    // then taken as a whole.
    const fxStreamWindow& window = stream.window();
    for (char byte = 0; stream.getBytes(&byte, 1);) {
        bytes += byte;
        bytes.append(*window.next, window.size());
        *window.next += window.size();
    }
    return fxCheckStream(bytes.data(), bytes.size());
}

fxStreamFault fxCheckStream(const fxDetail::FilePath& path) {
    FileBytes file(fxOpenFile(path));
    Check check;
    if (file.error == 0) fxStreamParts::StreamWalk(check).run(file);
    if (file.error != 0) {
        check.first = fxStreamFault();
        check.first.kind = fxStreamFault::systemError;
        check.first.error = file.error;
        check.first.reason = fxFileError(path, file.error);
    }
    if (check.first) check.first.path = fxShownPath(path);
    return check.first;
}
