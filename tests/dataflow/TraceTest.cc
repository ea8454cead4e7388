#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "tests/support/Dataflow.h"
#include "tests/support/RunProgram.h"

namespace {

class Counter : public fxTimer {
public:
    Counter() : fxTimer(1), count(addOutput<int>("count")) {}
    void tick() override { count.send(++ticks); }

    int ticks = 0;
    fxOutput<int> count;
};

class Printer : public fxObj {
public:
    Printer() {
        addInput<&Printer::print>("text");
        addInput<&Printer::keep>("latest", 1);
        addInput<&Printer::stop>("stop");
    }
    const char* className() const override { return "Printer"; }
    void print(const char* text) { printed += text; }
    void keep(int value) { kept = value; }
    void stop() {
        if (counter != nullptr) counter->stopTimer();
    }

    fxTimer* counter = nullptr;
    std::string printed;
    int kept = 0;
};

class Redraw : public fxEvent {
public:
    Redraw() : fxEvent(77) {}
    const char* className() const override { return "Redraw"; }
    void deliver() override { errno = 5; }
};

class Trace : public Dataflow {
protected:
    Trace() { fxTrace::setSink(note, &lines); }
    ~Trace() override {
        fxTrace::enable(0U);
        fxTrace::setSink(nullptr, nullptr);
    }
    static void note(void* closure, const char* line, size_t length) {
        EXPECT_EQ(strlen(line), length);
        errno = 99;
        // What the sink does is not traced, and so does not come back here.
        fxObj sender;
        fxObj::sendInt(sender.addOutput<int>("out"), 1, fxObj::fxSendNow);
        *static_cast<std::string*>(closure) += std::string(line) + '\n';
    }
    std::string taken() { return std::exchange(lines, ""); }

