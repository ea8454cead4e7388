// Running flows: that each does what its text says, whatever it was before and whatever
// its elements do.
#include "flow/Flow.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/TestSeed.h"

namespace {

// What is to happen at a place of an element's code, once.
struct Plan {
    std::string place;
    std::function<void()> what;
    bool endsItself = false;
};
Plan plan;

}  // namespace

// Keeps what it takes, and sends what the test makes it send.
class Node : public fxElement {
public:
    Node() { ++alive; }
    ~Node() override { --alive; }
    void take(long number) { taken.push_back(std::to_string(number)); }
    void takeText(const fxStr& text) { taken.emplace_back(text.view()); }
    void begin() { setBusy(true); }
    std::string start() override { return ++starts, ""; }
    std::string settle() override { return step < 10 ? "" : "the step is too wide"; }
    bool xdrState(fxTranscriber& t) override { return fxXdrAll(t, taken); }

    long step = 0;
    fxOutputView<long> out;
    fxOutputView<void> done;
    std::vector<std::string> taken;
    static inline int alive = 0;
    static inline size_t starts = 0;
};

FX_ELEMENT(Node, "keeps what it takes") {
    element.property("step", &Node::step, 1, "how wide").range(0, 100);
    element.input("in", &Node::take, "a number");
    element.input("text", &Node::takeText, "a text");
    element.input("begin", &Node::begin, "makes it busy");
    element.output("out", &Node::out, "numbers");
    element.output("done", &Node::done, "the end");
}

// Does what the plan says.
class Hostile : public fxElement {
public:
    Hostile() {
        meet("constructor");
        addInput("own", [this](long number) { takeOwn(number); });
        ownOut = addOutput<long>("ownOut");
        all.insert(this);
    }
    ~Hostile() override {
        all.erase(this);
        meet("destructor");
    }
    std::string settle() override { return meet("settle"), ""; }
    std::string start() override {
        alarm = time().every(std::chrono::seconds(1), this, [this] {
            out.send(1, fxSendNow);
            meet("alarm");
        });
        return meet("start"), "";
    }
    bool xdrState(fxTranscriber& t) override {
        return meet(t.isReading() ? "load" : "save") || fxXdrAll(t, last);
    }
    void take(long number) { pass(number, "input", out); }
    void takeOwn(long number) {
        act([&] { pass(number, "own", ownOut); });
    }

    long last = 0;
    fxOutputView<long> out;
    fxOutputView<long> ownOut;
    fxRef<fxFlowAlarm> alarm;
    static inline std::set<Hostile*> all;
    static inline Hostile* acting = nullptr;

private:
    void pass(long number, const char* place, const fxOutputView<long>& to) {
        last = number;
        if (!meet(place) && number < 3) to.send(number + 1, fxSendNow);
    }
    // Whether it has ended itself.
    bool meet(const std::string& place) {
        if (plan.place != place) return false;
        plan.place = "";
        acting = this;
        const auto what = std::exchange(plan.what, nullptr);
        if (what) what();
        if (plan.endsItself) delete this;
        return plan.endsItself;
    }
};

FX_ELEMENT(Hostile, "does what it should not") {
    element.property("number", &Hostile::last, 0, "the last that it took");
    element.input("in", &Hostile::take, "a number");
    element.input<long>("own", "a number");
    element.output("out", &Hostile::out, "numbers");
    element.output<long>("ownOut", "numbers");
}

