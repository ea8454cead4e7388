// The loop in a real process; tests/TortureTest.cc tests by a model what it calls when.
#include "fxds/Exec.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "fxds/Application.h"
#include "fxds/EventHandler.h"
#include "fxds/SelectHandler.h"
#include "fxds/Timer.h"
#include "tests/support/Surroundings.h"

namespace {

typedef std::vector<std::string> Log;

// Notes its calls as "r", "w" and "x" behind its name.
class Handler : public fxSelectHandler {
public:
    Handler(Log& log_, std::string name_, int fd_, bool read, bool write = false,
            bool exception = false)
        : fxSelectHandler(fd_, read, write, exception), log(log_), name(std::move(name_)) {
        ++alive;
    }
    ~Handler() override { --alive; }
    const char* className() const override { return "Handler"; }

    void handleRead() override {
        log.push_back(name + "r");
        if (onRead) onRead();
    }
    void handleWrite() override { log.push_back(name + "w"); }
    void handleException() override { log.push_back(name + "x"); }
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
    Exec() : descriptors(openDescriptors()), handlers(Handler::alive) {
        if (fx_theEventHandler == nullptr) fx_theEventHandler = new fxEventHandler;
    }
    ~Exec() override {
        EXPECT_EQ(openDescriptors(), descriptors) << "descriptors left open";
        EXPECT_EQ(Handler::alive, handlers) << "handlers left alive";
        EXPECT_EQ(fxTimer::activeTimers, nullptr) << "timers left active";
        EXPECT_TRUE(fx_theEventHandler->isEmpty()) << "events left in the queue";
        EXPECT_TRUE(fx_theExecutive == nullptr || fx_theExecutive->applications.isEmpty());
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
    const int handlers;
};

// What the function that the loop calls does; it has no closure.
std::function<void()> onPost;
void post() { onPost(); }

}  // namespace

// Keeping the state.

TEST_F(Exec, BoundsCoverEveryHandlerAlsoOneThatWantsNothing) {
    EXPECT_EQ(exec.minFd, 101);
    EXPECT_EQ(exec.nfds, 0);
    Handler three(log, "3", 3, true), seven(log, "7", 7, false, true), nine(log, "9", 9, false);
    for (Handler* handler : {&three, &seven, &nine}) exec.addSelectHandler(handler);
    EXPECT_TRUE(exec.dirty);
    EXPECT_TRUE(exec.getReadSet().isSet(3));
    EXPECT_FALSE(exec.dirty);
    EXPECT_FALSE(exec.getReadSet().isSet(7));
    EXPECT_TRUE(exec.getWriteSet().isSet(7));
    EXPECT_EQ(exec.minFd, 3);
    EXPECT_EQ(exec.nfds, 10);
    EXPECT_FALSE(exec.hasException);
    for (Handler* handler : {&three, &seven, &nine}) exec.removeSelectHandler(handler);
    EXPECT_FALSE(exec.getExceptionSet().isSet(9));
    EXPECT_EQ(exec.minFd, 101);
    EXPECT_EQ(exec.nfds, 0);
    for (Handler* handler : {&three, &seven, &nine}) handler->keepOpen();
}

TEST_F(Exec, SetsHaveTheLayoutOfTheSystem) {
    Handler high(log, "h", 99, true);
    exec.addSelectHandler(&high);
    const fxSelectSet set = exec.getReadSet();
    EXPECT_EQ(sizeof set * 8, 16384U);
    fd_set systems;
    std::memcpy(&systems, &set, sizeof systems);
    EXPECT_TRUE(FD_ISSET(99, &systems));
    high.keepOpen();
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
    for (int fd : {-1, 100, 16384}) {
        Handler handler(log, "h", fd, true);
        const std::string message = "descriptor " + std::to_string(fd) + " is not in 0..99";
        EXPECT_DEATH(exec.addSelectHandler(&handler), "addSelectHandler: " + message);
        EXPECT_DEATH(exec.removeSelectHandler(&handler), "removeSelectHandler: " + message);
        handler.keepOpen();
    }
}

// What poll() waits for.

TEST_F(Exec, WithoutHandlersOnlyEventsAreServed) {
    struct Note : fxEvent {
        explicit Note(Log& log_) : fxEvent(99), log(log_) {}
        void deliver() override { log.push_back("event"); }
        Log& log;
    };
    onPost = [&] { log.push_back("function"); };
    exec.addPreSelectFunc(post);
    exec.addPostSelectFunc(post);
    fxTimer timer;
    timer.startTimer();
    fx_theEventHandler->postEvent(new Note(log), false);
    exec.poll(5);
    EXPECT_EQ(log, Log{"event"});
    EXPECT_TRUE(timer.isActive());
}

TEST_F(Exec, TimerShortensTheWaitAndGetsExactlyItsTime) {
    Pair idle;
    auto handler = serve("h", idle, true);
    fxTimer first, second;
    first.setInterval(1.0F / 128);
    second.setInterval(1.0F / 128 + 512);
    first.startTimer();
    second.startTimer();
    exec.poll(1000);
    EXPECT_FALSE(first.isActive());
    EXPECT_EQ(second.delta, 512.0F);
}

TEST_F(Exec, PollingDoesNotFireWhatIsNotDue) {
    Pair ready;
    auto handler = serve("h", ready, true);
    ready.makeReadable();
    fxTimer timer;
    timer.setInterval(1000);
    timer.startTimer();
    exec.poll(0);
    exec.poll(2000);
    EXPECT_TRUE(timer.isActive());
    EXPECT_LE(timer.delta, 1000.0F);
    EXPECT_GT(timer.delta, 900.0F);
    EXPECT_EQ(log, (Log{"hr", "hr"}));
    exec.removeSelectHandler(handler.get());

    Pair idle;
    auto waiting = serve("w", idle, true);
    const float before = timer.delta;
    exec.poll(1.0F / 64);  // more than one tick of the clock
    EXPECT_LT(timer.delta, before);
}

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

TEST_F(Exec, FailedSelectStillServesTimersAndFunctionsAndKeepsErrno) {
    class Clobber : public fxTimer {
        void tick() override { errno = ENOTTY; }
    } timer;
    Pair pair;
    auto handler = serve("h", pair, true, true);
    const int copy = dup(handler->getFd());
    close(handler->getFd());
    timer.startTimer();
    int seen = 0;
    onPost = [&] { seen = errno; };
    exec.addPostSelectFunc(post);
    exec.poll(0);
    EXPECT_EQ(seen, EBADF);
    EXPECT_FALSE(timer.isActive());
    EXPECT_FALSE(exec.willBlock());
    EXPECT_EQ(log, Log());
    EXPECT_EQ(dup2(copy, handler->getFd()), handler->getFd());
    close(copy);
}

TEST_F(Exec, ExceptionalConditionsAreServed) {
    // The master of a terminal in packet mode has one when the slave is flushed.
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master) + unlockpt(master), 0);
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
    const int on = 1;
    ASSERT_EQ(ioctl(master, TIOCPKT, &on), 0);
    Handler handler(log, "h", master, false, false, true);
    exec.addSelectHandler(&handler);
    exec.poll(0);
    EXPECT_EQ(log, Log());
    ASSERT_EQ(tcflush(slave, TCIFLUSH), 0);
    exec.poll(1000);
    EXPECT_EQ(log, Log{"hx"});
    EXPECT_TRUE(exec.getExceptionSet().isSet(master));
    close(slave);
}

