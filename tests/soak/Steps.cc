#include <algorithm>
#include <cstdlib>
#include <string>

#include "Torturer.h"

// What a step may be, and the objects and functions that it gives the library.

namespace soak {

namespace {

constexpr size_t manyEvents = 300;
constexpr int functionCount = 4;

struct Plain : fxObj {
    Plain(Id id_, const Object&) : id(id_) {}
    const Id id;
};

struct Ticking : fxTimer {
    Ticking(Id id_, const Object& object) : fxTimer(object.repeats), id(id_) {}
    void tick() override {
        if (torturer->tick(id)) fxTimer::tick();
    }
    const Id id;
};

struct Serving : fxSelectHandler {
    Serving(Id id_, const Object& object)
        : fxSelectHandler(object.fd, object.wants[0], object.wants[1], object.wants[2]), id(id_) {}
    ~Serving() override { fd = -1; }  // which was none
    const char* className() const override { return "Serving"; }
    void handleRead() override { handle(Call::read); }
    void handleWrite() override { handle(Call::write); }
    void handleException() override { handle(Call::exception); }
    void handle(Call::Kind kind) { torturer->callObject(kind, id); }
    const Id id;
};

struct Applying : fxApplication {
    Applying(Id id_, const Object&) : id(id_) {}
    const char* className() const override { return "Applying"; }
    void initialize(int, char**) override { torturer->callObject(Call::initialize, id); }
    void open() override {
        const Id mine = id;
        if (!torturer->callObject(Call::open, mine)) return;
        torturer->open(mine);
        fxApplication::open();
    }
    void close() override {
        const Id mine = id;
        if (!torturer->callObject(Call::close, mine) || torturer->isRefused()) return;
        torturer->close(mine);
        fxApplication::close();
    }
    const Id id;
};

template <class Base>
struct Subject final : Base, Counted {
    using Base::Base;
    ~Subject() override {
        torturer->objectDied(this->id);
        this->take();
        this->release();
    }
};

// The model knows a value by a number: text is its digits.
long number(int value) { return value; }
long number(char* value) { return std::strtol(value, nullptr, 10); }

template <class... T>
void hear(void* closure, T... value) {
    torturer->call(Call::receive, static_cast<Ear*>(closure)->input,
                   (noValue + ... + (number(value) - noValue)));
    torturer->maybeThrow();
}

void (*hearer(int type))() {
    if (type == intType) return reinterpret_cast<void (*)()>(hear<int>);
    if (type == textType) return reinterpret_cast<void (*)()>(hear<char*>);
    return reinterpret_cast<void (*)()>(hear<>);
}

template <int number>
void function() {
    torturer->call(Call::function, number);
    torturer->maybeThrow();
}

void (*const functions[functionCount])() = {function<1>, function<2>, function<3>, function<4>};

unsigned char judgeEvent(fxEvent* event, void*) { return torturer->judge(event); }

void releaseThing(void* thing) { torturer->thingReleased(reinterpret_cast<Id>(thing)); }

// A value whose end is told or, when it is sent, a call.
struct Acting {
    Id thing = 0;
    bool isSent = false;
};

template <class Data>
struct Boxed : Data, Acting, Counted {
    using Data::Data;
    ~Boxed() override {
        if (isSent) torturer->call(Call::end, thing);
        if (!isSent && thing != 0) torturer->thingReleased(thing);
        if (thing == 0) return;
        Data::take();
        Data::release();
    }
};

fxData* withEnd(fxData* data, Id thing, bool isSent) {
    auto& end = dynamic_cast<Acting&>(*data);
    end.thing = thing;
    end.isSent = isSent;
    return data;
}

fxData* box(int type, long number) {
    if (type == intType) return new Boxed<fxChannelType<int>::Box>(static_cast<int>(number));
    if (type == voidType) return new Boxed<fxChannelType<void>::Box>();
    return new Boxed<fxChannelType<const char*>::Box>(
        fxCopyCharPtr(std::to_string(number).c_str()));
}

void send(fxOutputChannel* output, int type, long number, fxObj::fxSendFlags how) {
    if (type == voidType) fxOutputView<void>(output).send(how);
    if (type == intType) fxOutputView<int>(output).send(static_cast<int>(number), how);
    const std::string digits = std::to_string(number);
    if (type == textType) fxOutputView<const char*>(output).send(digits.c_str(), how);
}

}  // namespace

void Torturer::step() {
    if (!report.empty()) return;
    ++stepsTaken;
    if (living.size() < 20 || (living.size() < manyObjects() && chance(6))) return create();
    if (model.queue.size() > manyEvents && chance(30)) return distribute();
    const long kind = below(100);
    const bool empties = kind == 93 || kind == 94 || kind == 97 || kind == 98;  // the queue
    if (crowd == Crowd::messages && empties && chance(95)) return sendSomething();
    if (kind < 4) return destroy(anyObject());
    if (kind < 9) return changeChannel(anyObject(), in);
    if (kind < 14) return changeChannel(anyObject(), out);
    if (kind < 40) return changeConnection();
    if (kind < 43) return changeInputsConnections();
    if (kind < 67) return sendSomething();
    if (kind < 69) return changeApplications();
    if (kind < 74) return changeProperty();
    if (kind < 75) return changeTable();
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
    object.kind = crowd == Crowd::timers && chance(70) ? timer : static_cast<Kind>(below(4));
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
        real = new Subject<Serving>(id, object);
    } else if (object.kind == application) {
        real = new Subject<Applying>(id, object);
        for (const auto& [old, place] : graves) {
            while (place == real && model.isApplication(old)) model.removeApplication(old);
        }
        model.addApplication(id);
    } else {
        real = new Subject<Plain>(id, object);
    }
    real->take();
    objects[id] = {real, true};
    living.push_back(id);
    for (int i = 0; i < slots && (crowd != Crowd::few || chance(30)); ++i) {
        changeChannel(id, in);
        changeChannel(id, out);
    }
}

