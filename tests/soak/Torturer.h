// The random network: what it consists of, and what is known of it.
#ifndef FXDS_SOAK_TORTURER_H
#define FXDS_SOAK_TORTURER_H

#include <sys/select.h>

#include <deque>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Model.h"
#include "fxds/fxds.h"

// Each step does one thing to the model and the same to the library. What the
// library calls meanwhile is held against the next call of the activity on top
// of the stack, and takes a few steps itself.

namespace soak {

class Torturer;

// What a round has many of: some mechanisms are there for many only. "messages" has
// no other events, and few objects for them; "few" has objects with few channels, and is traced.
enum class Crowd { mixed, messages, connections, timers, few, count };

extern Torturer* torturer;  // what the library's calls come to

constexpr size_t deepest = 5;  // calls of the library within one another
constexpr int tags = 6;
constexpr const char* inputNames[slots] = {"in", "set to the left", "measured at last", "more"};
constexpr const char* outputNames[slots] = {"out", "changed", "done", "tick"};

extern long alive;  // of all that counts itself

struct Counted {
    Counted() { ++alive; }
    ~Counted() { --alive; }
};

// What an input's function is called with; freed as soon as the input must not
// call any more.
struct Ear : Counted {
    explicit Ear(Id input_) : input(input_) {}
    const Id input;
};

// An event of the application's own; bound for an input, it is a message.
struct Notice : fxEvent, Counted {
    Notice(Id input_, fxInputChannel* channel_)
        : fxEvent(channel_ != nullptr ? fxET_MessageEvent : noticeType),
          input(input_),
          channel(channel_) {
        if (channel != nullptr) channel->take();
    }
    ~Notice() override;
    void deliver() override;
    fxInputChannel* getChannel() override { return channel; }
    static constexpr unsigned long noticeType = 99;
    const Id input;
    fxInputChannel* const channel;
    bool acts = false;  // at its end
};

// What everything that the library calls throws now and then, but for ends.
struct Thrown {};

class Torturer {
public:
    explicit Torturer(unsigned int seed);
    ~Torturer() {
        torturer = nullptr;
        fxTrace::enable(0U);
    }

    void run(unsigned long steps);
    void end();
    const std::string& getReport() const { return report; }

    // What the library calls comes here. The first two are false when it was
    // not to come.
    bool isDue(Call::Kind kind, Id who, long value = 0);
    bool call(Call::Kind kind, Id who, long value = 0);
    // As call(); true if the object is still there and did not throw.
    bool callObject(Call::Kind kind, Id who);
    bool judge(const fxEvent* event);
    bool isRefused() { return chance(20); }
    void open(Id application) { model.objects.at(application).isOpen = true; }
    void close(Id application) {
        model.removeApplication(application);
        model.objects.at(application).isOpen = false;
    }
    bool tick(Id timer);
    void repost(Notice* notice);
    int select(int count, fd_set* const (&sets)[3], const timeval& wait);
    bool isOpen(int fd) const;
    void objectDied(Id object) { reallyDied.push_back(object); }
    void thingReleased(Id thing);
    long below(size_t limit) { return static_cast<long>(rng() % limit); }
    void fail(const std::string& what);
    void maybeThrow() {
        if (!report.empty() || !chance(3)) return;
        stack.back()->abandon();
        throw Thrown();
    }

    long clock = 0;

private:
    struct Real {
        fxObj* object;
        bool isOurs;  // whether we hold it
    };

    void note(const char* what, long a = 0, long b = 0, long c = 0);
    bool chance(unsigned int percent) { return rng() % 100 < percent; }
    int slot() { return static_cast<int>(below(slots)); }
    template <class Action>
    void during(Activity& activity, Action action);
    // Of an action that calls nothing.
    template <class Action>
    void during(Action action) {
        Activity nothing(model);
        during(nothing, action);
    }
    void react();
    void settle();

    Id anyObject() { return living[static_cast<size_t>(below(living.size()))]; }
    Id anyObject(Kind kind);
    size_t manyObjects() const { return crowd == Crowd::messages ? 50 : 250; }
    // A name that leads to a channel, if a few tries find one; an output that
    // is connected, or an input that the output may feed, if they find that.
    struct Place {
        Id object;
        int slot;
        Id channel;  // or 0
    };
    template <class Suits>
    Place anyPlace(Side side, Suits suits) {
        Place place{};
        for (int i = 0; i < 8; ++i) {
            place = {anyObject(), slot(), 0};
            place.channel = model.channel(place.object, side, place.slot);
            if (place.channel != 0 && suits(place.channel)) break;
        }
        return place;
    }
    Place anyOutput(bool isConnected) {
        return anyPlace(out, [=](Id output) {
            return !isConnected || !model.outputs.at(output).connections.empty();
        });
    }
    Place anyInput(Id output) {
        return anyPlace(in, [=](Id input) {
            return output == 0 ||
                   isConvertible(model.outputs.at(output).type, model.inputs.at(input).type);
        });
    }

    void step();
    void create();
    void destroy(Id object);
    void changeChannel(Id object, Side side);
    void changeConnection();
    void changeInputsConnections();
    void sendSomething();
    void changeProperty();
    void changeTable();
    void changeApplications();
    void changeTimer();
    void changeHandler();
    void changeFunctions();
    void changeQueue();
    void changeTaken();
    void distribute();
    void removeEvents();
    void letTimePass();
    float seconds();
    void poll();
    void askWhetherBlocked();
    void audit();
    void auditFeeding();
    void auditQueue();
    void auditTimers();
    void auditObject(Id id);
    void auditInput(const fxInputChannel* real, Id input);
    void auditOutput(const fxOutputChannel* real, Id output);
    void require(bool isSo, const char* claim, Id id);

    Model model;
    std::mt19937 rng;
    const Crowd crowd;
    std::vector<Activity*> stack;
    int reactionsLeft = 0;
    unsigned long stepsTaken = 0;
    std::string report;
    std::deque<std::string> trace;  // the last steps

    std::map<Id, Real> objects;
    std::vector<Id> living;
    std::map<Id, fxInputChannel*> inputs;
    std::map<Id, fxOutputChannel*> outputs;
    std::map<Id, std::unique_ptr<Ear>> ears;
    std::vector<std::pair<Event, fxEvent*>> taken;
    std::vector<std::pair<Id, fxProperty*>> heldTables;
    std::map<Id, const void*> graves;  // of applications that are still counted
    std::vector<Id> reallyDied, reallyReleased;
    Id acting = 0;       // the thing whose end acts
    Id actingOwner = 0;  // what it was a property of
    unsigned short firstTag = 0;
};

template <class Action>
void Torturer::during(Activity& activity, Action action) {
    stack.push_back(&activity);
    try {
        action();
    } catch (const Thrown&) {
        note("<- thrown");
    }
    const Call missed = report.empty() ? activity.next() : Call();
    if (missed.kind != Call::none) {
        fail("missed call: " + missed.text());
    }
    stack.pop_back();
    if (report.empty()) settle();
}

/// Makes a few hundred objects and lets them connect, send, tick, serve
/// descriptors and destroy one another, also from inside everything that the
/// library calls, for `steps` random steps. Then destroys them all. Returns an
/// empty text when every call came as the model says and nothing was left
/// alive; else what differed, with the last steps. The same seed and number of
/// steps do the same again.
///
/// Time and descriptors are made up: the program that this is linked into gets
/// a times(), a select() and an fcntl() that serve the torture alone. Nothing
/// sleeps.
std::string torture(unsigned int seed, unsigned long steps);

}  // namespace soak

#endif