// Applications.

namespace {

class App : public fxApplication {
public:
    App(Log& log_, std::string name_) : log(log_), name(std::move(name_)) {}
    const char* className() const override { return "App"; }
    void initialize(int argc, char**) override {
        log.push_back(name + "i" + std::to_string(argc));
        if (onInitialize) onInitialize();
    }
    void open() override {
        fxApplication::open();
        log.push_back(name + "o");
        if (onOpen) onOpen();
    }
    void close() override {
        log.push_back(name + "c");
        fxApplication::close();
        if (onClose) onClose();
    }
    std::function<void()> onInitialize, onOpen, onClose;

private:
    Log& log;
    const std::string name;
};

void openOnly(App& app) { app.open(); }

}  // namespace

TEST_F(Exec, ApplicationsAreServedInTheOrderOfRegistration) {
    App a(log, "a"), b(log, "b"), c(log, "c");
    fx_theExecutive->initialize(2, nullptr);
    EXPECT_EQ(log, (Log{"ai2", "bi2", "ci2"}));
    log.clear();
    openOnly(a);
    openOnly(c);
    EXPECT_TRUE(a.isOpen && !b.isOpen);
    log.clear();
    fx_theExecutive->close();
    EXPECT_EQ(log, (Log{"ac", "cc"})) << "every open one, although the list shrinks";
    EXPECT_TRUE(fx_theExecutive->contains(&b));
    EXPECT_FALSE(fx_theExecutive->contains(&a) || fx_theExecutive->contains(&c));
    a.close();  // a second time
    fx_theExecutive->remove(&b);
}

