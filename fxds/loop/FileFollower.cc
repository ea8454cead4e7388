#include "fxds/FileFollower.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "fxds/base/OpenFile.h"

// A line reader reads the file to its end, and is resumed when the file has grown. Its
// descriptor's offset is what has been read, so a file that is longer has grown, and one
// that is shorter was cut, if it has not got what was read: in /proc all sizes are 0. A
// file that was cut or replaced is left when the reader has come to its end, with
// its unfinished line; the one at the path is then read from its start, also where it
// has the number of the old one, as files of two systems may, and has grown meanwhile.

namespace {

constexpr char lineName[] = "line";

// The path from the root. As it is when the working folder has no path.
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
    open(from);
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

void fxFileFollower::open(fxFilePlace from) {
    begin = from;
    reader.reset();
    hasFailed = isLeaving = false;
    const int fd = fxOpenFile(path);
    struct stat found = {};
    if (fd < 0 || fstat(fd, &found) != 0) return;
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
    if (reader == nullptr || hasFailed) return open(getPlace());
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
    open(fxFilePlace());
}
