// Dictionaries and sets whose keys and values call back and throw: what they do
// in the middle of an operation.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "fxds/TypedDictionary.h"
#include "fxds/TypedSet.h"
#include "tests/support/TestSeed.h"

namespace {

struct Thrown {};

/// A text that acts, and may throw, whenever one is copied, and that acts when
/// one ends. It has memory of its own, so that sanitizers see every use too late.
struct Text {
    Text() : Text("default") {}
    explicit Text(std::string text) : own(std::make_unique<std::string>(std::move(text))) {
        ++alive;
    }
    Text(const Text& other) : Text(*other.own) {
        if (const auto now = onCopy) now();
    }
    Text& operator=(const Text&) = delete;
    ~Text() {
        --alive;
        if (const auto now = onEnd) now();
    }
    const std::string& get() const { return *own; }

    std::unique_ptr<std::string> own;
    static inline int alive = 0;
    static inline std::function<void()> onCopy;
    static inline std::function<void()> onEnd;
};

}  // namespace

template <>
struct fxKeyHooks<Text> {
    static unsigned long hash(const Text& key) { return key.get().size(); }
    static int compare(const Text& a, const Text& b) { return a.get().compare(b.get()); }
};

namespace {

typedef fxTypedDictionary<Text, Text> Dict;
typedef fxTypedSet<Text> Set;

/// Lets `act` happen once, at the next end of a text or copy of one.
void once(std::function<void()>& hook, const std::function<void()>& act) {
    hook = [&hook, act] {
        hook = nullptr;
        act();
    };
}

std::string listOf(const Dict& dict) {
    std::string list;
    for (auto [key, value] : dict) list += key.get() + "=" + value.get() + " ";
    return list;
}

// What a value's end does while another takes its place, and what is there then.
TEST(HashReentry, AReplacedValueMayDoAnythingToItsTable) {
    struct Row {
        const char* name;
        std::function<void(Dict&)> atEnd;
        const char* then;
    };
    const Text one("one");
    const Text two("two");
    const Row rows[] = {
        {"nothing", [](Dict&) {}, "two=2 one=2 "},
        {"removes its entry", [&](Dict& d) { d.remove(one); }, "one=2 two=2 "},
        {"removes the new value", [&](Dict& d) { d.remove(two); }, "one=2 "},
        {"removes all", [&](Dict& d) { d.cleanup(); }, "one=2 "},
        {"finds nothing",
         [&](Dict& d) { EXPECT_TRUE(d.find(one) == nullptr && !d.contains(one) && d.size() == 2); },
         "two=2 one=2 "},
        {"makes its entry anew", [&](Dict& d) { EXPECT_EQ(d[one].get(), "default"); },
         "one=2 two=2 "},
        {"sets its entry", [&](Dict& d) { d.add(one, Text("x")); }, "one=2 two=2 "},
        {"cuts neither value",
         [&](Dict& d) {
             fxDictionary& untyped = d;
             EXPECT_TRUE(untyped.cut(&one) == nullptr && untyped.cut(&two) == nullptr);
         },
         "two=2 one=2 "},
        {"copies the table", [&](Dict& d) { EXPECT_EQ(listOf(Dict(d)), "two=2 "); },
         "two=2 one=2 "},
        {"merges the table",
         [&](Dict& d) {
             Dict other(1);
             other = d;
             EXPECT_EQ(listOf(other), "two=2 ");
         },
         "two=2 one=2 "},
        {"iterates",
         [&](Dict& d) {
             int entries = 0;
             for (fxDictIter i(d); i.notDone(); ++i) ++entries;
             EXPECT_EQ(entries, 2);
         },
         "two=2 one=2 "},
    };
    for (const Row& row : rows) {
        Dict dict(1);
        dict.add(one, Text("1"));
        dict.add(two, Text("2"));
        once(Text::onEnd, [&] { row.atEnd(dict); });
        dict.add(one, *dict.find(two));
        EXPECT_EQ(listOf(dict), row.then) << row.name;
    }
}

TEST(HashReentry, CleanUpEndsWhatIsAddedMeanwhile) {
    class Counting : public Dict {
    public:
        using Dict::count;
    };
    Counting dict;
    for (int i = 0; i < 5; ++i) dict.add(Text(std::to_string(i)), Text("value"));
    int added = 0;
    Text::onEnd = [&] {
        if (added < 10) dict.add(Text("a" + std::to_string(added++)), Text("late"));
    };
    dict.cleanup();
    Text::onEnd = nullptr;
    EXPECT_EQ(dict.count, 15U);  // which cleanup() leaves alone
    EXPECT_FALSE(dict.begin().notDone());
    EXPECT_EQ(Text::alive, 0);
}

/// Random operations, from within each other too. A table is right when its
/// chains have every key once, where it is found, and as many as it says.
class Torture {
public:
    explicit Torture(unsigned int chains) : dict(chains), set(chains), other(3) {
        Text::onCopy = [this] {
            nest();
            if (rng() % 40 == 0) throw Thrown();
        };
        Text::onEnd = [this] {
            try {
                nest();
            } catch (const Thrown&) {
            }
        };
    }
    ~Torture() { Text::onCopy = Text::onEnd = nullptr; }