    std::string lines;
};

void nothing() {}

// A poll with its timers, a descriptor and a queue, from beginning to end.
TEST_F(Trace, TellsOfANetworkLineByLine) {
    auto counter = std::make_unique<Counter>();
    Printer printer;
    printer.counter = counter.get();
    for (const char* input : {"text", "latest", "stop"}) {
        counter->connect("count", &printer, input);
    }
    fxWakeup wakeup;
    const std::string fd = std::to_string(wakeup.getFd());
    fx_theExecutive->addPreSelectFunc(nothing);
    EXPECT_TRUE(fxTrace::enable(" send ,events,,timers, loop"));
    EXPECT_EQ(fx_traceKinds, fxTrace::all);
    counter->startTimer();
    fx_theExecutive->poll(1);
    EXPECT_EQ(taken(),
              "fxds timer   start Counter#1, 0 s\n"
              "fxds loop    pre-select, functions 1\n"
              "fxds loop    select, at most 0 s\n"
              "fxds loop    timers, 0 s passed\n"
              "fxds timer   tick Counter#1, 0 s\n"
              "fxds send    Counter#1.count int 1, queued, 3 connections\n"
              "fxds timer   start Counter#1, 0 s\n"
              "fxds loop    post-select, functions 0\n"
              "fxds loop    distribute, events 3\n"
              "fxds deliver Printer#1.text int 1, converted to char*\n"
              "fxds deliver Printer#1.latest int 1\n"
              "fxds deliver Printer#1.stop int 1\n"
              "fxds timer   stop Counter#1, 0 s\n");
    EXPECT_EQ(printer.printed, "1");

    wakeup.wake();
    fx_theEventHandler->postEvent(new Redraw, 0);
    errno = 0;
    fx_theExecutive->poll(1000);
    EXPECT_EQ(errno, 5);
    EXPECT_EQ(taken(),
              "fxds loop    pre-select, functions 1\n"
              "fxds loop    select, at most 0 s\n"
              "fxds loop    read, fd " +
                  fd +
                  "\n"
                  "fxds send    fxWakeup#1.wakeup void, queued, 0 connections\n"
                  "fxds loop    post-select, functions 0\n"
                  "fxds loop    distribute, events 1\n"
                  "fxds deliver Redraw, event type 77\n");
    fx_theExecutive->removePreSelectFunc(nothing);
}

TEST_F(Trace, NumbersObjectsAsLongAsTheyLive) {
    EXPECT_TRUE(fxTrace::enable("send"));
    std::make_unique<Counter>()->count.send(1);
    auto counter = std::make_unique<Counter>();
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
    EXPECT_EQ(taken(),
              "fxds send    Counter#1.count int 1, queued, 0 connections\n"
              "fxds send    Counter#2.count int 1, queued, 0 connections\n"
              "fxds send    Counter#3.count int 1, queued, 0 connections\n"
              "fxds send    Counter#4.count int 1, queued, 0 connections\n"
              "fxds timer   stop Counter#1, 0 s\n");
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
    EXPECT_EQ(Redraw().getInputNames().length(), 0u);
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
    fxOutput<bool> flag(hub.addOutput<bool>("flag"));
    fxOutput<long> whole(hub.addOutput<long>("whole"));
    fxOutput<float> part(hub.addOutput<float>("part"));
    fxOutput<double> real(hub.addOutput<double>("real"));
    fxOutput<fxStr> text(hub.addOutput<fxStr>("text"));
    fxOutput<const char*> line(hub.addOutput<const char*>("line"));
    fxOutput<fxStrArray> list(hub.addOutput<fxStrArray>("list"));
    fxOutput<void> bang(hub.addOutput<void>("bang"));
    fxOutput<int> number(hub.addOutput<int>("number"));
    Printer printer;
    hub.connect("number", &printer, "latest");
    fxTrace::enable(fxTrace::all);
    flag.send(true, fxObj::fxSendNow);
    whole.send(-5000000000L);
    part.send(-0.25f);
    real.send(0.5, fxObj::fxSendNow);
    text.send(fxStr("a\"b\\\n"), fxObj::fxSendUrgent);
    text.send(fxStr(std::string(61, 'x').c_str()));
    line.send("", fxObj::fxSendNow);
    fxStrArray two;
    two.append(fxStr("1"));
    two.append(fxStr("2"));
    list.send(two);
    bang.send(fxObj::fxSendNow);
    number.send(6);
    number.send(7);
    number.send(8, fxObj::fxSendNow);
    fxObj::sendData(number, new CountedData(9), fxObj::fxSendNow);
    fxOutputChannel ownerless(fxDT_VoidPtr);
    ownerless.deliver(static_cast<void*>(&hub));
    fxTrace::enable(0U);
    const std::string expected =
        "fxds send    fxObj#1.flag bool true, now, 0 connections\n"
        "fxds send    fxObj#1.whole long -5000000000, queued, 0 connections\n"
        "fxds send    fxObj#1.part float -0.25, queued, 0 connections\n"
        "fxds send    fxObj#1.real double 0.5, now, 0 connections\n"
        "fxds send    fxObj#1.text fxStr \"a\\\"b\\\\\\x0a\", urgent, 0 connections\n"
        "fxds send    fxObj#1.text fxStr \"" +
        std::string(60, 'x') +
        "\"..., queued, 0 connections\n"
        "fxds send    fxObj#1.line char* \"\", now, 0 connections\n"
        "fxds send    fxObj#1.list fxStrArray of 2, queued, 0 connections\n"
        "fxds send    fxObj#1.bang void, now, 0 connections\n"
        "fxds send    fxObj#1.number int 6, queued, 1 connection\n"
        "fxds send    fxObj#1.number int 7, queued, 1 connection\n"
        "fxds replace Printer#1.latest int 6\n"
        "fxds send    fxObj#1.number int 8, now, 1 connection\n"
        "fxds deliver Printer#1.latest int 8\n"
        "fxds replace Printer#1.latest int 7\n"
        "fxds send    fxObj#1.number int 9, now, 1 connection\n"
        "fxds deliver Printer#1.latest int 9\n"
        "fxds send    (no object) void*, now, 0 connections\n";
    EXPECT_EQ(taken(), expected);
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
    Fickle fickle;
    fxObj::sendInt(fickle.addOutput<int>("out"), 1);
    EXPECT_FALSE(isUnderstood);
    EXPECT_EQ(fx_traceKinds, 0U);
}

TEST_F(Trace, ReportsHoldersOfDeletedObjects) {
    EXPECT_TRUE(fxTrace::enable("held"));
    fxObj holder;
    const unsigned short tag = fxProperty::allocNewTag("held");
    for (unsigned long holders = 0; holders < 3; ++holders) {
        Printer printer;
        printer.take();
        holder.setProperty(new fxProperty(tag, &printer));
        holder.removeProperty(tag);
        printer.refCount = holders;
    }
    EXPECT_EQ(taken(),
              "fxds held    Printer#2, deleted with 1 holder\n"
              "fxds held    Printer#3, deleted with 2 holders\n");
}

TEST_F(Trace, TellsOfUnknownWords) {
    EXPECT_FALSE(fxTrace::enable("sends,loop, \x01x ,loop"));
    EXPECT_EQ(fx_traceKinds, fxTrace::loop);
    EXPECT_TRUE(fxTrace::enable(static_cast<const char*>(nullptr)));
    EXPECT_EQ(fx_traceKinds, 0U);
    EXPECT_EQ(taken(),
              "fxds trace   unknown word \"sends\"; there are send, events, timers, loop, all, "
              "held, connect, streams\n"
              "fxds trace   unknown word \"\\x01x\"; there are send, events, timers, loop, all, "
              "held, connect, streams\n");
}

// The environment asks, and the lines go to standard error, also after main().
TEST(TraceOfAProcess, IsAskedForByTheEnvironment) {
    if (std::getenv("FXDS_TRACE") != nullptr) {  // the process that is traced
        fxInitializeToolkit();
        std::atexit([] { Counter().count.send(2); });
        Counter().count.send(1);
        return;
    }
    const Result traced = run(
        {{"/proc/self/exe", "--gtest_filter=TraceOfAProcess.*"}, ".", {{"FXDS_TRACE", "send,x"}}});
    EXPECT_EQ(traced.status, 0);
    EXPECT_EQ(traced.errors,
              "fxds trace   unknown word \"x\"; there are send, events, timers, loop, all, held, "
              "connect, streams\n"
              "fxds send    Counter#1.count int 1, queued, 0 connections\n"
              "fxds send    Counter#2.count int 2, queued, 0 connections\n");
}

}  // namespace
