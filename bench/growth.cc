// Prints the cost of one of many as a table: nanoseconds of processor time for each of
// 1,000 to 1,000,000, the least of some rounds, and those of what it is compared with. Each
// row should be flat except for the effects of caches, which the comparison has too.
//
//     growth [MOST [TEXT]]   up to MOST items (default: 1,000,000), and only rows whose
//                            names contain TEXT; a row alone also pays for getting its
//                            memory from the system
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "bench/Things.h"

namespace {

size_t most = 1000000;
const char* wanted = "";

// `makeWork(n)` prepares, and returns the function to measure.
template <class MakeWork>
void cells(MakeWork makeWork, size_t limit) {
    for (size_t n : {1000u, 10000u, 100000u, 1000000u}) {
        double least = 1e18;
        const size_t used = std::min(n, limit);
        for (size_t round = n < 100000    ? 100000 / n
                            : n == 100000 ? 10
                                          : 3;
             n <= most && round > 0; --round) {
            auto work = makeWork(used);
            const double start = nanoseconds();
            work();
            least = std::min(least, (nanoseconds() - start) / static_cast<double>(used));
        }
        std::printf(n <= most ? " %.0f |" : " |", least);
        std::fflush(stdout);
    }
}

// Beside the same by `makePeerWork`.
template <class MakeWork, class MakePeerWork>
void row(const char* name, MakeWork makeWork, const char* peer, MakePeerWork makePeerWork,
         size_t limit = 1000000) {
    if (std::strstr(name, wanted) == nullptr) return;
    std::printf("| %s |", name);
    cells(makeWork, limit);
    std::printf(" %s |", peer);
    cells(makePeerWork, limit);
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

// What connections are compared with: objects of as many bytes in a list, and messages, too.
template <size_t bytes>
struct Linked {
    Linked() = default;
    Linked(const Linked&) = delete;
    Linked& operator=(const Linked&) = delete;
    ~Linked() {
        next->previous = previous;
        previous->next = next;
    }
    void join(Linked& other) {
        previous = other.previous;
        next = &other;
        previous->next = other.previous = this;
    }
    Linked* next = this;
    Linked* previous = this;
    char rest[bytes - 2 * sizeof(void*)] = {};
};
struct PlainObject : Linked<280> {
    std::unique_ptr<Linked<152>> message;
};
struct PlainList {
    explicit PlainList(size_t n) : many(n) {
        for (auto& each : many) each = std::make_unique<PlainObject>();
    }
    void joinAll() {
        for (auto& each : many) each->join(one);
    }
    void sendAll() {
        for (auto& each : many) {
            each->message = std::make_unique<Linked<152>>();
            each->message->join(messages);
        }
    }
    Linked<280> one;
    Linked<152> messages;
    std::vector<std::unique_ptr<PlainObject>> many;
};

// Joins one to many of T, and sends a message if there `hasMessages`; the function to
// measure ends the many.
template <class T>
auto ending(const char* how, bool hasMessages) {
    return [how, hasMessages](size_t n) {
        auto all = std::make_shared<T>(n);
        all->joinAll();
        if constexpr (std::is_same_v<T, PlainList>) {
            if (hasMessages) all->sendAll();
        } else if constexpr (std::is_same_v<T, Star<Source, Sink>>) {
            if (hasMessages) all->one.out.send(1);
        } else {
            static_cast<void>(hasMessages);
        }
        return [all, sequence = order(n, how)] {
            for (size_t i : sequence) all->many[i].reset();
        };
    };
}

template <class T>
auto joining(size_t n) {
    auto all = std::make_shared<T>(n);
    return [all] { all->joinAll(); };
}

void connections() {
    const char* const plain = "plain objects in a list";
    typedef Star<Source, Sink> Receivers;
    typedef Star<Sink, Source> Senders;
    row("connect by name, many inputs to one output", joining<Receivers>, plain,
        joining<PlainList>);
    row("connect by name, many outputs to one input", joining<Senders>, plain, joining<PlainList>);
    const auto endRow = [&](std::string what, const char* how, auto work, bool hasMessages) {
        row((what + how).c_str(), work, plain, ending<PlainList>(how, hasMessages));
    };
    for (const char* how : {"first first", "last first", "scattered"}) {
        endRow("destroy the receivers of one output, ", how, ending<Receivers>(how, false), false);
    }
    for (const char* how : {"first first", "last first", "scattered"}) {
        endRow("destroy the senders of one input, ", how, ending<Senders>(how, false), false);
    }
    for (const char* how : {"first first", "scattered"}) {
        endRow("destroy receivers, each with a message waiting, ", how,
               ending<Receivers>(how, true), true);
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

void properties() {
    static size_t named = 0;
    const auto namesOf = [](size_t n) {
        std::vector<std::string> names(n);
        for (size_t i : order(n, "scattered")) names[i] = "property " + std::to_string(i);
        return names;
    };
    row(
        "find a property by its name among as many names",
        [namesOf](size_t n) {
            for (; named < n; ++named) {
                fxProperty::allocNewTag(("property " + std::to_string(named)).c_str());
            }
            return [names = namesOf(n)] {
                for (const std::string& name : names) {
                    if (fxProperty::findTag(name.c_str()) == fxProperty::noTag) std::abort();
                }
            };
        },
        "`unordered_map`",
        [namesOf](size_t n) {
            std::vector<std::string> names = namesOf(n);
            std::unordered_map<std::string, unsigned short> tags;
            for (const std::string& name : names) tags.emplace(name, 0);
            return [names, tags] {
                for (const std::string& name : names) {
                    if (tags.find(name.c_str()) == tags.end()) std::abort();
                }
            };
        },
        65000);
}

void objects() {
    row(
        "make an object with one input",
        [](size_t n) {
            auto objects = std::make_shared<std::vector<std::unique_ptr<Sink>>>(n);
            return [objects] {
                for (auto& object : *objects) object = std::make_unique<Sink>();
            };
        },
        "four blocks of the same sizes",
        [](size_t n) {
            auto blocks = std::make_shared<std::vector<std::unique_ptr<char[]>>>(4 * n);
            return [blocks] {
                const size_t sizes[] = {sizeof(Sink), 120, sizeof(fxInputChannel), 3};
                for (size_t i = 0; i < blocks->size(); ++i) {
                    (*blocks)[i] = std::make_unique<char[]>(sizes[i % 4]);
                }
            };
        });
}

void timers() {
    for (const bool isStopped : {false, true}) {
        row(
            isStopped ? "start and stop a clock timer, at scattered times"
                      : "start a clock timer, at a scattered time",
            [isStopped](size_t n) {
                auto alarms = std::make_shared<Alarms>(n);
                return [alarms, isStopped, sequence = order(n, "scattered")] {
                    for (size_t i = 0; i < sequence.size(); ++i) {
                        const std::chrono::milliseconds delay(1000000 + sequence[i]);
                        alarms->all[i] = fxAfter(delay, [] {});
                    }
                    if (isStopped) alarms->stop();
                };
            },
            "`multimap`",
            [isStopped](size_t n) {
                typedef std::multimap<fxAlarm::Time, std::function<void()>> Map;
                auto map = std::make_shared<Map>();
                auto all = std::make_shared<std::vector<Map::iterator>>(n);
                return [map, all, isStopped, sequence = order(n, "scattered")] {
                    for (size_t i = 0; i < sequence.size(); ++i) {
                        const std::chrono::milliseconds delay(1000000 + sequence[i]);
                        (*all)[i] = map->emplace(fxAlarm::Clock::now() + delay, [] {});
                    }
                    for (size_t i = 0; isStopped && i < all->size(); ++i) map->erase((*all)[i]);
                };
            });
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count > 1) most = std::strtoul(arguments[1], nullptr, 10);
    if (count > 2) wanted = arguments[2];
    fxInitializeToolkit();
    const char* const columns = " 1,000 | 10,000 | 100,000 | 1,000,000 |";
    std::printf("| One of |%s Beside |%s\n|---|---|---|---|---|---|---|---|---|---|\n", columns,
                columns);
    connections();
    properties();
    objects();
    timers();
    fxCleanupGlobalOrderings();
}
