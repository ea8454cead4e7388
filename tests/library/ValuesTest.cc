// The library as a whole: ordered start-up and shutdown; texts, containers and expressions
// as users of the standard library and of other foundation libraries take them for granted,
// and what is hostile to them. Nothing has started the library before the first test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <unordered_set>
#include <utility>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/TestSeed.h"

namespace {

std::string calls;

constexpr int ofExecutive = 7;

// A sanitizer would report the calls before the library does.
__attribute__((no_sanitize("undefined"))) void useBeforeStartUp(int way) {
    switch (way) {
        case 0:
            return fx_theExecutive->initialize(0, nullptr);
        case 1:
            return fx_theExecutive->open();
        case 2:
            return fx_theExecutive->close();
        case 3:
            return fx_theExecutive->poll(0);
        case 4:
            return fx_theExecutive->loop();
        case 5:
            return fx_theExecutive->run();
        case 6:
            return fx_theExecutive->addSelectHandler(nullptr);
        case ofExecutive:
            return fx_theEventHandler->drain();
        case 8:
            return fx_theEventHandler->distributeEvents();
        default:
            return fx_theEventHandler->postEvent(nullptr);
    }
}

TEST(StartUp, IsHintedAtWhereItIsMissing) {
    if (fx_theConverters != nullptr) GTEST_SKIP() << "started already";
    fxObj source, target;
    source.addOutput<int>("out");
    target.addInput("in", [](const fxStr&) {});
    EXPECT_DEATH(source.connect("out", &target, "in"),
                 "; there are none before fxInitializeToolkit\\(\\)\n"
                 "Can't convert from [0-9]+ to [0-9]+\n$");
    EXPECT_TRUE(fxConnect(source, "out", target, "in")
                    .whyNot()
                    .endsWith("; there are none before fxInitializeToolkit()"));
    for (int way = 0; way < 10; ++way) {
        EXPECT_DEATH(useBeforeStartUp(way),
                     std::string("^fx_the") + (way < ofExecutive ? "Executive" : "EventHandler") +
                         " is null: call fxInitializeToolkit\\(\\) first\n$");
    }
    testing::internal::CaptureStderr();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(fxTranscriber::getReader(nullptr), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "There are no readers yet: call fxInitializeToolkit()\n");
}

TEST(StartUp, RunsBothOrderingsOnceEachWay) {
    // In one process, since it happens but once: library first, application last.
    static fxOrderedGlobal outer([] { calls += "init "; }, [] { calls += "end"; }, nullptr, 2);
    static fxOrderedGlobal again(
        [] {
            calls += fx_theExecutive != nullptr ? "after the library " : "too early ";
            fxInitializeToolkit();  // from within: does nothing
        },
        [] { fxCleanupGlobalOrderings(); }, nullptr, 0);
    fxInitializeToolkit();
    {
        const fxToolkit toolkit;
        EXPECT_EQ(calls, "init after the library ");
    }
    fxCleanupGlobalOrderings();
    EXPECT_EQ(calls, "init after the library end");
}

TEST(StartUp, OneSelectingPassSortsTheOrdering) {
    static fxOrderedGlobal *aNeeds[2], *bNeeds[2];
    static fxOrderedGlobal a([] { calls += "A"; }, [] { calls += "~A"; }, aNeeds, 2);
    static fxOrderedGlobal b([] { calls += "B"; }, [] { calls += "~B"; }, bNeeds, 0);
    static fxOrderedGlobal* cNeeds[] = {&b, nullptr};
    static fxOrderedGlobal c([] { calls += "C"; }, nullptr, nullptr, -1);
    fxGlobalOrder chain, cycle;
    for (fxOrderedGlobal* each : {&a, &b, &c}) chain.add(each);
    aNeeds[0] = &c;
    c.deps = cNeeds;
    calls = "";
    chain.create();
    chain.destroy();
    EXPECT_EQ(calls, "CBA~A~B");
    aNeeds[0] = &b;
    bNeeds[0] = &a;
    for (fxOrderedGlobal* each : {&a, &b}) cycle.add(each);
    calls = "";
    cycle.create();
    EXPECT_EQ(calls, "BA");
    EXPECT_TRUE(a.dependsOn(b) && !a.dependsOn(c));
    EXPECT_EQ(fx_applicationGlobalOrder->globals.length(), 5u) << "any number but 1";
}

TEST(StartUp, MakesTheServicesOnceAndNumbersTheTypes) {
    fxInitializeToolkit();
    ASSERT_NE(fx_theExecutive, nullptr);
    EXPECT_EQ(fxDT_void, 0);
    EXPECT_EQ(fxDT_fxStrArray, 11);
    EXPECT_EQ(fxET_MessageEvent, 1u);
    EXPECT_EQ((*fx_nextDataType)(), 12u);
    EXPECT_EQ((*fx_nextEventType)(), 2u);
    EXPECT_NE(fx_theDebugger, nullptr);
    EXPECT_EQ(fx_toolkitGlobalOrder->globals[0], &fxOG_Init);
    EXPECT_EQ(fx_toolkitGlobalOrder->globals[1], &fxOG_Transcriber);
}

TEST(StartUp, IdentifiesTheLibrary) {
    char line[256];
    const int length = libostrelfxds_sprintf_verid(line);
    EXPECT_EQ(static_cast<size_t>(length), std::strlen(line));
    EXPECT_EQ(std::string(line).substr(0, 34), "libostrelfxds" + std::string(21, ' '));
    EXPECT_NE(std::string(line).find(" 64-bit\n"), std::string::npos);
    testing::internal::CaptureStdout();
    EXPECT_EQ(libostrelfxds_print_verid(), length);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line);
    const char** banner = libostrelfxds_copyright_array();
    for (int i = 0; i < 9; ++i) EXPECT_EQ(std::strlen(banner[i]), 73u);
    EXPECT_EQ(banner[9], nullptr);
}

