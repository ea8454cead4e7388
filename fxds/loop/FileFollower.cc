#include "fxds/FileFollower.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "fxds/base/OpenFile.h"

// A line reader reads the file to its end, and is resumed when the file has grown. The
// offset of its descriptor is the number of bytes read, so a longer file has grown. A
// shorter one was cut if the last byte read is gone; the size alone does not show that,
// because all sizes in /proc are 0.
//
// A file that was cut or replaced is left (isLeaving) after the reader has sent its rest,
// an unfinished line included. Then the file at the path is read from its start, even if it
// has the same inode number, as files of two file systems may.
//
// Invariants: (1) `begin` is the place where `reader` began; getPlace() adds what it has
// passed on. (2) `reader` is null while no file could be opened, and hasFailed is set after
// a read error; either makes the next look() open the path again.

namespace {

constexpr char lineName[] = "line";
constexpr char errorName[] = "error";

// The path from the root; unchanged if the working folder has no path.
std::string absolute(const std::string& path) {
    if (path.empty() || path[0] == '/') return path;
    const std::unique_ptr<char, void (*)(void*)> folder(getcwd(nullptr, 0), std::free);
    return folder != nullptr ? folder.get() + ('/' + path) : path;
}

}  // namespace

fxFileFollower::fxFileFollower(const fxDetail::FilePath& path_, fxFilePlace from,
                               fxAlarm::Span interval)
    : path(absolute(path_)) {
    addOutput(lineName, fxDT_fxStr);
    addOutput(errorName, fxDT_int);
    open(from);
    looking = fxEvery(interval, this, [this] { look(); });
}

fxFileFollower::~fxFileFollower() { looking->stop(); }

const char* fxFileFollower::className() const { return "fxFileFollower"; }

fxOutputView<fxStr> fxFileFollower::line() const { return getOutput<fxStr>(lineName); }

fxOutputView<int> fxFileFollower::error() const { return getOutput<int>(errorName); }

fxFilePlace fxFileFollower::getPlace() const {
    fxFilePlace place = begin;
    if (reader != nullptr) place.offset += reader->getPassed();
    return place;
}

void fxFileFollower::open(fxFilePlace from) {
    begin = from;
    reader.reset();
    hasFailed = isLeaving = false;
    const int fd = fxOpenFile(path);
    struct stat found = {};
    lastError = fd < 0 || fstat(fd, &found) != 0 ? errno : 0;
    if (lastError != 0) return;
    if (found.st_ino != begin.file || static_cast<unsigned long>(found.st_size) < begin.offset) {
        begin = {found.st_ino, 0};
    }
    lseek(fd, static_cast<off_t>(begin.offset), SEEK_SET);
    auto opened = std::make_unique<fxLineReader>(fd);
    if (!opened->isValid()) {
        lastError = EMFILE;
        return;
    }
    reader = std::move(opened);
    reader->setGrowing(true);
    fxConnect(reader->line(), this, [this](const fxStr& text) { line().send(text, fxSendNow); });
    fxConnect(reader->end(), this, [this](int error) { hasFailed = error != 0; });
}

// A receiver may destroy the follower.
void fxFileFollower::tryAgain(fxFilePlace from) {
    open(from);
    if (lastError == sentError) return;
    sentError = lastError;
    error().send(lastError, fxSendNow);
}

void fxFileFollower::look() {
    if (reader == nullptr || hasFailed) return tryAgain(getPlace());
    if (!reader->isAtEnd()) return;
    const int fd = reader->getFd();
    struct stat now = {};
    struct stat named = {};
    if (!isLeaving && fstat(fd, &now) == 0) {
        const off_t read = lseek(fd, 0, SEEK_CUR);
        if (now.st_size > read) return reader->resume();
        char last;
        const bool isCut = now.st_size < read && pread(fd, &last, 1, read - 1) != 1;
        const bool isReplaced = stat(path.c_str(), &named) == 0 &&
                                (named.st_ino != now.st_ino || named.st_dev != now.st_dev);
        if (!isCut && !isReplaced) return;
        isLeaving = true;
        reader->setGrowing(false);
        reader->resume();
        if (!reader->isAtEnd()) return;
    }
    tryAgain(fxFilePlace());
}