namespace {

typedef std::vector<std::string> Texts;

class FlowTest : public testing::Test {
protected:
    FlowTest() {
        fxInitializeToolkit();
        if (!fxConverter::hasMoreConverters) fxConverter::createMoreConverters();
        flow = std::make_unique<fxFlow>(fxFlow::Purpose::running, time);
    }
    ~FlowTest() override {
        flow = nullptr;
        EXPECT_EQ(Node::alive, 0);
        EXPECT_TRUE(Hostile::all.empty());
        EXPECT_TRUE(fx_theEventHandler->isEmpty());
        std::remove(path.c_str());
    }
    // Makes the flow that of the text: this one, or this one saved and loaded.
    Texts apply(const std::string& text, bool isLoading = false) {
        if (flow == nullptr) return {"the flow has gone"};
        const fxFlowText read = fxFlowText::parse(text, "t");
        std::vector<fxFlowProblem> problems;
        if (!isLoading) problems = flow->apply(read);
        EXPECT_FALSE(isLoading && (flow->save(path) || flow->load(path, read, problems)));
        Texts lines;
        for (const fxFlowProblem& each : problems) lines.push_back(each.line());
        return lines;
    }
    void send(const char* object, const char* channel, const char* value) {
        if (flow != nullptr) flow->send(object, channel, value);
    }
    Node& node(const char* name) { return dynamic_cast<Node&>(*flow->find(name)); }
    void drain() { time.pass(fxAlarm::Span(0)); }

    fxMadeUpTime time;
    std::unique_ptr<fxFlow> flow;
    const std::string path = testing::TempDir() + "/FlowTest-" + std::to_string(getpid()) + ".fx";
};

// The most obvious flow: what each object is, and what has come to it.
struct Model {
    struct Joint {
        std::string from, to;
        fxFlowDelivery delivery;
    };
    std::map<std::string, long> objects;  // their steps
    std::vector<Joint> joints;

    std::string text() const {
        std::string text;
        for (const auto& [name, step] : objects) {
            text += name + " = Node step=" + std::to_string(step) + '\n';
        }
        for (const Joint& each : joints) {
            text +=
                each.from + ".out -> " + each.to + " (" + fxFlowDeliveryName(each.delivery) + ")\n";
        }
        return text;
    }
    void change(std::mt19937& rng) {
        const auto name = [&] { return std::string(1, static_cast<char>('a' + rng() % 6)); };
        for (auto changes = rng() % 3; changes > 0; --changes) {
            if (rng() % 3 != 0) {
                objects[name()] = static_cast<long>(rng() % 3);
                continue;
            }
            const std::string gone = name();
            objects.erase(gone);
            const auto isGone = [&](const Joint& joint) {
                return joint.from == gone || joint.to[0] == gone[0];
            };
            joints.erase(std::remove_if(joints.begin(), joints.end(), isGone), joints.end());
        }
        for (auto changes = rng() % 4; changes > 0; --changes) {
            const Joint made = {name(), name() + (rng() % 4 != 0 ? ".in" : ".text"),
                                static_cast<fxFlowDelivery>(rng() % 4)};
            const auto isSame = [&](const Joint& joint) {
                return joint.from == made.from && joint.to == made.to;
            };
            joints.erase(std::remove_if(joints.begin(), joints.end(), isSame), joints.end());
            const bool isWhole =
                objects.count(made.from) != 0 && objects.count(made.to.substr(0, 1)) != 0;
            if (isWhole && rng() % 4 != 0) joints.push_back(made);
        }
    }
};

}  // namespace

