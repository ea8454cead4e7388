#include "Model.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace soak {

bool isConvertible(int from, int to) { return from == to || to == voidType || from != voidType; }

long converted(int type, long value) { return type == voidType ? noValue : value; }

// A value that goes round.

Delivery::Delivery(Model& model_, Id output_, long value_, Id box_)
    : Activity(model_), output(output_), value(value_), box(box_) {
    const auto found = model.outputs.find(output);
    if (found != model.outputs.end()) served = found->second.connections;
}

Call Delivery::next() {
    while (position < served.size()) {
        const Connection& connection = served[position++];
        const auto found = model.outputs.find(output);
        if (found == model.outputs.end()) break;
        const auto& left = found->second.connections;
        if (std::none_of(left.begin(), left.end(),
                         [&](const Connection& one) { return one.id == connection.id; })) {
            continue;
        }
        const Input& input = model.inputs.at(connection.input);
        if (input.replaces) model.cancel(connection.entry);
        if (input.object == 0) continue;
        return {Call::receive, connection.input, converted(input.type, value)};
    }
    position = served.size();
    return box != 0 ? Call{Call::end, std::exchange(box, 0), 0} : Call();
}

// The queue.

Distribution::Distribution(Model& model_) : Activity(model_), remaining(model_.queue.size()) {}

Call Distribution::next() {
    if (model.ending != 0) return {Call::end, std::exchange(model.ending, 0), 0};
    for (; remaining > 0 && !model.queue.empty();) {
        --remaining;
        const Call call = model.deliver(model.take(0));
        if (call.kind != Call::none) return call;
    }
    return Call();
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

// Objects and what they hold.

Id Model::addObject(const Object& object) {
    const Id id = newId();
    objects[id] = object;
    return id;
}

void Model::release(Id id) {
    if (--objects.at(id).holders > 0) return;
    Object& object = objects.at(id);
    object.isActive = true;  // it leaves the list, whatever the program has written
    stop(id);
    const int fd = object.fd;
    if (fd >= 0 && handlers[static_cast<size_t>(fd)] == id) removeHandler(id);
    if (object.isOpen) removeApplication(id);
    std::vector<Id> heard;
    for (auto& [number, input] : inputs) {
        if (input.object != id) continue;
        input = {0, voidType, input.replaces};
        heard.push_back(number);
        silenced.push_back(number);
    }
    for (auto& [number, output] : outputs) {
        if (output.object == id) output.object = 0;
    }
    removeAllProperties(id);
    for (const Id input : heard) {  // those that a table which is held has, or none
        if (inputs.count(input) == 0) continue;
        flush(input);
        disconnectAll(input);
    }
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
    for (Id& table : object.tables) dropTable(std::exchange(table, 0));
    for (const auto& [tag, held] : std::exchange(object.properties, {})) letGo(held);
}

// Channels.

Id Model::channel(Id id, Side side, int slot) const {
    const auto table = tables.find(objects.at(id).tables[side]);
    return table != tables.end() ? table->second.channels[static_cast<size_t>(slot)] : 0;
}

Id& Model::place(Id id, Side side, int slot) {
    Id& table = objects.at(id).tables[side];
    if (table == 0) {
        table = newId();
        tables[table] = {side, 1};
    }
    return tables.at(table).channels[static_cast<size_t>(slot)];
}

void Model::dropTable(Id id) {
    if (id == 0 || --tables.at(id).holders > 0) return;
    const Table table = tables.at(id);
    tables.erase(id);
    for (const Id channel : table.channels) {
        endChannel(table.side, channel);
    }
}

void Model::setTable(Id id, Side side, Id table) {
    if (table != 0) takeTable(table);
    dropTable(std::exchange(objects.at(id).tables[side], table));
}

// An input whose name is given to another lives on until its object ends.
Id Model::addInput(Id id, int slot, int type, bool replaces) {
    const Id input = newId();
    place(id, in, slot) = input;
    inputs[input] = {id, type, replaces};
    return input;
}

Id Model::addOutput(Id id, int slot, int type) {
    const Id output = newId();
    endChannel(out, std::exchange(place(id, out, slot), output));
    outputs[output] = {id, type, {}};
    return output;
}

void Model::removeChannel(Id id, Side side, int slot) {
    if (channel(id, side, slot) != 0) endChannel(side, std::exchange(place(id, side, slot), 0));
}

void Model::endChannel(Side side, Id channel) {
    if (channel == 0) return;
    if (side == in) {
        discardMessages(channel);
        disconnectAll(channel);
        inputs.erase(channel);
    } else {
        outputs.erase(channel);
    }
    ended.push_back(channel);
}

void Model::connect(Id output, Id input) {
    Output& from = outputs.at(output);
    const int type = inputs.at(input).type;
    const Id id = newId();
    const bool isDirect = type == from.type || type == voidType;
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
    if (input == inputs.end() || input->second.object == 0) return Call();
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
        if (mode != cancelOnly && inputs.at(connection.input).object == 0) continue;
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

}  // namespace soak
