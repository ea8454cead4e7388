// What the library does when the system fails it.
#include "fxds/fxds.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <functional>
#include <random>

#include "tests/support/FatalCatcher.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

const fxStream::fxStreamType out = fxStream::fxStreamWrite;

// Leaves a signal to its fate, and the process as it was afterwards.
class Signal {
public:
    Signal(int number_, void (*function)(int)) : number(number_) {
        struct sigaction action = {};
        action.sa_handler = function;
        sigaction(number, &action, &before);
    }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;
    ~Signal() { sigaction(number, &before, nullptr); }

private:
    const int number;
    struct sigaction before = {};
};

// A limit on what the process may have, while this lives.
class Limit {
public:
    Limit(decltype(RLIMIT_FSIZE) what_, size_t value) : what(what_) {
        getrlimit(what, &before);
        const rlimit now = {value, before.rlim_max};
        setrlimit(what, &now);
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    ~Limit() { setrlimit(what, &before); }

private:
    decltype(RLIMIT_FSIZE) what;
    rlimit before = {};
};

class Faults : public testing::Test {
protected:
    Faults() {
        fxInitializeToolkit();
        fatalMessage([] {});  // keeps a descriptor from its first use on
        descriptors = openDescriptors();
    }
    ~Faults() override { EXPECT_EQ(openDescriptors(), descriptors); }
    // A new file, opened in one of the ways that a stream can be made.
    fxStdioStream* open(size_t way) const {
        unlink(path.c_str());
        if (way == 0) return new fxStdioStream(path.c_str(), out, 0600);
        if (way == 1)
            return new fxStdioStream(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600),
                                     out);
        FILE* file = std::fopen(path.c_str(), "w");
        static const size_t sizes[] = {0, 1, 7, 100};
        const size_t size = sizes[way - 2];
        std::setvbuf(file, nullptr, size == 0 ? _IONBF : _IOFBF, size);
        return new fxStdioStream(file, out);
    }
    static constexpr size_t ways = 6;

    const TestDirectory directory;
    const std::string path = directory.file("stream");
    int descriptors = 0;
};

// A FILE whose system calls do what a list says, one entry after the other: how many
// bytes they take before an interruption, or an error, as a negative number.
struct Script {
    std::vector<int> outcomes;  // then all
    std::string bytes = {};
    size_t calls = 0;

    static ssize_t write(void* cookie, const char* from, size_t count) {
        Script& self = *static_cast<Script*>(cookie);
        const int outcome =
            self.calls < self.outcomes.size() ? self.outcomes[self.calls++] : INT_MAX;
        errno = outcome < 0 ? -outcome : EINTR;
        count = outcome < 0 ? 0 : std::min(count, static_cast<size_t>(outcome));
        self.bytes.append(from, count);
        return static_cast<ssize_t>(count);
    }
};

}  // namespace

// Pieces of many sizes, flushed now and then, against a limit anywhere.
TEST_F(Faults, WhatWasReportedAsFlushedIsOnTheDisk) {
    std::mt19937 rng(testSeed());
    const Signal ignoring(SIGXFSZ, SIG_IGN);
    for (int round = 0; round < 60; ++round) {
        const size_t way = rng() % ways;
        const std::unique_ptr<fxStdioStream> stream(open(way));
        std::string sent;
        size_t safe = 0;
        bool isSaved = false;
        {
            const Limit small(RLIMIT_FSIZE, rng() % 300000);
            while (sent.size() < 200000) {
                const size_t size = 1 + rng() % (rng() % 8 == 0 ? 90000 : 900);
                const std::string piece(size, static_cast<char>(rng()));
                sent += piece;
                stream->putBytes(piece.data(), static_cast<unsigned int>(size));
                if (rng() % 16 == 0 && stream->flush()) safe = sent.size();
            }
            isSaved = stream->close();
        }
        if (isSaved) safe = sent.size();
        const std::string there = contents(path);
        EXPECT_GE(there.size(), safe);
        EXPECT_TRUE(sent.compare(0, safe, there, 0, safe) == 0) << "round " << round;
    }
}

// Nor does it lose anything, however much was taken before it.
TEST_F(Faults, AnInterruptionDoesNotHideALoss) {
    const struct {
        std::vector<int> outcomes;
        bool arrives;
    } cases[] = {
        {{1, 1, 1}, true},
        {{-EINTR, 1, -EINTR, -EINTR, 3, -EINTR, 2}, true},
        {{-ENOSPC}, false},
        {{-ENOSPC, -EINTR}, false},
        {{-EINTR, -EIO, 1, -EINTR}, false},
        {{1, -EINTR, -EPIPE, -EINTR}, false},
    };
    for (const auto& one : cases) {
        for (const unsigned int size : {1U, 10U, 20000U}) {
            Script script{one.outcomes};
            FILE* file = fopencookie(&script, "w", {nullptr, Script::write, nullptr, nullptr});
            std::setvbuf(file, nullptr, _IONBF, 0);
            fxStdioStream stream(file, out);
            bool isPut = true;
            std::string sent;
            for (char i = 'a'; i < 'e'; ++i) {
                const std::string piece(size, i);
                isPut = stream.putBytes(piece.data(), size) && isPut;
                sent += piece;
            }
            EXPECT_EQ(stream.flush(), one.arrives);
            EXPECT_EQ(stream.close(), one.arrives);
            EXPECT_TRUE(!one.arrives || isPut);
            EXPECT_EQ(script.bytes == sent, one.arrives);
        }
    }
}

namespace {

int postErrno;

void notePost() { postErrno = errno; }

class Idle : public fxSelectHandler {
public:
    explicit Idle(int fd_) : fxSelectHandler(fd_, 1) {}
    const char* className() const override { return "Idle"; }
    void handleRead() override { ADD_FAILURE() << "nothing was ready"; }
};

}  // namespace

TEST_F(Faults, AnInterruptedWaitIsATurnInWhichNothingWasReady) {
    const Signal interrupting(SIGALRM, [](int) {});
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        Idle idle(ends[0]);
        fx_theExecutive->addSelectHandler(&idle);
        fx_theExecutive->addPostSelectFunc(notePost);
        ualarm(1000, 1000);
        fx_theExecutive->poll(1000);
        ualarm(0, 0);
        EXPECT_EQ(postErrno, EINTR);
        fx_theExecutive->removePostSelectFunc(notePost);
    }
    close(ends[1]);
}

#ifndef __SANITIZE_ADDRESS__

// Sanitizers map more memory than a limit would leave.
TEST_F(Faults, RunningOutOfMemoryIsFatalAndSaysForHowMuch) {
    constexpr size_t room = size_t{64} << 20;
    const std::function<void()> greedy[] = {
        [] { fxLongArray().setMaxLength(100000000); },
        [] { fxStr("x").resize(1U << 30); },
        [] { fxVoidPtrDict dictionary(200000000); },
        [] {
            fxStackBuffer buffer;
            for (;;) buffer.put("0123456789", 10);
        },
        [] {
            fxStr text("0123456789");
            for (;;) text.append(text);
        },
    };
    for (const auto& action : greedy) {
        EXPECT_EXIT(
            {
                long pages = 0;
                FILE* file = std::fopen("/proc/self/statm", "r");
                if (file == nullptr || std::fscanf(file, "%ld", &pages) != 1) std::exit(0);
                const Limit small(RLIMIT_AS, static_cast<size_t>(pages * getpagesize()) + room);
                try {
                    action();
                } catch (const Fatal&) {
                    std::exit(3);
                }
            },
            testing::ExitedWithCode(3), "out of memory for [0-9]+ bytes");
    }
}

#endif
