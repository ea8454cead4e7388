#include "fxds/Timer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "TestSeed.h"
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
    fxTimer::alarm(7);  // repeating timers do not make up for overruns
    EXPECT_EQ(log, (Ids{2, 4, 1, 3}));
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

TEST_F(Timer, DestroyingFromATickWithdrawsFromThePass) {
    auto a = start(1, 1, true), b = start(2, 1, true), c = start(3, 1, true), d = start(4, 1, true);
    b->onTick = [&] {
        a.reset();
        b.reset();
        c.reset();
    };
    fxTimer::alarm(1);
    EXPECT_EQ(log, (Ids{1, 2, 4}));
    EXPECT_EQ(activeIds(), Ids{4});
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

namespace {

// Timers as absolute times in eighths of a second, which floats hold exactly.
class Model {
public:
    struct Entry {
        int id;
        long expiry;
        bool waits;  // for the end of the pass
    };

    void stop(int id) {
        erase(active, id);
        toStartAgain.erase(std::remove(toStartAgain.begin(), toStartAgain.end(), id),
                           toStartAgain.end());
        if (ticking == id) ticking = -1;
    }

    void start(int id, long interval, bool inPass) {
        erase(active, id);
        const Entry entry{id, now + interval, inPass && interval == 0};
        auto later = [](const Entry& x, const Entry& y) { return x.expiry < y.expiry; };
        active.insert(std::upper_bound(active.begin(), active.end(), entry, later), entry);
    }

    // `onTick(id)` answers whether the timer repeats, and its interval.
    template <class OnTick, class IntervalOf>
    void alarm(long eighths, OnTick onTick, IntervalOf repeatInterval) {
        const long end = now + eighths;
        for (;;) {
            auto due = std::find_if(active.begin(), active.end(),
                                    [&](const Entry& e) { return !e.waits && e.expiry <= end; });
            if (due == active.end()) break;
            advance(due->expiry);
            ticking = due->id;
            active.erase(due);
            onTick(ticking);
            if (ticking >= 0 && repeatInterval(ticking) >= 0) toStartAgain.push_back(ticking);
        }
        advance(end);
        for (Entry& entry : active) entry.waits = false;
        const Ids again = toStartAgain;
        toStartAgain.clear();
        for (int id : again) start(id, repeatInterval(id), false);
    }

    Ids ids() const {
        Ids result;
        for (const Entry& entry : active) result.push_back(entry.id);
        return result;
    }
    Floats deltas() const {
        Floats result;
        long from = now;
        for (const Entry& entry : active) {
            result.push_back(static_cast<float>(entry.expiry - from) / 8);
            from = entry.expiry;
        }
        return result;
    }

private:
    static void erase(std::vector<Entry>& entries, int id) {
        entries.erase(std::remove_if(entries.begin(), entries.end(),
                                     [id](const Entry& entry) { return entry.id == id; }),
                      entries.end());
    }
    void advance(long time) {
        now = time;
        for (Entry& entry : active) entry.expiry = std::max(entry.expiry, now);
    }

    std::vector<Entry> active;
    Ids toStartAgain;
    int ticking = -1;
    long now = 0;
};

// The same random program on timers and model. What a tick does is drawn
// beforehand, so that both do it.
class Program {
public:
    Program(Ids& log_, unsigned int seed) : log(log_), rng(seed), actions(timerCount) {
        for (int id = 0; id < timerCount; ++id) {
            intervals.push_back(static_cast<long>(rng() % 12));
            timers.push_back(std::make_unique<Probe>(log, id, 0.0F, repeats(id)));
            timers.back()->setInterval(static_cast<float>(intervals.back()) / 8);
            timers.back()->onTick = [this, id] { act(id, true); };
        }
    }

    void step() {
        const int id = pick();
        if (rng() % 3 == 0) {
            const long eighths = static_cast<long>(rng() % 20);
            for (Action& action : actions) action = draw();
            log.clear();
            fxTimer::alarm(static_cast<float>(eighths) / 8);
            Ids expected;
            model.alarm(
                eighths,
                [&](int ticked) {
                    expected.push_back(ticked);
                    act(ticked, false);
                },
                [&](int t) { return repeats(t) ? intervals[static_cast<size_t>(t)] : -1; });
            ASSERT_EQ(log, expected);
        } else {
            const Action action{rng() % 2 == 0 ? Action::start : Action::stop, id};
            perform(action, true, false);
            perform(action, false, false);
        }
        ASSERT_EQ(activeIds(), model.ids());
        ASSERT_EQ(deltas(), model.deltas());
    }

private:
    struct Action {
        enum Kind { nothing, start, stop } kind;
        int target;
    };
    static constexpr int timerCount = 10;

    static bool repeats(int id) { return id % 2 == 0; }
    int pick() { return static_cast<int>(rng() % timerCount); }
    Action draw() {
        const unsigned int kind = rng() % 4;
        return {kind == 0 ? Action::start : kind == 1 ? Action::stop : Action::nothing, pick()};
    }
    void act(int ticked, bool forReal) {
        perform(actions[static_cast<size_t>(ticked)], forReal, true);
    }
    void perform(const Action& action, bool forReal, bool inPass) {
        const size_t index = static_cast<size_t>(action.target);
        if (action.kind == Action::start) {
            if (forReal)
                timers[index]->startTimer();
            else
                model.start(action.target, intervals[index], inPass);
        } else if (action.kind == Action::stop) {
            if (forReal)
                timers[index]->stopTimer();
            else
                model.stop(action.target);
        }
    }

    Ids& log;
    std::mt19937 rng;
    std::vector<Action> actions;  // what each timer's tick does
    std::vector<long> intervals;
    std::vector<std::unique_ptr<Probe>> timers;
    Model model;
};

}  // namespace

TEST_F(Timer, AgreesWithModel) {
    for (unsigned int round = 0; round < 20; ++round) {
        Program program(log, testSeed() + round);
        for (int step = 0; step < 500; ++step) {
            ASSERT_NO_FATAL_FAILURE(program.step()) << "round " << round << ", step " << step;
        }
    }
}

TEST_F(Timer, SurviveTicksThatDestroyOneAnother) {
    std::mt19937 rng(testSeed());
    std::vector<std::unique_ptr<Probe>> timers(12);
    const auto disturb = [&] {
        std::unique_ptr<Probe>& slot = timers[rng() % timers.size()];
        if (slot != nullptr && rng() % 2 == 0)
            slot.reset();
        else if (slot != nullptr)
            slot->startTimer();
    };
    for (int step = 0; step < 3000; ++step) {
        std::unique_ptr<Probe>& slot = timers[rng() % timers.size()];
        slot = start(0, static_cast<float>(rng() % 8), rng() % 2 == 0);
        slot->onTick = [&] {
            disturb();
            if (rng() % 16 == 0) fxTimer::alarm(1);
        };
        fxTimer::alarm(static_cast<float>(rng() % 4));
        for (float delta : deltas()) ASSERT_GE(delta, 0.0F);
    }
}