// Only what we still hold; the rest goes with whoever has it as a property.
void Torturer::destroy(Id id) {
    Real& real = objects.at(id);
    if (!std::exchange(real.isOurs, false)) return;
    note("destroy: object", id);
    fxObj* const object = real.object;
    model.release(id);
    during([&] { object->release(); });
}

void Torturer::changeChannel(Id id, Side side) {
    fxObj& object = *objects.at(id).object;
    const int place = slot();
    const char* const name = side == in ? inputNames[place] : outputNames[place];
    if (chance(30)) {
        note("remove channel: object, side, slot", id, side, place);
        model.removeChannel(id, side, place);
        during([&] { side == in ? object.removeInput(name) : object.removeOutput(name); });
        return;
    }
    const bool isTick = side == out && place == tickSlot && chance(70);
    const unsigned short type = types[isTick ? 0 : below(3)];
    const bool replaces = side == in && chance(40);
    const Id channel =
        side == in ? model.addInput(id, place, type, replaces) : model.addOutput(id, place, type);
    note("add channel: object, slot, channel", id, place, channel);
    if (side == out) return during([&] { outputs[channel] = object.addOutput(name, type); });
    ears[channel] = std::make_unique<Ear>(channel);
    during([&] {
        inputs[channel] =
            object.addInput(name, type, ears[channel].get(), hearer(type), replaces ? 3 : 2);
    });
}

void Torturer::changeConnection() {
    Place from = anyOutput(false);
    if (crowd == Crowd::connections && chance(80)) {  // a few old objects feed many
        const Id old = living[static_cast<size_t>(below(3))];
        from = {old, 0, model.channel(old, out, 0)};
    }
    const Place to = anyInput(from.channel);
    const Id output = from.channel;
    const Id input = to.channel;
    const bool areThere = output != 0 && input != 0;
    const bool connects = chance(80);
    if (connects && areThere) {
        const Output& sender = model.outputs.at(output);
        if (sender.connections.size() >= (crowd == Crowd::connections ? 60 : 8)) return;
        if (!isConvertible(sender.type, model.inputs.at(input).type)) return;
    }
    fxObj* const sender = objects.at(from.object).object;
    fxObj* const receiver = objects.at(to.object).object;
    const char* const outputName = outputNames[from.slot];
    const char* const inputName = inputNames[to.slot];
    note(connects ? "connect: output, input" : "disconnect: output, input", output, input);
    if (!connects) {
        if (areThere) model.disconnect(output, input);
        during([&] { sender->disconnect(outputName, receiver, inputName); });
    } else if (areThere && chance(10)) {  // maybe twice
        model.connect(output, input);
        during([&] { outputs.at(output)->add(inputs.at(input)); });
    } else {
        if (areThere && !model.isConnected(output, input)) model.connect(output, input);
        during([&] { sender->connect(outputName, receiver, inputName); });
    }
}

void Torturer::changeInputsConnections() {
    const Id input = anyInput(0).channel;
    if (input == 0) return;
    fxInputChannel* const real = inputs.at(input);
    const long kind = below(3);
    note("0 flush, 1 disconnect, 2 remove messages: kind, input", kind, input);
    if (kind == 0) {
        model.flush(input);
        during([&] { real->flush(); });
    } else if (kind == 1) {
        model.disconnectAll(input);
        during([&] { real->disconnect(); });
    } else {
        model.removeMessages(input);
        during([&] { fx_theEventHandler->removeMessageEvents(real); });
    }
}

