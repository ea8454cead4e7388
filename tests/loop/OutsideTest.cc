// What reaches the loop from outside: signals, processes, lines of text.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "tests/support/Outside.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestSeed.h"

namespace {

// What we have inherited ourselves is not for the children.
const bool isKept = [] {
    for (int fd = 3; fd < 1024; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
    return true;
}();

}  // namespace

// Signals.

TEST_F(Outside, SignalsAreMessages) {
    const auto theirs = [](int) {};
    for (const int number : {SIGUSR1, SIGCHLD, SIGRTMAX}) {
        const auto before = std::signal(number, theirs);
        auto one = std::make_unique<fxSignal>(number), two = std::make_unique<fxSignal>(number);
        fxConnect(one->signal(), [&](int n) {
            log.push_back("one" + std::to_string(n - number));
            one.reset();
        });
        fxConnect(two->signal(), [&](int) { log.push_back("two"); });
        std::raise(number);
        std::thread([number] { std::raise(number); }).join();
        turn();
        EXPECT_EQ(log, (Log{"one0", "two"}));
        std::raise(number);
        turn();
        EXPECT_EQ(log, (Log{"one0", "two", "two"}));
        log.clear();
        two.reset();
        EXPECT_EQ(std::signal(number, before), theirs) << "the disposition did not come back";
    }
    std::signal(SIGUSR2, SIG_IGN);
    {
        fxSignal replaced(SIGUSR2);
        std::signal(SIGUSR2, theirs);
    }
    EXPECT_EQ(std::signal(SIGUSR2, SIG_DFL), theirs) << "it was the program's by then";
    for (const int number : {-1, 0, SIGKILL, SIGSTOP, SIGSEGV, SIGRTMAX + 1}) {
        EXPECT_FALSE(fxSignal(number).isValid()) << number;
    }
}

TEST_F(Outside, NoSignalIsLost) {
    std::atomic<int> raised{0};
    int seen = 0;
    fxSignal signal(SIGUSR1);
    fxConnect(signal.signal(), [&](int) { seen = raised; });
    std::thread other([&] {
        for (int i = 0; i < 500; ++i) {
            ++raised;
            kill(getpid(), SIGUSR1);
        }
    });
    until([&] { return seen == 500; });
    other.join();
    turn();
}

// Processes.

TEST_F(Outside, ProcessesAreLinesAndAnExit) {
    setenv("FXDS_OURS", "ours", 1);
    TestDirectory directory;
    const struct Row {
        const char* script;
        int status;
        Log lines;
    } rows[] = {
        {"exit 3", 3, {}},
        {"kill -9 $$", -9, {}},
        {"echo out; echo err >&2; printf rest", 0, {"out", "err", "rest"}},
        {"read a; echo $a; cat", 0, {"from", "us"}},
        {"echo $FXDS_OURS; echo $FXDS_ADDED; pwd", 0, {"", "added", directory.path}},
        {"cd /proc/self/fd; echo *", 0, {"0 1 2 3"}},
        {"trap", 0, {}},
        {"yes | head -10000 | tail -1", 0, {"y"}},
        {"sleep 1000 & echo on; kill -15 $$", -15, {"on"}},
    };
    std::signal(SIGPIPE, SIG_IGN);
    for (const Row& row : rows) {
        fxCommand command("sh", {"-c", row.script});
        command.input = command.output = fxCommand::piped;
        command.errors = fxCommand::joined;
        command.environment = {"FXDS_ADDED=added", "FXDS_OURS"};
        command.directory = directory.path;
        command.ownGroup = true;
        fxProcess process(command);
        ASSERT_TRUE(process.isRunning()) << strerror(process.getError());
        EXPECT_TRUE(process.input()->writeLine("from") && process.input()->write("us"));
        process.input()->finish();
        note(*process.output());
        fxConnect(process.output()->line(), [](const fxStr&) { throw Thrown(); });
        bool hasExited = false;
        fxConnect(process.exited(), [&](int status) {
            EXPECT_EQ(status, row.status) << row.script;
            log.erase(std::remove(log.begin(), log.end(), "[0]"), log.end());
            if (log.size() < row.lines.size()) log.push_back("rest");  // unfinished so far
            hasExited = true;
        });
        until([&] { return hasExited; });
        EXPECT_EQ(log, row.lines) << row.script;
        EXPECT_FALSE(process.isRunning() || process.kill());
        EXPECT_EQ(process.getStatus(), row.status);
        kill(-process.getPid(), SIGKILL);  // what it has left behind
        log.clear();
    }
    std::signal(SIGPIPE, SIG_DFL);
    for (const auto& [name, error] :
         {std::pair("fxds-no-such-program", ENOENT), {"/", EACCES}, {"/etc/passwd", EACCES}}) {
        fxCommand command({name, "x"});
        command.input = command.output = fxCommand::piped;
        const fxProcess process(command);
        EXPECT_FALSE(process.input()->writeLine("x") || process.output()->isValid() ||
                     process.isRunning());
        EXPECT_EQ(process.getError(), error) << name;
    }
    EXPECT_EQ(fxProcess(fxCommand()).getError(), EINVAL);
    EXPECT_EQ(fxProcess(std::vector{std::string("tr\0ue", 5)}).getError(), EINVAL);
    char** const ours = std::exchange(environ, nullptr);
    EXPECT_EQ(fxProcess("fxds-no-such-program", {"x", "y"}).getError(), ENOENT);
    environ = ours;
}

TEST_F(Outside, ProcessesMayGoAtAnyTime) {
    fxCommand command({"sh", "-c", "echo one; echo two; sleep 1000"});
    command.output = fxCommand::piped;
    command.ownGroup = true;
    const auto isGone = [](pid_t pid) { return kill(pid, 0) != 0; };
    for (const int when : {0, 1, 2, 3}) {
        auto process = std::make_unique<fxProcess>(command);
        const pid_t pid = process->getPid();
        fxConnect(process->output()->line(), [&](const std::string& line) {
            EXPECT_NE(process, nullptr) << line;
            if (when == 1) process.reset();
            if (when == 2) process->kill();
        });
        fxConnect(process->exited(), [&](int status) {
            EXPECT_EQ(status, -SIGTERM);
            process.reset();
        });
        if (when == 0) process.reset();
        if (when == 3) {
            process->kill();
            process->detach();
            EXPECT_FALSE(process->isRunning() || process->kill());
        }
        until([&] { return isGone(pid) && (process == nullptr || when == 3); });
        kill(-pid, SIGKILL);  // what a shell starts with SIGTERM blocked and pending lives on
    }
}

// The last line of the process is delivered by the handler of its end, whose receivers
// then serve that end themselves.
TEST_F(Outside, ExitIsServedFromWithinTheLastLine) {
    fxCommand command({"echo", "last"});
    command.output = fxCommand::piped;
    auto process = std::make_unique<fxProcess>(command);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(process->getPid()), &info, WEXITED | WNOWAIT);
    process->output()->pause();
    fxConnect(process->output()->line(), [&](const fxStr&) {
        until([&] { return process == nullptr; });
        throw Thrown();
    });
    fxConnect(process->exited(), [&](int status) {
        EXPECT_EQ(status, 0);
        process.reset();
    });
    fx_theExecutive->poll(0);
    if (process != nullptr) {
        process->output()->resume();
        until([&] { return process == nullptr; });
    }
    EXPECT_EQ(process, nullptr);
}

