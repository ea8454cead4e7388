#include "fxds/CheckStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "fxds/Stream.h"
#include "fxds/streams/OpenFile.h"
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

// False with the reason in errno.
bool readAll(int fd, std::string& bytes) {
    char piece[1 << 16];
    while (true) {
        const ssize_t got = ::read(fd, piece, sizeof piece);
        if (got > 0) bytes.append(piece, static_cast<size_t>(got));
        if (got == 0) return true;
        if (got < 0 && errno != EINTR) return false;
    }
}

}  // namespace

fxStreamFault fxCheckStream(const void* bytes, size_t byteCount) {
    Check check;
    fxStreamParts::StreamWalk({static_cast<const char*>(bytes), byteCount}, check).run();
    return check.first;
}

fxStreamFault fxCheckStream(fxStream& stream) {
    std::string bytes;
    const fxStreamWindow& window = stream.window();
    for (char byte = 0; stream.getBytes(&byte, 1);) {
        bytes += byte;
        bytes.append(*window.next, window.size());
        *window.next += window.size();
    }
    return fxCheckStream(bytes.data(), bytes.size());
}

fxStreamFault fxCheckStream(const char* path) {
    fxStreamFault fault;
    std::string bytes;
    const int fd = fxOpenFile(path);
    const bool isRead = fd >= 0 && readAll(fd, bytes);
    const int error = errno;
    if (fd >= 0) ::close(fd);
    if (isRead) {
        fault = fxCheckStream(bytes.data(), bytes.size());
    } else {
        fault.kind = fxStreamFault::systemError;
        fault.error = error;
    }
    if (fault) fault.path = path;
    return fault;
}