// Values.

const std::string text = "alpha,beta,,gamma";
const fxStr str = text;
const std::string_view view(text);

fxStr upper(std::string_view piece) {
    fxStr result(piece);
    result.raise();
    return result;
}

// Habits of users of std, Qt and abseil. Those that do not compile are rows of
// tests/misuse, each with what the compiler says.
const struct {
    const char* name;
    bool (*works)();
} habits[] = {
    // clang-format off
    {"string to text", [] { fxStr s = text; return s == text; }},
    {"view to text", [] { fxStr s(view); s = view; return s == view; }},
    {"text to string", [] { return str.toStdString() == text && std::string(str) == text; }},
    {"pass text as view", [] { return upper(str) == "ALPHA,BETA,,GAMMA"; }},
    {"pass string as text", [] { return fxStrArray::of(text)[0] == str; }},
    {"compare with string", [] { return text == str && !(text != str) && text <= str; }},
    {"compare with view", [] { return view == str && !(str < view) && str >= view; }},
    {"join with string", [] { return (text | str) == text + text; }},
    {"join with view and char", [] { return ("<" | str | view | '>').length() == 36; }},
    {"pass a joined text as view", [] { std::string s; s += str | "!"; fxStr t("<"); t.append(str | ">"); t.insert(str | "|"); t.replace(str | "-", 0); return upper(str | "!").endsWith("!") && s == (text + "!") && t.startsWith(str | "-<a"); }},
    {"+=", [] { fxStr s; s += "a"; s += 'b'; s += text; s += str; return s.size() == 36; }},
    {"append string", [] { fxStr s("x"); s.append(text); return s.endsWith(text); }},
    {"back_inserter of text", [] { fxStr s; std::copy(text.begin(), text.end(), std::back_inserter(s)); return s == str; }},
    {"contains", [] { char* none = nullptr; return str.contains("eta") && str.contains(none) && !str.contains(text + "x"); }},
    {"startsWith, endsWith", [] { return str.startsWith("al") && str.endsWith(view) && !str.endsWith("m"); }},
    {"split and index", [] { return fxStr("a::b").split("::")[1] == "b"; }},
    {"join", [] { return str.split(',').join("; ") == "alpha; beta; ; gamma"; }},
    {"join of a vector", [] { return fxStr::join(std::vector<std::string>{"a", "b"}, '/') == "a/b"; }},
    {"number", [] { return fxStr::number(-5) == "-5" && fxStr::number(255U, 16) == "ff"; }},
    {"number in a format", [] { return fxStr(1L << 40, "%lx") == "10000000000" && fxStr(~0U, nullptr) == "4294967295"; }},
    {"number of a fraction", [] { return fxStr::number(0.1) == "0.1" && fxStr::number(0.1F) == "0.1"; }},
    {"toNumber into a variable", [] { long n = 1; int i = 16; return fxStr("-7").toNumber(n) && n == -7 && fxStr("12").toNumber<int>(i) == 18 && fxStr("7").toNumber(i) && i == 7; }},
    {"std::hash", [] { return std::unordered_set<fxStr>{str}.count(text) == 1; }},
    {"key of std::map", [] { std::map<fxStr, int> map; map[text] = 1; return map.count(str) == 1; }},
    {"clear", [] { fxStr s = str; s.clear(); return std::empty(s); }},
    {"for (char c : text)", [] { return std::count(str.begin(), str.end(), ',') == 3; }},
    {"array of one", [] { return fxIntArray::of(7).length() == 1 && fxIntArray::of(7)[0] == 7; }},
    {"push_back, back_inserter", [] { fxIntArray a; std::fill_n(std::back_inserter(a), 3, 5); a.push_back(6); return a.size() == 4; }},
    {"reserve, emplace_back", [] { fxStrArray a; a.reserve(9); const auto* const at = &a.emplace_back("abc", 2U); a.reserve(2); return a.capacity() == 9 && a.cbegin() == at && *at == "ab" && a.cend() == at + 1; }},
    {"append of a temporary", [] { fxStrArray a; a.append(upper("x")); a.append(text); return a[1] == text; }},
    {"sort numbers by value", [] { fxIntArray a{256, -1, 2}; a.sortByValue(); return a == fxIntArray{-1, 2, 256}; }},
    {"sort with a lambda", [] { fxStrArray a{"a", "c"}; a.sort([](const fxStr& x, const fxStr& y) { return x > y; }); return a[0] == "c"; }},
    {"std::sort, lower_bound", [] { fxDoubleArray a{2.5, 0.5}; std::sort(a.begin(), a.end()); return *std::lower_bound(a.begin(), a.end(), 1.0) == 2.5; }},
    {"accumulate", [] { fxIntArray a{1, 2, 3}; return std::accumulate(a.begin(), a.end(), 0) == 6; }},
    {"array contains", [] { return fxStrArray{"a", "b"}.contains("b"); }},
    {"takeLast", [] { fxStrArray a{"a", "b"}; return a.takeLast() == "b" && a.size() == 1 && !fxIntArray().takeLast(); }},
    {"dictionary in braces", [] { fxStrStrDictionary d{{"a", "1"}, {"b", "2"}}; return d.size() == 2 && d["b"] == "2"; }},
    {"dictionary of ints", [] { fxTypedDictionary<int, fxStr> d{{-1, "x"}}; return *d.find(-1) == "x"; }},
    {"dictionary of std::string", [] { fxTypedDictionary<std::string, int> d; d["k"] = 1; d[str] = 2; fxTypedSet<std::string> s; s.add(str); s.add(view.substr(1)); return d.contains("k") && *d.find(view) == 2 && !d.contains(view.substr(1)) && s.contains(view) && s.size() == 2; }},
    {"clear a table", [] { fxTypedDictionary<std::string, int> d; d["k"] = 1; d.clear(); fxTypedSet<int> s{1, 2}; s.clear(); d[view] = 2; d.remove(view); return d.empty() && s.empty() && !d.contains("k"); }},
    {"front, back, pop_back, rbegin", [] { fxIntArray a{1, 2, 3}; a.pop_back(); a.front() += std::as_const(a).back(); fxIntArray().pop_back(); return std::vector<int>(a.rbegin(), a.rend()) == std::vector<int>{2, std::as_const(a).front()}; }},
    {"front, back, pop_back of text", [] { fxStr s("abc"); s.front() = s.back(); s.pop_back(); fxStr().pop_back(); return s == "cb"; }},
    {"insert and erase by iterator", [] { fxStrArray a{"a", "b"}; const bool isB = *a.insert(a.begin() + 1, a.back()) == "b"; a.insert(a.end(), a.begin(), a.end()); return isB && *a.erase(a.begin() + 1) == "b" && *a.erase(a.begin(), a.end() - 1) == "b" && a.erase(a.begin()) == a.end(); }},
    {"insert truths by iterator", [] { fxBoolArray a{false, false}; *a.insert(a.begin(), 256) -= 1; const bool truths[] = {true, false}; a.insert(a.begin() + 1, truths, truths + 2); return a == fxBoolArray::of(0, 1, 0, 0, 0); }},
    {"add truths of numbers", [] { const int numbers[] = {256, 0}; fxBoolArray a{256, 0}; a.push_back(256); a.emplace_back(512); a.insert(a.end(), numbers, numbers + 2); *std::back_inserter(a) = 256; return a == fxBoolArray::of(1, 0, 1, 256, 1, 0, 1) && a.contains(256); }},
    {"connect by references", [] { fxObj a, b; b.addInput("in", [](int) {}); const auto out = a.addOutput<int>("out"); return fxConnect(a, "out", b, "in") && fxConnect(out, b, [](int) {}) && out.get()->getNumberOfConnections() == 2; }},
    {"starts_with", [] { return str.starts_with("alpha,") && !str.ends_with("alpha"); }},
    {"look up by view and string", [] { fxVoidPtrDict d; d[view] = &d; return d.find(text) != nullptr && d.contains(view.substr(0)); }},
    {"emplace in a dictionary", [] { fxStrStrDictionary d; return d.emplace("a", "xyz", 2U).second && !d.emplace("a", "q").second && d["a"] == "xy"; }},
    {"take from a dictionary", [] { fxTypedDictionary<long, fxStr> d{{1, "x"}}; return d.take(1) == "x" && d.empty() && !d.take(1); }},
    {"value with a default", [] { return fxStrStrDictionary().value("none", "-") == "-"; }},
    {"any_of over entries", [] { fxStrStrDictionary d{{"a", "1"}}; return std::any_of(d.begin(), d.end(), [](auto entry) { return entry.value == "1"; }); }},
    {"equal dictionaries", [] { fxStrStrDictionary d{{"a", "1"}, {"b", "2"}}; return d == fxStrStrDictionary{{"b", "2"}, {"a", "1"}} && d != fxStrStrDictionary(); }},
    {"sorted keys", [] { const fxStrStrDictionary d{{"b", "1"}, {"a", "2"}}; auto keys = d.keys(); std::sort(keys.begin(), keys.end()); return keys == std::vector<fxStr>{"a", "b"} && d.length() == 2; }},
    {"set in braces", [] { fxStrSet s{"a", "b", "a"}; return s.length() == 2 && s.contains("b"); }},
    {"algorithms over a set", [] { const fxTypedSet<int> s{1, 2, 3}; return std::count_if(s.begin(), s.end(), [](int i) { return i > 1; }) == 2 && std::set<int>(s.begin(), s.end()).size() == 3; }},
    {"set by return value", [] { const auto make = [] { fxStrSet s{"a", "b"}; fxStrSet moved = std::move(s); return moved; }; return make() == fxStrSet{"b", "a"}; }},
    {"replace by a lambda", [] { return fxExpression("b[a-z]*").replace( str, [](const fxMatch& m) { return upper(m[0]); }) == "alpha,BETA,,gamma"; }},
    {"emplace an own element", [] { fxStrArray a{"first", "second"}; for (int i = 0; i < 20; ++i) a.emplace(a[0]); a.append(std::move(a[1])); return a[21] == "first" && a[22] == "second" && a[1].isEmpty() && a.take(22) == "second" && !a.take(22); }},
    {"look in a constant array", [] { const fxStrArray a{"a"}; return a.find("none") == fxArray::notFound; }},
    {"walk by i++", [] { fxTypedDictionary<int, fxStr> d{{1, "one"}, {2, "two"}}; auto i = d.begin(); const auto passed = i++; return (*passed).value != (*i).value && i != d.begin() && ++i == d.end(); }},
    {"set of an enumeration", [] { enum class Color : unsigned char { red, green }; fxTypedSet<Color> s{Color::red, Color::green}; return s.take(Color::red) && !s.emplace(Color::green); }},
    {"a number alone in braces is a size", [] { const fxTypedSet<int> five{5}, none{0}; return five.isEmpty() && none.isEmpty(); }},
    {"constants give constants", [] { typedef fxTypedDictionary<int, fxStr> D; return std::is_same_v<decltype(std::declval<const D&>().find(1)), const fxStr*> && std::is_same_v<decltype((*std::declval<const D&>().begin()).value), const fxStr&> && std::is_same_v<decltype((*std::declval<D&>().begin()).value), fxStr&>; }},
    // clang-format on
};

