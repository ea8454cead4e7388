#include "fxds/FileFollower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// A line reader reads the file to its end, and is resumed when the file has grown. Its
// descriptor's offset is what has been read, so a file whose size differs has grown or
// was cut. A file that was replaced is left when the reader has come to its end, with
// its unfinished line; the one at the path is opened then.

namespace {

constexpr char lineName[] = "line";

}  // namespace

fxFileFollower::fxFileFollower(const fxDetail::FilePath& path_, fxFilePlace from,
                               fxAlarm::Span interval)
    : path(path_), begin(from) {
    addOutput(lineName, fxDT_fxStr);
    open();
    looking = fxEvery(interval, this, [this] { look(); });
}

fxFileFollower::~fxFileFollower() { looking->stop(); }

const char* fxFileFollower::className() const { return "fxFileFollower"; }

fxOutputView<fxStr> fxFileFollower::line() {
    return fxOutputView<fxStr>(getOutput(lineName, fxDT_fxStr));
}

fxFilePlace fxFileFollower::getPlace() const {
    fxFilePlace place = begin;
    if (reader != nullptr) place.offset += reader->getPassed();
    return place;
}

void fxFileFollower::open() {
    begin = getPlace();
    reader.reset();
    hasFailed = isLeaving = false;
    if (path.find('\0') != std::string::npos) return;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat found = {};
    if (fd < 0 || fstat(fd, &found) != 0 || !S_ISREG(found.st_mode)) {
        if (fd >= 0) ::close(fd);
        return;
    }
    if (found.st_ino != begin.file || static_cast<unsigned long>(found.st_size) < begin.offset) {
        begin = {found.st_ino, 0};
    }
    lseek(fd, static_cast<off_t>(begin.offset), SEEK_SET);
    auto opened = std::make_unique<fxLineReader>(fd);
    if (!opened->isValid()) return;
    reader = std::move(opened);
    reader->setGrowing(true);
    fxConnect(reader->line(), this, [this](const fxStr& text) { line().send(text, fxSendNow); });
    fxConnect(reader->end(), this, [this](int error) { hasFailed = error != 0; });
}

void fxFileFollower::look() {
    if (reader == nullptr || hasFailed) return open();
    if (!reader->isAtEnd()) return;
    struct stat now = {};
    struct stat named = {};
    if (!isLeaving && fstat(reader->getFd(), &now) == 0) {
        const off_t read = lseek(reader->getFd(), 0, SEEK_CUR);
        const bool isReplaced = stat(path.c_str(), &named) == 0 &&
                                (named.st_ino != now.st_ino || named.st_dev != now.st_dev);
        if (now.st_size > read) return reader->resume();
        if (now.st_size == read && !isReplaced) return;
        isLeaving = true;
        reader->setGrowing(false);
        reader->resume();
        if (!reader->isAtEnd()) return;
    }
    open();
}
