// Builds, uses and destroys a million of each thing, beside the same thing of Qt, GLib
// or the standard library, and prints the peak of memory and the times as a table. By
// hand: it takes minutes, and a saved file of 1 GB some 3 GB of memory and disk.
//
//     scale            a million of each
//     scale 100000     100,000 instead
//     scale 1000000 /var/tmp/file    the saved file, too
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#ifdef FXDS_HAVE_QT
#include <QCoreApplication>
#include <QHash>
#include <QObject>
#include <QVariant>
#endif
#ifdef FXDS_HAVE_GOBJECT
#include <glib-object.h>
#endif

#include "bench/Things.h"
#include "fxds/LongArray.h"
#include "fxds/NameSpace.h"

namespace {

size_t count = 1000000;

double peakBytes() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024;
}

// Prints the cells of one side: bytes at the peak, nanoseconds to build, use and destroy,
// each for one thing. Runs in a separate process, which begins with little memory.
template <class Things>
void measure(size_t things) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        fxInitializeToolkit();
        const double before = peakBytes();
        double times[4] = {nanoseconds()};
        {
            Things made(things);
            times[1] = nanoseconds();
            made.use();
            times[2] = nanoseconds();
        }
        times[3] = nanoseconds();
        const auto one = static_cast<double>(things);
        std::printf(" %.0f |", (peakBytes() - before) / one);
        for (int i = 0; i < 3; ++i) std::printf(" %.0f |", (times[i + 1] - times[i]) / one);
        std::fflush(stdout);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) std::printf(" failed | | | |");
}

struct Nothing {};

template <class Ours, class Theirs>
void row(const char* name, const char* peer) {
    std::printf("| %s |", name);
    measure<Ours>(count);
    if constexpr (std::is_same_v<Theirs, Nothing>) {
        std::printf(" | | | | |\n");
    } else {
        std::printf(" %s |", peer);
        measure<Theirs>(count);
        std::printf("\n");
    }
}

struct Objects {
    explicit Objects(size_t n) : objects(n) {
        for (auto& object : objects) object = std::make_unique<Sink>();
    }
    void use() {
        for (auto& object : objects) object->receive(1);
    }
    std::vector<std::unique_ptr<Sink>> objects;
};

// All to one sender and to as many receivers.
struct Connections {
    explicit Connections(size_t n) : sinks(n) {
        for (Sink& sink : sinks) source.connect("out", &sink, "in");
    }
    void use() { source.out.send(1, fxObj::fxSendNow); }
    Source source;
    std::vector<Sink> sinks;
};

// In as many objects.
struct Properties {
    explicit Properties(size_t n) : objects(n) {
        for (fxObj& object : objects) fxSetProperty(object, tag, 1);
    }
    void use() {
        for (fxObj& object : objects) fxGetProperty<int>(object, tag);
    }
    const unsigned short tag = fxPropertyTag("weight");
    std::vector<fxObj> objects;
};

struct Timers {
    explicit Timers(size_t n) : timers(n) {
        for (size_t i = 0; i < n; ++i) start(i);
    }
    void use() {
        for (size_t i = 0; i < timers.size(); ++i) start(i);
    }
    void start(size_t i) { timers[i].start(std::chrono::seconds(1000 + i * 7919 % 1000003)); }
    std::vector<fxClockTimer> timers;
};

std::string nameOf(size_t i) { return "name/" + std::to_string(i * 7919); }

struct Atoms {
    explicit Atoms(size_t n) : number(n) { use(); }
    void use() {
        for (size_t i = 0; i < number; ++i) names.makeAtom(nameOf(i).c_str(), 1);
    }
    const size_t number;
    NameSpace names{nullptr, 0};
};

// In a table from long to long.
template <class Table>
struct EntriesOf {
    explicit EntriesOf(size_t n) : number(n) {
        for (size_t i = 0; i < n; ++i) table[static_cast<long>(i * 7919)] = 1;
    }
    void use() {
        for (size_t i = 0; i < number; ++i) sum += table[static_cast<long>(i * 7919)];
    }
    const size_t number;
    long sum = 0;
    Table table;
};
typedef EntriesOf<fxTypedDictionary<long, long>> Entries;