// Each object of each text is there, is the same when its line is, and gets just what is
// sent to it; so it is after failed changes, and after saving and loading.
TEST_F(FlowTest, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    Model model;
    std::map<std::string, std::multiset<std::string>> expected;
    std::multiset<std::string> watched;
    long value = 0;
    EXPECT_EQ(flow->watch("a", "in", nullptr, nullptr), "there is no object \"a\"");
    for (int step = 0; step < 200; ++step) {
        const Model before = model;
        model.change(rng);
        std::map<std::string, fxObj*> old;
        for (const auto& [name, wide] : before.objects) old[name] = flow->find(name);
        const bool isReloaded = rng() % 4 == 0;
        if (rng() % 4 == 0) {
            const Texts problems = apply(model.text() + "odd = Node step=50", isReloaded);
            ASSERT_FALSE(problems.empty());
            EXPECT_EQ(problems.back(),
                      "t:" + std::to_string(model.objects.size() + model.joints.size() + 1) +
                          ":1: error: odd: the step is too wide");
            for (const auto& [name, object] : old) ASSERT_EQ(flow->find(name), object);
        }
        Node::starts = 0;
        for (const std::string& each : apply(model.text(), isReloaded)) {
            ASSERT_NE(each.find("circle"), std::string::npos) << each;
        }
        ASSERT_TRUE(!isReloaded || Node::starts == model.objects.size());
        for (const auto& [name, wide] : model.objects) {
            const auto same = before.objects.find(name);
            const bool isKept = same != before.objects.end() && same->second == wide;
            ASSERT_EQ(flow->find(name) == old[name], isKept && !isReloaded);
            ASSERT_EQ(flow->nameOf(*flow->find(name)), name);
            if (!isKept) expected[name].clear();
        }
        if (rng() % 16 == 0) {
            ASSERT_FALSE(flow->save(path));
            ASSERT_FALSE(flow->load(path));
        }
        drain();  // ends the old ones
        ASSERT_EQ(static_cast<size_t>(Node::alive), model.objects.size());
        const std::string written = flow->write();
        for (const auto& [name, wide] : model.objects) old[name] = flow->find(name);
        apply(written);
        ASSERT_EQ(flow->write(), written);
        for (const auto& [name, wide] : model.objects) ASSERT_EQ(flow->find(name), old[name]);

        watched.clear();
        std::multiset<std::string> expectedWatched;
        fxObj context;
        const auto watcher = [&](const std::string& text) { watched.insert(text); };
        if (model.objects.count("a") != 0) {
            ASSERT_EQ(flow->watch("a", "in", &context, watcher), "");
        }
        for (const auto& [name, wide] : model.objects) {
            value += 2;
            for (const long each : {value - 1, value})
                node(name.c_str()).out.send(each, fxObj::fxSendNow);
            for (const Model::Joint& joint : model.joints) {
                if (joint.from != name) continue;
                for (const long each : {value - 1, value}) {
                    if (each != value && joint.delivery == fxFlowDelivery::newest) continue;
                    expected[joint.to.substr(0, 1)].insert(std::to_string(each));
                    if (joint.to == "a.in") expectedWatched.insert(std::to_string(each));
                }
            }
        }
        drain();
        for (const auto& [name, wide] : model.objects) {
            const Texts& taken = node(name.c_str()).taken;
            ASSERT_EQ(std::multiset<std::string>(taken.begin(), taken.end()), expected[name])
                << model.text();
        }
        ASSERT_EQ(watched, expectedWatched) << model.text();
    }
}

