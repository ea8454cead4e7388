// Alarms by the steady clock and by the time of day, against a model that looks at the
// same clock.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "fxds/Clock.h"
#include "fxds/Connection.h"
#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Globals.h"

#include "tests/support/TestSeed.h"

namespace {

using namespace std::chrono_literals;

struct Clocks : testing::Test {
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    static bool isRegistered() {
        fx_theExecutive->getReadSet();
        return fx_theExecutive->nfds != 0;
    }
    // Polls until `isDone`; for ever where the clock does not wake the loop.
    template <class Condition>
    static void pollUntil(Condition isDone) {
        while (!isDone()) fx_theExecutive->poll(60);
    }
};

TEST_F(Clocks, AlarmsTickInTheOrderOfTheirTimesWhateverHappensToThem) {
    std::mt19937 random(testSeed());
    for (int round = 0; round < 20; ++round) {
        struct Expected {
            fxAlarm::Time due;
            int order;
        };
        std::vector<fxRef<fxAlarm>> alarms(60);
        std::vector<Expected> expected(alarms.size(), {fxAlarm::Time::max(), 0});
        std::vector<size_t> ticked;
        const bool isWall = round % 2 == 1;
        const fxAlarm::Time base = fxAlarm::Clock::now();
        const fxAlarm::WallTime wallBase = std::chrono::system_clock::now();
        for (int step = 1; step <= 200; ++step) {
            const size_t i = random() % alarms.size();
            if (alarms[i] == nullptr) {
                alarms[i] = fxAfter(1h, [&ticked, i] { ticked.push_back(i); });
            }
            if (random() % 3 == 0) {
                alarms[i]->stop();
                expected[i] = {fxAlarm::Time::max(), 0};
            } else {
                expected[i] = {base + (random() % 8) * 500us, step};
                if (isWall) {
                    alarms[i]->startAt(wallBase + (expected[i].due - base));
                } else {
                    alarms[i]->startAt(expected[i].due);
                }
            }
        }
        std::vector<size_t> order;
        for (size_t i = 0; i < alarms.size(); ++i) {
            if (alarms[i] != nullptr && expected[i].order == 0) alarms[i]->stop();
            if (expected[i].order != 0) order.push_back(i);
        }
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
            return expected[a].due != expected[b].due ? expected[a].due < expected[b].due
                                                      : expected[a].order < expected[b].order;
        });
        pollUntil([&] { return ticked.size() == order.size(); });
        EXPECT_EQ(ticked, order);
        const auto last = expected[order.back()].due - base;
        EXPECT_GE(
            isWall ? std::chrono::system_clock::now() - wallBase : fxAlarm::Clock::now() - base,
            last);
        EXPECT_FALSE(isRegistered());
    }
}

TEST_F(Clocks, RepeatingAlarmsNeitherDriftNorCatchUp) {
    std::vector<fxAlarm::Time> dues;
    unsigned long missed = 0;
    fxRef<fxAlarm> alarm;
    const fxAlarm::Time start = fxAlarm::Clock::now();
    alarm = fxEvery(2ms, [&] {
        dues.push_back(alarm->getDue());
        missed += alarm->getMissed();
        if (dues.size() == 3) {
            while (fxAlarm::Clock::now() < alarm->getDue() + 5ms) {
            }
        }
    });
    const fxAlarm::Time first = alarm->getDue();
    EXPECT_GE(first, start + 2ms);
    pollUntil([&] { return dues.size() == 8; });
    for (const fxAlarm::Time due : dues) EXPECT_EQ((due - first) % 2ms, 0ns);
    EXPECT_GE(missed, 2u);
    EXPECT_EQ(dues.back() - first, static_cast<long>(dues.size() + missed) * 2ms);
    alarm->stop();
    EXPECT_FALSE(isRegistered());
}

TEST_F(Clocks, TicksMayStopStartDestroyThrowAndPoll) {
    auto timer = std::make_unique<fxClockTimer>();
    int ticks = 0;
    fxConnect(timer->ticked, [&] { ++ticks; });
    timer->start(0ms);
    pollUntil([&] { return ticks == 1; });
    EXPECT_FALSE(timer->isActive());

    fxRef<fxAlarm> self;
    self = fxEvery(1ms, [&] {
        timer.reset();
        self->stop();
        self = nullptr;
        ++ticks;
    });
    timer->start(1ms);
    pollUntil([&] { return ticks >= 2 && self == nullptr; });
    EXPECT_EQ(timer, nullptr);

    {
        fxObj context;
        fxEvery(1ms, &context, [&] { ++ticks; });
        const int before = ticks;
        pollUntil([&] { return ticks > before; });
    }
    pollUntil([&] { return !isRegistered(); });

    // One that always starts itself again for a time long past does not keep others waiting.
    self = fxAfter(std::chrono::duration<double>(0), [&] { self->startAt(fxAlarm::Time::min()); });
    fxAfter(1ms, [&] { ticks = 50; });
    pollUntil([&] { return ticks == 50; });
    self->start(std::chrono::hours::max());
    EXPECT_EQ(self->getDue(), fxAlarm::Time::max());
    self->startAt(fxAlarm::WallTime::max());
    EXPECT_GT(self->getDue(), fxAlarm::Clock::now() + 1h);
    self->stop();

    fxAfter(0ms, [] { throw std::runtime_error("tick"); });
    fxAfter(0ms, [&] { ticks = 100; });
    EXPECT_THROW(pollUntil([] { return false; }), std::runtime_error);
    pollUntil([&] { return ticks == 100; });

    // A loop inside a tick goes on serving what is due and what is started in it.
    fxAfter(0ms, [&] {
        fxAfter(1ms, [&] { ticks = 300; });
        pollUntil([&] { return ticks == 300; });
    });
    fxAfter(0ms, [&] { ticks = 200; });
    pollUntil([&] { return ticks == 300; });
    EXPECT_FALSE(isRegistered());

    const fxRef<fxAlarm> never = fxAfter(fxAlarm::Span::max(), [] {});
    const fxRef<fxAlarm> past = fxAfter(fxAlarm::Span::min(), [&] { ticks += 100; });
    fxAt(fxAlarm::WallTime::min(), [&] { ticks += 100; });
    typedef std::chrono::time_point<std::chrono::system_clock, std::chrono::hours> Hour;
    const fxRef<fxAlarm> neither = fxAt(Hour::max(), [&] { ticks = 0; });
    pollUntil([&] { return ticks == 500; });
    never->stop();
    neither->stop();
    EXPECT_FALSE(isRegistered());
}

}  // namespace
