// What programs connect with: callables, values of their own, connections and
// properties by name.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fxds/ChannelValue.h"
#include "fxds/Connection.h"
#include "fxds/Converter.h"
#include "fxds/EventHandler.h"
#include "fxds/Globals.h"
#include "fxds/PropertyAccess.h"
#include "fxds/Ref.h"
#include "fxds/StrArray.h"
#include "fxds/Trace.h"

struct Point {
    int x, y;
};
FX_CHANNEL_VALUE(Point, "Point")

namespace {

constexpr fxObj::fxSendFlags now = fxObj::fxSendNow;

struct Source : fxObj {
    const char* className() const override { return "Source"; }

    fxOutput<int> number = addOutput<int>("number");
    fxOutput<double> fraction = addOutput<double>("fraction");
    fxOutput<bool> truth = addOutput<bool>("truth");
    fxOutput<Point> place = addOutput<Point>("place");
    fxOutput<fxStr> text = addOutput<fxStr>("text");
    fxOutput<std::string> words = addOutput<std::string>("words");
};

struct Sink : fxObj {
    const char* className() const override { return "Sink"; }
    Sink() {
        addInput("number", [this](int v) { value = v; });
        addInput("any", [this] { value = -1; });
        addInput("itself", [this, alive = fxMake<fxObj>()](int v) {
            removeInput("itself");
            value = v + static_cast<int>(alive->refCount);
        });
        addInput<int>("wide", [this](auto v) { value = v + 1; });
        addInput<&Sink::setPlace>("place");
        addInput<&Sink::setText>("text");
        addInput<fxStr>("view", [this](std::string_view v) { text = v; });
        addInput("string", [this](const std::string& v) { text = v; });
        addInput("names", [](const fxStrArray&) {});
        addInput("truth", [this](bool v) { value = v ? 1 : 0; });
        addInput("fraction", [this](double v) { fraction = v; });
        addInput("fxStr", [this](const fxStr& v) { text = v.c_str(); });
    }
    void setPlace(const Point& p) { value = p.y; }
    void setText(std::string_view v) { text = v; }
    void setLong(long v) noexcept { value = static_cast<int>(v); }
    void take(int) {}  // hides what counts the holders