TEST(Values, HabitsWork) {
    for (const auto& habit : habits) EXPECT_TRUE(habit.works()) << habit.name;
}

// Texts.

// Over few letters, so that there is much to find; arguments may lie in the text.
TEST(Values, TextsAgreeWithModel) {
    std::mt19937 rng(testSeed());
    const auto random = [&rng](unsigned int most) {
        std::string result(rng() % (most + 1), ' ');
        for (char& c : result) c = "ab\0"[rng() % 3];
        return result;
    };
    for (int round = 0; round < 3000; ++round) {
        std::string model = random(12);
        fxStr s(model);
        const auto piece = [&](std::string& copy) -> std::string_view {
            const size_t at = rng() % (model.size() + 1);
            const std::string_view own = s.view().substr(at, rng() % 3);
            return rng() % 2 == 0 ? own : copy = random(2);
        };
        std::string a, b;
        const std::string_view what = piece(a), with = piece(b);
        const std::string whatCopy(what), withCopy(with);
        const size_t pos = rng() % 14;
        ASSERT_EQ(s.find(what, pos), model.find(whatCopy, pos));
        ASSERT_EQ(s.rfind(what, pos), model.rfind(whatCopy, pos));
        ASSERT_EQ(s.startsWith(what), model.compare(0, what.size(), what) == 0);
        ASSERT_EQ(s.substr(pos, 3).view(), pos < model.size() ? model.substr(pos, 3) : "");
        ASSERT_EQ(s < what, std::string(model.c_str()) < whatCopy.c_str());
        ASSERT_EQ(s == what, model == whatCopy);
        fxStr joined = s.split(what).join(with);
        unsigned int count = 0;
        for (size_t at = 0;
             !whatCopy.empty() && (at = model.find(whatCopy, at)) != std::string::npos;
             at += withCopy.size(), ++count) {
            model.replace(at, whatCopy.size(), withCopy);
        }
        ASSERT_EQ(s.replaceAll(what, with), count);
        ASSERT_EQ(s.view(), model);
        ASSERT_EQ(joined.view(), model);
        ASSERT_EQ(s.data == &fxStr::emptyString, model.empty());
        s += s;
        ASSERT_EQ(s.view(), model + model);
    }
}

