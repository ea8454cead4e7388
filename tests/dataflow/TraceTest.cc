// What is traced, line by line.
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>

#include "tests/support/Dataflow.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Traced.h"

namespace {

struct Counter : fxTimer {
    Counter() : fxTimer(1) {}
    void tick() override { count.send(++ticks); }
    int ticks = 0;
    fxOutput<int> count = addOutput<int>("count");
};

struct Printer : fxObj {
    explicit Printer(fxTimer* counter = nullptr) {
        addInput("text", [](const char*) {});
        addInput(
            "latest", [](int) {}, 1);
        addInput("stop", [counter] { counter->stopTimer(); });
    }
    const char* className() const override { return "Printer"; }
};

struct Redraw : fxEvent {
    Redraw() : fxEvent(77) {}
    const char* className() const override { return "Redraw"; }
    void deliver() override { errno = 5; }
};

class Trace : public Dataflow {};

void nothing() {}

// A poll with its timers, a descriptor and a queue, from beginning to end.
TEST_F(Trace, TellsOfANetworkLineByLine) {
    Counter counter;
    Printer printer(&counter);
    for (const char* input : {"text", "latest", "stop"}) counter.connect("count", &printer, input);
    fxWakeup wakeup;
    fx_theExecutive->addPreSelectFunc(nothing);
    const std::string lines = traced(" send ,events,,timers, loop", [&] {
        EXPECT_EQ(fx_traceKinds, fxTrace::all);
        counter.startTimer();
        fx_theExecutive->poll(1);
        wakeup.wake();
        fx_theEventHandler->postEvent(new Redraw, 0);
        errno = 0;
        fx_theExecutive->poll(1000);
        EXPECT_EQ(errno, 5);
    });
    fx_theExecutive->removePreSelectFunc(nothing);
    EXPECT_EQ(lines, R"(fxds timer   start Counter#1, 0 s
fxds loop    pre-select, functions 1
fxds loop    select, at most 0 s
fxds loop    timers, 0 s passed
fxds timer   tick Counter#1, 0 s
fxds send    Counter#1.count int 1, queued, 3 connections
fxds timer   start Counter#1, 0 s
fxds loop    post-select, functions 0
fxds loop    distribute, events 3
fxds deliver Printer#1.text int 1, converted to char*
fxds deliver Printer#1.latest int 1
fxds deliver Printer#1.stop int 1
fxds timer   stop Counter#1, 0 s
fxds loop    pre-select, functions 1
fxds loop    select, at most 0 s
fxds loop    read, fd )" +
                         std::to_string(wakeup.getFd()) +
                         R"(
fxds send    fxWakeup#1.wakeup void, queued, 0 connections
fxds loop    post-select, functions 0
fxds loop    distribute, events 1
fxds deliver Redraw, event type 77
)");
}

TEST_F(Trace, NumbersObjectsAsLongAsTheyLive) {
    auto counter = std::make_unique<Counter>();
    EXPECT_EQ(traced("send",
                     [&] {
                         Counter().count.send(1);
                         counter->count.send(1);
                         std::optional<Counter> place(std::in_place);
                         place->count.send(1);
                         place.emplace();  // where the one before it was
                         place->count.send(1);
                         counter->startTimer();
                         fxTrace::enable(0U);
                         counter->count.send(2);
                         fxTrace::enable(fxTrace::timers);
                         counter->stopTimer();
                         fxTrace::enable("held");
                         for (unsigned long holders = 0; holders < 3; ++holders) {
                             Printer printer;
                             printer.take();
                             fxProperty(0, &printer).cleanup();
                             printer.refCount = holders;
                         }
                         EXPECT_FALSE(fxTrace::enable("sends,loop, \x01x ,loop"));
                         EXPECT_EQ(fx_traceKinds, fxTrace::loop);
                         EXPECT_TRUE(fxTrace::enable(static_cast<const char*>(nullptr)));
                         EXPECT_EQ(fx_traceKinds, 0U);
                     }),
              R"(fxds send    Counter#1.count int 1, queued, 0 connections
fxds send    Counter#2.count int 1, queued, 0 connections
fxds send    Counter#3.count int 1, queued, 0 connections
fxds send    Counter#4.count int 1, queued, 0 connections
fxds timer   stop Counter#1, 0 s
fxds held    Printer#2, deleted with 1 holder
fxds held    Printer#3, deleted with 2 holders
fxds trace   unknown word "sends"; there are send, events, timers, loop, all, held, connect, streams
fxds trace   unknown word "\x01x"; there are send, events, timers, loop, all, held, connect, streams
)");
}

