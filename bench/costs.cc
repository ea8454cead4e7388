// Prints what one of each thing costs as a table: bytes of heap, and nanoseconds to
// make and to end it, each the least of five rounds of 10,000.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

#include "fxds/fxds.h"

namespace {

constexpr int count = 10000;

// Of processor time: other programs run meanwhile.
double nanoseconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// `make` returns the thing, whose destructor ends it, or takes its number.
template <class Make>
void row(const char* name, Make make) {
    double bytes = 0;
    double making = 1e9;
    double ending = 1e9;
    for (int round = 0; round < 5; ++round) {
        std::vector<decltype(make(0))> things;
        things.reserve(count);
        malloc_trim(0);
        const size_t before = mallinfo2().uordblks;
        const double start = nanoseconds();
        for (int i = 0; i < count; ++i) things.push_back(make(i));
        making = std::min(making, (nanoseconds() - start) / count);
        // Pools keep what ended in an earlier round; only the first round shows the cost.
        if (round == 0) bytes = static_cast<double>(mallinfo2().uordblks - before) / count;
        const double middle = nanoseconds();
        things.clear();
        ending = std::min(ending, (nanoseconds() - middle) / count);
    }
    std::printf("| %s | %.0f | %.0f | %.0f |\n", name, bytes, making, ending);
}

class Sink : public fxObj {
public:
    Sink() { addInput<&Sink::receive>("in"); }
    void receive(int value) { sum += value; }
    long sum = 0;
};

class Source : public fxObj {
public:
    const fxOutput<int> out = addOutput<int>("out");
};

// Calls a function when it goes.
template <class End>
struct Ending {
    explicit Ending(End end_) : end(end_) {}
    Ending(Ending&& other) noexcept : end(other.end), isMine(std::exchange(other.isMine, false)) {}
    Ending& operator=(Ending&&) = delete;
    ~Ending() {
        if (isMine) end();
    }
    End end;
    bool isMine = true;
};

void dataflow() {
    row("object (`fxObj`)", [](int) { return std::make_unique<fxObj>(); });
    row("object with one input", [](int) { return std::make_unique<Sink>(); });
    row("object with one input, a lambda", [](int) {
        auto object = std::make_unique<fxObj>();
        object->addInput("in", [](int) {});
        return object;
    });
    row("object with one output", [](int) { return std::make_unique<Source>(); });
    std::vector<std::unique_ptr<Source>> sources(count);
    std::vector<std::unique_ptr<Sink>> sinks(count);
    for (auto& source : sources) source = std::make_unique<Source>();
    for (auto& sink : sinks) sink = std::make_unique<Sink>();
    for (const char* name : {"second input of it", "further input of it"}) {
        row(name, [&](int i) {
            Sink* const sink = sinks[static_cast<size_t>(i)].get();
            sink->addInput("more", [](int) {});
            return Ending([sink] { sink->removeInput("more"); });
        });
    }
    row("connection by name", [&](int i) {
        const auto n = static_cast<size_t>(i);
        return fxScopedConnection(fxConnect(sources[n].get(), "out", sinks[n].get(), "in"));
    });
    row("connection to a lambda", [&](int i) {
        return fxScopedConnection(fxConnect(sources[static_cast<size_t>(i)]->out, [](int) {}));
    });
    const unsigned short tag = fxPropertyTag("cost");
    row("property, a number", [&](int i) {
        fxObj* const object = sinks[static_cast<size_t>(i)].get();
        fxSetProperty(*object, tag, 1);
        return Ending([object, tag] { object->removeProperty(tag); });
    });
    fxConnect(sources[0].get(), "out", sinks[0].get(), "in");
    row("queued message, an `int`", [&](int) {
        sources[0]->out.send(1);
        return Ending([] { fx_theEventHandler->distributeEvents(); });
    });
}

void others() {
    row("alarm of `fxAfter()`", [](int) {
        const fxRef<fxAlarm> alarm = fxAfter(std::chrono::hours(1), [] {});
        return Ending([alarm] { alarm->stop(); });
    });
    row("text of 12 bytes (`fxStr`)", [](int) { return fxStr("twelve bytes"); });
    fxTypedDictionary<int, int> table(count);
    row("entry of a dictionary of ints", [&](int i) {
        table[i] = i;
        return Ending([&table, i] { table.remove(i); });
    });
    row("expression of one group", [](int) { return fxExpression("([a-z]+)="); });
}

}  // namespace

int main() {
    fxInitializeToolkit();
    std::printf("| One | Bytes | Make, ns | End, ns |\n|---|---|---|---|\n");
    dataflow();
    others();
    fxCleanupGlobalOrderings();
}
