// The loop in a real process: descriptors, alarms and functions that are posted. What it
// calls when, TortureTest tests by a model.
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <thread>
#include <utility>

#include "tests/support/Outside.h"
#include "tests/support/TestSeed.h"
#include "tests/support/Traced.h"

namespace {

using namespace std::chrono_literals;

// At a descriptor that is not its own.
struct Borrowing : fxSelectHandler {
    explicit Borrowing(int fd_) : fxSelectHandler(fd_, true) {}
    ~Borrowing() override { fd = -1; }
    const char* className() const override { return "Borrowing"; }
    void handleRead() override {}
};

// A pipe whose reading end notes its name whenever there is something to read.
struct Fed : Pipe {
    Fed(Log& log, const char* name) : notifier(std::make_unique<fxReadNotifier>(ends[0])) {
        fxConnect(notifier->readable(), [&log, name] { log.push_back(name); });
    }
    ~Fed() { close(ends[1]); }
    void feed() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    std::unique_ptr<fxReadNotifier> notifier;
};

struct Loop : Outside {
    Loop() {
        fxClockTimer().startAt(fxAlarm::WallTime());  // opens what stays open
        descriptors = openDescriptors();
    }
};

}  // namespace

// Descriptors.

// First, while the system's own table of open files is small.
TEST_F(Loop, ServesDescriptorsUpToTheLastOfItsTable) {
    fxExec& exec = *fx_theExecutive;
    EXPECT_EQ(exec.minFd, 101);
    Fed fed(log, "r");
    const int fd = fed.notifier->getFd();
    auto another = std::make_unique<fxExec>();
    {
        Borrowing never(16000), last(16383), twice(99);
        exec.addSelectHandler(&never);
        exec.addSelectHandler(&last);
        exec.addSelectHandler(&twice);
        another->addSelectHandler(&twice);
        EXPECT_TRUE(exec.dirty);
        fd_set systems;
        const fxSelectSet reads = exec.getReadSet();
        std::memcpy(&systems, &reads, sizeof systems);
        EXPECT_TRUE(FD_ISSET(99, &systems) && FD_ISSET(fd, &systems)) << "not the system's layout";
        EXPECT_TRUE(reads.isSet(16383) && !exec.getWriteSet().isSet(16383));
        EXPECT_TRUE(exec.minFd == fd && exec.nfds == 16384 && exec.handlers[99] == &twice);
        exec.removeSelectHandler(&last);
        EXPECT_FALSE(exec.getExceptionSet().isSet(16383));
        EXPECT_TRUE(another->getReadSet().isSet(99) && !another->dirty);
    }
    EXPECT_TRUE(another->handlers[99] == nullptr && another->dirty);
    Borrowing never(16000);  // which is not ready either
    exec.addSelectHandler(&never);
    fed.feed();
    turn();
    turn();
    fxConnect(fed.notifier->readable(), [&] { fed.notifier.reset(); });
    turn();
    turn();
    EXPECT_EQ(log, (Log{"r", "r", "r"})) << "until all is read or the notifier ends";
    EXPECT_FALSE(fxReadNotifier(-1).isValid());
    for (const int outside : {-1, 16384}) {
        Borrowing handler(outside);
        const std::string message = "descriptor " + std::to_string(outside) + " is not in 0..16383";
        EXPECT_DEATH(exec.addSelectHandler(&handler), "addSelectHandler: " + message);
        EXPECT_DEATH(exec.removeSelectHandler(&handler), "removeSelectHandler: " + message);
        EXPECT_FALSE(fxExec::canServe(outside));
    }
    EXPECT_TRUE(fxExec::canServe(0) && fxExec::canServe(16383));
}

TEST_F(Loop, ServesThousandsOfDescriptorsOnAShortStack) {
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
        std::vector<std::unique_ptr<Fed>> all(count);
        for (auto& each : all) each = std::make_unique<Fed>(log, "r");
        onStackOf(64 * 1024, turn);
        EXPECT_EQ(log.size(), 0U);
        for (auto& each : all) each->feed();
        onStackOf(64 * 1024, turn);
        EXPECT_EQ(log.size(), count);
        all[count / 2].reset();
        turn();
        EXPECT_EQ(log.size(), 2 * count - 1);
    }
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