    void run(int steps) {
        for (int i = 0; i < steps; ++i) {
            budget = 8;
            try {
                act();
            } catch (const Thrown&) {
            }
            budget = 0;
            if (i % 8 == 0) check();
        }
    }

private:
    struct Deeper {
        explicit Deeper(int& depth_) : depth(++depth_) {}
        ~Deeper() { --depth; }
        int& depth;
    };
    void nest() {
        if (depth > 3 || budget == 0 || rng() % 6 != 0) return;
        const Deeper deeper(depth);
        --budget;
        act();
    }
    Text name() { return Text(std::string(1 + rng() % 2, 'k') + std::to_string(rng() % 8)); }
    const Text* stored() {
        unsigned int left = static_cast<unsigned int>(rng() % 6);
        for (fxDictIter i(dict); i.notDone(); ++i) {
            if (left-- == 0) return static_cast<const Text*>(i.key());
        }
        return nullptr;
    }

    void act() {
        const Text named = name(), second = name();
        switch (rng() % 14) {
            case 0:
                return dict.add(named, Text("value"));
            case 1:
                if (const Text* const value = dict.find(second)) dict.add(named, *value);
                return;
            case 2:
                if (const Text* const key = stored()) dict.add(*key, *key);
                return;
            case 3:
                return dict.remove(named);
            case 4:
                return cut(named);
            case 5:
                EXPECT_FALSE(dict[named].get().empty());
                return;
            case 6: {
                const Dict copy(dict);
                return;
            }
            case 7: {
                Dict few(3);
                few.add(named, Text("value"));
                dict = few;
                return;
            }
            case 8:
                for (fxDictIter i(dict); i.notDone(); ++i) {
                    const void* const here = i.key();
                    if (here != nullptr && rng() % 4 == 0) {
                        static_cast<fxDictionary&>(dict).remove(here);
                    }
                }
                return;
            case 9:
                return set.add(named);
            case 10:
                return set.remove(named);
            case 11:
                return rng() % 2 == 0 ? other.add(named) : set |= other;
            case 12:
                return rng() % 2 == 0 ? set &= other : other -= set;
            default:
                set = other;
        }
    }
    void cut(const Text& key) {
        void* const value = static_cast<fxDictionary&>(dict).cut(&key);
        if (value == nullptr) return;
        static_cast<Text*>(value)->~Text();
        std::free(value);
    }

    void check() {
        std::set<std::string> keys;
        for (auto [key, value] : dict) {
            ASSERT_TRUE(keys.insert(key.get()).second) << key.get();
            ASSERT_EQ(dict.find(key), &value);
        }
        ASSERT_EQ(keys.size(), dict.size());
        keys.clear();
        for (const Text& key : set) {
            ASSERT_TRUE(keys.insert(key.get()).second) << key.get();
            ASSERT_EQ(set.find(key), &key);
        }
        ASSERT_EQ(keys.size(), set.size());
    }

    std::mt19937 rng{testSeed()};
    int depth = 0;
    int budget = 0;
    Dict dict;
    Set set, other;
};

TEST(HashReentry, TablesStayWholeWhateverTheirEntriesDo) {
    for (const unsigned int chains : {1U, 7U}) {
        Torture torture(chains);
        torture.run(3000);
    }
    EXPECT_EQ(Text::alive, 0);
}

TEST(HashReentry, CopiesThatCannotBeMadeLeaveNothing) {
    Dict dict(3);
    for (int i = 0; i < 20; ++i) dict.add(Text(std::to_string(i)), Text("value"));
    const int before = Text::alive;
    for (int copies = 0; copies < 40; ++copies) {
        int left = copies;
        Text::onCopy = [&left] {
            if (left-- == 0) throw Thrown();
        };
        EXPECT_THROW(Dict copy(dict), Thrown);
        Text::onCopy = nullptr;
        EXPECT_EQ(Text::alive, before);
    }
}

}  // namespace
