// The idioms of qt.cc, glib.cc and boost.cc with this library. A test compares what
// the programs print.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

#include "fxds/fxds.h"

using namespace std::chrono_literals;

// Connections

class Slider : public fxObj {
public:
    void setLevel(int level) { moved.send(level, fxSendNow); }

    const fxOutput<int> moved = addOutput<int>("moved");
};

static void connections() {
    const auto show = [](int level) { std::printf("connections: %d\n", level); };
    Slider slider;
    fxConnection shown = fxConnect(slider.moved, show);
    slider.setLevel(1);
    shown.disconnect();
    slider.setLevel(2);
    {
        fxObj context;
        fxConnect(slider.moved, &context, show);
        slider.setLevel(3);
    }  // the connection ends with its context
    slider.setLevel(4);
}

// Queued calls

static void queued() {
    Slider slider;
    fxConnect(slider.moved, [](int level) { std::printf("queued: %d\n", level); });
    slider.moved.send(5);
    std::printf("queued: sent\n");
    fx_theEventHandler->drain();
}

// Timers

static void timers() {
    int ticks = 0;
    fxRef<fxAlarm> blinking;
    blinking = fxEvery(2ms, [&] {
        if (++ticks < 3) return;
        blinking->stop();
        fxAfter(5ms, [] { fx_theExecutive->quit(); });
    });
    fx_theExecutive->run();
    std::printf("timers: %d ticks\n", ticks);
}

// Threads

static void threads() {
    fxPostQueue queue;
    std::thread worker([&queue] {
        queue.post([] {
            std::printf("threads: done\n");
            fx_theExecutive->quit();
        });
    });
    fx_theExecutive->run();
    worker.join();
}

// Signals of the system

static void signals() {
    fxSignal user(SIGUSR1);
    fxConnect(user.signal(), [](int) {
        std::printf("signals: SIGUSR1\n");
        fx_theExecutive->quit();
    });
    raise(SIGUSR1);
    fx_theExecutive->run();
}

// Texts

static void texts() {
    const fxStrArray parts = fxStr("b,a,,c").split(',');
    std::printf("texts: %s\n", parts.join("-").c_str());
    const std::optional<int> number = fxStr("42").toInt();
    std::printf("texts: %d, %s\n", *number, fxStr("4x").toInt() ? "4" : "no number");
}

// Tables

static void tables() {
    fxTypedDictionary<fxStr, int> ages{{"ada", 36}, {"bob", 41}};
    ages["cyd"] = 5;
    std::printf("tables: %d %d\n", ages.value("ada", 0), ages.value("eve", -1));
    const std::optional<int> bob = ages.take("bob");
    std::printf("tables: %d, %u left\n", *bob, ages.size());
}

// Expressions

static void expressions() {
    const fxStr line = "a=1 b=22";
    for (const fxMatch& match : fxExpression("([a-z])=([0-9]+)").all(line)) {
        std::printf("expressions: %s %s\n", fxStr(match[1]).c_str(), fxStr(match[2]).c_str());
    }
}

// Sharing

class Page : public fxObj {
public:
    Page() = default;
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;
    ~Page() override { std::printf("sharing: the page ends\n"); }
};

static void sharing() {
    fxRef<Page> first = fxMake<Page>();
    fxRef<Page> second = first;
    first.reset();
    std::printf("sharing: one holder left\n");
    second.reset();
}

// Properties

static void properties() {
    fxObj lamp;
    fxConnect(lamp.propertyChanged("watts"), [] { std::printf("properties: changed\n"); });
    fxSetProperty(lamp, "watts", 60);
    std::printf("properties: %d %d\n", fxGetProperty(lamp, "watts", 0),
                fxGetProperty(lamp, "volts", 230));
}

// Saving

class Settings : public fxXDRObj {
    FX_TRANSCRIBABLE(Settings)

    fxStr place = "south";
    int level = 7;
};
FX_TRANSCRIBABLE_TYPE(Settings, "Settings", 1);

fxBool Settings::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrAll(t, place, level);
}

static void saving() {
    Settings settings;
    if (fxSave("peers.saved", &settings)) return;
    if (const fxLoaded<Settings> loaded = fxLoad<Settings>("peers.saved")) {
        std::printf("saving: %s %d\n", loaded->place.c_str(), loaded->level);
    }
    unlink("peers.saved");
    std::printf("saving: %s\n", fxLoad<Settings>("peers.saved").fault() ? "no file" : "a file");
}

int main() {
    fxInitializeToolkit();
    connections();
    queued();
    timers();
    threads();
    signals();
    texts();
    tables();
    expressions();
    sharing();
    properties();
    saving();
    fxCleanupGlobalOrderings();
}
