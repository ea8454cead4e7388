// Timers by example; TortureTest holds random ones against a model.
#include "fxds/Timer.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "fxds/EventHandler.h"

namespace {

// Notes that it ticked and then does what the test wants.
class Probe : public fxTimer {
public:
    Probe(std::vector<int>& log_, int id_, float seconds, bool repeats = false)
        : fxTimer(repeats), log(log_), id(id_) {
        setInterval(seconds);
    }
    void tick() override {
        EXPECT_FALSE(isActive());
        EXPECT_EQ(next, nullptr);
        log.push_back(id);
        const std::function<void()> action = onTick;  // survives the timer
        if (action) action();
    }

    std::vector<int>& log;
    const int id;
    std::function<void()> onTick;
};

// Counts what arrives at its input "in".
class Counter : public fxObj {
public:
    Counter() { addInput<&Counter::count>("in"); }
    void count() { ++received; }
    int received = 0;
};

typedef std::vector<int> Ids;
typedef std::vector<float> Floats;

class Timer : public testing::Test {
protected:
    ~Timer() override {
        EXPECT_EQ(fxTimer::activeTimers, nullptr) << "timers left active";
        EXPECT_TRUE(fx_theEventHandler == nullptr || fx_theEventHandler->isEmpty());
    }

    std::unique_ptr<Probe> make(int id, float seconds, bool repeats = false) {
        return std::make_unique<Probe>(log, id, seconds, repeats);
    }
    std::unique_ptr<Probe> start(int id, float seconds, bool repeats = false) {
        auto timer = make(id, seconds, repeats);
        timer->startTimer();
        return timer;
    }

    Ids log;
};

Ids activeIds() {
    Ids ids;
    for (fxTimer* t = fxTimer::activeTimers; t; t = t->next)
        ids.push_back(static_cast<Probe*>(t)->id);
    return ids;
}

Floats deltas() {
    Floats values;
    for (fxTimer* t = fxTimer::activeTimers; t != nullptr; t = t->next) values.push_back(t->delta);
    return values;
}

}  // namespace

TEST_F(Timer, TickInOrderOfExpiryAndThenOfStart) {
    auto a = start(1, 2, true), b = start(2, 1), c = start(3, 2), d = start(4, 1);
    EXPECT_EQ(activeIds(), (Ids{2, 4, 1, 3}));
    EXPECT_EQ(deltas(), (Floats{1, 0, 1, 0}));
    fxTimer::alarm(0.5F);
    EXPECT_EQ(log, Ids());
    fxTimer::alarm(0.5F);  // a whole wait passed is enough
    EXPECT_EQ(log, (Ids{2, 4}));
    a->stopTimer();
    EXPECT_EQ(deltas(), Floats{1});
    a->stopTimer();  // not in the list: nothing changes
    a->startTimer();
    fxTimer::alarm(7);  // repeating timers do not make up for overruns
    EXPECT_EQ(log, (Ids{2, 4, 3, 1}));
    EXPECT_EQ(deltas(), Floats{2});
}

TEST_F(Timer, OddIntervalsAndTimesDoNoHarm) {
    auto timer = make(1, 1);
    EXPECT_EQ(fxTimer().getInterval(), 0.0F);
    for (float odd : {-1.0F, -FLT_MAX, std::nanf(""), 0.0F}) {
        timer->setInterval(odd);
        timer->startTimer();
        EXPECT_EQ(deltas(), Floats{0});
        timer->interval = odd;  // past the setter
        timer->startTimer();
        EXPECT_EQ(deltas(), Floats{0});
    }
    const float forever = std::numeric_limits<float>::infinity();
    auto late = start(2, forever), later = start(3, forever);
    late->stopTimer();
    fxTimer::alarm(std::nanf(""));  // no time at all
    EXPECT_EQ(log, Ids{1});
    EXPECT_FALSE(std::isnan(later->delta));
    fxTimer::alarm(forever);
    EXPECT_EQ(log, (Ids{1, 3}));
}

