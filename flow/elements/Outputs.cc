// Elements that pass values out of the flow.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "flow/elements/Formatted.h"
#include "flow/elements/Settings.h"
#include "fxds/base/QuietWrite.h"

namespace {

// Each line is written at once: a pipe may lead to a program that waits for it.
class Print final : public fxFlowDetail::FormattingElement {
public:
    const char* className() const override { return "Print"; }

    void print(const fxStr& value) {
        const std::string line = formatted.of(value);
        if (hasStarted()) write(line + '\n');
        printed.send(line, fxSendNow);
    }

    fxOutputView<fxStr> printed;

private:
    void write(const std::string& text) {
        const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
                               std::fflush(stdout) == 0;
        if (!isWritten && !hasFailed) {
            complain(std::string("cannot write to standard output: ") + std::strerror(errno));
        }
        hasFailed = !isWritten;
    }

    bool hasFailed = false;  // and a complaint was made
};

// The file is opened again when another one has taken its place, as when logs rotate.
class Append final : public fxElement {
public:
    ~Append() override { shut(); }
    const char* className() const override { return "Append"; }

    std::string start() override {
        return reopen() ? "" : std::string(file.view()) + ": " + std::strerror(errno);
    }

    void append(const fxStr& line) {
        if (!hasStarted()) return;
        fxStr text(line);
        text.append('\n');
        const std::string why = isCurrent() || reopen() ? write(text.view()) : std::strerror(errno);
        if (!why.empty() && !hasFailed) {
            complain("cannot write to " + std::string(file.view()) + ": " + why);
        }
        hasFailed = !why.empty();
    }

    fxStr file;

private:
    bool isCurrent() const {
        struct stat ours = {};
        struct stat there = {};
        return fd >= 0 && fstat(fd, &ours) == 0 && stat(file, &there) == 0 &&
               ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
    }
    // Only a part is written if there is no room for all. It is cut off again, unless
    // another program has appended since. Returns the reason why not all is written, or "".
    std::string write(std::string_view text) const {
        const ssize_t written = fxWriteWithoutSignal(fd, text.data(), text.size());
        if (written < 0) return std::strerror(errno);
        if (static_cast<size_t>(written) == text.size()) return "";
        const off_t end = lseek(fd, 0, SEEK_CUR);  // of the appended part
        struct stat status = {};
        const bool isLast = fstat(fd, &status) == 0 && status.st_size == end;
        const bool isCut = isLast && ftruncate(fd, end - written) == 0;
        return std::strerror(ENOSPC) + std::string(isCut ? "" : "; a part of the line is written");
    }
    bool reopen() {
        shut();
        fd = open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
        return fd >= 0;
    }
    void shut() {
        if (fd >= 0) close(fd);
        fd = -1;
    }

    int fd = -1;
    bool hasFailed = false;  // and a complaint was made
};

}  // namespace

FX_ELEMENT(Print, "prints values on standard output, each on a line") {
    element.reachesOutside();
    element.property("format", &Print::format, "%s", "the line, with one of %s, %d, %x, %e, %f, %g")
        .testedBy(fxFlowDetail::Formatted::whyNot);
    element.input("value", &Print::print, "the value");
    element.output("printed", &Print::printed, "the line, which a test does not print");
}

FX_ELEMENT(Append, "appends lines to a file") {
    element.reachesOutside();
    element.property("file", &Append::file, "path of the file, which is made if there is none")
        .testedBy(fxFlowDetail::whyZeroByte);
    element.input("line", &Append::append, "the line, without its line end");
}