TEST_F(Outside, SomeoneElseMayHaveWaited) {
    fxProcess process({"true"});
    while (waitpid(process.getPid(), nullptr, 0) < 0) {
    }
    until([&] { return !process.isRunning(); });
    EXPECT_EQ(process.getStatus(), fxProcess::unknownStatus);
    std::signal(SIGCHLD, SIG_IGN);
    for (int i = 0; i < 20; ++i) {  // some have been taken away before they can be watched
        const fxProcess brief({"true"});
        until([&] { return !brief.isRunning(); });
        EXPECT_EQ(brief.getError(), 0);
    }
    std::signal(SIGCHLD, SIG_DFL);
}

// Lines.

// Feeds a reader in pieces, while receivers pause it, end it and throw, and compares with the
// text cut into lines.
TEST_F(Outside, ReaderAgreesWithTheText) {
    std::signal(SIGPIPE, SIG_IGN);
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 60; ++round) {
        const size_t limit = rng() % 3 == 0 ? 20000 : rng() % 7;
        const size_t longest = rng() % 4 == 0 ? 40000 : 12;
        std::string text;
        Log expected;
        unsigned long cuts = 0;
        for (auto lines = rng() % 30; lines > 0; --lines) {
            std::string line(rng() % longest, static_cast<char>(rng() % 2 ? 'x' : '\0'));
            text += line + "\n";
            cuts += line.size() > limit;
            expected.push_back(line.substr(0, limit));
        }
        if (rng() % 2 == 0) {
            text += "rest";
            cuts += limit < 4;
            expected.push_back(std::string("rest").substr(0, limit));
        }
        expected.push_back("[0]");
        Pipe pipe;
        std::thread feeder([&, seed = rng()] {
            std::mt19937 sizes(static_cast<unsigned int>(seed));
            for (size_t at = 0; at < text.size();) {
                const size_t size = std::min<size_t>(text.size() - at, 1 + sizes() % 9000);
                const ssize_t written = write(pipe.ends[1], text.data() + at, size);
                at = written > 0 ? at + static_cast<size_t>(written) : text.size();
            }
            close(pipe.ends[1]);
        });
        log.clear();
        auto reader = std::make_unique<fxLineReader>(pipe.ends[0], limit);
        const size_t last = 1 + rng() % (2 * expected.size());  // where it ends, if it gets there
        const auto heard = [&] {
            if (log.size() == last) reader.reset();
        };
        bool isCalled = false;
        fxConnect(reader->line(), [&](const std::string& line) {
            EXPECT_FALSE(reader->isPaused() || isCalled);
            log.push_back(line);
            const auto kind = rng() % 8;
            isCalled = true;
            if (kind == 0) reader->pause();
            if (kind < 2) turn();
            isCalled = false;
            heard();
            if (kind < 3) throw Thrown();
        });
        fxConnect(reader->end(), [&](int error) { noteEnd(error), heard(); });
        until([&] {
            if (reader != nullptr && reader->isPaused()) reader->resume();
            return reader == nullptr || hasEnded();
        });
        feeder.join();
        turn();
        expected.resize(std::min(expected.size(), last));
        EXPECT_EQ(log, expected);
        EXPECT_TRUE(reader == nullptr || (reader->isAtEnd() && reader->getCutCount() == cuts));
        if (HasFailure()) return;
    }
    std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(Outside, WhatCannotBeReadEndsWithItsError) {
    const int folder = open("/", O_RDONLY | O_CLOEXEC), closed = 900;
    for (const auto& [fd, error] : {std::pair(folder, EISDIR), {closed, EBADF}}) {
        fxLineReader reader(fd);
        note(reader);
        reader.handleRead();
        EXPECT_EQ(log.back(), "[" + std::to_string(error) + "]");
        reader.resume();
        reader.handleRead();
    }
    EXPECT_EQ(log.size(), 2U);
    for (const auto& [fd, error] : {std::pair(-1, EBADF), {fxExec::maxDescriptors, EMFILE}}) {
        fxLineReader none(fd);
        EXPECT_FALSE(none.isValid() || fxLineWriter(none).isValid());
        note(none);
        none.pause();
        turn();
        EXPECT_FALSE(none.isAtEnd());
        none.resume();
        turn();
        EXPECT_EQ(log.back(), "[" + std::to_string(error) + "]");
        none.handleRead();
    }
    EXPECT_EQ(log.size(), 4U);
}

