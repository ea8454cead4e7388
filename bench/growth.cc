// Prints the cost of one of many as a table: nanoseconds of processor time for each of
// 1,000 to 1,000,000, the least of some rounds. Each row should be flat except for the
// effects of caches.
//
//     growth [MOST [TEXT]]   up to MOST items (default: 1,000,000), and only rows whose
//                            names contain TEXT; a row alone also pays for getting its
//                            memory from the system
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench/Things.h"

namespace {

size_t most = 1000000;
const char* wanted = "";

// `makeWork(n)` prepares, and returns the function to measure.
template <class MakeWork>
void row(const char* name, MakeWork makeWork, size_t limit = 1000000) {
    if (std::strstr(name, wanted) == nullptr) return;
    std::printf("| %s |", name);
    for (size_t n : {1000u, 10000u, 100000u, 1000000u}) {
        double least = 1e18;
        const size_t used = std::min(n, limit);
        for (size_t round = n < 100000    ? 100000 / n
                            : n == 100000 ? 2
                                          : 1;
             n <= most && round > 0; --round) {
            auto work = makeWork(used);
            const double start = nanoseconds();
            work();
            least = std::min(least, (nanoseconds() - start) / static_cast<double>(used));
        }
        std::printf(n <= most ? " %.0f |" : " |", least);
        std::fflush(stdout);
    }
    std::printf("\n");
}

std::vector<size_t> order(size_t n, const char* how) {
    std::vector<size_t> indices(n);
    std::iota(indices.begin(), indices.end(), size_t{0});
    if (how[0] == 'l') std::reverse(indices.begin(), indices.end());
    if (how[0] == 's') std::shuffle(indices.begin(), indices.end(), std::mt19937(1));
    return indices;
}

// One source and many sinks, or one sink and many sources.
template <class One, class Many>
struct Star {
    explicit Star(size_t n) : many(n) {
        for (auto& each : many) each = std::make_unique<Many>();
    }
    void join(const std::unique_ptr<Sink>& sink) { one.connect("out", sink.get(), "in"); }
    void join(const std::unique_ptr<Source>& source) { source->connect("out", &one, "in"); }
    void joinAll() {
        for (auto& each : many) join(each);
    }
    One one;
    std::vector<std::unique_ptr<Many>> many;
};

template <class One, class Many>
void destroyRows(const char* what) {
    for (const char* how : {"first first", "last first", "scattered"}) {
        row((std::string("destroy ") + what + ", " + how).c_str(), [how](size_t n) {
            auto star = std::make_shared<Star<One, Many>>(n);
            star->joinAll();
            return [star, sequence = order(n, how)] {
                for (size_t i : sequence) star->many[i].reset();
            };
        });
    }
}

void connections() {
    row("connect by name, many inputs to one output", [](size_t n) {
        auto star = std::make_shared<Star<Source, Sink>>(n);
        return [star] { star->joinAll(); };
    });
    row("connect by name, many outputs to one input", [](size_t n) {
        auto star = std::make_shared<Star<Sink, Source>>(n);
        return [star] { star->joinAll(); };
    });
    destroyRows<Source, Sink>("the receivers of one output");
    destroyRows<Sink, Source>("the senders of one input");
    for (const char* how : {"first first", "scattered"}) {
        row((std::string("destroy receivers, each with a message waiting, ") + how).c_str(),
            [how](size_t n) {
                auto star = std::make_shared<Star<Source, Sink>>(n);
                star->joinAll();
                star->one.out.send(1);
                return [star, sequence = order(n, how)] {
                    for (size_t i : sequence) star->many[i].reset();
                };
            });
    }
}

// The clock holds alarms that are active: they are stopped here.
struct Alarms {
    explicit Alarms(size_t n) : all(n) {}
    Alarms(const Alarms&) = delete;
    Alarms& operator=(const Alarms&) = delete;
    ~Alarms() { stop(); }
    void stop() {
        for (auto& alarm : all) {
            if (alarm) alarm->stop();
        }
    }
    std::vector<fxRef<fxAlarm>> all;
};

void others() {
    size_t named = 0;
    row(
        "find a property by its name among as many names",
        [&named](size_t n) {
            for (; named < n; ++named) {
                fxProperty::allocNewTag(("property " + std::to_string(named)).c_str());
            }
            std::vector<std::string> names(n);
            for (size_t i : order(n, "scattered")) names[i] = "property " + std::to_string(i);
            return [names] {
                for (const std::string& name : names) {
                    if (fxProperty::findTag(name.c_str()) == fxProperty::noTag) std::abort();
                }
            };
        },
        65000);
    row("make an object with one input", [](size_t n) {
        auto objects = std::make_shared<std::vector<std::unique_ptr<Sink>>>(n);
        return [objects] {
            for (auto& object : *objects) object = std::make_unique<Sink>();
        };
    });
    for (const bool isStopped : {false, true}) {
        row(isStopped ? "start and stop a clock timer" : "start a clock timer",
            [isStopped](size_t n) {
                auto alarms = std::make_shared<Alarms>(n);
                return [alarms, isStopped, sequence = order(n, "scattered")] {
                    for (size_t i : sequence) {
                        alarms->all[i] = fxAfter(std::chrono::milliseconds(1000000 + i), [] {});
                    }
                    if (isStopped) alarms->stop();
                };
            });
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 1) most = std::strtoul(arguments[1], nullptr, 10);
    if (count > 2) wanted = arguments[2];
    fxInitializeToolkit();
    std::printf("| One of | 1,000 | 10,000 | 100,000 | 1,000,000 |\n|---|---|---|---|---|\n");
    connections();
    others();
    fxCleanupGlobalOrderings();
}