TEST(Values, NumbersAreWholeTextsInRange) {
    for (const char* bad : {"", "-", "+", "+-1", "--1", " 1", "1 ", "0x1", "2147483648", "1.0"}) {
        EXPECT_FALSE(fxStr(bad).toInt()) << bad;
    }
    for (const char* bad : {"", "+", "1e999", "1,5", "1.5 ", " 1.5", "e3"}) {
        EXPECT_FALSE(fxStr(bad).toDouble()) << bad;
    }
    EXPECT_FALSE(fxStr("1\0", 2).toInt());
    EXPECT_EQ(fxStr("-2147483648").toInt(), std::numeric_limits<int>::min());
    EXPECT_EQ(fxStr("+7f").toInt(16), 127);
    EXPECT_EQ(fxStr("255").toNumber<unsigned char>(), 255);
    EXPECT_EQ(fxStr("-0").toNumber<unsigned int>(), 0U);
    unsigned char byte = 9;
    EXPECT_FALSE(fxStr("256").toNumber(byte) || fxStr("-1").toNumber(byte) || byte != 9);
    EXPECT_FALSE(fxStr("1e39").toNumber<float>());
    std::mt19937_64 rng(testSeed());
    for (int round = 0; round < 2000; ++round) {
        const auto whole = static_cast<long>(rng() >> rng() % 64);
        const int base = static_cast<int>(2 + rng() % 35);
        EXPECT_EQ(fxStr::number(whole, base).toLong(base), whole);
        const double fraction =
            std::ldexp(static_cast<double>(whole), static_cast<int>(rng() % 200) - 100);
        EXPECT_EQ(fxStr::number(-fraction).toDouble(), -fraction);
    }
    EXPECT_EQ(fxStr::number(std::numeric_limits<long>::min()), "-9223372036854775808");
    EXPECT_EQ(fxStr::number(~0UL).toNumber<unsigned long>(), ~0UL);
}

