#include "Model.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

// What the loop does: time, descriptors, functions and applications.

namespace soak {

namespace {

// Functions around the wait: the index goes on whatever is removed.
class Functions : public Activity {
public:
    Functions(Model& model_, const std::vector<int>& functions_)
        : Activity(model_), functions(functions_), count(functions_.size()) {}
    Call next() override {
        if (position >= count || position >= functions.size()) return Call();
        return {Call::function, functions[position++], 0};
    }
    void abandon() override { position = count; }

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
    void abandon() override { fd = model.selectState.count; }

private:
    const Selecting& selected;
    int fd;
    size_t condition = 0;
    Id found = 0;
};

}  // namespace

// Time.

Pass::Pass(Model& model_, float seconds)
    : Activity(model_), remaining(std::isnan(seconds) ? 0 : seconds) {
    model.passes.push_back(this);
}

void Pass::withdraw(Id id) {
    if (ticking == id) ticking = 0;
    while (holds(again, id)) removeFirst(again, id);  // it may have ticked twice
}

void Pass::endTick() {
    if (ticking != 0 && model.objects.at(ticking).repeats) again.push_back(ticking);
    ticking = 0;
}

Call Pass::next() {
    if (isOver) return Call();
    endTick();
    for (const Id id : model.active) {
        const float delta = model.objects.at(id).delta;
        if (holds(held, id) && !(delta > 0)) continue;
        if (remaining < delta) break;
        remaining -= delta;
        model.unlink(id);
        ticking = id;
        return {Call::tick, id, 0};
    }
    abandon();
    return Call();
}

// What is due by then ticks in the next pass.
void Pass::abandon() {
    if (std::exchange(isOver, true)) return;
    endTick();
    for (const Id id : model.active) {
        float& delta = model.objects.at(id).delta;
        const float passed = std::min(remaining, delta);
        delta -= passed;
        remaining -= passed;
        if (delta > 0) break;
    }
    removeFirst(model.passes, this);
    for (const Id id : again) model.start(id);
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
    headWait = model.objects.at(model.active[0]).delta;
    isShortened = selecting.seconds > headWait;
    if (isShortened) selecting.seconds = headWait;
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
            if (selecting.isQuestion && selecting.result == 0) {
                phase = timing;
                call = {Call::select, 0, 0};
                return true;
            }
            for (int fd = 0; fd < maxFd; ++fd) {
                if (selecting.asks(fd) && model.isClosed[static_cast<size_t>(fd)]) {
                    model.leftOut.insert(fd);
                }
            }
            if (hasTimer) {
                const bool isOver = selecting.result == 0 && isShortened;
                part = std::make_unique<Pass>(model, isOver ? headWait : selecting.taken);
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

void Poll::abandon() {
    if (part != nullptr) part->abandon();
    phase = done;
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

// Applications.

Opening::Opening(Model& model_, Call::Kind kind_) : Activity(model_), kind(kind_) {
    model.openings.push_back(this);
}

Opening::~Opening() { removeFirst(model.openings, this); }

Call Opening::next() {
    while (position < model.applications.size()) {
        const Id id = model.applications[position++];
        if (model.objects.count(id) != 0) return {kind, id, 0};
    }
    return Call();
}

Closing::Closing(Model& model_) : Activity(model_) {
    for (const Id id : model.applications) {
        if (model.objects.count(id) == 0 || !model.objects.at(id).isOpen) continue;
        if (!holds(remaining, id)) remaining.insert(remaining.begin(), id);
    }
}

Call Closing::next() {
    while (!remaining.empty()) {
        const Id id = remaining.back();
        remaining.pop_back();
        const auto object = model.objects.find(id);
        if (object == model.objects.end() || !object->second.isOpen) continue;
        if (model.isApplication(id)) return {Call::close, id, 0};
    }
    return Call();
}

bool Model::isApplication(Id id) const { return holds(applications, id); }

void Model::removeApplication(Id id) {
    const auto found = std::find(applications.begin(), applications.end(), id);
    if (found == applications.end()) return;
    const auto index = static_cast<size_t>(found - applications.begin());
    applications.erase(found);
    for (Opening* opening : openings) {
        if (index < opening->position) --opening->position;
    }
}
// Timers.

// Each delta is taken from the wait in turn: a sum of them would be rounded otherwise.
void Model::start(Id id) {
    takeOut(id);
    Object& object = objects.at(id);
    float wait = object.interval > 0 ? std::min(object.interval, FLT_MAX) : 0;
    if (!passes.empty() && !(passes.back()->remaining - wait < passes.back()->remaining)) {
        for (Pass* pass : passes) pass->held.push_back(id);
        wait = 0;
    }
    auto place = active.begin();
    while (place != active.end() && wait >= objects.at(*place).delta) {
        wait -= objects.at(*place++).delta;
    }
    if (place != active.end()) objects.at(*place).delta -= wait;
    active.insert(place, id);
    object.delta = wait;
    object.isActive = true;
}

void Model::stop(Id id) {
    if (objects.at(id).isActive) takeOut(id);
    for (Pass* pass : passes) pass->withdraw(id);
}

void Model::takeOut(Id id) {
    const auto place = std::find(active.begin(), active.end(), id);
    if (place == active.end()) return;
    if (place + 1 != active.end()) objects.at(place[1]).delta += objects.at(id).delta;
    unlink(id);
}

void Model::unlink(Id id) {
    removeFirst(active, id);
    for (Pass* pass : passes) removeFirst(pass->held, id);
    objects.at(id).isActive = false;
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