#ifdef FXDS_HAVE_QT

class QtObjects {
public:
    explicit QtObjects(size_t n) : objects(n) {
        for (auto& object : objects) object = std::make_unique<QObject>();
    }
    void use() {
        for (auto& object : objects) object->blockSignals(false);
    }

private:
    std::vector<std::unique_ptr<QObject>> objects;
};

struct QtConnections {
    explicit QtConnections(size_t n) : sinks(n) {
        for (QObject& sink : sinks) {
            QObject::connect(&source, &QObject::objectNameChanged, &sink, [this] { ++sum; });
        }
    }
    void use() { source.setObjectName("changed"); }
    QObject source;
    std::vector<QObject> sinks;
    long sum = 0;
};

struct QtProperties {
    explicit QtProperties(size_t n) : objects(n) {
        for (QObject& object : objects) object.setProperty("weight", 1);
    }
    void use() {
        for (QObject& object : objects) object.property("weight");
    }
    std::vector<QObject> objects;
};

typedef EntriesOf<QHash<long, long>> QtEntries;

#else
typedef Nothing QtObjects;
typedef Nothing QtConnections;
typedef Nothing QtProperties;
typedef Nothing QtEntries;
#endif

struct MapTimers {
    explicit MapTimers(size_t n) : expiries(), timers(n) {
        for (size_t i = 0; i < n; ++i) timers[i] = start(i);
    }
    void use() {
        for (size_t i = 0; i < timers.size(); ++i) {
            expiries.erase(timers[i]);
            timers[i] = start(i);
        }
    }
    std::multimap<size_t, size_t>::iterator start(size_t i) {
        return expiries.emplace(1000 + i * 7919 % 1000003, i);
    }
    std::multimap<size_t, size_t> expiries;
    std::vector<std::multimap<size_t, size_t>::iterator> timers;
};

#ifdef FXDS_HAVE_GOBJECT

struct Quarks {
    explicit Quarks(size_t n) : number(n) { use(); }
    void use() {
        for (size_t i = 0; i < number; ++i) g_quark_from_string(nameOf(i).c_str());
    }
    const size_t number;
};

#else
typedef Nothing Quarks;
#endif

// Saved and loaded again: 128 million longs, 1 GB in the file.
void bigFile(const char* path) {
    std::fflush(stdout);
    fxInitializeToolkit();
    fxLongArray longs(static_cast<unsigned int>(count * 128));
    for (unsigned int i = 0; i < longs.length(); ++i) longs[i] = i;
    const double start = nanoseconds();
    const bool isSaved = !fxSave(path, &longs);
    const double middle = nanoseconds();
    std::printf("\nSaved %s, %.2f s of processor time\n", isSaved ? "well" : "NOT",
                (middle - start) / 1e9);
    const auto loaded = fxLoad<fxLongArray>(path);
    if (!loaded) std::printf("%s\n", loaded.fault().text().c_str());
    const bool isSame = loaded && *loaded == longs;
    std::printf("Loaded %s, %.2f s; %.2f GB of memory at the most\n", isSame ? "the same" : "NOT",
                (nanoseconds() - middle) / 1e9, peakBytes() / 1e9);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) count = std::strtoul(argv[1], nullptr, 10);
#ifdef FXDS_HAVE_QT
    QCoreApplication application(argc, argv);
#endif
    std::printf(
        "| %zu of | Bytes | Build, ns | Use | Destroy | Peer | Bytes | Build | Use "
        "| Destroy |\n|---|---|---|---|---|---|---|---|---|---|\n",
        count);
    row<Objects, QtObjects>("objects with an input", "Qt");
    row<Connections, QtConnections>("connections of one output, with their receivers", "Qt");
    row<Properties, QtProperties>("properties, with their objects", "Qt");
    row<Timers, MapTimers>("clock timers", "`multimap`");
    row<Atoms, Quarks>("atoms", "GLib");
    row<Entries, QtEntries>("entries of a dictionary", "Qt");
    if (argc > 2) bigFile(argv[2]);
}
