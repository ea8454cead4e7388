// Applications against the list that Exec.h describes.
#include "fxds/Application.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <random>
#include <vector>

#include "fxds/Exec.h"
#include "fxds/Wakeup.h"
#include "tests/support/TestSeed.h"

namespace {

enum Operation { initializing, opening, closing };

struct Thrown {};

// Visits the list as it is, or what was open at the start.
struct Walk {
    Operation operation;
    size_t next;
    std::vector<int> toClose;
};

struct Model {
    bool contains(int room) const { return std::count(list.begin(), list.end(), room) != 0; }
    void remove(int room) {
        const auto place = std::find(list.begin(), list.end(), room);
        if (place == list.end()) return;
        const auto index = static_cast<size_t>(place - list.begin());
        for (Walk* walk : walks) {
            if (walk->operation != closing && index < walk->next) --walk->next;
        }
        list.erase(place);
    }
    std::vector<int> list;
    std::vector<Walk*> walks;
};

// Makes applications in a few rooms, so that a new one takes the address of one
// that was destroyed, and lets them do everything to one another.
class Random {
public:
    Random() : rng(testSeed()) {}
    ~Random() {
        for (int room = 0; room < rooms; ++room) {
            if (isAlive[room]) destroy(room);
            while (model.contains(room)) remove(room);
        }
    }
    void run() {
        reactionsLeft = 20;
        try {
            step();
        } catch (const Thrown&) {
        }
    }

private:
    static constexpr int rooms = 4;

    class App : public fxApplication {
    public:
        App(Random& owner_, int room_) : owner(owner_), room(room_) {}
        const char* className() const override { return "App"; }
        void initialize(int, char**) override {
            owner.check(initializing, room);
            owner.react();
        }
        void open() override {
            owner.check(opening, room);
            fxApplication::open();
            owner.react();
        }
        void close() override {
            owner.check(closing, room);
            if (owner.chance(80)) {
                owner.model.remove(room);
                fxApplication::close();
            }
            owner.react();
        }

    private:
        Random& owner;
        const int room;
    };

    bool chance(unsigned int percent) { return rng() % 100 < percent; }
    App& at(int room) { return *reinterpret_cast<App*>(memory[room]); }

    void create(int room) {
        while (model.contains(room)) model.remove(room);  // the one that was here
        model.list.push_back(room);
        isAlive[room] = true;
        new (memory[room]) App(*this, room);
    }
    void destroy(int room) {
        if (at(room).isOpen) model.remove(room);
        isAlive[room] = false;
        for (Walk* walk : model.walks) {
            std::replace(walk->toClose.begin(), walk->toClose.end(), room, -1);
        }
        at(room).~App();
    }
    void remove(int room) {
        model.remove(room);
        fx_theExecutive->remove(&at(room));
    }
    void step() {
        const int room = static_cast<int>(rng() % rooms);
        const unsigned int kind = rng() % 8;
        if (!isAlive[room] && kind < 4) {
            create(room);
        } else if (kind == 4) {
            remove(room);
        } else if (kind == 5 && isAlive[room]) {
            destroy(room);
        } else if (kind == 6 && isAlive[room]) {
            model.list.push_back(room);
            fx_theExecutive->add(&at(room));
        } else if (kind == 7 && model.walks.size() < 3) {
            walk(static_cast<Operation>(rng() % 3));
        }
        EXPECT_EQ(fx_theExecutive->contains(&at(room)), model.contains(room));
        EXPECT_EQ(fx_theExecutive->applications.length(), model.list.size());
    }
    void walk(Operation operation) {
        Walk walk{operation, 0, {}};
        for (const int room : model.list) {
            const auto& known = walk.toClose;
            if (std::count(known.begin(), known.end(), room) != 0 || !isAlive[room]) continue;
            if (at(room).isOpen) walk.toClose.push_back(room);
        }
        model.walks.push_back(&walk);
        bool hasThrown = false;
        try {
            if (operation == initializing) fx_theExecutive->initialize(0, nullptr);
            if (operation == opening) fx_theExecutive->open();
            if (operation == closing) fx_theExecutive->close();
            EXPECT_EQ(due(walk), -1) << "a call is missing";
        } catch (const Thrown&) {
            hasThrown = true;
        }
        model.walks.pop_back();
        if (hasThrown && chance(50)) throw Thrown();
    }
    // The room that the walk must call next, or -1.
    int due(Walk& walk) {
        const std::vector<int>& places = walk.operation == closing ? walk.toClose : model.list;
        while (walk.next < places.size()) {
            const int room = places[walk.next++];
            if (room < 0 || !isAlive[room]) continue;
            if (walk.operation != closing) return room;
            if (model.contains(room) && at(room).isOpen) return room;
        }
        return -1;
    }
    void check(Operation operation, int room) {
        EXPECT_EQ(model.walks.back()->operation, operation);
        EXPECT_EQ(due(*model.walks.back()), room);
    }
    void react() {
        for (int i = 0; i < 3 && reactionsLeft > 0; ++i, --reactionsLeft) step();
        if (chance(10)) throw Thrown();
    }

    std::mt19937 rng;
    Model model;
    alignas(App) unsigned char memory[rooms][sizeof(App)];
    bool isAlive[rooms] = {};
    int reactionsLeft = 0;
};

}  // namespace

TEST(Application, AgreesWithTheList) {
    fxExec::theExecutive();
    Random work;
    for (int step = 0; step < 20000 && !testing::Test::HasFailure(); ++step) work.run();
}

TEST(Application, LoopRunsUntilTheLastOneHasClosed) {
    class App : public fxApplication {
        const char* className() const override { return "App"; }
        void initialize(int, char**) override {}
    } app;
    class Closer : public fxWakeup {
    public:
        void handleRead() override {
            if (++turns == 3) fx_theExecutive->close();
        }
        int turns = 0;
    } closer;
    closer.wake();
    fx_theExecutive->open();
    fx_theExecutive->loop();
    EXPECT_EQ(closer.turns, 3);
    fx_theExecutive->loop();  // turns once without any
    EXPECT_EQ(closer.turns, 4);
    app.close();  // a second time
    EXPECT_FALSE(app.isOpen);
}
