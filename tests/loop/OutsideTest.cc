// What reaches the loop from outside: other threads, signals, processes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/Outside.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

// What we have inherited ourselves is not for the children.
const bool isKept = [] {
    for (int fd = 3; fd < 1024; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
    return true;
}();

}  // namespace

// Posting and quitting.

TEST_F(Outside, NotifiersSendUntilAllIsReadOrTheyAreDestroyed) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    auto notifier = std::make_unique<fxReadNotifier>(ends[0]);
    EXPECT_FALSE(fxReadNotifier(-1).isValid());
    int calls = 0;
    fxConnect(notifier->readable(), [&] {
        char byte;
        EXPECT_EQ(read(notifier->getFd(), &byte, 1), 1);
        if (++calls == 3) notifier.reset();
    });
    turn();
    EXPECT_EQ(write(ends[1], "abcd", 4), 4);
    for (int turns = 0; turns < 5; ++turns) turn();
    EXPECT_EQ(calls, 3);
    close(ends[1]);
}

TEST_F(Outside, FunctionsAreCalledInOrderTurnByTurn) {
    auto queue = std::make_unique<fxPostQueue>(3);
    const auto noting = [this](const char* text) { return [this, text] { log.push_back(text); }; };
    struct Last {  // posts from its destructor
        Last(fxPostQueue& queue_, bool& result_) : queue(queue_), result(result_) {}
        ~Last() {
            result = queue.post([] {});
        }
        fxPostQueue& queue;
        bool& result;
    };
    bool posted = true;
    queue->post([&] {
        log.push_back("a");
        EXPECT_TRUE(queue->post([&] {
            log.push_back("b");
            turn();  // nested
            throw Thrown();
        }));
    });
    EXPECT_TRUE(queue->post(noting("c")) && queue->post(noting("d")));
    EXPECT_FALSE(queue->post(noting("full")));
    turn();
    EXPECT_EQ(log, (Log{"a", "c", "d"}));
    EXPECT_TRUE(queue->post(noting("e")));
    EXPECT_THROW(turn(), Thrown);
    EXPECT_EQ(queue->getCount(), 0U);
    EXPECT_EQ(log, (Log{"a", "c", "d", "b", "e"}));
    EXPECT_TRUE(fx_theExecutive->willBlock());
    queue->post([] { throw Thrown(); });
    queue->post([&queue] { queue.reset(); });
    queue->post([last = std::make_unique<Last>(*queue, posted)] { ADD_FAILURE(); });
    EXPECT_THROW(turn(), Thrown);
    turn();
    EXPECT_EQ(queue, nullptr);
    EXPECT_FALSE(posted) << "by the destructor of a function that was not called";
}

TEST_F(Outside, ThreadsPost) {
    constexpr int threads = 3, count = 2000;
    fxPostQueue queue;
    std::vector<int> next(threads);
    int called = 0;
    std::vector<std::thread> all;
    for (int id = 0; id < threads; ++id) {
        all.emplace_back([&, id] {
            for (int i = 0; i < count; ++i) {
                queue.post([&, id, i] {
                    EXPECT_EQ(next[static_cast<size_t>(id)]++, i);
                    if (++called % 500 == 0) throw Thrown();
                });
            }
        });
    }
    until([&] { return called == threads * count; });
    for (std::thread& thread : all) thread.join();
    EXPECT_EQ(queue.getCount(), 0U);
}

TEST_F(Outside, QuitEndsTheInnermostLoopAfterItsTurn) {
    class App : public fxApplication {
        const char* className() const override { return "App"; }
        void initialize(int, char**) override {}
    } app;
    fx_theExecutive->open();
    fxPostQueue queue;
    queue.post([&] {
        queue.post([] { fx_theExecutive->quit(); });
        fx_theExecutive->loop();
        log.push_back("inner");
        queue.post([] { fx_theExecutive->quit(); });
    });
    fx_theExecutive->loop();
    EXPECT_TRUE(app.isOpen && fx_theExecutive->contains(&app));
    queue.post([] { throw Thrown(); });
    fx_theExecutive->quit();
    EXPECT_THROW(fx_theExecutive->loop(), Thrown);  // which ends a quit() too
    queue.post([&] { queue.post([] { fx_theExecutive->quit(); }); });
    fx_theExecutive->loop();
    fx_theExecutive->quit();
    fx_theExecutive->run();  // does not wait
    EXPECT_EQ(queue.getCount(), 0U);
    EXPECT_EQ(log, Log{"inner"});
    EXPECT_TRUE(app.isOpen);
    queue.post([&] { queue.post([] { fx_theExecutive->close(); }); });
    fx_theExecutive->loop();  // until the last application has closed
    EXPECT_FALSE(app.isOpen);
    queue.post([&] { log.push_back("without"); });
    fx_theExecutive->loop();  // turns once
    EXPECT_EQ(log.back(), "without");
    app.close();  // a second time
}

TEST_F(Outside, CheckedLoopsTellOfStandingTimers) {
    static std::string lines;
    fxTrace::setSink([](void*, const char* line, size_t) { lines += line; }, nullptr);
    fxTrace::enable(fxTrace::loop);
    fxTimer timer;
    timer.startTimer();
    testing::internal::CaptureStderr();
    turn();
    turn();
    [[maybe_unused]] const std::string told = testing::internal::GetCapturedStderr();
    fxTrace::enable(0U);
    fxTrace::setSink(nullptr, nullptr);
    const std::string line = "timers stand still: no select handler is registered";
    EXPECT_NE(lines.find(line), std::string::npos);
    EXPECT_EQ(lines.find(line), lines.rfind(line)) << "told once";
#ifdef FXDS_CHECKED
    EXPECT_EQ(told,
              "fxExec::poll: timers stand still: no select handler is registered; make an "
              "fxWakeup\n");
#endif
}

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
