// Elements that are sources of values: a clock, the lines of a file or of a process.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "flow/Element.h"
#include "flow/elements/Settings.h"
#include "fxds/FileFollower.h"
#include "fxds/Lines.h"
#include "fxds/Process.h"
#include "fxds/Xdr.h"

using fxFlowDetail::whyZeroByte;

namespace {

class Ticker final : public fxElement {
public:
    const char* className() const override { return "Ticker"; }

    std::string start() override {
        first = time().after(fxAlarm::Span(0), this, [this] { begin.send(fxSendNow); });
        if (count != 0 && done >= count) return "";  // so it was saved
        setBusy(true);
        alarm = time().every(fxFlowTime::seconds(every), this, [this] { beat(); });
        return "";
    }
    bool xdrState(fxTranscriber& transcriber) override {
        return fxXdrAll(transcriber, done) && done >= 0;
    }

    double every = 1;
    long count = 0;
    fxOutputView<void> begin;
    fxOutputView<void> tick;

private:
    void beat() {
        const fxRef<fxObj> hold(this);
        if (count != 0 && ++done >= count) {
            alarm->stop();
            setBusy(false);
        }
        tick.send(fxSendNow);
    }

    long done = 0;
    fxRef<fxFlowAlarm> first;
    fxRef<fxFlowAlarm> alarm;
};

// Reads by one of three: a reader for a file that is read once, a follower for one that may
// grow, a process.
class Lines final : public fxElement {
public:
    const char* className() const override { return "Lines"; }

    std::string settle() override {
        if (file.isEmpty() == command.isEmpty()) return "has to have either a file or a command";
        if (!command.isEmpty() && follow) return "follows a file, not a command";
        if (from == "end" && !follow) return "with from=end wants follow=yes";
        if (file == "-" && follow) return "cannot follow standard input, which it reads to its end";
        return "";
    }

    std::string start() override {
        setBusy(true);
        if (!command.isEmpty()) return startCommand();
        if (follow) {
            startFollowing(loaded.file != 0 ? loaded : from == "end" ? endOfFile() : fxFilePlace());
            return "";
        }
        const int fd = file == "-" ? fcntl(0, F_DUPFD_CLOEXEC, 3)
                                   : open(file, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
        if (fd < 0) return std::string(file.view()) + ": " + std::strerror(errno);
        reader = std::make_unique<fxLineReader>(fd);
        if (!reader->isValid()) return std::string(file.view()) + ": cannot be waited for";
        fxConnect(reader->line(), this, [this](const fxStr& text) { pass(text); });
        fxConnect(reader->end(), this, [this](int error) { finish(error); });
        return "";
    }

    // A file that is followed is continued where reading stopped.
    bool xdrState(fxTranscriber& transcriber) override {
        if (follower != nullptr) loaded = follower->getPlace();
        return fxXdrAll(transcriber, loaded.file, loaded.offset);
    }

    fxStr file;
    fxStr command;
    bool follow = false;
    std::string from = "start";
    fxOutputView<fxStr> line;
    fxOutputView<int> end;

private:
    void startFollowing(fxFilePlace place) {
        follower = std::make_unique<fxFileFollower>(file, place);
        fxConnect(follower->line(), this, [this](const fxStr& text) { pass(text); });
    }

    std::string startCommand() {
        fxCommand shell({"/bin/sh", "-c", command.c_str()});
        shell.input = fxCommand::none;
        shell.output = fxCommand::piped;
        shell.ownGroup = true;
        process = std::make_unique<fxProcess>(shell);
        if (process->getError() != 0) return std::strerror(process->getError());
        fxConnect(process->output()->line(), this, [this](const fxStr& text) { pass(text); });
        fxConnect(process->exited(), this, [this](int status) { finish(status); });
        return "";
    }

    fxFilePlace endOfFile() const {
        struct stat status = {};
        if (stat(file, &status) != 0) return fxFilePlace();
        return {status.st_ino, static_cast<unsigned long>(status.st_size)};
    }

    void pass(const fxStr& text) {
        const fxRef<fxObj> hold(this);
        line.send(text, fxSendNow);
    }
    void finish(int status) {
        const fxRef<fxObj> hold(this);
        setBusy(false);
        end.send(status, fxSendNow);
    }

    fxFilePlace loaded;
    std::unique_ptr<fxLineReader> reader;
    std::unique_ptr<fxFileFollower> follower;
    std::unique_ptr<fxProcess> process;
};

}  // namespace

FX_ELEMENT(Ticker, "sends a message again and again") {
    element.property("every", &Ticker::every, 1.0, "between two messages")
        .unit("s")
        .range(1e-6, 1e9);
    element.property("count", &Ticker::count, 0, "how many messages there are; 0: without end")
        .range(0, 1e15);
    element.output("start", &Ticker::begin, "a message as soon as the flow runs");
    element.output("tick", &Ticker::tick, "the message, for the first time after one interval");
}

FX_ELEMENT(Lines, "sends the lines of a file, or of what a command prints") {
    element.reachesOutside();
    element.property("file", &Lines::file, "", "path of the file; \"-\" is standard input")
        .testedBy(whyZeroByte);
    element.property("command", &Lines::command, "", "what a shell is to run instead")
        .testedBy(whyZeroByte);
    element.property("follow", &Lines::follow, false,
                     "whether to wait for what the file gets, and for the file itself");
    element.property("from", &Lines::from, "start", "where to begin in a file that is followed")
        .oneOf({"start", "end"});
    element.output("line", &Lines::line, "each line, without its line end");
    element.output("end", &Lines::end,
                   "at the end: 0, the errno of a file that could not be read further, or the "
                   "exit status of the command, below 0 for a signal");
}