// Containers.

struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

TEST(Values, SortingBearsWhateverTheComparisonDoes) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 200; ++round) {
        fxStrArray a;
        for (auto i = rng() % 30; i > 0; --i) a.emplace(fxStr::number(rng() % 20));
        std::vector<fxStr> model(a.begin(), a.end());
        const auto shorter = [](const fxStr& x, const fxStr& y) { return x.size() < y.size(); };
        int left = static_cast<int>(rng() % 40);
        const fxStrArray before = a;
        const auto failing = [&](const fxStr& x, const fxStr& y) {
            if (--left == 0) throw Refused("enough");
            return shorter(x, y);
        };
        try {
            a.sort(failing);
        } catch (const Refused&) {
            ASSERT_EQ(a, before);
            a.sort(shorter);
        }
        std::stable_sort(model.begin(), model.end(), shorter);
        ASSERT_TRUE(std::equal(a.begin(), a.end(), model.begin(), model.end()));
        a.sort([&rng](const fxStr&, const fxStr&) { return rng() % 2 == 0; });
        ASSERT_EQ(a.size(), model.size());
    }
    fxIntArray a{2, 1};
    EXPECT_DEATH(a.sort([&a](int, int) { return a.append(3), true; }), "changed its array");
}

// A value whose copies and ends move the dictionary away that they are entered in.
struct Mover {
    typedef fxTypedDictionary<int, Mover> Table;
    Mover() = default;
    explicit Mover(Table* table_) : table(table_) {}
    Mover(const Mover& other) : table(other.table), name(other.name) { moveAway(); }
    Mover& operator=(const Mover&) = default;
    ~Mover() { moveAway(); }
    void moveAway() const {
        if (table == nullptr || moves == 0) return;
        --moves;
        auto moved = std::make_unique<Table>(std::move(*table));
        all.push_back(std::move(moved));
    }
    Table* table = nullptr;
    std::string name = "a name that is longer than what a string keeps in itself";
    static int moves;
    static std::vector<std::unique_ptr<Table>> all;
};
int Mover::moves = 0;
std::vector<std::unique_ptr<Mover::Table>> Mover::all;

