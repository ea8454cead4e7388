#include "Torture.h"

#include <sys/select.h>
#include <sys/times.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <utility>

#include "Model.h"
#include "fxds/fxds.h"

// Each step does one thing to the model and the same to the library. What the
// library calls meanwhile is held against the next call of the activity on top
// of the stack, and takes a few steps itself.

namespace soak {

namespace {

class Torturer;
Torturer* torturer = nullptr;  // what the library's calls come to

constexpr size_t manyObjects = 250;
constexpr size_t manyEvents = 300;
constexpr size_t manyConnections = 8;
constexpr size_t deepest = 5;
constexpr int reactions = 40;  // steps inside calls that one outermost step may lead to
constexpr int tags = 6;
constexpr int functionCount = 4;
constexpr long ticksPerUnit = 25;  // of times(), which has 100 in a second
constexpr size_t traceLength = 60;

long alive = 0;  // of all that counts itself

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

template <class Data>
struct Boxed : Data, Counted {
    using Data::Data;
};

struct Plain : fxObj {
    explicit Plain(const Object&) {}
    virtual Id getId() const = 0;
};

struct Ticking : fxTimer {
    explicit Ticking(const Object& object) : fxTimer(object.repeats) {}
    void tick() override;
    virtual Id getId() const = 0;
};

struct Handling : fxSelectHandler {
    explicit Handling(const Object& object)
        : fxSelectHandler(object.fd, object.wants[0], object.wants[1], object.wants[2]) {}
    ~Handling() override { fd = -1; }  // which was none
    const char* className() const override { return "Handling"; }
    void handleRead() override { handle(Call::read); }
    void handleWrite() override { handle(Call::write); }
    void handleException() override { handle(Call::exception); }
    void handle(Call::Kind kind);
    virtual Id getId() const = 0;
};

template <class Base>
struct Subject final : Base, Counted {
    Subject(Id id_, const Object& object) : Base(object), id(id_) {}
    ~Subject() override;
    Id getId() const override { return id; }
    const Id id;
};

struct Notice : fxEvent, Counted {
    Notice() : fxEvent(noticeType) {}
    void deliver() override;
    static constexpr unsigned long noticeType = 99;
};

long number(unsigned char value) { return value; }
long number(int value) { return value; }
long number(long value) { return value; }
long number(float value) { return static_cast<long>(value); }
long number(double value) { return static_cast<long>(value); }
long number(char* value) { return std::strtol(value, nullptr, 10); }
long number(fxStr& value) { return std::strtol(value.c_str(), nullptr, 10); }

class Torturer {
public:
    explicit Torturer(unsigned int seed);
    ~Torturer() { torturer = nullptr; }

    void run(unsigned long steps);
    void end();
    const std::string& getReport() const { return report; }

    // What the library calls comes here. The first two are false when it was
    // not to come.
    bool isDue(Call::Kind kind, Id who, long value = 0);
    bool call(Call::Kind kind, Id who, long value = 0);
    bool judge(const fxEvent* event);
    bool tick(Id timer);
    void repost(Notice* notice);
    int select(int count, fd_set* const (&sets)[3], const timeval& wait);
    void objectDied(Id object) { reallyDied.push_back(object); }
    void thingReleased(void* thing) { reallyReleased.push_back(reinterpret_cast<Id>(thing)); }

    long clock = 0;

private:
    struct Step {
        size_t depth;
        const char* what;
        long a, b, c;
    };
    struct Real {
        fxObj* object;
        bool isOurs;  // whether we hold it
    };

