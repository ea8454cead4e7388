// What programs connect with: boxes, converters, callables, values of their own,
// connections and properties by name.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "tests/support/Dataflow.h"
#include "tests/support/Traced.h"

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
    fxOutput<const char*> line = addOutput<const char*>("line");
    fxOutput<float> part = addOutput<float>("part");
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
        addInput("chars", [this](const char* v) { text = v; });
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

struct Receivers : Dataflow {
    static void SetUpTestSuite() {
        fxInitializeToolkit();
        EXPECT_EQ(fxConverter::findConverter(fxDT_long, fxDT_int), nullptr);
        EXPECT_EQ(fxConverter::findConverter(fxDT_int, fxDT_double), nullptr);
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
        {"number", "chars", [](Source& s, auto how) { s.number.send(INT_MIN, how); }, 0,
         "-2147483648"},
        {"part", "chars", [](Source& s, auto how) { s.part.send(0.25f, how); }, 0, "0.25"},
        {"fraction", "chars", [](Source& s, auto how) { s.fraction.send(0.1, how); }, 0, "0.1"},
        {"text", "chars", [](Source& s, auto how) { s.text.send("a b", how); }, 0, "a b"},
        {"line", "chars", [](Source& s, auto how) { s.line.send("as is", how); }, 0, "as is"},
        {"line", "number", [](Source& s, auto how) { s.line.send("12abc", how); }, 12, ""},
        {"line", "number", [](Source& s, auto how) { s.line.send("abc", how); }, 0, ""},
        {"line", "number", [](Source& s, auto how) { s.line.send(nullptr, how); }, 0, ""},
    };
    for (const auto& row : rows) {
        for (const auto how : {now, fxObj::fxSendQueued, fxObj::fxSendUrgent}) {
            Sink target;
            const fxConnection joined = fxConnect(&source, row.output, &target, row.input);
            ASSERT_TRUE(joined) << joined.whyNot();
            row.send(source, how);
            distribute();
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

// Boxes and converters.

// A text is adopted by the box.
template <class T>
void expectBox(const T& value, const char* name) {
    typename fxChannelType<T>::Box box(value);
    EXPECT_EQ(box.getType(), fxChannelType<T>::type());
    EXPECT_EQ(box.getSize(), sizeof(T));
    EXPECT_STREQ(box.dataName(), name);
    EXPECT_EQ(box.count, 0u);
    T copy{}, delivered{};
    box.getValue(fxDT_void, &copy);
    typedef typename fxChannelType<T>::Passed Passed;
    void (*receive)(void*, Passed) = [](void* to, Passed v) { *static_cast<T*>(to) = v; };
    box.deliverTo(reinterpret_cast<void (*)()>(receive), &delivered);
    EXPECT_TRUE(copy == value && delivered == value);
}

// More aligned than the library's storage of small objects.
template <class Base>
struct alignas(128) Aligned : Base {
    using Base::Base;
};

template <class Small, class... Arguments>
void expectAligned(Arguments... arguments) {
    for (int i = 0; i < 3; ++i) {
        auto* aligned = new Aligned<Small>(arguments()...);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(aligned) % 128, 0u);
        delete aligned;
        delete new Small(arguments()...);
    }
    alignas(Small) char place[sizeof(Small)];
    auto* placed = new (place) Small(arguments()...);
    EXPECT_EQ(static_cast<void*>(placed), place);
    placed->~Small();
}

TEST_F(Receivers, BoxesHoldAndDeliverTheirKind) {
    expectBox<unsigned char>(200, "TYPE");
    expectBox(INT_MIN, "TYPE");
    expectBox(LONG_MAX, "TYPE");
    expectBox(0.5f, "TYPE");
    expectBox(-1e300, "TYPE");
    expectBox<char*>(fxCopyCharPtr("taken over"), "char *");
    expectBox<char*>(nullptr, "char *");
    expectBox(fxStr("string"), "fxStr");
    expectBox(fxStrArray{"a"}, "fxStrArray");
    EXPECT_EQ(fxVoidData().getSize(), 0u);
    EXPECT_STREQ(fxVoidData().dataName(), "void");
    expectAligned<fxIntData>([] { return 7; });
    static fxInputChannel input(fxDT_int, nullptr, nullptr, 0);
    input.take();
    expectAligned<fxMessageEvent>([] { return &input; },
                                  []() -> fxData* { return new CountedData(1); });
}

// What arrives at an input for `To`; the connection lets go of the input.
template <class To, class From>
To converted(From value) {
    fxObj source, end;
    To arrived{};
    const auto output = source.addOutput<From>("out");
    const fxInputChannel* const input = end.addInput("in", [&](To v) { arrived = v; });
    const unsigned long holders = input->refCount;
    source.connect("out", &end, "in");
    output.send(value, now);
    source.disconnect("out", &end, "in");
    EXPECT_EQ(input->refCount, holders);
    return arrived;
}

float doubled(int value) { return static_cast<float>(value) * 2; }
fxStr twice(const fxStr& text) { return fxStr(text | text); }

TEST_F(Receivers, NumbersConvertByTheNewestConverter) {
    typedef unsigned char Byte;
    EXPECT_EQ(converted<int>(Byte{200}), 200);
    EXPECT_EQ(converted<float>(Byte{3}), 3.0f);
    EXPECT_EQ(converted<double>(Byte{255}), 255.0);
    EXPECT_EQ(converted<Byte>(256), 0);
    EXPECT_EQ(converted<Byte>(257), 1);
    EXPECT_EQ(converted<Byte>(-1), 255);
    EXPECT_EQ(converted<float>(-7), -7.0f);
    EXPECT_EQ(converted<Byte>(256.5f), 0);
    EXPECT_EQ(converted<Byte>(257.9f), 1);
    EXPECT_EQ(converted<double>(0.5f), 0.5);
    EXPECT_EQ(converted<int>(-2.9f), -2);
    EXPECT_EQ(converted<Byte>(std::nan("")), 0);
    EXPECT_EQ(converted<float>(1e300), INFINITY);
    EXPECT_EQ(converted<float>("2.5e1"), 25.0f);
    EXPECT_EQ(converted<int>(2147483647.9), INT_MAX);
    for (const double odd : {2147483648.0, -2147483649.0, 1e300, -HUGE_VAL, std::nan("")}) {
        EXPECT_EQ(converted<int>(odd), INT_MIN) << odd;
    }
    fxInputChannel* a = fxConverter::findConverter(fxDT_int, fxDT_fxBool);
    fxInputChannel* b = fxConverter::findConverter(fxDT_int, fxDT_fxBool);
    EXPECT_TRUE(a != b && a->isConverter() && a->closure == nullptr);
    delete a;
    b->take();
    b->release();
    fxConverter* const newest = fx_theConverters;
    {
        const std::unique_ptr<fxConverter> own(fxConverter::add<doubled>());
        EXPECT_EQ(converted<float>(4), 8.0f);
    }
    {
        const std::unique_ptr<fxConverter> own(fxConverter::add<twice>());
        fxInputChannel* const converter = fxConverter::findConverter(fxDT_fxStr, fxDT_fxStr);
        converter->take();
        static_cast<fxConverter*>(converter)->splice(sink.getInput("text"));
        converter->call(fxStr("text"));
        converter->release();
        EXPECT_EQ(sink.text, "texttext");
    }
    EXPECT_EQ(fx_theConverters, newest) << "a destroyed converter leaves the list";
    EXPECT_EQ(converted<float>(4), 4.0f);
}

// Connections.

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
    EXPECT_TRUE(fxConnect(source.number, &sink, "wide") && fxConnect(source.number, sink, "wide"));
    EXPECT_STREQ(fxConnect(source.place, sink, "names").whyNot(),
                 "Source.place (Point) -> Sink.names (fxStrArray): no converter leads from Point "
                 "to fxStrArray");
    EXPECT_STREQ(fxConnect(fxOutputView<int>(), sink, "number").whyNot(),
                 "null. -> Sink.number (int): there is no source");
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
    const std::string lines = traced("connect", [this] {
        source.connect("number", &sink, "levle");
        source.connect("number", &sink, "any");
    });
    EXPECT_NE(lines.find("no input \"levle\""), std::string::npos);
    EXPECT_EQ(lines.substr(lines.find('\n')),
              "\nfxds connect Source#1.number (int) -> Sink#1.any (void)\n");
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
    distribute();
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

// A receiver that acts when it ends.
template <class Act>
auto ending(Act act) {
    return [end = std::shared_ptr<void>(nullptr, [act](void*) { act(); })](int) {};
}

TEST_F(Receivers, WhatEndsMaySendConnectAndCut) {
    int calls = 0;
    {
        fxObj object;
        const auto output = object.addOutput<int>("out");
        Sink other;
        fxConnect(output, [&calls] { ++calls; });
        fxConnect(output, ending([output, &other] {
                      output.send(1, now);
                      output.send(2);
                      fxConnect(output, [](int) {});
                      other.removeInput("number");
                  }));
        fxConnection last;
        last = fxConnect(output, ending([&last] { last = fxConnection(last.whyNot()); }));
        fxConnect(output.get() != nullptr ? &object : nullptr, "out", &other, "number");
        object.removeOutput("out");
    }
    fx_theEventHandler->drain();
    EXPECT_EQ(calls, 0);
    {
        fxScopedConnection scoped;
        scoped = fxConnect(source.number, ending([&] {
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
    EXPECT_TRUE(!fxFindProperty<fxStr>(object, "size") && fxFindProperty<long>(object, "size"));
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

TEST(Ref, HoldsMovesAndLetsGo) {
    fxRef<Sink> sink = fxMake<Sink>();
    const fxRef<fxObj> base = sink;
    fxRef<Sink> same = sink;
    EXPECT_EQ(sink->refCount, 3u);
    EXPECT_TRUE(same == base && sink != nullptr && same);
    fxRef<Sink> moved = std::move(same);
    EXPECT_FALSE(same);
    EXPECT_EQ(fxDynamicRef<Sink>(base), moved);
    EXPECT_EQ(moved.release()->refCount, 2u);
    const fxRef<fxData> data = new fxIntData(1);
    const fxRef<const fxData> constant = data;
    EXPECT_EQ(data->count, 2u);
}

}  // namespace