TEST(Values, MovesTakeEntriesAndBearOperationsUnderWay) {
    fxStrStrDictionary d(2);
    for (int i = 0; i < 100; ++i) d[fxStr::number(i)] = "v";
    std::vector<fxStr> order;
    for (auto [key, value] : d) order.push_back(key);
    fxStrStrDictionaryIter walk(d);
    const fxStr* const value = d.find("7");
    fxStrStrDictionary moved = std::move(d);
    EXPECT_TRUE(!walk.notDone() && d.isEmpty() && d.find("7") == nullptr &&
                moved.find("7") == value);
    EXPECT_TRUE(std::equal(moved.begin(), moved.end(), order.begin(), order.end(),
                           [](auto entry, const fxStr& key) { return entry.key == key; }));
    d["new"] = "x";
    EXPECT_TRUE(d.size() == 1 && moved.size() == 100 && d != moved);

    for (int round = 0; round < 40; ++round) {
        auto table = std::make_unique<Mover::Table>(2U);
        for (int i = 0; i < 5; ++i) (*table)[i];
        const Mover mover(table.get());
        Mover::moves = round % 4;
        table->add(round % 7, mover);
        table->add(round % 5, mover);
        table->findCreate(9);
        table->remove(round % 7);
        table->emplace(11, table.get());
        Mover::moves = 0;
        for (auto& other : Mover::all) {
            for (auto [key, entry] : *other) ASSERT_EQ(entry.name.size(), 56U);
        }
        Mover::all.clear();
    }
}

// Expressions.

std::string matches(const char* pattern, std::string_view subject) {
    std::string shown;
    for (const fxMatch& match : fxExpression(pattern).all(subject)) {
        shown += "[" + std::string(match.text()) + "]";
    }
    return shown;
}

