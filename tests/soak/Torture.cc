#include "Torturer.h"

#include <sys/select.h>
#include <sys/times.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace soak {

namespace {

constexpr int reactions = 40;         // steps inside calls that one outermost step may lead to
constexpr long ticksPerSecond = 100;  // of times()

}  // namespace

Torturer* torturer = nullptr;
long alive = 0;

void Notice::deliver() {
    if (!torturer->isDue(Call::deliver, static_cast<Id>(getSequence()))) return;
    torturer->repost(this);  // which may be the end of this notice
    torturer->maybeThrow();
}

// The library deletes what it has delivered, once, though this lets go of it.
Notice::~Notice() {
    if (channel != nullptr) channel->release();
    if (!acts) return;
    torturer->call(Call::end, static_cast<Id>(getSequence()));
    take();
    release();
}

Torturer::Torturer(unsigned int seed)
    : rng(seed), crowd(static_cast<Crowd>(seed % static_cast<unsigned int>(Crowd::count))) {
    torturer = this;
    fxInitializeToolkit();
    static const unsigned short tag = [] {
        const unsigned short first = fxProperty::allocNewTag("soak");
        for (int i = 1; i < tags; ++i) fxProperty::allocNewTag("soak more");
        return first;
    }();
    firstTag = tag;
    model.lastEvent = static_cast<Id>(fxEvent::nextSequenceNumber);
    fxTrace::setSink([](void*, const char*, size_t) {}, nullptr);
    if (crowd == Crowd::few) fxTrace::enable(fxTrace::all);
}

void Torturer::fail(const std::string& what) {
    if (!report.empty()) return;
    report = "step " + std::to_string(stepsTaken) + ": " + what + "\nThe last steps:\n";
    for (const std::string& step : trace) report += step;
}

void Torturer::note(const char* what, long a, long b, long c) {
    if (trace.size() == 60) trace.pop_front();
    trace.push_back(std::string(2 * stack.size() + 2, ' ') + what + ' ' + std::to_string(a) + ' ' +
                    std::to_string(b) + ' ' + std::to_string(c) + '\n');
}

void Torturer::settle() {
    std::sort(model.died.begin(), model.died.end());
    std::sort(reallyDied.begin(), reallyDied.end());
    if (model.died != reallyDied) fail("other objects died than should have");
    if (model.released != reallyReleased) fail("properties were not released in order");
    for (const Id id : std::exchange(model.died, {})) {
        if (model.isApplication(id)) graves[id] = objects.at(id).object;
        objects.erase(id);
        living.erase(std::find(living.begin(), living.end(), id));
    }
    for (const Id id : std::exchange(model.silenced, {})) ears.erase(id);
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
    fail("called: " + Call{kind, who, value}.text() + "; due: " + due.text());
    return false;
}

bool Torturer::call(Call::Kind kind, Id who, long value) {
    if (!isDue(kind, who, value)) return false;
    react();
    return report.empty();
}

bool Torturer::callObject(Call::Kind kind, Id who) {
    if (!call(kind, who)) return false;
    maybeThrow();
    return model.objects.count(who) != 0;
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
    maybeThrow();
    return static_cast<Removal*>(removal)->verdict = chance(30);
}

// The property has left by now, or its successor is in place.
void Torturer::thingReleased(Id thing) {
    if (thing != acting) return reallyReleased.push_back(thing);
    acting = 0;
    auditObject(actingOwner);
    call(Call::end, thing);
}

bool Torturer::tick(Id timer) {
    if (!callObject(Call::tick, timer) || chance(30)) return false;
    const Id output = model.channel(timer, out, tickSlot);
    if (output != 0 && model.outputs.at(output).type == 0) model.send(output, noValue, queued);
    return true;
}

void Torturer::repost(Notice* notice) {
    if (chance(50)) {
        notice->acts = stack.size() < deepest;
        react();
        if (notice->acts) model.ending = static_cast<Id>(notice->getSequence());
    } else {
        const bool isUrgent = chance(50);
        model.post({static_cast<Id>(notice->getSequence()), 0, notice->input, 0}, isUrgent);
        fx_theEventHandler->postEvent(notice, isUrgent);
        react();
    }
}

int Torturer::select(int count, fd_set* const (&sets)[3], const timeval& wait) {
    if (!isDue(Call::select, 0)) return -1;
    Selecting& selecting = *stack.back()->getSelecting();
    const auto micros = static_cast<long>(std::min(selecting.seconds, 1e8) * 1e6);
    const long waited = wait.tv_sec * 1000000 + wait.tv_usec;
    selecting.isQuestion = !selecting.isQuestion && waited == 0 && micros > 0;
    if (count != selecting.asked.count ||
        (std::abs(waited - micros) > 1 && !selecting.isQuestion)) {
        fail("select() of " + std::to_string(count) + " for " + std::to_string(waited));
    }
    const long quarters = below(10);
    selecting.taken += static_cast<float>(quarters) / 4;
    clock += quarters * ticksPerSecond / 4;
    const bool hasClosed = model.asksForClosed(selecting);
    const bool fails = hasClosed || chance(10);
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
        errno = hasClosed ? EBADF : EINTR;
        selecting.result = -1;
    }
    return selecting.result;
}

bool Torturer::isOpen(int fd) const { return !model.isClosed[static_cast<size_t>(fd)]; }

Id Torturer::anyObject(Kind kind) {
    for (int i = 0; i < 20; ++i) {
        const Id id = anyObject();
        if (model.objects.at(id).kind == kind) return id;
    }
    return 0;
}

void Torturer::run(unsigned long steps) {
    while (stepsTaken < steps && report.empty()) {
        reactionsLeft = reactions;
        const unsigned long before = stepsTaken;
        step();
        if (report.empty() && stepsTaken / 256 != before / 256) audit();
    }
}

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

// The library only asks whether a descriptor is open.
__attribute__((visibility("default"))) int fcntl(int fd, int, ...) {
    if (soak::torturer != nullptr && soak::torturer->isOpen(fd)) return 0;
    errno = soak::torturer != nullptr ? EBADF : ENOSYS;
    return -1;
}
}