// Whatever elements do, and wherever they do it: memory is safe, all objects end, and a
// flow that is still there does what the next text says.
TEST_F(FlowTest, OutlivesItsElements) {
    const std::string first =
        "a = Hostile\nb = Hostile\na.out -> b.in (now), b.own\n"
        "b.out -> a.in (newest)\nb.ownOut -> a.own (urgent)\n";
    const std::string second =
        "a = Hostile\nb = Hostile number=1\nc = Hostile\na.out -> b.in, c.in\n"
        "c.out -> a.in (now), a.own (now)\nb.ownOut -> c.own (now)\n";
    const auto there = [&](auto does) { return [&, does] { flow ? does(*flow) : void(); }; };
    const std::pair<const char*, std::function<void()>> acts[] = {
        {"throws", [] { throw std::runtime_error("thrown"); }},
        {"ends the flow", [&] { flow = nullptr; }},
        {"ends the flow and throws", [&] { flow = nullptr, throw 1; }},
        {"drops all", [&] { apply(""); }},
        {"drops all and throws", [&] { throw apply(""); }},
        {"changes the flow", [&] { apply(second + "d = Hostile\n"); }},
        {"delivers", [] { fx_theEventHandler->drain(); }},
        {"changes the flow and delivers", [&] { apply(first), drain(); }},
        {"drops all and delivers", [&] { apply(""), drain(); }},
        {"saves and loads",
         there([&](fxFlow& f) { static_cast<void>(!f.save(path) && !f.load(path)); })},
        {"sends to itself", [&] { send("a", "in", "1"), send("b", "own", "2"); }},
        {"watches", there([](fxFlow& f) { f.watch("b", "in", nullptr, [](const auto&) {}); })},
        {"ends the others",
         [] {
             while (Hostile::all.size() > Hostile::all.count(Hostile::acting)) {
                 Hostile* const any = *Hostile::all.begin();
                 delete (any != Hostile::acting ? any : *std::next(Hostile::all.begin()));
             }
         }},
        {"ends itself", nullptr}};
    for (const char* place : {"constructor", "settle", "start", "input", "own", "alarm", "save",
                              "load", "destructor"}) {
        for (const auto& [act, what] : acts) {
            SCOPED_TRACE(std::string(act) + " in " + place);
            const std::string name = act;
            const bool isEnding = place == std::string("destructor");
            if (isEnding && name.find("throws") != std::string::npos) continue;
            if (!what && (isEnding || place == std::string("constructor"))) continue;
            flow = std::make_unique<fxFlow>(fxFlow::Purpose::running, time);
            Texts complaints;
            fxConnect(flow->complaint,
                      [&](const fxStr& text) { complaints.emplace_back(text.view()); });
            ASSERT_EQ(apply(first), Texts());
            plan = {place, what, !what};
            apply(second);
            send("a", "in", "1");
            drain();
            send("b", "own", "1");
            time.pass(std::chrono::seconds(2));
            const bool isSaved = place == std::string("save") || place == std::string("load");
            if (isSaved) there([&](fxFlow& f) { static_cast<void>(f.save(path)); })();
            if (isSaved) there([&](fxFlow& f) { static_cast<void>(f.load(path)); })();
            send("a", "in", "2");
            drain();
            if (flow != nullptr) {
                EXPECT_EQ(apply(first), Texts());
                drain();
                EXPECT_EQ(Hostile::all.size(), 2U);
                EXPECT_EQ(flow->send("a", "in", "1"), "");
                drain();
            }
            if (name == "throws" &&
                (place == std::string("input") || place == std::string("own"))) {
                EXPECT_EQ(complaints, Texts{"a: thrown"});
            }
            if (name == "ends itself" && (place == std::string("alarm"))) {
                EXPECT_EQ(complaints, Texts{"a: has been destroyed; the flow goes on without it"});
            }
            flow = nullptr;
            if (isEnding) drain();
            EXPECT_EQ(plan.place, "") << "it has not happened";
            ASSERT_TRUE(Hostile::all.empty());
        }
    }
}

// Time passes in the order of its moments, whatever its actions do.
TEST_F(FlowTest, MadeUpTimeIsInOrder) {
    using std::chrono::seconds;
    Texts done;
    const auto note = [&](const std::string& what) {
        return [&, what] {
            const auto passed = std::chrono::duration_cast<seconds>(time.now().time_since_epoch());
            done.push_back(std::to_string(passed.count()) + what);
        };
    };
    auto context = std::make_unique<fxObj>();
    const fxRef<fxFlowAlarm> a = time.every(seconds(2), nullptr, note("a"));
    const fxRef<fxFlowAlarm> b = time.every(seconds(3), context.get(), note("b"));
    time.after(seconds(6), nullptr, note("c"));
    time.after(seconds(7), nullptr, [&] {
        context = nullptr;
        a->setInterval(seconds(4));
        time.pass(seconds(1));
    });
    time.after(fxAlarm::Span::max(), nullptr, note("never"));
    time.after(seconds(200), nullptr, [&] { a->setInterval(fxAlarm::Span(1)); });
    EXPECT_EQ(time.pass(seconds(11)), "");
    EXPECT_EQ(done, (Texts{"2a", "3b", "4a", "6a", "6b", "6c", "11a"}));
    a->stop();
    EXPECT_EQ(time.pass(seconds(100)), "");
    EXPECT_EQ(done.size(), 7U);
    EXPECT_EQ(time.now().time_since_epoch(), seconds(111));
    EXPECT_EQ(time.pass(seconds(100)).find("too much happens in this time"), 0U);
    a->stop();
    auto ending = std::make_unique<fxMadeUpTime>();
    const fxRef<fxFlowAlarm> left = ending->every(seconds(1), nullptr, [&] { ending = nullptr; });
    ending->pass(seconds(3));
    left->setInterval(seconds(1));
    left->stop();
    EXPECT_EQ(fxFlowTime::seconds(0), fxAlarm::Span(1));
    EXPECT_EQ(fxFlowTime::seconds(1.5), std::chrono::milliseconds(1500));
}

