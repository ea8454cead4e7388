#include "Model.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace soak {

namespace {

enum { typeVoid, typeBool, typeInt, typeLong, typeFloat, typeDouble, typeText, typeString };

template <class Items, class Item>
bool holds(const Items& items, const Item& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

template <class Items, class Item>
void removeFirst(Items& items, const Item& item) {
    const auto found = std::find(items.begin(), items.end(), item);
    if (found != items.end()) items.erase(found);
}

// Functions around the wait: the index goes on whatever is removed.
class Functions : public Activity {
public:
    Functions(Model& model_, const std::vector<int>& functions_)
        : Activity(model_), functions(functions_), count(functions_.size()) {}
    Call next() override {
        if (position >= count || position >= functions.size()) return Call();
        return {Call::function, functions[position++], 0};
    }

private:
    const std::vector<int>& functions;
    const size_t count;
    size_t position = 0;
};

// Handlers of what is ready, by descriptor, each while it stays registered.
class Handling : public Activity {
public:
    Handling(Model& model_, const Selecting& selected_)
        : Activity(model_), selected(selected_), fd(model_.selectState.lowest) {}
    Call next() override {
        for (; fd < model.selectState.count; ++fd, condition = 0) {
            const auto place = static_cast<size_t>(fd);
            if (condition == 0) found = model.handlers[place];
            while (condition < 3) {
                const size_t asked = condition++;
                if (!selected.ready[asked][place] || found == 0) continue;
                if (model.handlers[place] != found) continue;
                return {static_cast<Call::Kind>(Call::read + static_cast<int>(asked)), found, 0};
            }
        }
        return Call();
    }

private:
    const Selecting& selected;
    int fd;
    size_t condition = 0;
    Id found = 0;
};

}  // namespace

bool isConvertible(int from, int to) {
    static const std::vector<std::pair<int, int>> pairs = {
        {typeBool, typeInt},   {typeBool, typeFloat},   {typeBool, typeDouble},
        {typeInt, typeBool},   {typeInt, typeFloat},    {typeInt, typeText},
        {typeFloat, typeBool}, {typeFloat, typeDouble}, {typeFloat, typeInt},
        {typeFloat, typeText}, {typeDouble, typeBool},  {typeDouble, typeFloat},
        {typeDouble, typeInt}, {typeDouble, typeText},  {typeText, typeInt},
        {typeText, typeFloat}, {typeText, typeString},  {typeString, typeText},
    };
    return from == to || to == typeVoid || holds(pairs, std::make_pair(from, to));
}

long converted(int type, long value) {
    if (type == typeVoid) return noValue;
    return type == typeBool ? value & 0xFF : value;
}

// A value that goes round.

Delivery::Delivery(Model& model_, Id output_, long value_)
    : Activity(model_), output(output_), value(value_) {
    const auto found = model.outputs.find(output);
    if (found != model.outputs.end()) served = found->second.connections;
}

Call Delivery::next() {
    while (position < served.size()) {
        const Connection& connection = served[position++];
        const auto found = model.outputs.find(output);
        if (found == model.outputs.end()) return Call();
        const auto& left = found->second.connections;
        if (std::none_of(left.begin(), left.end(),
                         [&](const Connection& one) { return one.id == connection.id; })) {
            continue;
        }
        const Input& input = model.inputs.at(connection.input);
        if (input.replaces) model.cancel(connection.entry);
        return {Call::receive, connection.input, converted(input.type, value)};
    }
    return Call();
}

// The queue.

Distribution::Distribution(Model& model_) : Activity(model_), remaining(model_.queue.size()) {}

Call Distribution::next() {
    for (; remaining > 0 && !model.queue.empty();) {
        --remaining;
        const Call call = model.deliver(model.take(0));
        if (call.kind != Call::none) return call;
    }
    return Call();
}

Call HandDelivery::next() {
    if (std::exchange(isDone, true)) return Call();
    return model.deliver(event);
}

Call Ending::next() {
    if (thing == 0) return Call();
    return {Call::end, std::exchange(thing, 0), 0};
}

Removal::Removal(Model& model_)
    : Activity(model_), following(model_.queue.empty() ? 0 : model_.queue[0].id) {
    model.removals.push_back(this);
}

Removal::~Removal() { removeFirst(model.removals, this); }

void Removal::leaves(Id event, Id successor) {
    if (current == event) current = 0;
    if (following == event) following = successor;
}

Call Removal::next() {
    const auto place = [this](Id event) {
        return std::find_if(model.queue.begin(), model.queue.end(),
                            [event](const Event& one) { return one.id == event; });
    };
    if (verdict && current != 0) {
        model.forget(model.take(static_cast<size_t>(place(current) - model.queue.begin())));
    }
    current = following;
    if (current == 0) return Call();
    const auto after = std::next(place(current));
    following = after == model.queue.end() ? 0 : after->id;
    return {Call::judge, current, 0};
}

// Time.

Pass::Pass(Model& model_, long units)
    : Activity(model_), remaining(units), beganAt(model_.tellTime()) {
    model.passes.push_back(this);
}

Pass::~Pass() { removeFirst(model.passes, this); }

void Pass::withdraw(Id id) {
    if (ticking == id) ticking = 0;
    while (holds(again, id)) removeFirst(again, id);  // it may have ticked twice
}

Call Pass::next() {
    if (ticking != 0 && model.objects.at(ticking).repeats) again.push_back(ticking);
    ticking = 0;
    for (const Id id : model.active) {
        const Object& object = model.objects.at(id);
        if (object.waits && object.startedAt > beganAt) continue;  // for the next pass
        const long wait = std::max(0L, object.due - model.time);
        if (wait > remaining) break;
        remaining -= wait;
        model.time += wait;
        removeFirst(model.active, id);
        ticking = id;
        return {Call::tick, id, 0};
    }
    model.time += std::exchange(remaining, 0);
    removeFirst(model.passes, this);
    for (const Id id : std::exchange(again, {})) model.start(id);
    return Call();
}

// The loop.

Call Asking::next() {
    if (std::exchange(isDone, true)) return Call();
    model.lookAtHandlers();
    if (model.selectState.count == 0) return Call();
    selecting.asked = model.selectState;
    return {Call::select, 0, 0};
}

void Poll::chooseWait() {
    selecting.asked = model.selectState;
    for (const int fd : std::exchange(model.leftOut, {})) {
        const auto place = static_cast<size_t>(fd);
        if (model.handlers[place] == 0 || !model.isClosed[place]) continue;
        model.leftOut.insert(fd);
        for (auto& set : selecting.asked.sets) set[place] = false;
    }
    selecting.seconds = model.queue.empty() ? seconds : 0;
    hasTimer = !model.active.empty();
    if (!hasTimer) return;
    headWait = std::max(0L, model.objects.at(model.active[0]).due - model.time);
    const double headSeconds = static_cast<double>(headWait) / perSecond;
    isShortened = selecting.seconds > headSeconds;
    if (isShortened) selecting.seconds = headSeconds;
}

// Goes on to the next phase; true when that makes a call itself.
bool Poll::advance(Call& call) {
    const Phase entered = phase;
    phase = static_cast<Phase>(phase + 1);
    switch (entered) {
        case looking:
            model.lookAtHandlers();
            if (model.selectState.count == 0) {
                phase = distributing;
            } else {
                part = std::make_unique<Functions>(model, model.preFunctions);
            }
            return false;
        case waiting:
            chooseWait();
            call = {Call::select, 0, 0};
            return true;
        case timing:
            for (int fd = 0; fd < maxFd; ++fd) {
                if (selecting.asks(fd) && model.isClosed[static_cast<size_t>(fd)]) {
                    model.leftOut.insert(fd);
                }
            }
            if (hasTimer) {
                const bool isOver = selecting.result == 0 && isShortened;
                part = std::make_unique<Pass>(model, isOver ? headWait : selecting.units);
            }
            return false;
        case handling:
            if (selecting.result > 0) part = std::make_unique<Handling>(model, selecting);
            return false;
        case finishing:
            part = std::make_unique<Functions>(model, model.postFunctions);
            return false;
        default:
            part = std::make_unique<Distribution>(model);
            return false;
    }
}

Call Poll::next() {
    Call call;
    while (call.kind == Call::none && (part != nullptr || phase != done)) {
        if (part == nullptr) {
            if (advance(call)) return call;
            continue;
        }
        call = part->next();
        if (call.kind == Call::none) part.reset();
    }
    return call;
}

// Objects and what they hold.

Id Model::addObject(const Object& object) {
    const Id id = newId();
    objects[id] = object;
    return id;
}

void Model::release(Id id) {
    if (--objects.at(id).holders > 0) return;
    Object& object = objects.at(id);
    stop(id);
    const int fd = object.fd;
    if (fd >= 0 && handlers[static_cast<size_t>(fd)] == id) removeHandler(id);
    removeAllProperties(id);
    for (const Id input : std::exchange(object.retired, {})) endInput(input);
    objects.erase(id);
    died.push_back(id);
}

void Model::letGo(const Held& held) {
    if (held.thing != 0) released.push_back(held.thing);
    if (held.object != 0) release(held.object);
}

void Model::setProperty(Id id, int tag, Held held) {
    if (held.object != 0) ++objects.at(held.object).holders;
    letGo(std::exchange(objects.at(id).properties[tag], held));
}

void Model::removeProperty(Id id, int tag) {
    auto& properties = objects.at(id).properties;
    const auto found = properties.find(tag);
    if (found == properties.end()) return;
    const Held held = found->second;
    properties.erase(found);
    letGo(held);
}

void Model::removeAllProperties(Id id) {
    Object& object = objects.at(id);
    endInputs(object);
    endOutputs(object);
    for (const auto& [tag, held] : std::exchange(object.properties, {})) letGo(held);
}

// Channels.

Id Model::addInput(Id id, int slot, int type, bool replaces) {
    Object& object = objects.at(id);
    Id& place = object.inputs[static_cast<size_t>(slot)];
    if (place != 0) object.retired.push_back(place);
    object.hasInputs = true;
    place = newId();
    inputs[place] = {id, type, replaces};
    return place;
}

Id Model::addOutput(Id id, int slot, int type) {
    Object& object = objects.at(id);
    Id& place = object.outputs[static_cast<size_t>(slot)];
    if (place != 0) endOutput(place);
    object.hasOutputs = true;
    place = newId();
    outputs[place] = {id, type, {}};
    return place;
}

void Model::removeInput(Id id, int slot) {
    const Id input = std::exchange(objects.at(id).inputs[static_cast<size_t>(slot)], 0);
    if (input != 0) endInput(input);
}

void Model::removeOutput(Id id, int slot) {
    const Id output = std::exchange(objects.at(id).outputs[static_cast<size_t>(slot)], 0);
    if (output != 0) endOutput(output);
}

void Model::endInput(Id input) {
    discardMessages(input);
    disconnectAll(input);
    inputs.erase(input);
    ended.push_back(input);
}

void Model::endOutput(Id output) {
    outputs.erase(output);
    ended.push_back(output);
}

void Model::endInputs(Object& object) {
    for (Id& input : object.inputs) {
        if (input != 0) endInput(std::exchange(input, 0));
    }
    object.hasInputs = false;
}

void Model::endOutputs(Object& object) {
    for (Id& output : object.outputs) {
        if (output != 0) endOutput(std::exchange(output, 0));
    }
    object.hasOutputs = false;
}

void Model::connect(Id output, Id input) {
    Output& from = outputs.at(output);
    const int type = inputs.at(input).type;
    const Id id = newId();
    const bool isDirect = type == from.type || type == typeVoid;
    from.connections.push_back({id, input, isDirect ? input : id});
}

bool Model::isConnected(Id output, Id input) const {
    const auto& all = outputs.at(output).connections;
    return std::any_of(all.begin(), all.end(),
                       [input](const Connection& one) { return one.input == input; });
}

void Model::disconnect(Id output, Id input) {
    auto& all = outputs.at(output).connections;
    const auto found = std::find_if(all.begin(), all.end(),
                                    [input](const Connection& one) { return one.input == input; });
    if (found != all.end()) all.erase(found);
}

void Model::disconnectAll(Id input) {
    for (auto& [id, output] : outputs) {
        while (isConnected(id, input)) disconnect(id, input);
    }
}

// Messages.

size_t Model::positionOf(Id event) const {
    const auto found = std::find_if(queue.begin(), queue.end(),
                                    [event](const Event& one) { return one.id == event; });
    return static_cast<size_t>(found - queue.begin());
}

Event Model::take(size_t position) {
    const Event event = queue[position];
    const Id successor = position + 1 < queue.size() ? queue[position + 1].id : 0;
    for (Removal* removal : removals) removal->leaves(event.id, successor);
    queue.erase(queue.begin() + static_cast<std::ptrdiff_t>(position));
    return event;
}

void Model::post(const Event& event, bool isUrgent) {
    queue.insert(isUrgent ? queue.begin() : queue.end(), event);
}

void Model::forget(const Event& event) {
    const auto found = pending.find(event.entry);
    if (found != pending.end() && found->second == event.id) pending.erase(found);
}

Call Model::deliver(const Event& event) {
    if (event.input == 0) return {Call::deliver, event.id, 0};
    pending.erase(event.entry);
    const auto input = inputs.find(event.input);
    if (input == inputs.end()) return Call();
    return {Call::receive, event.input, converted(input->second.type, event.value)};
}

void Model::cancel(Id entry) {
    const auto found = pending.find(entry);
    if (found == pending.end()) return;
    const size_t position = positionOf(found->second);
    pending.erase(found);
    if (position < queue.size()) take(position);
}

void Model::send(Id output, long value, Mode mode) {
    const auto found = outputs.find(output);
    if (found == outputs.end()) return;
    for (const Connection& connection : found->second.connections) {
        const bool replaces = inputs.at(connection.input).replaces;
        const Event event{mode != cancelOnly ? ++lastEvent : 0, connection.input, connection.entry,
                          value};
        if (mode != cancelOnly) post(event, mode == urgent);
        if (!replaces) continue;
        cancel(connection.entry);
        if (mode != cancelOnly) pending[connection.entry] = event.id;
    }
}

void Model::discardMessages(Id input) {
    for (size_t i = queue.size(); i-- > 0;) {
        const bool isBound = queue[i].input == 0 && queue[i].entry == input;
        if (queue[i].input == input || isBound) forget(take(i));
    }
}

void Model::flush(Id input) {
    discardMessages(input);
    pending.erase(input);
}

void Model::removeMessages(Id entry) {
    for (size_t i = queue.size(); i-- > 0;) {
        if (queue[i].entry == entry) forget(take(i));
    }
}

// Timers.

void Model::start(Id id) {
    removeFirst(active, id);
    Object& object = objects.at(id);
    object.due = time + object.interval;
    object.waits = object.interval == 0;
    object.startedAt = tellTime();
    auto place = active.begin();
    while (place != active.end() && objects.at(*place).due <= object.due) ++place;
    active.insert(place, id);
}

void Model::stop(Id id) {
    removeFirst(active, id);
    for (Pass* pass : passes) pass->withdraw(id);
}

// Handlers.

void Model::addHandler(Id id) {
    handlers[static_cast<size_t>(objects.at(id).fd)] = id;
    isDirty = true;
}

void Model::removeHandler(Id id) {
    handlers[static_cast<size_t>(objects.at(id).fd)] = 0;
    isDirty = true;
}

bool Model::asksForClosed(const Selecting& selecting) const {
    for (int fd = 0; fd < maxFd; ++fd) {
        if (selecting.asks(fd) && isClosed[static_cast<size_t>(fd)]) return true;
    }
    return false;
}

void Model::lookAtHandlers() {
    if (!std::exchange(isDirty, false)) return;
    selectState = SelectState();
    for (int fd = 0; fd < maxFd; ++fd) {
        const auto place = static_cast<size_t>(fd);
        if (handlers[place] == 0) continue;
        selectState.lowest = std::min(selectState.lowest, fd);
        selectState.count = fd + 1;
        for (size_t i = 0; i < 3; ++i) {
            if (!objects.at(handlers[place]).wants[i]) continue;
            selectState.sets[i][place] = true;
            selectState.has[i] = true;
        }
    }
}

}  // namespace soak
