// The loop in a real process; TortureTest tests by a model what it calls when.
#include "fxds/Exec.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "fxds/EventHandler.h"
#include "fxds/SelectHandler.h"
#include "fxds/Timer.h"
#include "fxds/Trace.h"
#include "tests/support/Surroundings.h"

namespace {

typedef std::vector<std::string> Log;

// Notes its calls as "r" and "w" behind its name.
class Handler : public fxSelectHandler {
public:
    Handler(Log& log_, std::string name_, int fd_, bool read, bool write = false)
        : fxSelectHandler(fd_, read, write, false), log(log_), name(std::move(name_)) {
        ++alive;
    }
    ~Handler() override { --alive; }
    const char* className() const override { return "Handler"; }

    void handleRead() override {
        log.push_back(name + "r");
        if (onRead) onRead();
    }
    void handleWrite() override { log.push_back(name + "w"); }
    void keepOpen() { fd = -1; }  // for descriptors that are not ours to close

    std::function<void()> onRead;
    static inline int alive = 0;

private:
    Log& log;
    const std::string name;
};

// A socket pair of which a handler gets one end. It is always writable, and
// readable once something was sent from the other end.
class Pair {
public:
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0); }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    ~Pair() {
        close(ends[1]);
        if (!taken) close(ends[0]);
    }
    int take() {
        taken = true;
        return ends[0];
    }
    void makeReadable() { EXPECT_EQ(::write(ends[1], "x", 1), 1); }

private:
    int ends[2];
    bool taken = false;
};

class Exec : public testing::Test {
protected:
    Exec() : descriptors(openDescriptors()), aliveBefore(Handler::alive) {
        if (fx_theEventHandler == nullptr) fx_theEventHandler = new fxEventHandler;
    }
    ~Exec() override {
        EXPECT_EQ(openDescriptors(), descriptors) << "descriptors left open";
        EXPECT_EQ(Handler::alive, aliveBefore) << "handlers left alive";
        EXPECT_EQ(fxTimer::activeTimers, nullptr) << "timers left active";
        EXPECT_TRUE(fx_theEventHandler->isEmpty()) << "events left in the queue";
    }

    // A handler on one end of `pair`, registered.
    std::unique_ptr<Handler> serve(const char* name, Pair& pair, bool read, bool write = false) {
        auto handler = std::make_unique<Handler>(log, name, pair.take(), read, write);
        exec.addSelectHandler(handler.get());
        return handler;
    }

    Log log;
    fxExec exec;

private:
    const int descriptors;
    const int aliveBefore;
};

}  // namespace

// Keeping the state.

// First, while the system's own table of open files is small.
TEST_F(Exec, DescriptorThatWasNeverOpenIsNotReady) {
    Handler never(log, "n", 16000, true);
    Pair pair;
    auto handler = serve("h", pair, true);
    exec.addSelectHandler(&never);
    pair.makeReadable();
    exec.poll(0);
    exec.poll(0);
    EXPECT_EQ(log, (Log{"hr", "hr"}));
    never.keepOpen();
}

TEST_F(Exec, BoundsAndSetsCoverEveryHandler) {
    struct Row {
        int fd;
        bool read, write;
        int minFd, nfds;  // once it is registered too
    };
    EXPECT_EQ(exec.minFd, 101);
    std::vector<std::unique_ptr<Handler>> all;
    for (const Row& row : {Row{16383, true, false, 16383, 16384},
                           {101, true, true, 101, 16384},
                           {100, false, true, 100, 16384},
                           {99, true, false, 99, 16384},
                           {7, false, false, 7, 16384}}) {
        all.push_back(std::make_unique<Handler>(log, "h", row.fd, row.read, row.write));
        exec.addSelectHandler(all.back().get());
        EXPECT_TRUE(exec.dirty);
        const fxSelectSet reads = exec.getReadSet();
        EXPECT_FALSE(exec.dirty || exec.hasException);
        EXPECT_EQ(reads.isSet(row.fd), row.read);
        EXPECT_EQ(exec.getWriteSet().isSet(row.fd), row.write);
        EXPECT_EQ(exec.minFd, row.minFd);
        EXPECT_EQ(exec.nfds, row.nfds);
    }
    fd_set systems;
    std::memcpy(&systems, &exec.readSet, sizeof systems);
    EXPECT_TRUE(FD_ISSET(101, &systems)) << "the layout is not the system's";
    EXPECT_EQ(exec.handlers[99], all[3].get());
    for (const size_t i : {0U, 4U, 3U, 2U}) exec.removeSelectHandler(all[i].get());
    EXPECT_FALSE(exec.getExceptionSet().isSet(16383));
    EXPECT_EQ(exec.minFd, 101) << "which is that of a handler here";
    EXPECT_EQ(exec.nfds, 102);
    for (const auto& handler : all) {
        exec.removeSelectHandler(handler.get());
        handler->keepOpen();
    }
    EXPECT_FALSE(exec.willBlock());
    EXPECT_EQ(exec.nfds, 0);
}