// Circles and chains of immediate connections neither hang nor overflow the stack.
TEST_F(FlowTest, GoesRoundThroughTheQueue) {
    std::string text;
    for (int i = 0; i < 3000; ++i) {
        const std::string name = "g" + std::to_string(i);
        text += name + " = Gate open=yes\n" + name + ".value -> g" +
                std::to_string((i + 1) % 3000) + ".value (now)\n";
    }
    EXPECT_EQ(apply(text).size(), 1U);  // warns of the circle
    long rounds = 0;
    flow->watch("g0", "value", nullptr, [&](const std::string&) {
        if (++rounds == 3) flow->apply({});
    });
    EXPECT_EQ(flow->send("g5", "value", "x"), "");
    drain();
    EXPECT_EQ(rounds, 3);
    EXPECT_EQ(apply("a = Gate open=yes\nb = Gate open=yes\na.value -> b.value\nb.value -> a.value"),
              Texts());
    EXPECT_EQ(flow->send("a", "value", "x"), "");
    EXPECT_EQ(time.pass(std::chrono::seconds(1)), "values go round without end");
    EXPECT_EQ(apply(""), Texts());
    drain();
}

// A watcher follows its end from text to text, and sees what is sent to an input by hand.
TEST_F(FlowTest, WatchesFollowTheirEnd) {
    Texts seen;
    const auto watcher = [&](const std::string& text) { seen.push_back(text); };
    EXPECT_EQ(apply("a = Node\nb = Node\na.out -> b.text\na.done -> b.begin"), Texts());
    EXPECT_EQ(flow->watch("a", "out", nullptr, watcher), "");
    EXPECT_EQ(flow->watch("b", "text", nullptr, watcher), "");
    EXPECT_EQ(flow->send("a", "out", "1"), "");
    drain();
    EXPECT_EQ(apply("a = Node step=2\nb = Node\na.out -> b.text (now)"), Texts());
    EXPECT_EQ(flow->send("a", "out", "2"), "");
    EXPECT_EQ(flow->send("b", "text", "by hand"), "");
    EXPECT_EQ(seen, (Texts{"1", "1", "2", "2", "by hand"}));
    EXPECT_EQ(apply("b = Node"), Texts());
    EXPECT_EQ(apply("b = Node\na = Node"), Texts());
    EXPECT_EQ(flow->send("a", "out", "3"), "");
    EXPECT_EQ(seen.size(), 5U);
    EXPECT_EQ(flow->watch("b", "txet", nullptr, watcher),
              "b has no channel \"txet\"; did you mean \"text\"?");
    EXPECT_EQ(flow->send("b", "in", "1.5"), "\"1.5\" is no long");
    EXPECT_EQ(flow->send("b", "begin", "1"), "it takes no value");
    drain();
}

// What cannot be a flow is not loaded, and changes nothing.
TEST_F(FlowTest, RefusesWhatItHasNotSaved) {
    ASSERT_EQ(apply("a = Node\nb = Node step=3\na.out -> b.in"), Texts());
    flow->send("b", "in", "7");
    ASSERT_FALSE(flow->save(path));
    const fxObj* before = flow->find("b");
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    const auto isLoaded = [&](const std::string& content) {
        std::ofstream(path, std::ios::binary) << content;
        const fxStreamFault fault = flow->load(path);
        drain();
        return fault ? fault.text() : "";
    };
    for (size_t length = 0; length < bytes.size(); ++length) {
        ASSERT_NE(isLoaded(bytes.substr(0, length)), "");
    }
    for (size_t at = 0; at < bytes.size(); ++at) {
        std::string other = bytes;
        other[at] = static_cast<char>(other[at] ^ 0x15);
        if (isLoaded(other).empty()) before = flow->find("b");
        ASSERT_EQ(flow->find("b"), before);
    }
    for (const char* statement : {"use \"x\"", "include \"x\""}) {
        std::string other = bytes;
        const size_t at = other.find("b = Node step=3");
        ASSERT_NE(at, std::string::npos);
        other.replace(at, 15, std::string(statement).append(15 - std::strlen(statement), ' '));
        EXPECT_NE(isLoaded(other).find("this flow may not"), std::string::npos) << isLoaded(other);
    }
    EXPECT_EQ(isLoaded(bytes), "");
    EXPECT_EQ(node("b").taken, Texts{"7"});
}