TEST_F(Timer, SendsTicksToWhoeverIsConnected) {
    fxTimer timer;
    Counter counter;
    timer.connect("tick", &counter, "in");
    timer.startTimer();
    fxTimer::alarm(0);
    EXPECT_EQ(counter.received, 0) << "ticks are queued";
    fx_theEventHandler->distributeEvents();
    EXPECT_EQ(counter.received, 1);
}

TEST_F(Timer, SendsNothingOnceItsOutputIsGoneOrOfAnotherType) {
    fxTimer timer;
    timer.removeOutput("tick");
    timer.tick();
    timer.addOutput("tick", fxDT_int);
    Counter counter;
    timer.connect("tick", &counter, "in");
    timer.tick();
    EXPECT_TRUE(fx_theEventHandler == nullptr || fx_theEventHandler->isEmpty());
    timer.addOutput("tick", fxDT_void);
    timer.connect("tick", &counter, "in");
    timer.tick();
    fx_theEventHandler->distributeEvents();
    EXPECT_EQ(counter.received, 1);
}

TEST_F(Timer, TooShortAnIntervalWaitsForTheNextPassInsteadOfTickingForEver) {
    auto other = start(2, 3);
    auto timer = start(1, 0);
    timer->onTick = [&] { timer->startTimer(); };
    for (float interval : {0.0F, 1e-30F}) {
        log.clear();
        timer->setInterval(interval);
        timer->startTimer();
        fxTimer::alarm(1);
        EXPECT_EQ(log, Ids{1});
        fxTimer::alarm(0);
        EXPECT_EQ(log, (Ids{1, 1}));
    }
    fxTimer::alarm(1);
    EXPECT_EQ(log, (Ids{1, 1, 1, 2})) << "the waiting timer held up another";
}

TEST_F(Timer, StoppingOrDestroyingFromATickWithdrawsFromThePass) {
    // One that has ticked, itself, and one that is still to come.
    auto a = start(1, 1, true), b = start(2, 1, true), c = start(3, 1, true), d = start(4, 1, true);
    b->onTick = [&] {
        for (Probe* timer : {a.get(), b.get(), c.get()}) timer->stopTimer();
    };
    fxTimer::alarm(1);
    EXPECT_EQ(log, (Ids{1, 2, 4}));
    EXPECT_EQ(activeIds(), Ids{4});
    for (Probe* timer : {a.get(), b.get(), c.get(), d.get()}) timer->startTimer();
    b->onTick = [&] {
        a.reset();
        b.reset();
        c.reset();
    };
    fxTimer::alarm(1);
    EXPECT_EQ(log, (Ids{1, 2, 4, 1, 2, 4}));
    EXPECT_EQ(activeIds(), Ids{4});
}

TEST_F(Timer, StartingFromATickStandsInTheListOnce) {
    auto a = start(1, 1, true), b = start(2, 1, true), c = start(3, 1, true);
    b->onTick = [&] {
        for (Probe* timer : {a.get(), b.get(), c.get()}) timer->startTimer();
    };
    fxTimer::alarm(1);
    EXPECT_EQ(log, (Ids{1, 2}));
    EXPECT_EQ(activeIds(), (Ids{3, 1, 2}));
    EXPECT_EQ(deltas(), (Floats{1, 0, 0}));
}

TEST_F(Timer, APassWithinATickIsAPassOfItsOwn) {
    auto a = start(1, 1, true), b = start(2, 1, true), c = start(3, 2);
    auto zero = make(4, 0);
    a->onTick = [&] {
        a->onTick = nullptr;
        zero->startTimer();
        fxTimer::alarm(1);
        EXPECT_EQ(log, (Ids{1, 2, 4, 3})) << "what waits for the outer pass is due in this one";
        b->stopTimer();
    };
    fxTimer::alarm(1);
    EXPECT_EQ(log, (Ids{1, 2, 4, 3}));
    EXPECT_EQ(activeIds(), Ids{1});
}
