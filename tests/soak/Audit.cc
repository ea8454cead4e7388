#include <algorithm>
#include <cstring>

#include "Torturer.h"

// What can be seen from outside, compared as a whole.

namespace soak {

void Torturer::require(bool isSo, const char* claim, Id id) {
    if (!isSo) fail(claim + std::string(": ") + std::to_string(id));
}

void Torturer::audit() {
    auditQueue();
    auditTimers();
    auditFeeding();
    const auto objectOf = [this](Id id) { return id != 0 ? objects.at(id).object : nullptr; };
    for (size_t fd = 0; fd < fxExec::maxHandlers; ++fd) {
        require(fx_theExecutive->handlers[fd] == objectOf(model.handlers[fd]),
                "another handler of descriptor", static_cast<Id>(fd));
    }
    const SelectState& state = model.selectState;
    require(model.isDirty ||
                fx_theExecutive->minFd == (state.count > 0 ? state.lowest : int{fxExec::noHandler}),
            "another lowest descriptor", state.lowest);
    const fxVoidPtrArray& applications = fx_theExecutive->applications;
    require(applications.length() == model.applications.size(), "other applications", 0);
    for (unsigned int i = 0; i < applications.length() && report.empty(); ++i) {
        const auto real = objects.find(model.applications[i]);
        require(real == objects.end() || applications[i] == real->second.object,
                "another application at", i);
    }
    for (const Id id : living) auditObject(id);
}

// Which outputs feed each input, in the order of the connections.
void Torturer::auditFeeding() {
    std::map<Id, std::map<Id, Id>> feeding;
    for (const auto& [output, its] : model.outputs) {
        for (const Connection& one : its.connections) feeding[one.input][one.id] = output;
    }
    for (size_t i = 0; i < living.size() * slots; ++i) {
        const Id input = model.channel(living[i / slots], in, static_cast<int>(i % slots));
        if (input == 0) continue;
        const fxVoidPtrArray* const real = inputs.at(input)->getOutputs();
        const auto& expected = feeding[input];
        require((real != nullptr ? real->length() : 0) == expected.size(), "outputs of", input);
        unsigned int place = 0;
        for (const auto& [connection, output] : expected) {
            if (!report.empty()) return;
            require((*real)[place++] == outputs.at(output), "another output of input", input);
        }
    }
}

void Torturer::auditQueue() {
    require(fx_theEventHandler->getCount() == model.queue.size(), "another number of events", 0);
    const fxEvent* real = fx_theEventHandler->getHead();
    for (const Event& event : model.queue) {
        require(real != nullptr && static_cast<Id>(real->getSequence()) == event.id,
                "an event is not where it should be", event.id);
        if (!report.empty()) return;
        real = real->getNext();
    }
    require(real == nullptr, "more events than there should be", 0);
}

void Torturer::auditTimers() {
    const fxTimer* real = fxTimer::activeTimers;
    for (const Id id : model.active) {
        require(real != nullptr && real == objects.at(id).object,
                "a timer is not where it should be", id);
        if (!report.empty()) return;
        const Object& object = model.objects.at(id);
        require(real->delta == object.delta, "a timer is due at another time", id);
        require(real->isActive() == object.isActive, "a timer says that it is not active", id);
        real = real->next;
    }
    require(real == nullptr, "more timers are active than there should be", 0);
}

void Torturer::auditObject(Id id) {
    const Object& object = model.objects.at(id);
    fxObj& real = *objects.at(id).object;
    const size_t count =
        object.properties.size() + (object.tables[in] != 0) + (object.tables[out] != 0);
    // What makes the tables of channels, which are to seem to be there all the time.
    const bool isSeen = crowd != Crowd::few || chance(20);
    if (isSeen) {
        const fxInputChannel* const input = real.getInput(inputNames[0]);
        const char* const name = input != nullptr ? input->getName() : nullptr;
        require(real.getNumberOfProperties() == count, "other properties of object", id);
        require(name == nullptr || std::strcmp(name, inputNames[0]) == 0, "a name of object", id);
    }
    require(real.refCount == static_cast<unsigned long>(object.holders), "holders of object", id);
    long last = -1;
    for (const auto& property : object.properties) {
        const auto tag = static_cast<unsigned short>(firstTag + property.first);
        unsigned int index = 0;
        const fxProperty* const found = real.findProperty(tag, isSeen ? &index : nullptr);
        require(found != nullptr, "a property lacks in object", id);
        if (!isSeen) continue;
        require(real.getProperty(index) == found && index > last, "properties of object", id);
        last = index;
    }
    for (int place = 0; place < slots && report.empty(); ++place) {
        auditInput(real.getInput(inputNames[place]), model.channel(id, in, place));
        auditOutput(real.getOutput(outputNames[place]), model.channel(id, out, place));
    }
}

void Torturer::auditInput(const fxInputChannel* real, Id input) {
    require(real == (input != 0 ? inputs.at(input) : nullptr), "another input", input);
    if (input == 0 || !report.empty()) return;
    const auto waiting = model.pending.find(input);
    const auto due =
        waiting != model.pending.end() ? static_cast<unsigned long>(waiting->second) : 0;
    require((real->pending != nullptr ? real->pending->getSequence() : 0) == due,
            "another pending event of input", input);
    const Id owner = model.inputs.at(input).object;
    require(real->getOwner() == (owner != 0 ? objects.at(owner).object : nullptr),
            "another owner of input", input);
}

void Torturer::auditOutput(const fxOutputChannel* real, Id output) {
    require(real == (output != 0 ? outputs.at(output) : nullptr), "another output", output);
    if (output == 0 || !report.empty()) return;
    const Output& expected = model.outputs.at(output);
    require(
        real->getOwner() == (expected.object != 0 ? objects.at(expected.object).object : nullptr),
        "another owner of output", output);
    const auto& connections = expected.connections;
    require(real->getNumberOfConnections() == connections.size(), "connections of output", output);
    for (unsigned int i = 0; i < connections.size() && report.empty(); ++i) {
        require((*real)[i]->target() == inputs.at(connections[i].input),
                "another connection of output", output);
        const auto found =
            std::find_if(connections.begin(), connections.end(),
                         [&](const Connection& one) { return one.input == connections[i].input; });
        require(real->find(inputs.at(found->input)) == found - connections.begin(),
                "a connection is not found in output", output);
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
    while (!heldTables.empty()) {
        const auto [table, property] = heldTables.back();
        heldTables.pop_back();
        model.dropTable(table);
        during([real = property] { real->release(); });
    }
    fxExec& exec = *fx_theExecutive;
    while (!exec.preSelectFuncs.isEmpty()) exec.removePreSelectFunc(exec.preSelectFuncs[0]);
    while (!exec.postSelectFuncs.isEmpty()) exec.removePostSelectFunc(exec.postSelectFuncs[0]);
    for (const Id id : std::vector<Id>(living)) {
        if (objects.count(id) != 0) destroy(id);
    }
    while (report.empty() && !living.empty()) {  // the oldest, which holds itself
        const Id id = living.front();
        fxObj* const object = objects.at(id).object;
        model.removeAllProperties(id);
        during([&] { object->removeAllProperties(); });
        if (objects.count(id) != 0) fail("an object outlived its holders");
    }
    audit();
    while (!exec.applications.isEmpty()) {
        exec.remove(static_cast<fxApplication*>(exec.applications[0]));
    }
    while (fxEvent* event = fx_theEventHandler->get()) delete event;
    ears.clear();
    if (alive != 0) fail(std::to_string(alive) + " objects, events, values and receivers are left");
}

}  // namespace soak