TEST_F(Exec, LoopRunsUntilTheLastApplicationHasClosed) {
    exec.loop();  // turns once without any
    Pair pair;
    Handler handler(log, "h", pair.take(), true);
    App app(log, "a");
    fx_theExecutive->addSelectHandler(&handler);
    fx_theExecutive->open();
    pair.makeReadable();
    int turns = 0;
    handler.onRead = [&] {
        if (++turns == 3) fx_theExecutive->close();
    };
    fx_theExecutive->loop();
    EXPECT_EQ(turns, 3);
}

TEST_F(Exec, ApplicationsMayComeAndGoInAWalk) {
    auto a = std::make_unique<App>(log, "a"), b = std::make_unique<App>(log, "b");
    App c(log, "c");
    std::unique_ptr<App> added;
    b->onOpen = [&] {
        a->close();                               // before the place in the walk
        added = std::make_unique<App>(log, "d");  // at the end
    };
    fx_theExecutive->open();
    EXPECT_EQ(log, (Log{"ao", "bo", "ac", "co", "do"}));
    log.clear();
    b->onClose = [&] {
        added.reset();                            // still to come: not called
        added = std::make_unique<App>(log, "e");  // not there at the start
        openOnly(*added);
    };
    fx_theExecutive->close();
    EXPECT_EQ(log, (Log{"bc", "eo", "cc"}));
    EXPECT_TRUE(fx_theExecutive->contains(added.get()));
    added->close();
}

TEST_F(Exec, DestroyedApplicationIsUnregisteredOnlyIfItWasOpen) {
    alignas(App) unsigned char rooms[2][sizeof(App)];
    App* const opened = new (rooms[0]) App(log, "o");
    App* const never = new (rooms[1]) App(log, "n");
    openOnly(*opened);
    opened->~App();
    never->~App();
    log.clear();
    EXPECT_FALSE(fx_theExecutive->contains(opened));
    EXPECT_TRUE(fx_theExecutive->contains(never));
    fx_theExecutive->initialize(0, nullptr);
    fx_theExecutive->open();
    fx_theExecutive->close();
    EXPECT_EQ(log, Log()) << "a destroyed application was called";
    fx_theExecutive->remove(never);
}

TEST_F(Exec, NewApplicationInThePlaceOfADestroyedOneIsServed) {
    alignas(App) unsigned char room[sizeof(App)];
    (new (room) App(log, "1"))->~App();
    App* second = new (room) App(log, "2");
    EXPECT_EQ(fx_theExecutive->applications.length(), 1U);
    fx_theExecutive->open();
    EXPECT_EQ(log, Log{"2o"});
    exec.add(second);              // is served by two executives
    fx_theExecutive->add(second);  // is in the list twice, and once more than it will leave
    second->~App();
    fx_theExecutive->open();
    exec.open();
    EXPECT_EQ(log, Log{"2o"});
    EXPECT_EQ(fx_theExecutive->applications.length(), 1U);
    (new (room) App(log, "3"))->~App();  // counted twice by now, marked once
    App* fourth = new (room) App(log, "4");
    exec.add(fourth);
    exec.open();
    EXPECT_EQ(log, (Log{"2o", "4o"}));
    fourth->~App();
    EXPECT_FALSE(fx_theExecutive->contains(fourth));
    exec.remove(fourth);
    EXPECT_FALSE(exec.contains(fourth));
}