    int value = 0;
    double fraction = 0;
    std::string text;
};

constexpr Point far{4, 5};
int xOf(const Point& p) { return p.x; }

struct Receivers : testing::Test {
    static void SetUpTestSuite() {
        fxInitializeToolkit();
        fxConverter::createMoreConverters();
        fxConverter::add<xOf>();
        fxConverter::add([](const Point& p) { return std::to_string(p.x); });
    }
    Source source;
    Sink sink;
};

TEST_F(Receivers, EveryKindOfReceiverGetsEveryWayOfSending) {
    const struct {
        const char* output;
        const char* input;
        void (*send)(Source&, fxObj::fxSendFlags);
        int value;
        const char* text;
    } rows[] = {
        {"number", "number", [](Source& s, auto how) { s.number.send(7, how); }, 7, ""},
        {"number", "any", [](Source& s, auto how) { s.number.send(7, how); }, -1, ""},
        {"number", "wide", [](Source& s, auto how) { s.number.send(7, how); }, 8, ""},
        {"number", "itself", [](Source& s, auto how) { s.number.send(7, how); }, 8, ""},
        {"place", "place", [](Source& s, auto how) { s.place.send(far, how); }, 5, ""},
        {"place", "number", [](Source& s, auto how) { s.place.send(far, how); }, 4, ""},
        {"place", "string", [](Source& s, auto how) { s.place.send(far, how); }, 0, "4"},
        {"text", "text", [](Source& s, auto how) { s.text.send(std::string("a"), how); }, 0, "a"},
        {"text", "view", [](Source& s, auto how) { s.text.send(fxStr("a") | "b", how); }, 0, "ab"},
        {"words", "string", [](Source& s, auto how) { s.words.send(fxStr("w"), how); }, 0, "w"},
        {"number", "fxStr", [](Source& s, auto how) { s.number.send(-5, how); }, 0, "-5"},
        {"fraction", "fxStr", [](Source& s, auto how) { s.fraction.send(0.1, how); }, 0, "0.1"},
        {"truth", "fxStr", [](Source& s, auto how) { s.truth.send(true, how); }, 0, "true"},
        {"text", "truth", [](Source& s, auto how) { s.text.send("true", how); }, 1, ""},
        {"text", "number", [](Source& s, auto how) { s.text.send("99999999999", how); }, 2147483647,
         ""},
        {"text", "number", [](Source& s, auto how) { s.text.send("-1.5e3x", how); }, -1500, ""},
    };
    for (const auto& row : rows) {
        for (const auto how : {now, fxObj::fxSendQueued, fxObj::fxSendUrgent}) {
            Sink target;
            const fxConnection joined = fxConnect(&source, row.output, &target, row.input);
            ASSERT_TRUE(joined) << joined.whyNot();
            row.send(source, how);
            fx_theEventHandler->distributeEvents();
            EXPECT_EQ(target.value, row.value) << row.output << " -> " << row.input;
            EXPECT_EQ(target.text, row.text) << row.output << " -> " << row.input;
        }
    }
    fxStr shown;
    source.addOutput<fxStr>("own");
    sink.addInput("shown", [&](const fxStr& v) { shown = v; });
    source.connect("fraction", &sink, "shown");
    for (const double value : {1.0 / 3, 1e300, -0.0, 5e-324, 2.5}) {
        source.fraction.send(value, now);
        EXPECT_EQ(std::strtod(shown, nullptr), value);
    }
    EXPECT_STREQ(fxDataTypeName(fxChannelType<Point>::type()), "Point");
    EXPECT_EQ(fxChannelType<Point>::type(), 12);
}

TEST_F(Receivers, ConnectionsSayWhyTheyAreNotMade) {
    const struct {
        const char* output;
        fxObj* target;
        const char* input;
        const char* why;
    } rows[] = {
        {"number", &sink, "numbr",
         "Source.number (int) -> Sink.numbr: Sink has no input \"numbr\"; did you mean "
         "\"number\"?"},
        {"nmber", &sink, "number",
         "Source.nmber -> Sink.number (int): Source has no output \"nmber\"; did you mean "
         "\"number\"?"},
        {"number", &source, "z\033z",
         "Source.number (int) -> Source.z?z: Source has no input \"z?z\", nor any other"},
        {"place", &sink, "names",
         "Source.place (Point) -> Sink.names (fxStrArray): no converter leads from Point to "
         "fxStrArray"},
        {"number", nullptr, "x", "Source.number (int) -> null.x: there is no target"},
        {"number", &sink, "number", ""},
    };
    for (const auto& row : rows) {
        const fxConnection joined = fxConnect(&source, row.output, row.target, row.input);
        EXPECT_STREQ(joined.whyNot(), row.why);
        EXPECT_EQ(joined.isConnected(), row.why[0] == '\0');
    }
    Sink* const none = nullptr;
    EXPECT_STREQ(fxConnect(source.number, none, &Sink::setLong).whyNot(), "there is no target");
    EXPECT_STREQ(fxConnect(source.number, none, [](int) {}).whyNot(), "there is no context");
    testing::internal::CaptureStderr();
    {
        fxConnection last = fxConnection(fxConnection("copied"));
        last = fxConnection(last);
        const fxScopedConnection other = fxConnection("moved");
    }
    fxConnect(source.number, none, &Sink::setLong).disconnect();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "fxConnect: moved\nfxConnect: copied\nfxConnect: there is no target\n");
    std::vector<std::string> lines;
    fxTrace::setSink([](void* to, const char* line,
                        size_t) { static_cast<std::vector<std::string>*>(to)->push_back(line); },
                     &lines);
    fxTrace::enable("connect");
    source.connect("number", &sink, "levle");
    source.connect("number", &sink, "any");
    fxTrace::enable(0u);
    fxTrace::setSink(nullptr, nullptr);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("no input \"levle\""), std::string::npos);
    EXPECT_EQ(lines[1], "fxds connect Source#1.number (int) -> Sink#1.any (void)");
}

TEST_F(Receivers, ConnectionsEndWithTheirEndsAndWhenTheyAreCut) {
    const auto alive = fxMake<fxObj>();
    fxConnection joined = fxConnect(&source, "number", &sink, "wide");
    joined.disconnect();
    EXPECT_FALSE(joined);
    int calls = 0;
    {
        const fxScopedConnection scoped = fxConnect(source.number, [&] { ++calls; });
        source.number.send(1, now);
    }
    source.number.send(1, now);
    EXPECT_EQ(calls, 1);
    fxConnection ended;
    {
        Sink context;
        ended = fxConnect(source.number, &context, [&](long) { ++calls; });
        const fxConnection typed = fxConnect(source.number, &context, &Sink::setLong);
        source.number.send(2, now);
        EXPECT_EQ(context.value, 2);
        source.number.send(3);  // withdrawn with the context
    }
    fx_theEventHandler->distributeEvents();
    source.number.send(4, now);
    EXPECT_EQ(calls, 2);
    EXPECT_FALSE(ended);
    {
        Source other;
        ended = fxConnect(other.number, [alive] {});
        EXPECT_TRUE(ended);
    }
    EXPECT_FALSE(ended);
    EXPECT_EQ(alive->refCount, 1u);
    ended.disconnect();
    joined = fxConnect(source.number, [&](int) { joined.disconnect(); });
    source.number.send(5, now);
    EXPECT_FALSE(joined);
}

// Acts when it ends.
struct Ending {
    explicit Ending(std::function<void()> act_) : act(std::move(act_)) {}
    Ending(Ending&& other) noexcept : act(std::exchange(other.act, nullptr)) {}
    ~Ending() {
        if (act) std::exchange(act, nullptr)();
    }
    void operator()(int) const {}
    std::function<void()> act;
};