// By the system's own select(): TortureTest has another.
TEST_F(Loop, LeavesOutWhatIsClosedAndTakesAnyTime) {
    struct Clobber : fxTimer {
        void tick() override { errno = ENOTTY; }
    } timer;
    timer.startTimer();
    Fed one(log, "1"), other(log, "2");
    fx_theExecutive->poll(std::nanf(""));
    other.feed();
    fx_theExecutive->poll(std::numeric_limits<float>::infinity());
    errno = 0;
    fx_theExecutive->poll(-std::numeric_limits<float>::infinity());
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(log, Log{"2"});
    one.feed();
    const int fd = one.notifier->getFd(), copy = dup(fd);
    const std::string lines = traced(fxTrace::loop, [&] {
        timer.startTimer();
        close(fd);
        errno = 0;
        fx_theExecutive->poll(1000);
        EXPECT_EQ(errno, EBADF) << "which a tick has changed";
        for (int i = 0; i < 2; ++i) turn();
        EXPECT_EQ(log, (Log{"2", "2", "2"}));
        char byte;
        EXPECT_EQ(read(other.notifier->getFd(), &byte, 1), 1);
        EXPECT_FALSE(fx_theExecutive->willBlock()) << "the system says that one is bad";
        other.feed();
        dup2(copy, fd);
        log.clear();
        turn();
        EXPECT_EQ(log, (Log{"1", "2"}));
    });
    const std::string told = "fd " + std::to_string(fd) + " is closed, left out\n";
    const size_t first = lines.find("select failed: Bad file descriptor\nfxds loop    " + told);
    EXPECT_NE(first, std::string::npos) << lines;
    EXPECT_EQ(lines.find(told), lines.rfind(told)) << "told once: " << lines;
    close(copy);
}

TEST_F(Loop, WakesOnceForAllCallsThatWereNotNoticedYet) {
    fxWakeup wakeup;
    fxTimer timer;
    int received = 0, ticks = 0;
    fxConnect(fxOutputView<void>(wakeup.getOutput("wakeup")), [&] { ++received; });
    fxConnect(fxOutputView<void>(timer.getOutput("tick")), [&] { ++ticks; });
    timer.startTimer();
    fx_theExecutive->poll(1000);
    EXPECT_TRUE(ticks == 1 && received == 0) << "a program with only timers runs";
    for (int i = 0; i < 3; ++i) wakeup.wake();
    fx_theExecutive->poll(1000);
    EXPECT_EQ(received, 1);
    EXPECT_TRUE(fx_theExecutive->willBlock());
    // It neither blocks nor touches errno when the counter is full.
    const std::uint64_t nearlyAll = 0xFFFFFFFFFFFFFFFE;
    ASSERT_EQ(write(wakeup.getFd(), &nearlyAll, sizeof nearlyAll), 8);
    errno = ENOTTY;
    wakeup.wake();
    EXPECT_EQ(errno, ENOTTY);
    fx_theExecutive->poll(1000);
    EXPECT_EQ(received, 2);
    wakeup.removeOutput("wakeup");
    wakeup.wake();
    fx_theExecutive->poll(1000);
    wakeup.handleRead();  // nothing to read
    EXPECT_TRUE(fx_theExecutive->willBlock());
    EXPECT_EQ(received, 2);
}

// Alarms, against a model that looks at the same clock.

TEST_F(Loop, AlarmsTickInTheOrderOfTheirTimesWhateverHappensToThem) {
    std::mt19937 random(testSeed());
    for (int round = 0; round < 20; ++round) {
        typedef std::pair<fxAlarm::Time, int> Due;  // and the step that started it
        const Due never(fxAlarm::Time::max(), 0);
        std::vector<fxRef<fxAlarm>> alarms(60);
        std::vector<Due> expected(alarms.size(), never);
        std::vector<size_t> ticked, order;
        const bool isWall = round % 2 == 1;
        const fxAlarm::Time base = fxAlarm::Clock::now();
        const fxAlarm::WallTime wallBase = std::chrono::system_clock::now();
        for (int step = 1; step <= 200; ++step) {
            const size_t i = random() % alarms.size();
            if (alarms[i] == nullptr) {
                alarms[i] = fxAfter(1h, [&ticked, i] { ticked.push_back(i); });
            }
            const auto wait = fxAlarm::Span((random() % 8) * 500us);
            expected[i] = random() % 3 == 0 ? never : Due(base + wait, step);
            if (expected[i] == never) {
                alarms[i]->stop();
            } else if (isWall) {
                alarms[i]->startAt(wallBase + wait);
            } else {
                alarms[i]->startAt(base + wait);
            }
        }
        for (size_t i = 0; i < alarms.size(); ++i) {
            if (expected[i] != never) order.push_back(i);
        }
        std::sort(order.begin(), order.end(),
                  [&](size_t a, size_t b) { return expected[a] < expected[b]; });
        until([&] { return ticked.size() == order.size(); });
        EXPECT_EQ(ticked, order);
        const auto last = expected[order.back()].first - base;
        EXPECT_GE(
            isWall ? std::chrono::system_clock::now() - wallBase : fxAlarm::Clock::now() - base,
            last);
    }
}