// What an object has can be found without knowing a name beforehand.
TEST_F(Trace, ObjectsTellWhatTheyHave) {
    Counter counter;
    Printer printer;
    counter.connect("count", &printer, "text");
    counter.connect("tick", &printer, "stop");
    counter.setProperty(new fxProperty(fxProperty::allocNewTag("pace"), 5L));
    counter.setProperty(new fxProperty(50000, 5L));
    EXPECT_STREQ(counter.findProperty("pace")->getName(), "pace");
    EXPECT_EQ(counter.findProperty(50000)->getName(), nullptr);
    EXPECT_EQ((*counter.getOutput("count"))[0]->getName(), nullptr);  // a converter's entry
    std::ostringstream picture;  // calls objects as lines do: Counter has no className()
    fxDumpNetwork(picture, &printer);
    for (const char* part : {"|Counter\\npace : long = 5\\n", "count", "tick", "latest", "stop"}) {
        EXPECT_NE(picture.str().find(part), std::string::npos) << picture.str();
    }
}

// Values of every kind at once, through the queue and boxed, and what is
// replaced before it arrives.
TEST_F(Trace, ShowsValues) {
    fxObj hub;
    const auto number = hub.addOutput<int>("number");
    Printer printer;
    hub.connect("number", &printer, "latest");
    EXPECT_EQ(traced(fxTrace::all,
                     [&] {
                         hub.addOutput<bool>("flag").send(true, fxObj::fxSendNow);
                         hub.addOutput<long>("whole").send(-5000000000L);
                         hub.addOutput<float>("part").send(-0.25f);
                         hub.addOutput<double>("real").send(0.5, fxObj::fxSendNow);
                         const auto text = hub.addOutput<fxStr>("text");
                         text.send(fxStr("a\"b\\\n"), fxObj::fxSendUrgent);
                         text.send(fxStr(std::string(61, 'x').c_str()));
                         hub.addOutput<const char*>("line").send("", fxObj::fxSendNow);
                         hub.addOutput<fxStrArray>("list").send(fxStrArray{"1", "2"});
                         hub.addOutput<void>("bang").send(fxObj::fxSendNow);
                         number.send(6);
                         number.send(7);
                         number.send(8, fxObj::fxSendNow);
                         fxObj::sendData(number, new CountedData(9), fxObj::fxSendNow);
                         fxOutputChannel(fxDT_VoidPtr).deliver(static_cast<void*>(&hub));
                     }),
              R"(fxds send    fxObj#1.flag bool true, now, 0 connections
fxds send    fxObj#1.whole long -5000000000, queued, 0 connections
fxds send    fxObj#1.part float -0.25, queued, 0 connections
fxds send    fxObj#1.real double 0.5, now, 0 connections
fxds send    fxObj#1.text fxStr "a\"b\\\x0a", urgent, 0 connections
fxds send    fxObj#1.text fxStr ")" +
                  std::string(60, 'x') + R"("..., queued, 0 connections
fxds send    fxObj#1.line char* "", now, 0 connections
fxds send    fxObj#1.list fxStrArray of 2, queued, 0 connections
fxds send    fxObj#1.bang void, now, 0 connections
fxds send    fxObj#1.number int 6, queued, 1 connection
fxds send    fxObj#1.number int 7, queued, 1 connection
fxds replace Printer#1.latest int 6
fxds send    fxObj#1.number int 8, now, 1 connection
fxds deliver Printer#1.latest int 8
fxds replace Printer#1.latest int 7
fxds send    fxObj#1.number int 9, now, 1 connection
fxds deliver Printer#1.latest int 9
fxds send    (no object) void*, now, 0 connections
)");
}

// What a line asks may switch tracing off and on, and the sink ask for nonsense.
TEST_F(Trace, ToleratesSwitchingInALine) {
    struct Fickle : fxObj {
        const char* className() const override {
            fxTrace::enable(0U);
            fxTrace::enable(fxTrace::sends);
            return "Fickle";
        }
    };
    bool isUnderstood = true;
    fxTrace::setSink([](void* closure, const char*,
                        size_t) { *static_cast<bool*>(closure) = fxTrace::enable("nonsense"); },
                     &isUnderstood);
    fxTrace::enable(fxTrace::sends);
    Fickle().addOutput<int>("out").send(1);
    fxTrace::setSink(nullptr, nullptr);
    EXPECT_FALSE(isUnderstood);
    EXPECT_EQ(fx_traceKinds, 0U);
}

// The environment asks, and the lines go to standard error, also after main().
TEST(TraceOfAProcess, IsAskedForByTheEnvironment) {
    if (std::getenv("FXDS_TRACE") != nullptr) {  // the process that is traced
        fxInitializeToolkit();
        std::atexit([] { Counter().count.send(2); });
        Counter().count.send(1);
        return;
    }
    const Result child = run(
        {{"/proc/self/exe", "--gtest_filter=TraceOfAProcess.*"}, ".", {{"FXDS_TRACE", "send,x"}}});
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors,
              "fxds trace   unknown word \"x\"; there are send, events, timers, loop, all, held, "
              "connect, streams\n"
              "fxds send    Counter#1.count int 1, queued, 0 connections\n"
              "fxds send    Counter#2.count int 2, queued, 0 connections\n");
}

}  // namespace