    void fail(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void note(const char* what, long a = 0, long b = 0, long c = 0);
    bool chance(unsigned int percent) { return rng() % 100 < percent; }
    long below(size_t limit) { return static_cast<long>(rng() % limit); }
    int slot() { return static_cast<int>(below(slots)); }
    template <class Action>
    void during(Activity& activity, Action action);
    void react();
    void settle();

    Id anyObject() { return living[static_cast<size_t>(below(living.size()))]; }
    Id anyObject(Kind kind);
    // A name that leads to a channel, if a few tries find one; an output that
    // is connected, or an input that the output may feed, if they find that.
    struct Place {
        Id object;
        int slot;
        Id channel;  // or 0
    };
    Place anyOutput(bool isConnected);
    Place anyInput(Id output);

    void step();
    void create();
    void destroy(Id object);
    void changeInput(Id object);
    void changeOutput(Id object);
    void changeConnection();
    void changeInputsConnections();
    void sendSomething();
    void reallySend(fxOutputChannel* output, int type, long value, Mode mode, bool isBoxed);
    void changeProperty();
    void changeTimer();
    void changeHandler();
    void changeFunctions();
    void changeQueue();
    void changeTaken();
    void distribute();
    void removeEvents();
    void letTimePass();
    void poll();
    void askWhetherBlocked();
    void audit();
    void auditQueue();
    void auditTimers();
    void auditObject(Id id);

    Model model;
    std::mt19937 rng;
    std::vector<Activity*> stack;
    int reactionsLeft = 0;
    unsigned long stepsTaken = 0;
    std::string report;
    Step trace[traceLength] = {};
    size_t noted = 0;

    std::map<Id, Real> objects;
    std::vector<Id> living;
    std::map<Id, fxInputChannel*> inputs;
    std::map<Id, fxOutputChannel*> outputs;
    std::map<Id, std::unique_ptr<Ear>> ears;
    std::vector<std::pair<Event, fxEvent*>> taken;
    std::vector<Id> reallyDied, reallyReleased;
    unsigned short firstTag = 0;
};

// Calls of the library.

void Ticking::tick() {
    if (torturer->tick(getId())) fxTimer::tick();
}

void Handling::handle(Call::Kind kind) { torturer->call(kind, getId()); }

template <class Base>
Subject<Base>::~Subject() {
    torturer->objectDied(id);
}

void Notice::deliver() {
    if (!torturer->isDue(Call::deliver, static_cast<Id>(getSequence()))) return;
    torturer->repost(this);  // which may be the end of this notice
}

template <class T>
void hear(void* closure, T value) {
    torturer->call(Call::receive, static_cast<Ear*>(closure)->input, number(value));
}

void hearVoid(void* closure) {
    torturer->call(Call::receive, static_cast<Ear*>(closure)->input, noValue);
}

template <class T>
void (*hearer())() {
    return reinterpret_cast<void (*)()>(hear<T>);
}

template <int number>
void function() {
    torturer->call(Call::function, number);
}

void (*const functions[functionCount])() = {function<1>, function<2>, function<3>, function<4>};

unsigned char judgeEvent(fxEvent* event, void*) { return torturer->judge(event); }

void releaseThing(void* thing) { torturer->thingReleased(thing); }

// Bookkeeping.

Torturer::Torturer(unsigned int seed) : rng(seed) {
    torturer = this;
    fxInitializeToolkit();
    static const unsigned short tag = [] {
        const unsigned short first = fxProperty::allocNewTag("soak");
        for (int i = 1; i < tags; ++i) fxProperty::allocNewTag("soak more");
        return first;
    }();
    firstTag = tag;
    model.lastEvent = static_cast<Id>(fxEvent::nextSequenceNumber);
}

void Torturer::fail(const char* format, ...) {
    if (!report.empty()) return;
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    report = "step " + std::to_string(stepsTaken) + ": " + text + "\nThe last steps:\n";
    for (size_t i = noted > traceLength ? noted - traceLength : 0; i < noted; ++i) {
        const Step& one = trace[i % traceLength];
        std::snprintf(text, sizeof text, "%*s%s %ld %ld %ld\n", static_cast<int>(2 * one.depth + 2),
                      "", one.what, one.a, one.b, one.c);
        report += text;
    }
}

void Torturer::note(const char* what, long a, long b, long c) {
    trace[noted++ % traceLength] = {stack.size(), what, a, b, c};
}

template <class Action>
void Torturer::during(Activity& activity, Action action) {
    stack.push_back(&activity);
    action();
    const Call missed = report.empty() ? activity.next() : Call();
    if (missed.kind != Call::none) {
        fail("missed call: kind %d, who %ld, value %ld", missed.kind, missed.who, missed.value);
    }
    stack.pop_back();
    if (report.empty()) settle();
}

void Torturer::settle() {
    std::sort(model.died.begin(), model.died.end());
    std::sort(reallyDied.begin(), reallyDied.end());
    if (model.died != reallyDied) fail("other objects died than should have");
    if (model.released != reallyReleased) fail("properties were not released in order");
    for (const Id id : std::exchange(model.died, {})) {
        objects.erase(id);
        living.erase(std::find(living.begin(), living.end(), id));
    }
    for (const Id id : std::exchange(model.ended, {})) {
        inputs.erase(id);
        outputs.erase(id);
        ears.erase(id);
    }
    model.released.clear();
    reallyDied.clear();
    reallyReleased.clear();
}

bool Torturer::isDue(Call::Kind kind, Id who, long value) {
    if (!report.empty()) return false;
    note("<- called: kind, who, value", kind, who, value);
    const Call due = stack.empty() ? Call() : stack.back()->next();
    if (due.kind == kind && due.who == who && due.value == value) return true;
    fail("called: kind %d, who %ld, value %ld; due: kind %d, who %ld, value %ld", kind, who, value,
         due.kind, due.who, due.value);
    return false;
}

bool Torturer::call(Call::Kind kind, Id who, long value) {
    if (!isDue(kind, who, value)) return false;
    react();
    return report.empty();
}

void Torturer::react() {
    const long count = below(3);
    for (long i = 0; i < count && stack.size() < deepest && reactionsLeft > 0; ++i) {
        --reactionsLeft;
        step();
    }
}

bool Torturer::judge(const fxEvent* event) {
    Activity* const removal = stack.back();
    if (!call(Call::judge, static_cast<Id>(event->getSequence()))) return false;
    return static_cast<Removal*>(removal)->verdict = chance(30);
}

bool Torturer::tick(Id timer) {
    if (!call(Call::tick, timer) || model.objects.count(timer) == 0 || chance(30)) return false;
    const Id output = model.objects.at(timer).outputs[tickSlot];
    if (output != 0 && model.outputs.at(output).type == 0) model.send(output, noValue, queued);
    return true;
}

void Torturer::repost(Notice* notice) {
    if (chance(50)) {
        const bool isUrgent = chance(50);
        model.post({static_cast<Id>(notice->getSequence()), 0, 0, 0}, isUrgent);
        fx_theEventHandler->postEvent(notice, isUrgent);
    }
    react();
}

int Torturer::select(int count, fd_set* const (&sets)[3], const timeval& wait) {
    if (!isDue(Call::select, 0)) return -1;
    Selecting& selecting = *stack.back()->getSelecting();
    const auto micros = static_cast<long>(selecting.seconds * 1e6);
    if (count != selecting.asked.count || wait.tv_sec * 1000000 + wait.tv_usec != micros) {
        fail("select() of %d for %ld.%06ld s", count, wait.tv_sec, wait.tv_usec);
    }
    selecting.units = below(10);
    clock += selecting.units * ticksPerUnit;
    const bool fails = chance(10);
    for (size_t i = 0; i < 3; ++i) {
        if ((sets[i] != nullptr) != selecting.asked.has[i]) fail("select() of other conditions");
        for (int fd = 0; sets[i] != nullptr && fd < count; ++fd) {
            const bool isAsked = selecting.asked.sets[i][static_cast<size_t>(fd)];
            if (isAsked != (FD_ISSET(fd, sets[i]) != 0)) fail("select() of other descriptors");
            if (!isAsked || fails) continue;
            const bool isReady = chance(40);
            selecting.ready[i][static_cast<size_t>(fd)] = isReady;
            if (!isReady) FD_CLR(fd, sets[i]);
            selecting.result += isReady;
        }
    }
    if (fails) {
        errno = chance(50) ? EINTR : EBADF;
        selecting.result = -1;
    }
    return selecting.result;
}

Id Torturer::anyObject(Kind kind) {
    for (int i = 0; i < 20; ++i) {
        const Id id = anyObject();
        if (model.objects.at(id).kind == kind) return id;
    }
    return 0;
}

Torturer::Place Torturer::anyOutput(bool isConnected) {
    Place place{};
    for (int i = 0; i < 8; ++i) {
        place = {anyObject(), slot(), 0};
        place.channel = model.objects.at(place.object).outputs[static_cast<size_t>(place.slot)];
        if (place.channel == 0) continue;
        if (!isConnected || !model.outputs.at(place.channel).connections.empty()) break;
    }
    return place;
}

Torturer::Place Torturer::anyInput(Id output) {
    Place place{};
    for (int i = 0; i < 8; ++i) {
        place = {anyObject(), slot(), 0};
        place.channel = model.objects.at(place.object).inputs[static_cast<size_t>(place.slot)];
        if (place.channel == 0) continue;
        if (output == 0) break;
        if (isConvertible(model.outputs.at(output).type, model.inputs.at(place.channel).type))
            break;
    }
    return place;
}

// Steps.

constexpr const char* inputNames[slots] = {"in", "set", "clear", "more"};
constexpr const char* outputNames[slots] = {"out", "changed", "done", "tick"};

void Torturer::run(unsigned long steps) {
    while (stepsTaken < steps && report.empty()) {
        reactionsLeft = reactions;
        const unsigned long before = stepsTaken;
        step();
        if (report.empty() && stepsTaken / 256 != before / 256) audit();
    }
}

void Torturer::step() {
    if (!report.empty()) return;
    ++stepsTaken;
    if (living.size() < 20 || (living.size() < manyObjects && chance(6))) return create();
    if (model.queue.size() > manyEvents && chance(30)) return distribute();
    const long kind = below(100);
    if (kind < 4) return destroy(anyObject());
    if (kind < 9) return changeInput(anyObject());
    if (kind < 14) return changeOutput(anyObject());
    if (kind < 40) return changeConnection();
    if (kind < 43) return changeInputsConnections();
    if (kind < 69) return sendSomething();
    if (kind < 75) return changeProperty();
    if (kind < 80) return changeTimer();
    if (kind < 85) return changeHandler();
    if (kind < 87) return changeFunctions();
    if (kind < 93) return changeQueue();
    if (kind < 95) return distribute();
    if (kind < 96) return removeEvents();
    if (kind < 97) return letTimePass();
    if (kind < 99) return poll();
    return askWhetherBlocked();
}

void Torturer::create() {
    Object object;
    object.kind = static_cast<Kind>(below(3));
    object.repeats = object.kind == timer && chance(50);
    if (object.kind == handler) {
        object.fd = static_cast<int>(below(maxFd));
        for (bool& wants : object.wants) wants = chance(60);
    }
    const Id id = model.addObject(object);
    note("create: object, kind", id, object.kind);
    fxObj* real = nullptr;
    if (object.kind == timer) {
        auto* made = new Subject<Ticking>(id, object);
        real = made;
        outputs[model.addOutput(id, tickSlot, 0)] = made->tickOutput;
    } else if (object.kind == handler) {
        real = new Subject<Handling>(id, object);
    } else {
        real = new Subject<Plain>(id, object);
    }
    real->take();
    objects[id] = {real, true};
    living.push_back(id);
    for (int i = 0; i < slots; ++i) {
        changeInput(id);
        changeOutput(id);
    }
}

// Only what we still hold; the rest goes with whoever has it as a property.
void Torturer::destroy(Id id) {
    Real& real = objects.at(id);
    if (!std::exchange(real.isOurs, false)) return;
    note("destroy: object", id);
    fxObj* const object = real.object;
    Activity nothing(model);
    model.release(id);
    during(nothing, [&] { object->release(); });
}

void Torturer::changeInput(Id id) {
    static void (*const hearers[dataTypes])() = {reinterpret_cast<void (*)()>(hearVoid),
                                                 hearer<unsigned char>(),
                                                 hearer<int>(),
                                                 hearer<long>(),
                                                 hearer<float>(),
                                                 hearer<double>(),
                                                 hearer<char*>(),
                                                 hearer<fxStr&>()};
    fxObj& object = *objects.at(id).object;
    const int place = slot();
    Activity nothing(model);
    if (chance(30)) {
        note("remove input: object, slot", id, place);
        model.removeInput(id, place);
        during(nothing, [&] { object.removeInput(inputNames[place]); });
        return;
    }
    const auto type = static_cast<unsigned short>(below(dataTypes));
    const bool replaces = chance(40);
    const Id input = model.addInput(id, place, type, replaces);
    note("add input: object, slot, input", id, place, input);
    ears[input] = std::make_unique<Ear>(input);
    during(nothing, [&] {
        inputs[input] = object.addInput(inputNames[place], type, ears[input].get(), hearers[type],
                                        replaces ? 3 : 2);
    });
}

void Torturer::changeOutput(Id id) {
    fxObj& object = *objects.at(id).object;
    const int place = slot();
    Activity nothing(model);
    if (chance(30)) {
        note("remove output: object, slot", id, place);
        model.removeOutput(id, place);
        during(nothing, [&] { object.removeOutput(outputNames[place]); });
        return;
    }
    const int type = place == tickSlot && chance(70) ? 0 : static_cast<int>(below(dataTypes));
    const Id output = model.addOutput(id, place, type);
    note("add output: object, slot, output", id, place, output);
    during(nothing, [&] {
        outputs[output] = object.addOutput(outputNames[place], static_cast<unsigned short>(type));
    });
}

void Torturer::changeConnection() {
    const Place from = anyOutput(false);
    const Place to = anyInput(from.channel);
    const Id output = from.channel;
    const Id input = to.channel;
    const bool areThere = output != 0 && input != 0;
    const bool connects = chance(80);
    if (connects && areThere) {
        const Output& sender = model.outputs.at(output);
        if (sender.connections.size() >= manyConnections) return;
        if (!isConvertible(sender.type, model.inputs.at(input).type)) return;
    }
    fxObj* const sender = objects.at(from.object).object;
    fxObj* const receiver = objects.at(to.object).object;
    const char* const outputName = outputNames[from.slot];
    const char* const inputName = inputNames[to.slot];
    Activity nothing(model);
    note(connects ? "connect: output, input" : "disconnect: output, input", output, input);
    if (!connects) {
        if (areThere) model.disconnect(output, input);
        during(nothing, [&] { sender->disconnect(outputName, receiver, inputName); });
    } else if (areThere && chance(10)) {  // maybe twice
        model.connect(output, input);
        during(nothing, [&] { outputs.at(output)->add(inputs.at(input)); });
    } else {
        if (areThere && !model.isConnected(output, input)) model.connect(output, input);
        during(nothing, [&] { sender->connect(outputName, receiver, inputName); });
    }
}

void Torturer::changeInputsConnections() {
    const Id input = anyInput(0).channel;
    if (input == 0) return;
    fxInputChannel* const real = inputs.at(input);
    Activity nothing(model);
    const long kind = below(3);
    note("0 flush, 1 disconnect, 2 remove messages: kind, input", kind, input);
    if (kind == 0) {
        model.flush(input);
        during(nothing, [&] { real->flush(); });
    } else if (kind == 1) {
        model.disconnectAll(input);
        during(nothing, [&] { real->disconnect(); });
    } else {
        model.removeMessages(input);
        during(nothing, [&] { fx_theEventHandler->removeMessageEvents(real); });
    }
}

void Torturer::sendSomething() {
    const Id output = anyOutput(true).channel;
    if (output == 0) return;
    static const Mode modes[] = {queued, queued, now, now, now, urgent, urgent, cancelOnly};
    const Mode mode = modes[below(8)];
    const int type = model.outputs.at(output).type;
    const long value = converted(type, below(100000));
    const bool isBoxed = chance(40);
    fxOutputChannel* const real = outputs.at(output);
    note("send: output, value, mode", output, value, mode);
    const auto send = [&] { reallySend(real, type, value, mode, isBoxed); };
    if (mode == now) {
        Delivery delivery(model, output, value);
        during(delivery, send);
    } else {
        model.send(output, value, mode);
        Activity nothing(model);
        during(nothing, send);
    }
}

fxData* box(int type, long value) {
    const std::string text = std::to_string(value);
    if (type == fxDT_void) return new Boxed<fxVoidData>();
    if (type == fxDT_fxBool) return new Boxed<fxBoolData>(static_cast<unsigned char>(value));
    if (type == fxDT_int) return new Boxed<fxIntData>(static_cast<int>(value));
    if (type == fxDT_long) return new Boxed<fxLongData>(value);
    if (type == fxDT_float) return new Boxed<fxFloatData>(static_cast<float>(value));
    if (type == fxDT_double) return new Boxed<fxDoubleData>(static_cast<double>(value));
    if (type == fxDT_CharPtr) return new Boxed<fxCharPtrData>(fxCopyCharPtr(text.c_str()));
    return new Boxed<fxStrData>(fxStr(text.c_str()));
}

void Torturer::reallySend(fxOutputChannel* output, int type, long value, Mode mode, bool isBoxed) {
    const auto how = static_cast<fxObj::fxSendFlags>(mode);
    if (isBoxed) {
        fxData* const data = box(type, value);
        const bool isLeft = mode == cancelOnly && output->getNumberOfConnections() > 0;
        fxObj::sendData(output, data, how);
        if (isLeft) delete data;
        return;
    }
    const std::string text = std::to_string(value);
    if (type == fxDT_void) fxObj::sendVoid(output, how);
    if (type == fxDT_fxBool) fxObj::sendBool(output, static_cast<unsigned char>(value), how);
    if (type == fxDT_int) fxObj::sendInt(output, static_cast<int>(value), how);
    if (type == fxDT_long) fxObj::sendLong(output, value, how);
    if (type == fxDT_float) fxObj::sendFloat(output, static_cast<float>(value), how);
    if (type == fxDT_double) fxObj::sendDouble(output, static_cast<double>(value), how);
    if (type == fxDT_CharPtr) fxObj::sendCharPtr(output, text.c_str(), how);
    if (type == fxDT_fxStr) fxObj::sendStr(output, fxStr(text.c_str()), how);
}

// Objects hold only younger ones, so that holding makes no circles.
void Torturer::changeProperty() {
    const Id id = anyObject();
    fxObj& object = *objects.at(id).object;
    const int place = static_cast<int>(below(tags));
    const auto tag = static_cast<unsigned short>(firstTag + place);
    Activity nothing(model);
    const long kind = below(20);
    note("change property: object, tag, kind", id, place, kind);
    if (kind == 0) {
        model.removeAllProperties(id);
        during(nothing, [&] { object.removeAllProperties(); });
        return;
    }
    if (kind < 6) {
        model.removeProperty(id, place);
        during(nothing, [&] { object.removeProperty(tag); });
        return;
    }
    Held held{0, 0};
    fxProperty* property = nullptr;
    if (kind < 9) {
        property = new fxProperty(tag, kind);
    } else if (kind < 12) {
        property = new fxProperty(tag, box(fxDT_int, kind));
    } else if (kind < 16) {
        held.thing = model.newId();
        property = new fxProperty(tag, reinterpret_cast<void*>(held.thing), releaseThing);
    } else {
        held.object = anyObject();
        if (held.object <= id) return;
        property = new fxProperty(tag, objects.at(held.object).object);
    }
    model.setProperty(id, place, held);
    during(nothing, [&] { object.setProperty(property); });
}

void Torturer::changeTimer() {
    const Id id = anyObject(timer);
    if (id == 0) return;
    auto& real = static_cast<fxTimer&>(*objects.at(id).object);
    const bool starts = chance(80);
    note(starts ? "start: timer" : "stop: timer", id);
    if (starts) {
        Object& object = model.objects.at(id);
        object.interval = chance(20) ? 0 : below(40);
        real.setInterval(static_cast<float>(object.interval) / perSecond);
        model.start(id);
        real.startTimer();
    } else {
        model.stop(id);
        real.stopTimer();
    }
}

void Torturer::changeHandler() {
    const Id id = anyObject(handler);
    if (id == 0) return;
    auto* const real = static_cast<fxSelectHandler*>(objects.at(id).object);
    const bool adds = chance(75);
    note(adds ? "add handler: object, fd" : "remove handler: object, fd", id, real->getFd());
    if (adds) {
        model.addHandler(id);
        fx_theExecutive->addSelectHandler(real);
    } else {
        model.removeHandler(id);
        fx_theExecutive->removeSelectHandler(real);
    }
}

void Torturer::changeFunctions() {
    const auto place = static_cast<int>(below(functionCount));
    const bool isPre = chance(50);
    auto& list = isPre ? model.preFunctions : model.postFunctions;
    const bool adds = list.size() < 4 && chance(60);
    note(adds ? "add function: number, pre" : "remove function: number, pre", place + 1, isPre);
    if (adds) {
        list.push_back(place + 1);
        isPre ? fx_theExecutive->addPreSelectFunc(functions[place])
              : fx_theExecutive->addPostSelectFunc(functions[place]);
    } else {
        const auto found = std::find(list.begin(), list.end(), place + 1);
        if (found != list.end()) list.erase(found);
        isPre ? fx_theExecutive->removePreSelectFunc(functions[place])
              : fx_theExecutive->removePostSelectFunc(functions[place]);
    }
}

void Torturer::changeQueue() {
    if (taken.size() > 4 || (!taken.empty() && chance(30))) return changeTaken();
    if (chance(40)) {
        auto* const notice = new Notice;
        const Event event{++model.lastEvent, 0, 0, 0};
        const bool isUrgent = chance(50);
        note("post: event, urgently", event.id, isUrgent);
        model.post(event, isUrgent);
        fx_theEventHandler->postEvent(notice, isUrgent);
    } else if (!model.queue.empty()) {
        const Event event = model.take(0);
        note("take: event", event.id);
        taken.emplace_back(event, fx_theEventHandler->get());
        if (taken.back().second->getSequence() != static_cast<unsigned long>(event.id)) {
            fail("another event was at the front");
        }
    }
}

// Something becomes of an event that was taken out of the queue.
void Torturer::changeTaken() {
    const auto [event, real] = taken.back();
    taken.pop_back();
    const long kind = below(4);
    note("taken: event, kind", event.id, kind);
    if (kind < 2) {
        model.post(event, kind == 1);
        fx_theEventHandler->postEvent(real, kind == 1);
        return;
    }
    if (kind == 2 && event.input != 0) {
        HandDelivery delivery(model, event);
        fxEvent* const delivered = real;
        during(delivery, [&] { delivered->deliver(); });
    }
    model.forget(event);
    delete real;
}

void Torturer::distribute() {
    note("distribute", static_cast<long>(model.queue.size()));
    Distribution distribution(model);
    during(distribution, [] { fx_theEventHandler->distributeEvents(); });
}

void Torturer::removeEvents() {
    note("remove events", static_cast<long>(model.queue.size()));
    Removal removal(model);
    during(removal, [] { fx_theEventHandler->removeEvents(judgeEvent, nullptr); });
}

void Torturer::letTimePass() {
    const long units = below(20);
    note("let time pass", units);
    Pass pass(model, units);
    during(pass, [&] { fxTimer::alarm(static_cast<float>(units) / perSecond); });
}

void Torturer::poll() {
    static const double waits[] = {0, 0.25, 1.5, 7, 1000};
    const double seconds = waits[below(5)];
    note("poll", static_cast<long>(seconds * perSecond));
    Poll turn(model, seconds);
    during(turn, [&] { fx_theExecutive->poll(static_cast<float>(seconds)); });
}

void Torturer::askWhetherBlocked() {
    note("will it block");
    Asking asking(model);
    bool blocks = false;
    during(asking, [&] { blocks = fx_theExecutive->willBlock(); });
    if (blocks != asking.blocks()) fail("willBlock() is %d", blocks);
}

// What can be seen from outside, compared as a whole.

void Torturer::audit() {
    auditQueue();
    auditTimers();
    for (size_t fd = 0; fd < maxFd; ++fd) {
        const Id id = model.handlers[fd];
        const fxObj* due = id != 0 ? objects.at(id).object : nullptr;
        if (fx_theExecutive->handlers[fd] != due) fail("descriptor %zu has another handler", fd);
    }
    for (const Id id : living) auditObject(id);
}

void Torturer::auditQueue() {
    if (fx_theEventHandler->getCount() != model.queue.size()) fail("another number of events");
    const fxEvent* real = fx_theEventHandler->getHead();
    for (const Event& event : model.queue) {
        if (real == nullptr || real->getSequence() != static_cast<unsigned long>(event.id)) {
            return fail("event %ld is not where it should be", event.id);
        }
        real = real->getNext();
    }
    if (real != nullptr) fail("more events than there should be");
}

void Torturer::auditTimers() {
    const fxTimer* real = fxTimer::activeTimers;
    float wait = 0;
    for (const Id id : model.active) {
        if (real == nullptr || real != objects.at(id).object) {
            return fail("timer %ld is not where it should be", id);
        }
        wait += real->delta;
        const long due = std::max(0L, model.objects.at(id).due - model.time);
        if (wait * perSecond != static_cast<float>(due)) {
            fail("timer %ld is due in %g s", id, static_cast<double>(wait));
        }
        real = real->next;
    }
    if (real != nullptr) fail("more timers are active than there should be");
}

void Torturer::auditObject(Id id) {
    const Object& object = model.objects.at(id);
    fxObj& real = *objects.at(id).object;
    const size_t count = object.properties.size() + object.hasInputs + object.hasOutputs;
    if (real.getNumberOfProperties() != count) fail("object %ld has other properties", id);
    if (real.refCount != static_cast<unsigned long>(object.holders)) {
        fail("object %ld has %lu holders", id, real.refCount);
    }
    for (const auto& [tag, held] : object.properties) {
        if (real.findProperty(static_cast<unsigned short>(firstTag + tag)) == nullptr) {
            fail("object %ld lacks property %d", id, tag);
        }
    }
    for (size_t place = 0; place < slots; ++place) {
        const Id input = object.inputs[place];
        const Id output = object.outputs[place];
        fxInputChannel* const realInput = real.getInput(inputNames[place]);
        if (realInput != (input != 0 ? inputs.at(input) : nullptr)) {
            fail("object %ld has another input %zu", id, place);
        }
        const auto waiting = model.pending.find(input);
        const Id due = waiting != model.pending.end() ? waiting->second : 0;
        if (realInput != nullptr &&
            static_cast<Id>(realInput->pending ? realInput->pending->getSequence() : 0) != due) {
            fail("another event than %ld is pending for input %ld", due, input);
        }
        fxOutputChannel* const realOutput = real.getOutput(outputNames[place]);
        if (realOutput != (output != 0 ? outputs.at(output) : nullptr)) {
            fail("object %ld has another output %zu", id, place);
        }
        if (output == 0 || !report.empty()) continue;
        const auto& connections = model.outputs.at(output).connections;
        if (realOutput->getNumberOfConnections() != connections.size()) {
            return fail("output %ld has other connections", output);
        }
        for (unsigned int i = 0; i < connections.size(); ++i) {
            if ((*realOutput)[i]->target() != inputs.at(connections[i].input)) {
                fail("output %ld has another connection %u", output, i);
            }
        }
    }
}

// Destroys everything and looks whether anything is left.
void Torturer::end() {
    if (!report.empty()) return;
    while (!taken.empty()) {
        model.forget(taken.back().first);
        delete taken.back().second;
        taken.pop_back();
    }
    for (const int function : std::exchange(model.preFunctions, {})) {
        fx_theExecutive->removePreSelectFunc(functions[function - 1]);
    }
    for (const int function : std::exchange(model.postFunctions, {})) {
        fx_theExecutive->removePostSelectFunc(functions[function - 1]);
    }
    for (const Id id : std::vector<Id>(living)) {
        if (objects.count(id) != 0) destroy(id);
    }
    audit();
    if (!living.empty()) fail("%zu objects outlived their holders", living.size());
    while (fxEvent* event = fx_theEventHandler->get()) delete event;
    ears.clear();
    if (alive != 0) fail("%ld objects, events, values and receivers are left alive", alive);
}

}  // namespace

std::string torture(unsigned int seed, unsigned long steps) {
    Torturer work(seed);
    work.run(steps);
    work.end();
    return work.getReport();
}

}  // namespace soak

// The library's view of time and of descriptors.

extern "C" {

__attribute__((visibility("default"))) clock_t times(struct tms*) {
    return soak::torturer != nullptr ? soak::torturer->clock : 0;
}

__attribute__((visibility("default"))) int select(int count, fd_set* read, fd_set* write,
                                                  fd_set* exception, timeval* wait) {
    if (soak::torturer == nullptr || wait == nullptr) {
        errno = ENOSYS;
        return -1;
    }
    return soak::torturer->select(count, {read, write, exception}, *wait);
}
}
