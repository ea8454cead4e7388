#include "fxds/Wakeup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Timer.h"

namespace {

class Counter : public fxObj {
public:
    explicit Counter(fxObj& source, const char* output) {
        addInput<&Counter::count>("in");
        source.connect(output, this, "in");
    }
    void count() { ++received; }
    int received = 0;
};

void expectUnregistered() {
    for (const fxSelectHandler* handler : fx_theExecutive->handlers) EXPECT_EQ(handler, nullptr);
}

}  // namespace

TEST(Wakeup, CallsThatWereNotNoticedYetMakeOneMessage) {
    {
        fxWakeup wakeup;
        Counter counter(wakeup, "wakeup");
        fx_theExecutive->poll(0);
        EXPECT_EQ(counter.received, 0);
        for (int i = 0; i < 3; ++i) wakeup.wake();
        fx_theExecutive->poll(1000);
        EXPECT_EQ(counter.received, 1);
        EXPECT_TRUE(fx_theExecutive->willBlock());
        wakeup.wake();
        fx_theExecutive->poll(1000);
        EXPECT_EQ(counter.received, 2);
    }
    expectUnregistered();
}

TEST(Wakeup, NeitherBlocksNorTouchesErrnoWhenTheCounterIsFull) {
    fxWakeup wakeup;
    Counter counter(wakeup, "wakeup");
    const std::uint64_t nearlyAll = 0xFFFFFFFFFFFFFFFE;
    ASSERT_EQ(write(wakeup.getFd(), &nearlyAll, sizeof nearlyAll), 8);
    errno = ENOTTY;
    wakeup.wake();
    EXPECT_EQ(errno, ENOTTY);
    fx_theExecutive->poll(1000);
    EXPECT_EQ(counter.received, 1);
}

TEST(Wakeup, LetsAProgramWithOnlyTimersRun) {
    fxWakeup wakeup;
    fxTimer timer;
    Counter counter(timer, "tick");
    timer.startTimer();
    fx_theExecutive->poll(1000);
    EXPECT_EQ(counter.received, 1);
    EXPECT_EQ(fxTimer::activeTimers, nullptr);
}

TEST(Wakeup, SendsNothingWithoutItsOutput) {
    fxWakeup wakeup;
    wakeup.removeOutput("wakeup");
    wakeup.wake();
    fx_theExecutive->poll(1000);
    wakeup.handleRead();  // nothing to read
    EXPECT_TRUE(fx_theExecutive->willBlock());
}