TEST_F(Outside, GrowingFilesAreReadOn) {
    TestDirectory directory;
    const std::string path = directory.file("log", "one\n");
    fxLineReader reader(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    reader.setGrowing(true);
    note(reader);
    until([&] { return hasEnded(); });
    std::ofstream(path, std::ios::app) << "two\nthree";
    turn();
    reader.resume();
    until([&] { return log.size() > 2 && hasEnded(); });
    reader.setGrowing(false);
    reader.resume();
    until([&] { return log.size() > 4 && hasEnded(); });
    EXPECT_EQ(log, (Log{"one", "[0]", "two", "[0]", "three", "[0]"}));
}

TEST_F(Outside, FollowersBeginAgainOnlyWhereAFileWasCut) {
    TestDirectory directory;
    const std::string path = directory.file("log", "one\ntw");
    const auto write = [&](const char* text, std::ios::openmode mode) {
        std::ofstream(path, mode) << text;
    };
    const std::chrono::milliseconds soon(1);
    const auto folder = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(path).parent_path());
    fxFileFollower follower("log", fxFilePlace(), soon);
    std::filesystem::current_path(folder);
    fxConnect(follower.line(), [&](const std::string& line) {
        log.push_back(line);
        if (line == "one") write("", std::ios::trunc);
        if (line == "tw") write("the first\nthe second\n", std::ios::app);
    });
    until([&] { return !log.empty() && log.back() == "the second"; });
    EXPECT_EQ(log, (Log{"one", "tw", "the first", "the second"}));

    std::ifstream limits("/proc/self/limits");
    Log expected;
    for (std::string line; std::getline(limits, line);) expected.push_back(line);
    log.clear();
    fxFileFollower shown("/proc/self/limits", fxFilePlace(), soon);
    fxConnect(shown.line(), [this](const std::string& line) { log.push_back(line); });
    int ticks = 0;
    const fxRef<fxAlarm> ticking = fxEvery(soon, [&] { ++ticks; });
    until([&] { return ticks > 20; });
    ticking->stop();
    EXPECT_EQ(log, expected);

    log.clear();
    const std::string later = directory.path + "/later";
    std::filesystem::create_directory(later);
    fxFileFollower waiting(later, fxFilePlace(), soon);
    fxConnect(waiting.line(), [this](const std::string& line) { log.push_back(line); });
    fxConnect(waiting.error(), [&](int error) {
        noteEnd(error);
        EXPECT_EQ(waiting.getError(), error);
        if (error == EISDIR) std::filesystem::remove(later);
        if (error == ENOENT) directory.file("later", "now\n");
    });
    until([&] { return !log.empty() && log.back() == "now"; });
    EXPECT_EQ(log, (Log{"[21]", "[2]", "[0]", "now"}));
}

