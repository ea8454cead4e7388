// Prints the cost of one of each thing as a table: bytes of heap, those of the same thing
// in Qt and GLib if they are installed, and nanoseconds to make and to destroy ours, each
// the least of five rounds of 10,000, in memory that the process has got in the first one.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#ifdef FXDS_HAVE_QT
#include <QCoreApplication>
#include <QHash>
#include <QObject>
#include <QTimer>
#include <QVariant>
#endif
#ifdef FXDS_HAVE_GOBJECT
#include <glib-object.h>
#endif

#include "bench/Things.h"

namespace {

constexpr int count = 10000;

// Calls a function in its destructor.
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

struct Cost {
    double bytes = 0;
    double making = 1e9;
    double ending = 1e9;
};

// `make` returns the thing, or takes its number.
template <class Make>
Cost measure(Make make) {
    Cost cost;
    for (int round = 0; round < 5; ++round) {
        std::vector<decltype(make(0))> things;
        things.reserve(count);
        if (round == 0) malloc_trim(0);
        const size_t before = mallinfo2().uordblks;
        const double start = nanoseconds();
        for (int i = 0; i < count; ++i) things.push_back(make(i));
        cost.making = std::min(cost.making, (nanoseconds() - start) / count);
        // Pools keep the memory of earlier rounds; only the first one counts.
        if (round == 0) {
            cost.bytes = static_cast<double>(mallinfo2().uordblks - before) / count;
        }
        const double middle = nanoseconds();
        things.clear();
        cost.ending = std::min(cost.ending, (nanoseconds() - middle) / count);
    }
    return cost;
}

struct None {};
std::string bytesOf(None) { return "–"; }
template <class Make>
std::string bytesOf(Make make) {
    // Once: pools keep freed memory.
    static const std::string text = std::to_string(std::lround(measure(make).bytes));
    return text;
}

// The peers' things are `None` where there is nothing of the kind, or no such peer.
template <class Make, class Qt = None, class Glib = None>
void row(const char* name, Make make, Qt qt = {}, Glib glib = {}) {
    const Cost cost = measure(make);
    std::printf("| %s | %.0f | %s | %s | %.0f | %.0f |\n", name, cost.bytes, bytesOf(qt).c_str(),
                bytesOf(glib).c_str(), cost.making, cost.ending);
}

// The same things of the peers; a slot or a signal of an object takes nothing there.
namespace theirs {
#ifdef FXDS_HAVE_QT
const auto qtObject = [](int) { return std::make_unique<QObject>(); };
struct QtConnected {
    QObject from, to;
};
const auto qtConnection = [](int i) {
    static std::vector<QtConnected> pairs(count);
    QtConnected& pair = pairs[static_cast<size_t>(i)];
    const auto made =
        QObject::connect(&pair.from, &QObject::objectNameChanged, &pair.to, &QObject::deleteLater);
    return Ending([made] { QObject::disconnect(made); });
};
const auto qtLambda = [](int i) {
    static std::vector<QtConnected> pairs(count);
    QtConnected& pair = pairs[static_cast<size_t>(i)];
    const auto made = QObject::connect(&pair.from, &QObject::objectNameChanged, &pair.to, [] {});
    return Ending([made] { QObject::disconnect(made); });
};
const auto qtProperty = [](int i) {
    static std::vector<QObject> objects(count);
    QObject* const object = &objects[static_cast<size_t>(i)];
    object->setProperty("cost", 1);
    return Ending([object] { object->setProperty("cost", QVariant()); });
};
const auto qtMessage = [](int i) {
    static QObject receiver;
    QMetaObject::invokeMethod(
        &receiver, [i] { static_cast<void>(i); }, Qt::QueuedConnection);
    return Ending([] { QCoreApplication::sendPostedEvents(); });
};
const auto qtTimer = [](int) {
    auto timer = std::make_unique<QTimer>();
    timer->start(3600000);
    return timer;
};
const auto qtText = [](int) { return QString("twelve bytes"); };
const auto qtEntry = [](int i) {
    static QHash<int, int> table;
    table.insert(i, i);
    return Ending([i] { table.remove(i); });
};
#else
const None qtObject, qtConnection, qtLambda, qtProperty, qtMessage, qtTimer, qtText, qtEntry;
#endif
#ifdef FXDS_HAVE_GOBJECT
GObject* newObject() { return static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr)); }
GObject* oneOf(int i) {
    static std::vector<GObject*> objects(count, nullptr);
    GObject*& object = objects[static_cast<size_t>(i)];
    if (object == nullptr) object = newObject();
    return object;
}
void doNothing(GObject*, GParamSpec*, gpointer) {}
gboolean never(gpointer) { return G_SOURCE_REMOVE; }
const auto glibObject = [](int) {
    GObject* const object = newObject();
    return Ending([object] { g_object_unref(object); });
};
const auto glibConnection = [](int i) {
    GObject* const object = oneOf(i);
    const gulong id = g_signal_connect(object, "notify", G_CALLBACK(doNothing), nullptr);
    return Ending([object, id] { g_signal_handler_disconnect(object, id); });
};
const auto glibProperty = [](int i) {
    GObject* const object = oneOf(i);
    g_object_set_data(object, "cost", object);
    return Ending([object] { g_object_set_data(object, "cost", nullptr); });
};
const auto glibMessage = [](int) {
    const guint source = g_idle_add(never, nullptr);
    return Ending([source] { g_source_remove(source); });
};
const auto glibTimer = [](int) {
    const guint source = g_timeout_add(3600000, never, nullptr);
    return Ending([source] { g_source_remove(source); });
};
const auto glibText = [](int) {
    char* const text = g_strdup("twelve bytes");
    return Ending([text] { g_free(text); });
};
const auto glibEntry = [](int i) {
    static GHashTable* const table = g_hash_table_new(g_direct_hash, g_direct_equal);
    g_hash_table_insert(table, GINT_TO_POINTER(i + 1), GINT_TO_POINTER(i + 7));
    return Ending([i] { g_hash_table_remove(table, GINT_TO_POINTER(i + 1)); });
};
#else
const None glibObject, glibConnection, glibProperty, glibMessage, glibTimer, glibText, glibEntry;
#endif
}  // namespace theirs

