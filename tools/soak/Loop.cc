#include "Model.h"

#include <algorithm>
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

Pass::Pass(Model& model_, long units)
    : Activity(model_), remaining(units), beganAt(model_.tellTime()) {
    model.passes.push_back(this);
}

void Pass::withdraw(Id id) {
    if (ticking == id) ticking = 0;
    while (holds(again, id)) removeFirst(again, id);  // it may have ticked twice
}

Call Pass::next() {
    if (isOver) return Call();
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
    abandon();
    return Call();
}

// What is due by then ticks in the next pass.
void Pass::abandon() {
    isOver = true;
    if (ticking != 0 && model.objects.at(ticking).repeats) again.push_back(ticking);
    ticking = 0;
    model.time += std::exchange(remaining, 0);
    removeFirst(model.passes, this);
    for (const Id id : std::exchange(again, {})) model.start(id);
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
