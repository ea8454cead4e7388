#include "fxds/streams/NewFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "fxds/base/QuietWrite.h"
#include "fxds/base/Uninterrupted.h"

// Any xdr() may fork while the file is written, and so may any other thread. Memory and
// descriptors of the child are copies, and the descriptors have one position in the file.
// So each operation compares the process with the maker before it has an effect that the
// maker would see.
//
// SIGXFSZ is blocked for the write() alone. So an xdr(), and a process that it forks, find the
// signal as the program has set it.
//
// Invariants, between any two calls:
// (1) The file has `name` until takePlaceOf() succeeds.
// (2) [0, used) of `buffer` follows what was written; used < bufferBytes.
// (3) `failure`, once set, stays.

// Memory that is lacking must not leave a file behind.
fxNewFile::fxNewFile(int folder_, const struct stat* old)
    : folder(folder_), maker(::getpid()), buffer(new char[bufferBytes]) {
    static std::atomic<unsigned int> count{0};
    const unsigned int mode = old != nullptr ? S_IRUSR | S_IWUSR : 0666;
    const std::string prefix = ".saving-" + std::to_string(maker) + '-';
    do {
        name = prefix + std::to_string(++count);
        fd = ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    } while (fd < 0 && (errno == EEXIST || errno == EINTR));
    if (!check(fd)) {
        name.clear();
        return;
    }
    if (old == nullptr) return;
    const bool isOwned = ::fchown(fd, old->st_uid, old->st_gid) == 0;
    const unsigned int bits = isOwned ? 07777U : 0777U;
    check(::fchmod(fd, old->st_mode & bits));
}

fxNewFile::~fxNewFile() {
    if (fd >= 0) ::close(fd);
    if (!name.empty() && ::getpid() == maker) ::unlinkat(folder, name.c_str(), 0);
}

// close() is not repeated: it has closed the file even if it was interrupted, and the bytes are
// on the disk.
bool fxNewFile::finish() {
    if (!sendBuffer() || !check(fxUninterrupted([&] { return ::fsync(fd); }))) return false;
    const int closed = ::close(std::exchange(fd, -1));
    return (closed < 0 && errno == EINTR) || check(closed);
}

// A rename that is interrupted may have been done all the same, as on a file system of the
// network: then the file has no other name any more.
bool fxNewFile::takePlaceOf(const std::string& target) {
    if (!isUsable()) return false;
    bool isAgain = false;
    const int result = fxUninterrupted([&] {
        const int renamed = ::renameat(folder, name.c_str(), folder, target.c_str());
        const bool isDone = isAgain && renamed < 0 && errno == ENOENT;
        isAgain = true;
        return isDone ? 0 : renamed;
    });
    if (!check(result)) return false;
    name.clear();
    return true;
}

// Private functions.

bool fxNewFile::put(const void* bytes, size_t byteCount) {
    if (failure != 0) return false;
    const char* from = static_cast<const char*>(bytes);
    if (byteCount >= bufferBytes) return sendBuffer() && send(from, byteCount);
    const size_t room = bufferBytes - used;
    if (byteCount >= room) {
        std::memcpy(&buffer[used], from, room);
        used = bufferBytes;
        if (!sendBuffer()) return false;
        from += room;
        byteCount -= room;
    }
    if (byteCount != 0) std::memcpy(&buffer[used], from, byteCount);
    used += byteCount;
    return true;
}

bool fxNewFile::sendBuffer() {
    const size_t byteCount = used;
    used = 0;
    return send(buffer.get(), byteCount);
}

bool fxNewFile::send(const char* bytes, size_t byteCount) {
    if (!isUsable()) return false;
    while (byteCount > 0) {
        const ssize_t moved =
            fxUninterrupted([&] { return fxWriteWithoutSignal(fd, bytes, byteCount, SIGXFSZ); });
        if (!check(moved)) return false;
        bytes += moved;
        byteCount -= static_cast<size_t>(moved);
    }
    return true;
}

bool fxNewFile::isUsable() {
    if (failure == 0 && ::getpid() != maker) failure = ECANCELED;
    return failure == 0;
}

bool fxNewFile::check(long result) {
    if (result < 0) failure = errno;
    return result >= 0;
}