void dataflow() {
    row(
        "object (`fxObj`)", [](int) { return std::make_unique<fxObj>(); }, theirs::qtObject,
        theirs::glibObject);
    row(
        "object with one input", [](int) { return std::make_unique<Sink>(); }, theirs::qtObject,
        theirs::glibObject);
    row(
        "object with one input, a lambda",
        [](int) {
            auto object = std::make_unique<fxObj>();
            object->addInput("in", [](int) {});
            return object;
        },
        theirs::qtObject, theirs::glibObject);
    row(
        "object with one output", [](int) { return std::make_unique<Source>(); }, theirs::qtObject,
        theirs::glibObject);
    std::vector<std::unique_ptr<Source>> sources(count);
    std::vector<std::unique_ptr<Sink>> sinks(count);
    for (auto& source : sources) source = std::make_unique<Source>();
    for (auto& sink : sinks) sink = std::make_unique<Sink>();
    row(
        "connection by name",
        [&](int i) {
            const auto n = static_cast<size_t>(i);
            return fxScopedConnection(fxConnect(sources[n].get(), "out", sinks[n].get(), "in"));
        },
        theirs::qtConnection, theirs::glibConnection);
    row(
        "connection to a lambda",
        [&](int i) {
            return fxScopedConnection(fxConnect(sources[static_cast<size_t>(i)]->out, [](int) {}));
        },
        theirs::qtLambda);
    const unsigned short tag = fxPropertyTag("cost");
    row(
        "property, a number",
        [&](int i) {
            fxObj* const object = sinks[static_cast<size_t>(i)].get();
            fxSetProperty(*object, tag, 1);
            return Ending([object, tag] { object->removeProperty(tag); });
        },
        theirs::qtProperty, theirs::glibProperty);
    fxConnect(sources[0].get(), "out", sinks[0].get(), "in");
    row(
        "queued message, an `int`",
        [&](int) {
            sources[0]->out.send(1);
            return Ending([] { fx_theEventHandler->distributeEvents(); });
        },
        theirs::qtMessage, theirs::glibMessage);
}

void others() {
    row(
        "timer that runs (`fxClockTimer`)",
        [](int) {
            auto timer = std::make_unique<fxClockTimer>();
            timer->start(std::chrono::hours(1));
            return timer;
        },
        theirs::qtTimer);
    row(
        "alarm of `fxAfter()`",
        [](int) {
            const fxRef<fxAlarm> alarm = fxAfter(std::chrono::hours(1), [] {});
            return Ending([alarm] { alarm->stop(); });
        },
        None(), theirs::glibTimer);
    row(
        "text of 12 bytes (`fxStr`)", [](int) { return fxStr("twelve bytes"); }, theirs::qtText,
        theirs::glibText);
    fxTypedDictionary<int, int> table(count);
    row(
        "entry of a dictionary of ints",
        [&](int i) {
            table[i] = i;
            return Ending([&table, i] { table.remove(i); });
        },
        theirs::qtEntry, theirs::glibEntry);
}

}  // namespace

int main(int argc, char** argv) {
#ifdef FXDS_HAVE_QT
    QCoreApplication application(argc, argv);  // which its timers and messages need
#endif
    static_cast<void>(argc);
    static_cast<void>(argv);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);  // what a round has freed is there for the next
    fxInitializeToolkit();
    std::printf("| One | Bytes | Qt | GLib | Make, ns | End, ns |\n|---|---|---|---|---|---|\n");
    dataflow();
    others();
    fxCleanupGlobalOrderings();
}