void Torturer::sendSomething() {
    const Id output = anyOutput(true).channel;
    if (output == 0) return;
    static const Mode modes[] = {queued, queued, now, now, now, urgent, urgent, cancelOnly};
    const Mode mode = modes[below(8)];
    const int type = model.outputs.at(output).type;
    const long value = converted(type, below(100000));
    fxData* const data = chance(40) ? box(type, value) : nullptr;
    const Id thing = data != nullptr && mode == now ? model.newId() : 0;
    if (thing != 0) withEnd(data, thing, true);
    fxOutputChannel* const real = outputs.at(output);
    note("send: output, value, mode", output, value, mode);
    const auto how = static_cast<fxObj::fxSendFlags>(mode);
    const bool isLeft = mode == cancelOnly && real->getNumberOfConnections() > 0;
    const auto send = [&] {
        if (data == nullptr) return soak::send(real, type, value, how);
        fxObj::sendData(real, data, how);
        if (isLeft) delete data;
    };
    if (mode == now) {
        Delivery delivery(model, output, value, thing);
        during(delivery, send);
    } else {
        model.send(output, value, mode);
        during(send);
    }
}

// Objects hold only themselves and younger ones: there are no other circles.
void Torturer::changeProperty() {
    const Id id = anyObject();
    fxObj& object = *objects.at(id).object;
    const int place = static_cast<int>(below(tags));
    const auto tag = static_cast<unsigned short>(firstTag + place);
    const long kind = below(20);
    note("change property: object, tag, kind", id, place, kind);
    if (kind == 0) {
        model.removeAllProperties(id);
        during([&] { object.removeAllProperties(); });
        return;
    }
    const auto& before = model.objects.at(id).properties;
    const auto old = before.find(place);
    const Id thing = old != before.end() ? old->second.thing : 0;
    Once ending(model, [=] { return thing != 0 ? Call{Call::end, thing, 0} : Call(); });
    const auto change = [&](auto inModel, auto inLibrary) {
        inModel();
        if (thing != 0) model.released.clear();  // it tells of itself, see thingReleased()
        acting = thing;
        actingOwner = id;
        during(ending, inLibrary);
    };
    if (kind < 6) {
        change([&] { model.removeProperty(id, place); }, [&] { object.removeProperty(tag); });
        return;
    }
    Held held{0, 0};
    fxProperty* property = nullptr;
    if (kind < 9) {
        property = new fxProperty(tag, kind);
    } else if (kind < 12) {
        held.thing = model.newId();
        property = new fxProperty(tag, withEnd(box(fxDT_int, kind), held.thing, false));
    } else if (kind < 16) {
        held.thing = model.newId();
        property = new fxProperty(tag, reinterpret_cast<void*>(held.thing), releaseThing);
    } else {
        held.object = anyObject();
        if (held.object < id) return;
        property = new fxProperty(tag, objects.at(held.object).object);
    }
    change([&] { model.setProperty(id, place, held); }, [&] { object.setProperty(property); });
}

// Takes a holder for an object's table of channels, or puts the table into
// another object.
void Torturer::changeTable() {
    const Id id = anyObject();
    fxObj& object = *objects.at(id).object;
    Side side = chance(50) ? in : out;
    const char* const name = side == in ? "inputs" : "outputs";
    const Id table = model.objects.at(id).tables[side];
    const long kind = below(4);
    note("change table: object, table, kind", id, table, kind);
    if (kind == 0 && table != 0 && heldTables.size() < 8) {
        model.takeTable(table);
        heldTables.emplace_back(table, object.findProperty(name));
        heldTables.back().second->take();
    } else if (kind == 1) {
        model.setTable(id, side, 0);
        during([&] { object.removeProperty(name); });
    } else if (kind > 1 && !heldTables.empty()) {
        const auto [other, property] = heldTables.back();
        side = model.tables.at(other).side;
        if (kind == 2) {
            model.setTable(id, side, other);
            during([&, real = property] { object.setProperty(real); });
            return;
        }
        heldTables.pop_back();
        model.dropTable(other);
        during([real = property] { real->release(); });
    }
}

void Torturer::changeFunctions() {
    const auto place = static_cast<int>(below(functionCount));
    const bool isPre = chance(50);
    auto& list = isPre ? model.preFunctions : model.postFunctions;
    const bool adds = list.size() < 4 && chance(60);
    note(adds ? "add function: number, pre" : "remove function: number, pre", place + 1, isPre);
    const auto add = isPre ? &fxExec::addPreSelectFunc : &fxExec::addPostSelectFunc;
    const auto remove = isPre ? &fxExec::removePreSelectFunc : &fxExec::removePostSelectFunc;
    adds ? list.push_back(place + 1) : removeFirst(list, place + 1);
    (fx_theExecutive->*(adds ? add : remove))(functions[place]);
}

void Torturer::changeQueue() {
    if (crowd == Crowd::messages) return sendSomething();
    if (taken.size() > 4 || (!taken.empty() && chance(30))) return changeTaken();
    if (chance(40)) {
        const Id input = chance(40) ? anyInput(0).channel : 0;
        auto* const notice = new Notice(input, input != 0 ? inputs.at(input) : nullptr);
        const Event event{++model.lastEvent, 0, input, 0};
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
        Once delivery(model, [this, its = event] { return model.deliver(its); });
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

}  // namespace soak
