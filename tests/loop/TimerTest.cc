// What a tick sends; TortureTest does the rest.
#include "fxds/Timer.h"

#include <gtest/gtest.h>

#include "fxds/EventHandler.h"

TEST(Timer, QueuesAMessageOnWhateverVoidOutputIsNowCalledTick) {
    fxTimer timer;
    int received = 0;
    fxObj counter;
    counter.addInput("in", [&received] { ++received; });
    timer.connect("tick", &counter, "in");
    timer.startTimer();
    fxTimer::alarm(0);
    EXPECT_EQ(received, 0) << "ticks are queued";
    fx_theEventHandler->distributeEvents();
    EXPECT_EQ(received, 1);
    timer.removeOutput("tick");
    timer.tick();
    timer.addOutput("tick", fxDT_int);
    timer.connect("tick", &counter, "in");
    timer.tick();
    EXPECT_TRUE(fx_theEventHandler->isEmpty());
    timer.addOutput("tick", fxDT_void);
    timer.connect("tick", &counter, "in");
    timer.tick();
    fx_theEventHandler->distributeEvents();
    EXPECT_EQ(received, 2);
}