TEST_F(Outside, WriterKeepsEveryByteAndBlocksNowhere) {
    for (const bool isSocket : {false, true}) {
        const Pipe pipe(isSocket);
        fxLineWriter writer(pipe.ends[1], 300000, 1000);
        int drained = 0;
        fxConnect(writer.drained(), [&] { ++drained; });
        fxConnect(writer.end(), [this](int error) { noteEnd(error); });
        std::string expected;
        for (int i = 0; !writer.isFull(); ++i) {
            const std::string line(static_cast<size_t>(i % 1000), 'x');
            EXPECT_TRUE(writer.writeLine(line));
            expected += line + "\n";
        }
        while (writer.getPending() > 0) {
            const size_t before = writer.getPending();
            turn();
            if (writer.getPending() == before) break;
        }
        EXPECT_TRUE(writer.getPending() > 0 && drained == 0) << "the other end takes all";
        writer.finish();
        EXPECT_FALSE(writer.write("more"));
        std::string received;
        std::thread other([&] { received = readAll(pipe.ends[0]); });
        until([&] { return hasEnded(); });
        other.join();
        close(pipe.ends[0]);
        EXPECT_TRUE(received == expected);
        EXPECT_EQ(drained, 1);
        EXPECT_EQ(log.back(), "[0]");
        log.clear();
    }
}

TEST_F(Outside, WriterTellsWhenNothingReads) {
    for (const bool isSocket : {false, true}) {
        const Pipe pipe(isSocket);
        close(pipe.ends[0]);
        auto writer = std::make_unique<fxLineWriter>(pipe.ends[1]);
        fxConnect(writer->end(), [&](int error) {
            noteEnd(error);
            writer.reset();
        });
        writer->writeLine("x");
        EXPECT_FALSE(writer->flush());
        EXPECT_EQ(writer->getError(), EPIPE);
        EXPECT_FALSE(writer->isValid() || writer->writeLine("y"));
        turn();
        EXPECT_EQ(writer, nullptr);
    }
    EXPECT_EQ(log, (Log{"[32]", "[32]"}));
}

#ifndef __SANITIZE_ADDRESS__

// Sanitizers need a descriptor to look at an object of a class they have not met.
TEST_F(Outside, NothingIsMadeWithoutDescriptors) {
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = limit;
    none.rlim_cur = 0;
    fxClockTimer timer;
    EXPECT_TRUE(timer.start(fxAlarm::Span::max()));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    {
        EXPECT_FALSE(timer.startAt(fxAlarm::WallTime::max()) || timer.isActive());
        fxPostQueue queue;
        EXPECT_FALSE(queue.isValid() || queue.post([] {}));
        fxWakeup wakeup;
        EXPECT_FALSE(wakeup.isValid());
        wakeup.wake();
        fxCommand command({"true"});
        EXPECT_EQ(fxProcess(command).getError(), EMFILE);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

#endif
