#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "fxds/Exec.h"
#include "fxds/Lines.h"
#include "fxds/base/QuietWrite.h"
#include "fxds/loop/HandlerTable.h"

// Both outputs are queued, so no receiver runs within any function here.
//
// Invariants, between any two calls:
// (1) buffer[start, size) is left to write. The writer waits for room exactly when that is
//     not empty.
// (2) `full` is set from the write that reaches `high` until a flush() that leaves at most
//     `low`, which sends "drained", or until close().
// (3) Without a descriptor the buffer is empty, nothing is accepted, and "end" has been
//     sent, unless there never was a descriptor.
// (4) A writer that is finishing accepts nothing. It closes with the last byte.
//
// The descriptor belongs to the writer, which closes it once. Written bytes are removed
// when they are more than half of the buffer, so fewer bytes are moved than were written.

namespace {

constexpr char drainedName[] = "drained";
constexpr char endName[] = "end";
constexpr size_t keptBytes = 4096;  // capacity that an empty buffer keeps

bool isSocket(int fd) {
    struct stat state;
    return fstat(fd, &state) == 0 && S_ISSOCK(state.st_mode);
}

}  // namespace

fxLineWriter::fxLineWriter(int fd_, size_t high_, size_t low_)
    : fxSelectHandler(fd_), high(high_), low(low_), socket(isSocket(fd_)) {
    FX_ASSERT(low < high);
    addOutput(drainedName, fxDT_void);
    addOutput(endName, fxDT_int);
    serve();
}

fxLineWriter::fxLineWriter(const fxLineReader& reader, size_t high_, size_t low_)
    : fxLineWriter(fcntl(reader.getFd(), F_DUPFD_CLOEXEC, 0), high_, low_) {}

fxLineWriter::~fxLineWriter() = default;

const char* fxLineWriter::className() const { return "fxLineWriter"; }

fxOutputView<void> fxLineWriter::drained() const { return getOutput<void>(drainedName); }

fxOutputView<int> fxLineWriter::end() const { return getOutput<int>(endName); }

bool fxLineWriter::write(std::string_view bytes) {
    if (fd < 0 || finishing) return false;
    buffer += bytes;
    full = full || getPending() >= high;
    if (wantWrite == 0 && getPending() > 0) setWishes(false, true);
    return true;
}

bool fxLineWriter::writeLine(std::string_view line) {
    if (fd < 0 || finishing) return false;
    buffer += line;
    return write("\n");
}

// EINTR repeats the call, EAGAIN leaves the rest to the loop, and any other error ends the
// writer.
bool fxLineWriter::flush() {
    while (fd >= 0 && getPending() > 0) {
        const ssize_t written = writeSome(buffer.data() + start, getPending());
        if (written >= 0) {
            start += static_cast<size_t>(written);
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            close(errno);
            return false;
        }
    }
    if (start > buffer.size() / 2) {
        buffer.erase(0, start);
        start = 0;
        if (buffer.empty() && buffer.capacity() > keptBytes) buffer = std::string();
    }
    if (full && getPending() <= low) {
        full = false;
        drained().send();
    }
    if (getPending() > 0) return false;
    if (finishing && fd >= 0) close(0);
    if (fd >= 0 && wantWrite != 0) setWishes(false, false);
    return error == 0;
}

void fxLineWriter::finish() {
    if (fd < 0 || finishing) return;
    finishing = true;
    if (getPending() == 0) close(0);
}

void fxLineWriter::handleRead() {}

void fxLineWriter::handleWrite() { flush(); }

// The other direction of a socket continues to work, under another descriptor.
void fxLineWriter::close(int withError) {
    error = withError;
    full = false;
    buffer = std::string();
    start = 0;
    // Leaves the tables before the system can give the number to another file.
    fxHandlerTable::forget(this);
    if (socket) shutdown(fd, SHUT_WR);
    ::close(fd);
    fd = -1;
    end().send(error);
}

// Fails with EAGAIN when there is no room. A pipe with room takes PIPE_BUF bytes.
ssize_t fxLineWriter::writeSome(const char* bytes, size_t count) {
    if (socket) return ::send(fd, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
    pollfd asked = {fd, POLLOUT, 0};
    if (poll(&asked, 1, 0) == 0) {
        errno = EAGAIN;
        return -1;
    }
    return fxWriteWithoutSignal(fd, bytes, std::min<size_t>(count, PIPE_BUF));
}