TEST_F(Loop, RepeatingAlarmsNeitherDriftNorCatchUp) {
    std::vector<fxAlarm::Time> dues;
    unsigned long missed = 0;
    fxRef<fxAlarm> alarm;
    const fxAlarm::Time start = fxAlarm::Clock::now();
    alarm = fxEvery(2ms, [&] {
        dues.push_back(alarm->getDue());
        missed += alarm->getMissed();
        while (dues.size() == 3 && fxAlarm::Clock::now() < alarm->getDue() + 5ms) continue;
    });
    const fxAlarm::Time first = alarm->getDue();
    EXPECT_GE(first, start + 2ms);
    until([&] { return dues.size() == 8; });
    for (const fxAlarm::Time due : dues) EXPECT_EQ((due - first) % 2ms, 0ns);
    EXPECT_GE(missed, 2u);
    EXPECT_EQ(dues.back() - first, static_cast<long>(dues.size() + missed) * 2ms);
    alarm->stop();
}

TEST_F(Loop, TicksMayStopStartDestroyThrowAndPoll) {
    auto timer = std::make_unique<fxClockTimer>();
    int ticks = 0;
    const auto set = [&ticks](int value) { return [&ticks, value] { ticks = value; }; };
    const auto untilTicks = [&](int value) { until([&] { return ticks == value; }); };
    fxConnect(timer->ticked, [&] { ++ticks; });
    timer->start(0ms);
    untilTicks(1);
    EXPECT_FALSE(timer->isActive());

    fxRef<fxAlarm> self;
    self = fxEvery(1ms, [&] {
        timer.reset();
        self->stop();
        self = nullptr;
        ticks = 10;
    });
    timer->start(1ms);
    untilTicks(10);
    {
        fxObj context;
        fxEvery(1ms, &context, set(20));
        untilTicks(20);
    }
    // One that always starts itself again for a time long past does not keep others waiting.
    self = fxAfter(std::chrono::duration<double>(0), [&] { self->startAt(fxAlarm::Time::min()); });
    fxAfter(1ms, set(50));
    untilTicks(50);
    self->start(std::chrono::hours::max());
    EXPECT_EQ(self->getDue(), fxAlarm::Time::max());
    self->startAt(fxAlarm::WallTime::max());
    EXPECT_GT(self->getDue(), fxAlarm::Clock::now() + 1h);
    self->stop();

    fxAfter(0ms, [] { throw Thrown(); });
    fxAfter(0ms, set(100));
    EXPECT_THROW(for (;;) fx_theExecutive->poll(60), Thrown);
    untilTicks(100);

    // A loop inside a tick goes on serving what is due and what is started in it.
    fxAfter(0ms, [&] {
        fxAfter(1ms, set(300));
        untilTicks(300);
    });
    fxAfter(0ms, set(200));
    untilTicks(300);

    const fxRef<fxAlarm> never = fxAfter(fxAlarm::Span::max(), [] {});
    const fxRef<fxAlarm> past = fxAfter(fxAlarm::Span::min(), [&] { ticks += 100; });
    fxAt(fxAlarm::WallTime::min(), [&] { ticks += 100; });
    typedef std::chrono::time_point<std::chrono::system_clock, std::chrono::hours> Hour;
    const fxRef<fxAlarm> neither = fxAt(Hour::max(), set(0));
    untilTicks(500);
    never->stop();
    neither->stop();
}

// Posting and quitting.

TEST_F(Loop, FunctionsAreCalledInOrderTurnByTurn) {
    auto queue = std::make_unique<fxPostQueue>(3);
    const auto noting = [this](const char* text) { return [this, text] { log.push_back(text); }; };
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
    const auto post = [&posted, its = queue.get()](void*) { posted = its->post([] {}); };
    queue->post([end = std::shared_ptr<void>(nullptr, post)] { ADD_FAILURE(); });
    EXPECT_THROW(turn(), Thrown);
    turn();
    EXPECT_EQ(queue, nullptr);
    EXPECT_FALSE(posted) << "by the destructor of a function that was not called";
}

TEST_F(Loop, ThreadsPost) {
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

TEST_F(Loop, QuitEndsTheInnermostLoopAfterItsTurn) {
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

TEST_F(Loop, CheckedLoopsTellOfStandingTimers) {
    fxTimer timer;
    timer.startTimer();
    testing::internal::CaptureStderr();
    const std::string lines = traced(fxTrace::loop, [] { turn(), turn(); });
    [[maybe_unused]] const std::string told = testing::internal::GetCapturedStderr();
    const std::string line = "timers stand still: no select handler is registered";
    EXPECT_NE(lines.find(line), std::string::npos);
    EXPECT_EQ(lines.find(line), lines.rfind(line)) << "told once";
#ifdef FXDS_CHECKED
    EXPECT_EQ(told,
              "fxExec::poll: timers stand still: no select handler is registered; make an "
              "fxWakeup\n");
#endif
}
