#include <algorithm>

#include "Torturer.h"

// What can be seen from outside, compared as a whole.

namespace soak {

void Torturer::audit() {
    auditQueue();
    auditTimers();
    for (size_t fd = 0; fd < fxExec::maxHandlers; ++fd) {
        const Id id = model.handlers[fd];
        const fxObj* due = id != 0 ? objects.at(id).object : nullptr;
        if (fx_theExecutive->handlers[fd] != due) fail("descriptor %zu has another handler", fd);
    }
    const fxVoidPtrArray& applications = fx_theExecutive->applications;
    if (applications.length() != model.applications.size()) fail("other applications");
    for (unsigned int i = 0; i < applications.length() && report.empty(); ++i) {
        const auto real = objects.find(model.applications[i]);
        if (real != objects.end() && applications[i] != real->second.object) {
            fail("another application than %ld", real->first);
        }
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
    const size_t count =
        object.properties.size() + (object.tables[in] != 0) + (object.tables[out] != 0);
    if (real.getNumberOfProperties() != count) fail("object %ld has other properties", id);
    if (real.refCount != static_cast<unsigned long>(object.holders)) {
        fail("object %ld has %lu holders", id, real.refCount);
    }
    for (const auto& [tag, held] : object.properties) {
        if (real.findProperty(static_cast<unsigned short>(firstTag + tag)) == nullptr) {
            fail("object %ld lacks property %d", id, tag);
        }
    }
    const auto ownerOf = [this](Id owner) {
        return owner != 0 ? objects.at(owner).object : nullptr;
    };
    for (int place = 0; place < slots; ++place) {
        const Id input = model.channel(id, in, place);
        const Id output = model.channel(id, out, place);
        fxInputChannel* const realInput = real.getInput(inputNames[place]);
        if (realInput != (input != 0 ? inputs.at(input) : nullptr)) {
            fail("object %ld has another input %d", id, place);
        }
        const auto waiting = model.pending.find(input);
        const Id due = waiting != model.pending.end() ? waiting->second : 0;
        if (realInput != nullptr &&
            static_cast<Id>(realInput->pending ? realInput->pending->getSequence() : 0) != due) {
            fail("another event than %ld is pending for input %ld", due, input);
        }
        fxOutputChannel* const realOutput = real.getOutput(outputNames[place]);
        if (realOutput != (output != 0 ? outputs.at(output) : nullptr)) {
            fail("object %ld has another output %d", id, place);
        }
        if (realInput != nullptr && report.empty() &&
            realInput->getOwner() != ownerOf(model.inputs.at(input).object)) {
            fail("input %ld has another owner", input);
        }
        if (output == 0 || !report.empty()) continue;
        if (realOutput->getOwner() != ownerOf(model.outputs.at(output).object)) {
            fail("output %ld has another owner", output);
        }
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
    while (!heldTables.empty()) {
        Activity nothing(model);
        const auto [table, property] = heldTables.back();
        heldTables.pop_back();
        model.dropTable(table);
        during(nothing, [real = property] { real->release(); });
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
        Activity nothing(model);
        model.removeAllProperties(id);
        during(nothing, [&] { object->removeAllProperties(); });
        if (objects.count(id) != 0) fail("object %ld outlived its holders", id);
    }
    audit();
    while (!exec.applications.isEmpty()) {
        exec.remove(static_cast<fxApplication*>(exec.applications[0]));
    }
    while (fxEvent* event = fx_theEventHandler->get()) delete event;
    ears.clear();
    if (alive != 0) fail("%ld objects, events, values and receivers are left alive", alive);
}

}  // namespace soak