TEST_F(Receivers, WhatEndsMaySendConnectAndCut) {
    int calls = 0;
    {
        fxObj object;
        const auto output = object.addOutput<int>("out");
        Sink other;
        fxConnect(output, [&calls] { ++calls; });
        fxConnect(output, Ending([output, &other] {
                      output.send(1, now);
                      output.send(2);
                      fxConnect(output, [](int) {});
                      other.removeInput("number");
                  }));
        fxConnection last;
        last = fxConnect(output, Ending([&last] { last = fxConnection(last.whyNot()); }));
        fxConnect(output.get() != nullptr ? &object : nullptr, "out", &other, "number");
        object.removeOutput("out");
    }
    fx_theEventHandler->drain();
    EXPECT_EQ(calls, 0);
    {
        fxScopedConnection scoped;
        scoped = fxConnect(source.number, Ending([&] {
                               scoped = fxConnect(source.number, [&calls](int) { ++calls; });
                           }));
        scoped = fxConnect(source.number, [](int) {});
        EXPECT_TRUE(scoped.isConnected());
    }
    EXPECT_EQ(source.number.get()->getNumberOfConnections(), 0u);
    const auto texts = source.addOutput<const char*>("texts");
    fxConnect(texts,
              [&](std::string_view text) { calls += text.data() == nullptr || text.empty(); });
    fxConnect(texts, [&](const std::string& text) { calls += text.empty(); });
    fxConnect(texts, &sink, &Sink::setText);
    texts.send(nullptr, now);
    EXPECT_EQ(calls, 2);
    fxSetProperty(sink, "text", static_cast<const char*>(nullptr));
    EXPECT_EQ(fxGetProperty<std::string>(sink, "text", "none"), "");
}

TEST_F(Receivers, PropertiesAreReadAndSetByType) {
    fxObj object;
    int changes = 0;
    fxConnect(object.propertyChanged("size"), [&] { ++changes; });
    fxSetProperty(object, "size", 300);
    EXPECT_EQ(fxGetProperty<int>(object, "size"), 300);
    EXPECT_EQ(fxGetProperty<double>(object, "size"), 300.0);
    EXPECT_EQ(fxGetProperty<unsigned char>(object, "size", 7), 7);
    EXPECT_EQ(fxGetProperty<std::string>(object, "size", "none"), "none");
    EXPECT_EQ(fxGetProperty<bool>(object, fxPropertyTag("no such property"), true), true);
    fxSetProperty(object, "size", -3L);
    EXPECT_EQ(fxGetProperty<unsigned long>(object, "size", 7UL), 7UL);
    fxSetProperty(object, "far", 1e300);
    EXPECT_EQ(fxGetProperty<float>(object, "far", 7.0F), 7.0F);
    for (int i = 0; i < 3; ++i) {
        if (i == 0) fxSetProperty(object, "name", "text");
        if (i == 1) fxSetProperty(object, "name", std::string_view("text"));
        if (i == 2) fxSetProperty(object, "name", fxStr("te") | "xt");
        EXPECT_EQ(fxGetProperty<std::string>(object, "name"), "text");
    }
    fxSetProperty(object, "place", Point{1, 2});
    EXPECT_EQ(fxGetProperty<Point>(object, "place").y, 2);
    const fxRef<Sink> held = fxMake<Sink>();
    fxSetProperty(object, "held", held);
    EXPECT_EQ(fxGetProperty<Sink*>(object, "held"), held);
    EXPECT_EQ(fxGetProperty<fxRef<Source>>(object, "held"), nullptr);
    EXPECT_EQ(held->refCount, 2u);
    const fxScopedConnection bound = fxBindProperty(object, "size", source.number);
    source.number.send(12, now);
    object.removeProperty("size");
    EXPECT_EQ(changes, 4);
    auto* ends = new fxObj;
    ends->take();
    fxConnect(ends->propertyChanged("size"), [&] { ends->release(); });
    fxSetProperty(*ends, "size", 1);
}

struct Link : fxRCObj {
    explicit Link(fxRef<Link> next_) : next(std::move(next_)) {}
    fxRef<Link> next;
};

TEST(Ref, HoldsMovesAndLetsGoOfLongChains) {
    fxRef<Link> chain;
    for (int i = 0; i < 1000000; ++i) chain = fxMake<Link>(std::move(chain));
    const fxRef<fxRCObj> base = chain;
    fxRef<Link> same = chain;
    EXPECT_EQ(chain->refCount, 3u);
    EXPECT_TRUE(same == base && chain != nullptr && same);
    fxRef<Link> moved = std::move(same);
    EXPECT_FALSE(same);
    EXPECT_EQ(fxDynamicRef<Link>(base), moved);
    Link* const raw = moved.release();
    EXPECT_EQ(raw->refCount, 2u);
    chain = nullptr;
    const fxRef<fxData> data = new fxIntData(1);
    const fxRef<const fxData> constant = data;
    EXPECT_EQ(data->count, 2u);
}

}  // namespace
