#include "fxds/Wakeup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Timer.h"

TEST(Wakeup, CallsThatWereNotNoticedYetMakeOneMessage) {
    {
        fxWakeup wakeup;
        fxTimer timer;
        fxObj counter;
        int received = 0, ticks = 0;
        counter.addInput("in", [&] { ++received; });
        counter.addInput("tick", [&] { ++ticks; });
        wakeup.connect("wakeup", &counter, "in");
        timer.connect("tick", &counter, "tick");
        timer.startTimer();
        fx_theExecutive->poll(1000);
        EXPECT_EQ(ticks, 1) << "a program with only timers runs";
        EXPECT_EQ(received, 0);
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
    for (const fxSelectHandler* handler : fx_theExecutive->handlers) EXPECT_EQ(handler, nullptr);
    EXPECT_EQ(fxTimer::activeTimers, nullptr);
}