// Only files that describe elements are plug-ins; a flow that names one loads it, a saved one
// does not.
TEST_F(FlowTest, LoadsPlugins) {
    for (const char* file :
         {"", "/dev/zero", "/", "nothing.so", "/proc/self/exe", __FILE__, "a\nb"}) {
        EXPECT_EQ(fxLoadPlugin(file).find(std::string("cannot load ") + file + ": "), 0U);
        EXPECT_FALSE(fxPluginIsLoaded(file));
    }
    EXPECT_EQ(fxElementKind::find("Doubled"), nullptr);
    const auto odd = [](fxElementOf<Node>& node) { node.property("a b", &Node::step, ""); };
    EXPECT_DEATH(fxElementOf<Node>("Odd", "", odd), "no text can name the property \"a b\"");
    EXPECT_EQ(apply("use \"" PLUGIN_PATH "\"\na = Node\nb = Doubled\nb.twice -> a.in"), Texts());
    EXPECT_EQ(fxLoadPlugin(PLUGIN_PATH), "");
    EXPECT_TRUE(fxElementKind::duplicates().empty());
    std::filesystem::copy_file(PLUGIN_PATH, path);
    EXPECT_EQ(fxLoadPlugin(path), "cannot load " + path + ": there is a Doubled already");
    EXPECT_EQ(flow->send("b", "number", "4"), "");
    drain();
    EXPECT_EQ(node("a").taken, Texts{"8"});
    EXPECT_EQ(flow->write().find("use"), 0U);
    ASSERT_FALSE(flow->save(path));
    ASSERT_FALSE(flow->load(path));
    EXPECT_EQ(flow->write().find("use"), std::string::npos);
    drain();
}

// Values read back from their text.
TEST_F(FlowTest, ValuesHaveTexts) {
    using fxFlowDetail::fromText;
    using fxFlowDetail::textOf;
    EXPECT_EQ(textOf(0.1F), "0.1");
    const std::pair<double, const char*> numbers[] = {
        {0.1, "0.1"},      {1e6, "1000000"}, {-0.5, "-0.5"},
        {1e300, "1e+300"}, {1e-9, "1e-09"},  {123456789.25, "123456789.25"}};
    for (const auto& [number, text] : numbers) {
        double read = 0;
        EXPECT_EQ(textOf(number), text);
        EXPECT_TRUE(fromText(text, read));
        EXPECT_EQ(read, number);
    }
    std::mt19937 rng(testSeed());
    for (int step = 0; step < 2000; ++step) {
        fxStrArray texts;
        fxStrArray read;
        std::string any;
        for (auto count = rng() % 4; count > 0; --count) {
            std::string text;
            for (auto length = rng() % 4; length > 0; --length) text += "a,\" \\\n\0"[rng() % 7];
            texts.append(fxStr(std::string_view(text)));
            any += text;
        }
        ASSERT_TRUE(fromText(textOf(texts), read)) << textOf(texts);
        ASSERT_EQ(read, texts);
        if (fromText(any, read)) {
            fxStrArray again;
            ASSERT_TRUE(fromText(textOf(read), again) && again == read);
        }
    }
    long whole = 5;
    double number = 5;
    bool truth = true;
    for (const char* text : {"", " 1", "1 ", "1x", "99999999999999999999", "0x1"}) {
        EXPECT_FALSE(fromText(text, whole) || fromText(text, truth)) << text;
    }
    EXPECT_FALSE(fromText("1e999", number) || fromText("", number) || fromText("1,5", number));
    EXPECT_EQ(whole, 5);
}