TEST(Match, WalksOverEmptyMatchesAndToZeros) {
    EXPECT_EQ(matches("a*", "baac"), "[][aa][][]");
    EXPECT_EQ(matches("^", "ab"), "[]");
    EXPECT_EQ(matches("$", std::string_view()), "[]");
    EXPECT_EQ(matches("a[^b]*b|a", "aabaa"), "[aab][a][a]");
    // Each match looks to the end: without a memory this takes minutes.
    EXPECT_EQ(matches("(a|c)*b|a", std::string(100000, 'a')).size(), 300000U);
    EXPECT_EQ(matches("\\<[a-z]", "ab cd"), "[a][c]");
    EXPECT_EQ(matches(".", std::string_view("ab\0c", 4)), "[a][b]");
    EXPECT_EQ(matches("b$", std::string_view("abc").substr(0, 2)), "[b]");  // not terminated
    EXPECT_EQ(matches("(", "("), "");
    EXPECT_EQ(fxExpression("b").replace(fxStr("ab\0b", 4), "x"), fxStr("ax\0b", 4));
    EXPECT_EQ(fxExpression("").replace("ab", "-"), "-a-b-");
    EXPECT_EQ(fxExpression("(a)(x)?").replace("ba", "<&\\1\\2\\&>"), "b<aa&>");
}

TEST(Match, GroupsAreViewsOfTheText) {
    const fxExpression setting("([a-z]+)=([0-9]+)(!)?");
    const fxStr line("x=1, level=42");
    const fxMatch match = setting.search(line, 5);
    EXPECT_TRUE(match[1] == "level" && match[2] == "42" && !match.has(3) && match[3].empty());
    EXPECT_TRUE(match.start(2) == 11 && match.end() == 13 && match[1].data() == line.c_str() + 5);
    EXPECT_TRUE(match.expand("\\2:&").view() == "42:level=42" && match[99].empty());
    EXPECT_FALSE(setting.search(line, 14) || setting.search(line, fxStr::npos) || fxMatch());
    EXPECT_TRUE(setting.isIn("a" | fxStr("=1")) && fxMatch().expand("x").isEmpty());
    // Another walk over the same expression, and the expression's end, meanwhile.
    auto expression = std::make_unique<fxExpression>("[a-z]");
    const fxMatches all = expression->all("abc");
    std::string pairs;
    for (const fxMatch& outer : all) {
        for (const fxMatch& inner : all) pairs += std::string(outer[0]) + std::string(inner[0]);
        expression.reset();
    }
    EXPECT_EQ(pairs, "aaabacbabbbccacbcc");
}

TEST(Match, CallablesMayThrowAndChangeTheText) {
    const fxExpression letter("[a-z]");
    fxStr s("abc");
    s = letter.replace(s, [&s](const fxMatch& match) {
        s.clear();
        return match[0] == "b" ? fxStr("<b>") : fxStr(match[0]);
    });
    EXPECT_EQ(s, "a<b>c");
    EXPECT_THROW(letter.replace(s, [](const fxMatch&) -> fxStr { throw Refused("no"); }), Refused);
    EXPECT_EQ(letter.replace("ab", [](const fxMatch&) { return 'x'; }), "xx");
}

TEST(Match, FaultsHaveAPlace) {
    const std::pair<const char*, size_t> faults[] = {
        {"ab(c", 2}, {"ab)", 2}, {"a[bc", 1},   {"x[z-a]", 3}, {"ab\\", 2},
        {"a**", 2},  {"a|*", 2}, {"(a*)+b", 4}, {"(()", 0},    {"()()()()()()()()()(x)", 18},
        {"[^", 0}};
    for (const auto& [pattern, offset] : faults) {
        const fxExpression faulty(pattern);
        EXPECT_TRUE(!faulty.isValid() && faulty.error() != nullptr) << pattern;
        EXPECT_EQ(faulty.errorOffset(), offset) << pattern;
    }
    EXPECT_EQ(fxExpression(std::string_view("a\0b", 3)).errorOffset(), 1U);
    EXPECT_EQ(fxExpression(std::string(40000, 'a')).errorOffset(), 40000U);
    fxExpression good("a"), other("b");
    EXPECT_TRUE(good.isValid() && good.error() == nullptr && good.errorOffset() == 0);
    other = good;
    const fxExpression moved = std::move(good);
    EXPECT_TRUE(!good.isValid() && good.error() != nullptr && !fxExpression(good).isIn("a"));
    EXPECT_TRUE(moved.isIn("a") && other.isIn("a") && other.pattern() == "a");
    std::string bytes;
    for (int c = 1; c < 256; ++c) bytes += static_cast<char>(c);
    for (const std::string& each : {bytes, std::string("<a>"), std::string("\n"), std::string()}) {
        EXPECT_EQ(fxExpression("^" | fxExpression::escape(each) | "$").search(each).text(), each);
    }
}

}  // namespace
