// Timers against the lists that Timer.h describes, written down literally.
#include "fxds/Timer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "fxds/EventHandler.h"
#include "tests/support/TestSeed.h"

namespace {

constexpr int most = 300;

struct Thrown {};

// Timers are numbers here. A timer that is held waits for the end of the pass.
struct Model {
    struct Timer {
        float interval, delta;
        bool repeats, isActive;
    };
    struct Pass {
        float seconds = 0;
        int ticking = -1;
        std::vector<int> again, held;
    };

    static float usable(float seconds) { return seconds > 0 ? std::fmin(seconds, FLT_MAX) : 0; }
    static void erase(std::vector<int>& ids, int id) {
        ids.erase(std::remove(ids.begin(), ids.end(), id), ids.end());
    }
    void unlink(int id) {
        erase(list, id);
        for (Pass* pass : passes) erase(pass->held, id);
        timers[id].isActive = false;
    }
    void takeOut(int id) {
        const auto place = std::find(list.begin(), list.end(), id);
        if (place == list.end()) return;
        if (place + 1 != list.end()) timers[place[1]].delta += timers[id].delta;
        unlink(id);
    }
    void start(int id) {
        takeOut(id);
        float wait = usable(timers[id].interval);
        if (!passes.empty() && !(passes.back()->seconds - wait < passes.back()->seconds)) {
            for (Pass* pass : passes) pass->held.push_back(id);
            wait = 0;
        }
        auto place = list.begin();
        while (place != list.end() && wait >= timers[*place].delta) wait -= timers[*place++].delta;
        if (place != list.end()) timers[*place].delta -= wait;
        list.insert(place, id);
        timers[id].delta = wait;
        timers[id].isActive = true;
    }
    void stop(int id) {
        if (timers[id].isActive) takeOut(id);
        for (Pass* pass : passes) {
            erase(pass->again, id);
            if (pass->ticking == id) pass->ticking = -1;
        }
    }
    void endTick(Pass& pass) {
        if (pass.ticking >= 0 && timers[pass.ticking].repeats) pass.again.push_back(pass.ticking);
        pass.ticking = -1;
    }
    int nextDue(Pass& pass) {
        endTick(pass);
        for (const int id : list) {
            const bool isHeld = std::count(pass.held.begin(), pass.held.end(), id) != 0;
            if (isHeld && timers[id].delta <= 0) continue;
            if (pass.seconds < timers[id].delta) break;
            pass.seconds -= timers[id].delta;
            unlink(id);
            return pass.ticking = id;
        }
        return -1;
    }
    void end(Pass& pass) {
        endTick(pass);
        for (const int id : list) {
            const float passed = std::min(pass.seconds, timers[id].delta);
            timers[id].delta -= passed;
            pass.seconds -= passed;
            if (timers[id].delta > 0) break;
        }
        passes.pop_back();
        for (const int id : pass.again) start(id);
    }

    Timer timers[most];
    std::vector<int> list;
    std::vector<Pass*> passes;
};

// Does the same to timers and to the model, from within ticks too.
class Random {
public:
    // `stretch` is the longest interval of most timers, in units of 2 seconds.
    Random(int count_, float stretch_) : rng(testSeed()), count(count_), stretch(stretch_) {
        for (int id = 0; id < count; ++id) create(id);
    }
    ~Random() {
        for (int id = 0; id < count; ++id) destroy(id);
        EXPECT_EQ(fxTimer::activeTimers, nullptr) << "timers left active";
    }

    void run() {
        reactionsLeft = 30;
        try {
            step();
        } catch (const Thrown&) {
        }
    }

private:
    class Probe : public fxTimer {
    public:
        Probe(Random& owner_, int id_, bool repeats) : fxTimer(repeats), owner(owner_), id(id_) {}
        void tick() override { owner.ticked(id); }
        Random& owner;
        const int id;
    };

    int below(unsigned int limit) { return static_cast<int>(rng() % limit); }
    float seconds() {
        static const float odd[] = {1e-30F, 0.1F,          1e9F,
                                    -1.0F,  std::nanf(""), std::numeric_limits<float>::infinity()};
        return below(4) == 0 ? odd[below(6)] : static_cast<float>(below(9)) / 4;
    }
    void create(int id) {
        const bool repeats = below(2) != 0;
        const float interval = seconds() * stretch;
        timers[id] = std::make_unique<Probe>(*this, id, repeats);
        timers[id]->setInterval(interval);
        EXPECT_EQ(timers[id]->getInterval(), Model::usable(interval));
        if (below(2) == 0) timers[id]->interval = interval;  // past the setter
        model.timers[id] = {interval, 0, repeats, false};
    }
    void destroy(int id) {
        model.timers[id].isActive = true;  // it leaves the list whatever the flag says
        model.stop(id);
        timers[id].reset();
    }
    void step() {
        const int id = below(static_cast<unsigned int>(count));
        const int kind = below(16);
        fxTimer& timer = *timers[id];
        if (kind < 5) {
            model.start(id);
            timer.startTimer();
        } else if (kind == 5) {
            model.stop(id);
            timer.stopTimer();
        } else if (kind == 6) {
            destroy(id);
            create(id);
        } else if (kind == 7) {  // the flag by hand
            timer.active = model.timers[id].isActive = below(2) != 0;
        } else if (model.passes.size() < (kind < 9 ? 4U : 1U)) {
            letPass(seconds());
        }
        compare();
    }
    void letPass(float time) {
        Model::Pass pass;
        pass.seconds = std::isnan(time) ? 0 : time;
        model.passes.push_back(&pass);
        bool hasThrown = false;
        try {
            fxTimer::alarm(time);
            EXPECT_EQ(model.nextDue(pass), -1) << "a tick is missing";
        } catch (const Thrown&) {
            hasThrown = true;
        }
        model.end(pass);
        compare();
        if (hasThrown && below(2) != 0) throw Thrown();
    }
    void ticked(int id) {
        EXPECT_EQ(model.nextDue(*model.passes.back()), id);
        compare();
        for (int steps = below(4); steps > 0 && reactionsLeft > 0; --steps, --reactionsLeft) step();
        if (below(10) == 0) throw Thrown();
    }
    void compare() {
        const fxTimer* timer = fxTimer::activeTimers;
        for (const int id : model.list) {
            ASSERT_EQ(timer, timers[id].get());
            EXPECT_EQ(timer->delta, model.timers[id].delta);
            timer = timer->next;
        }
        EXPECT_EQ(timer, nullptr);
        for (int id = 0; id < count; ++id) {
            EXPECT_EQ(timers[id]->isActive(), model.timers[id].isActive);
        }
    }

    std::mt19937 rng;
    const int count;
    const float stretch;
    Model model;
    std::unique_ptr<Probe> timers[most];
    int reactionsLeft = 0;
};

}  // namespace

TEST(Timer, AgreesWithTheLists) {
    for (const int count : {5, most}) {
        Random work(count, count == most ? 401.7F : 1);
        const int steps = count == most ? 1500 : 20000;
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) work.run();
    }
}

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