TEST_F(Exec, DyingHandlerLeavesTheTablesButNotItsSuccessor) {
    Pair one, two;
    fxExec other;
    auto displaced = serve("d", one, true), plain = serve("p", two, true);
    Handler successor(log, "s", displaced->getFd(), true);
    exec.addSelectHandler(&successor);
    other.addSelectHandler(plain.get());
    other.getReadSet();  // up to date
    const int fds[] = {displaced->getFd(), plain->getFd()};
    displaced.reset();
    plain.reset();
    EXPECT_EQ(exec.handlers[fds[0]], &successor);
    EXPECT_EQ(exec.handlers[fds[1]], nullptr);
    EXPECT_EQ(other.handlers[fds[1]], nullptr);
    EXPECT_TRUE(other.dirty);
    EXPECT_EQ(fcntl(fds[1], F_GETFD), -1) << "the descriptor is still open";
    successor.keepOpen();
}

TEST_F(Exec, DescriptorsOutsideTheTableAreFatal) {
    for (int fd : {-1, 16384}) {
        EXPECT_FALSE(fxExec::canServe(fd));
        Handler handler(log, "h", fd, true);
        const std::string message = "descriptor " + std::to_string(fd) + " is not in 0..16383";
        EXPECT_DEATH(exec.addSelectHandler(&handler), "addSelectHandler: " + message);
        EXPECT_DEATH(exec.removeSelectHandler(&handler), "removeSelectHandler: " + message);
        handler.keepOpen();
    }
    EXPECT_TRUE(fxExec::canServe(0) && fxExec::canServe(16383));
}

TEST_F(Exec, ThousandsOfSocketsAreServed) {
    constexpr size_t count = 5000;
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit limit = before;
    limit.rlim_cur = std::max<rlim_t>(before.rlim_cur, 2 * count + 300);
    if (limit.rlim_cur > before.rlim_max) {
        GTEST_SKIP() << "needs " << limit.rlim_cur << " descriptors; the hard limit is "
                     << before.rlim_max;
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    {
        std::vector<Pair> pairs(count);
        std::vector<std::unique_ptr<Handler>> all;
        for (Pair& pair : pairs) all.push_back(serve("h", pair, true));
        onStackOf(64 * 1024, [&] { exec.poll(0); });
        EXPECT_EQ(log.size(), 0U);
        for (Pair& pair : pairs) pair.makeReadable();
        onStackOf(64 * 1024, [&] { exec.poll(1000); });
        EXPECT_EQ(log.size(), count);
        all[count / 2].reset();
        exec.poll(1000);
        EXPECT_EQ(log.size(), 2 * count - 1);
    }
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

// What poll() waits for.

TEST_F(Exec, OddTimesAreUsable) {
    Pair ready;
    auto handler = serve("h", ready, true);
    exec.poll(std::nanf(""));
    ready.makeReadable();
    exec.poll(std::numeric_limits<float>::infinity());
    EXPECT_EQ(log, Log{"hr"});
    errno = 0;
    exec.poll(-std::numeric_limits<float>::infinity());
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(log, Log{"hr"});
}

// By the system's own select(): TortureTest has another.
TEST_F(Exec, ClosedDescriptorFailsOnceAndIsThenLeftOut) {
    class Clobber : public fxTimer {
        void tick() override { errno = ENOTTY; }
    } timer;
    timer.startTimer();
    Pair pair, other;
    auto handler = serve("h", pair, true), served = serve("s", other, true);
    const int fd = handler->getFd();
    const int copy = dup(fd);
    pair.makeReadable();
    other.makeReadable();
    static std::string lines;
    fxTrace::setSink([](void*, const char* line, size_t) { lines += std::string(line) + "|"; },
                     nullptr);
    fxTrace::enable(fxTrace::loop);
    close(fd);
    errno = 0;
    exec.poll(1000);
    EXPECT_EQ(errno, EBADF) << "which a tick has changed";
    for (int i = 0; i < 2; ++i) exec.poll(1000);
    EXPECT_EQ(log, (Log{"sr", "sr"}));
    EXPECT_FALSE(exec.willBlock()) << "the system says that the descriptors are bad";
    dup2(copy, fd);
    log.clear();
    exec.poll(1000);
    EXPECT_EQ(log, (fd < served->getFd() ? Log{"hr", "sr"} : Log{"sr", "hr"}));
    fxTrace::enable(0U);
    fxTrace::setSink(nullptr, nullptr);
    const std::string told = "fd " + std::to_string(fd) + " is closed, left out|";
    const size_t first = lines.find("select failed: Bad file descriptor|fxds loop    " + told);
    EXPECT_NE(first, std::string::npos) << lines;
    EXPECT_EQ(lines.find(told), lines.rfind(told)) << "told once: " << lines;
    close(copy);
}
