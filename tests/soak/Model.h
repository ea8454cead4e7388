// The expected behaviour of a network of objects, in the simplest form.
#ifndef FXDS_SOAK_MODEL_H
#define FXDS_SOAK_MODEL_H

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

// The model uses nothing of the library: objects, channels, connections, events
// and so on are numbers in plain tables. An operation without callbacks changes the
// tables at once. An operation with callbacks is an activity: it computes the next
// expected call from the tables as they are at that time, so that it includes the
// effects of all calls before.

namespace soak {

typedef long Id;  // 0 means none

template <class Items, class Item>
bool holds(const Items& items, const Item& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

template <class Items, class Item>
void removeFirst(Items& items, const Item& item) {
    const auto found = std::find(items.begin(), items.end(), item);
    if (found != items.end()) items.erase(found);
}

/// One call that the library makes.
struct Call {
    enum Kind {
        none,
        receive,
        deliver,
        judge,
        end,
        tick,
        read,
        write,
        exception,
        function,
        select,
        initialize,
        open,
        close
    };

    Kind kind = none;
    Id who = 0;
    long value = 0;

    std::string text() const {
        return "kind " + std::to_string(kind) + ", who " + std::to_string(who) + ", value " +
               std::to_string(value);
    }
};

enum Mode { queued = 0, now = 1, urgent = 2, cancelOnly = 7 };
enum Kind { plain, timer, handler, application };
enum Side { in, out };
enum : long { noValue = -1 };
enum : unsigned short { voidType = 0, intType = 2, textType = 6 };  // as fxDT_void and so on
constexpr unsigned short types[] = {voidType, intType, textType};

constexpr int slots = 4;  // names for inputs and for outputs; a timer's last output is "tick"
constexpr int tickSlot = slots - 1;
constexpr int maxFd = 200;  // twice as many as the executive's public table has

/// What an input of type `to` hears of a value sent on an output of type `from`.
bool isConvertible(int from, int to);
long converted(int type, long value);

struct Connection {
    Id id;
    Id input;
    Id entry;  // what is called: the input, or a converter of this connection's own
};

struct Output {
    Id object;  // 0: it has begun to end
    int type;
    std::vector<Connection> connections;
};

struct Input {
    Id object;  // 0: it has begun to end, and nothing is called any more
    int type;
    bool replaces;
};

/// The channels of an object on one side, which others may hold and have, too.
struct Table {
    Side side;
    int holders;
    std::array<Id, slots> channels{};
};

struct Event {
    Id id;
    Id input;  // 0 for one of the application's own
    Id entry;  // or, for one of those, the input that it is bound for
    long value;
};

/// What a property holds: an object, or a thing whose release is noted, or
/// neither.
struct Held {
    Id object;
    Id thing;
};

struct Object {
    Kind kind;
    int holders = 1;
    std::array<Id, 2> tables{};  // by side
    std::map<int, Held> properties;
    bool isOpen = false;  // of applications
    // Timers.
    bool repeats = false;
    bool isActive = false;  // as the program sees it, who may also write to it
    float interval = 0;
    float delta = 0;  // behind the timer before it
    // Handlers.
    int fd = -1;
    std::array<bool, 3> wants{};  // read, write, exception
};

typedef std::array<std::array<bool, maxFd>, 3> FdSets;

/// What the executive asks select() for, as of the last look at its handlers.
struct SelectState {
    FdSets sets{};
    std::array<bool, 3> has{};
    int lowest = maxFd;
    int count = 0;
};

/// select() as the executive must call it, and what it answers.
struct Selecting {
    bool asks(int fd) const {
        const auto place = static_cast<size_t>(fd);
        return asked.sets[0][place] || asked.sets[1][place] || asked.sets[2][place];
    }

    SelectState asked;
    double seconds = 0;
    bool isQuestion = false;  // the last call came without the wait, to see what is ready
    int result = 0;
    FdSets ready{};
    float taken = 0;  // the time that it takes
};

class Model;

/// Something under way that makes calls.
class Activity {
public:
    explicit Activity(Model& model_) : model(model_) {}
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;
    virtual ~Activity() = default;
    /// The call that must come now that the one before has returned.
    virtual Call next() { return Call(); }
    /// The last call has thrown: none but the ends of what was under way come now.
    virtual void abandon() {}
    /// The select() that it is about, if it is about one.
    virtual Selecting* getSelecting() { return nullptr; }

protected:
    Model& model;
};

/// A value sent at once: whoever was connected at the start and still is. Then the
/// end of its box, if that acts.
class Delivery : public Activity {
public:
    Delivery(Model& model, Id output, long value, Id box);
    Call next() override;
    void abandon() override { position = served.size(); }

private:
    const Id output;
    const long value;
    Id box;  // 0: none that acts, or its end has come
    std::vector<Connection> served;
    size_t position = 0;
};

/// As many events as wait at the start, each time the first of the queue.
class Distribution : public Activity {
public:
    explicit Distribution(Model& model);
    Call next() override;
    void abandon() override { remaining = 0; }

private:
    size_t remaining;
};

/// One call at most, of what is found out when it must come.
class Once : public Activity {
public:
    Once(Model& model_, std::function<Call()> find_) : Activity(model_), find(std::move(find_)) {}
    Call next() override {
        const auto found = std::exchange(find, nullptr);
        return found != nullptr ? found() : Call();
    }

private:
    std::function<Call()> find;
};

/// A walk over the queue that asks about each event and removes it if told so.
class Removal : public Activity {
public:
    explicit Removal(Model& model);
    ~Removal() override;
    Call next() override;
    void abandon() override { current = following = 0; }
    void leaves(Id event, Id successor);

    bool verdict = false;  // of the last call

private:
    Id current = 0;
    Id following;
};

/// Time that passes: what is due ticks, and what repeats starts again at the end.
class Pass : public Activity {
public:
    Pass(Model& model, float seconds);
    ~Pass() override { abandon(); }
    Call next() override;
    void abandon() override;
    void withdraw(Id timer);

    float remaining;
    std::vector<Id> held;  // they were started in it, and wait for its end

private:
    void endTick();

    bool isOver = false;
    Id ticking = 0;
    std::vector<Id> again;
};

/// Whether a descriptor is ready, found out without waiting.
class Asking : public Activity {
public:
    using Activity::Activity;
    Call next() override;
    Selecting* getSelecting() override { return &selecting; }
    bool blocks() const { return isDone && selecting.asked.count > 0 && selecting.result == 0; }

private:
    Selecting selecting;
    bool isDone = false;
};

/// One turn of the loop.
class Poll : public Activity {
public:
    Poll(Model& model_, double seconds_) : Activity(model_), seconds(seconds_) {}
    Call next() override;
    void abandon() override;
    Selecting* getSelecting() override { return &selecting; }

private:
    enum Phase { looking, waiting, timing, handling, finishing, distributing, done };
    void chooseWait();
    bool advance(Call& call);

    Selecting selecting;
    Phase phase = looking;
    const double seconds;
    std::unique_ptr<Activity> part;
    bool hasTimer = false;
    bool isShortened = false;
    float headWait = 0;
};

/// A call to all applications: those that come meanwhile, too.
class Opening : public Activity {
public:
    Opening(Model& model, Call::Kind kind);
    ~Opening() override;
    Call next() override;
    void abandon() override { position = static_cast<size_t>(-1); }

    size_t position = 0;

private:
    const Call::Kind kind;
};

/// A call to the applications that are open at the start, each once.
class Closing : public Activity {
public:
    explicit Closing(Model& model);
    Call next() override;
    void abandon() override { remaining.clear(); }

private:
    std::vector<Id> remaining;  // the next one last
};

class Model {
public:
    Id newId() { return ++lastId; }

    Id addObject(const Object& object);
    /// Lets go of the object; it dies with its last holder, and with it what
    /// it holds.
    void release(Id object);
    void setProperty(Id object, int tag, Held held);
    void removeProperty(Id object, int tag);
    void removeAllProperties(Id object);

    /// The channel that an object has under a name, or 0.
    Id channel(Id object, Side side, int slot) const;
    void takeTable(Id table) { ++tables.at(table).holders; }
    void dropTable(Id table);
    void setTable(Id object, Side side, Id table);

    Id addInput(Id object, int slot, int type, bool replaces);
    Id addOutput(Id object, int slot, int type);
    void removeChannel(Id object, Side side, int slot);
    void connect(Id output, Id input);
    bool isConnected(Id output, Id input) const;
    void disconnect(Id output, Id input);
    void disconnectAll(Id input);
    void flush(Id input);

    /// Every mode but `now`, which calls: see Delivery.
    void send(Id output, long value, Mode mode);
    void cancel(Id entry);
    void post(const Event& event, bool isUrgent);
    Event take(size_t position);
    /// What becomes of an event that is delivered: a call, or none.
    Call deliver(const Event& event);
    void forget(const Event& event);
    void removeMessages(Id entry);

    void addApplication(Id application) { applications.push_back(application); }
    void removeApplication(Id application);
    bool isApplication(Id id) const;

    void start(Id timer);
    void stop(Id timer);
    void unlink(Id timer);

    void addHandler(Id handler);
    void removeHandler(Id handler);
    void lookAtHandlers();
    /// Whether select() cannot but fail.
    bool asksForClosed(const Selecting& selecting) const;

    std::map<Id, Object> objects;
    std::map<Id, Output> outputs;
    std::map<Id, Input> inputs;
    std::map<Id, Table> tables;
    std::map<Id, Id> pending;  // entry to event
    std::vector<Event> queue;
    std::vector<Removal*> removals;
    std::vector<Id> active;  // timers that are started, the first to be due first
    std::vector<Pass*> passes;
    std::array<Id, maxFd> handlers{};
    std::array<bool, maxFd> isClosed{};  // behind the executive's back
    std::set<int> leftOut;               // found closed by a failed select()
    bool isDirty = false;
    SelectState selectState;
    std::vector<int> preFunctions, postFunctions;
    std::vector<Id> applications;  // with repetitions, and some that are no more
    std::vector<Opening*> openings;
    Id ending = 0;  // the event that was delivered last, whose end acts

    // What the last operations ended.
    std::vector<Id> died;      // objects
    std::vector<Id> released;  // things, in order
    std::vector<Id> ended;     // channels
    std::vector<Id> silenced;  // inputs

    Id lastEvent = 0;  // events are numbered for themselves, as the library does

private:
    size_t positionOf(Id event) const;
    void discardMessages(Id input);
    void endChannel(Side side, Id channel);
    Id& place(Id object, Side side, int slot);
    void letGo(const Held& held);

    void takeOut(Id timer);

    Id lastId = 0;
};

}  // namespace soak

#endif
