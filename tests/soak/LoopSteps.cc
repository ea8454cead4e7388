#include <cmath>

#include "Torturer.h"

// Steps that concern the loop and what it serves.

namespace soak {

namespace {

constexpr size_t manyApplications = 250;

}  // namespace

void Torturer::changeApplications() {
    static char* noArguments[] = {nullptr};
    fxExec& exec = *fx_theExecutive;
    const long kind = below(5);
    note("applications, kind", static_cast<long>(model.applications.size()), kind);
    if (kind < 2) {
        Opening opening(model, kind == 0 ? Call::initialize : Call::open);
        during(opening, [&] { kind == 0 ? exec.initialize(0, noArguments) : exec.open(); });
    } else if (kind == 2) {
        Closing closing(model);
        during(closing, [&] { exec.close(); });
    } else if (const Id id = anyObject(application)) {
        auto* const real = static_cast<fxApplication*>(objects.at(id).object);
        const bool adds = kind == 3 && model.applications.size() < manyApplications;
        adds ? model.addApplication(id) : model.removeApplication(id);
        adds ? exec.add(real) : exec.remove(real);
    }
}

void Torturer::changeTimer() {
    const Id id = anyObject(timer);
    if (id == 0) return;
    auto& real = static_cast<fxTimer&>(*objects.at(id).object);
    Object& object = model.objects.at(id);
    const long kind = below(20);
    note(kind == 0 ? "mark: timer" : kind < 17 ? "start: timer" : "stop: timer", id);
    if (kind == 0) {  // which changes nothing but what it says
        object.isActive = chance(50);
        real.active = object.isActive;
    } else if (kind < 17) {
        object.interval = seconds();
        real.setInterval(object.interval);
        if (chance(50)) real.interval = object.interval;  // whatever it is
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
    if (chance(15)) {
        bool& isClosed = model.isClosed[static_cast<size_t>(model.objects.at(id).fd)];
        isClosed = !isClosed && chance(40);
        note("descriptor: fd, closed", model.objects.at(id).fd, isClosed);
        return;
    }
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

void Torturer::letTimePass() {
    const float time = seconds();
    note("let time pass");
    Pass pass(model, time);
    during(pass, [&] { fxTimer::alarm(time); });
}

float Torturer::seconds() {
    static const float odd[] = {1e-30F, 0.1F, 1e9F, -1, std::nanf(""), HUGE_VALF};
    if (chance(crowd == Crowd::timers ? 25 : 3)) return odd[below(6)];
    return static_cast<float>(below(20)) / 4 * (crowd == Crowd::timers ? 401.7F : 1);
}

void Torturer::poll() {
    static const float waits[] = {0, 0.25, 1.5, 7, 1000};
    const float most = waits[below(5)];
    note("poll, at most", static_cast<long>(most));
    Poll turn(model, most);
    during(turn, [&] { fx_theExecutive->poll(most); });
}

void Torturer::askWhetherBlocked() {
    note("will it block");
    Asking asking(model);
    bool blocks = false;
    during(asking, [&] { blocks = fx_theExecutive->willBlock(); });
    if (blocks != asking.blocks()) fail("willBlock()");
}

}  // namespace soak
