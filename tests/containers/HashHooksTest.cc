// Dictionaries and sets whose hooks call back, throw and look at what is there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "tests/support/TestSeed.h"

namespace {

struct Thrown {};

std::string folded(const void* text) {
    fxStr lower(*static_cast<const fxStr*>(text));
    lower.lower();
    return std::string(lower.view());
}

/// What hooks do: to two tables whose keys are equal whatever their case.
struct Hostility {
    static Hostility* current;

    void start(const void* place) {
        EXPECT_TRUE(lives.insert(place).second) << "a life was started twice";
        ended.erase(place);
    }
    void stop(const void* place) {
        EXPECT_EQ(lives.erase(place), 1U) << "a life was ended twice";
        ended.insert(place);
    }
    void expectArgument(const void* from) {
        EXPECT_EQ(ended.count(from), 0U) << "an argument has ended";
    }
    void act() {
        if (depth == 4 || budget == 0 || rng() % 5 > 2) return;
        --budget;
        ++actions;
        step();
    }
    void begin(const void* from) {
        expectArgument(from);
        act();
        expectArgument(from);
        if (rng() % 20 != 0) return;
        ++actions;
        throw Thrown();
    }
    void step() {
        ++depth;
        try {
            change();
        } catch (const Thrown&) {
        }
        --depth;
    }
    virtual void change() = 0;

    std::mt19937 rng{testSeed()};
    std::set<const void*> lives, ended;
    int depth = 0, budget = 0;
    unsigned long actions = 0;
};
Hostility* Hostility::current = nullptr;

template <class Base>
struct Folding : Base {
    Folding(unsigned int chains, bool isFast_) : Base(chains), isFast(isFast_) {}
    Folding(const Folding&) = default;
    Folding& operator=(const Folding& other) {  // merges or assigns
        Base::operator=(other);
        return *this;
    }
    ~Folding() override { this->cleanup(); }
    unsigned long hashKey(const void* key) const override {
        return fxStr(std::string_view(folded(key))).hash();
    }
    int compareKeys(const void* a, const void* b) const override {
        const int order = folded(a).compare(folded(b));
        EXPECT_TRUE(order == 0 || !isFast) << "keys were compared that cannot be equal";
        return order;
    }
    unsigned long fingerprintKey(const void* key, unsigned long hash) const override {
        return isFast ? fxKeyHooks<fxStr>::fingerprint(fxStr(std::string_view(folded(key))), hash)
                      : hash;
    }
    void copyKey(const void* from, void* to) const override {
        Hostility::current->begin(from);
        Base::copyKey(from, to);
        Hostility::current->start(to);
    }
    void destroyKey(void* key) const override {
        Base::destroyKey(key);
        Hostility::current->stop(key);
        Hostility::current->act();
    }
    const bool isFast;
};

struct HostileDictionary : Folding<fxStrStrDictionary> {
    using Folding::Folding;
    ~HostileDictionary() override { cleanup(); }
    void copyValue(const void* from, void* to) const override {
        Hostility::current->begin(from);
        Folding::copyValue(from, to);
        Hostility::current->start(to);
    }
    void createValue(void* to) const override {
        Hostility::current->begin(nullptr);
        Folding::createValue(to);
        Hostility::current->start(to);
    }
    void destroyValue(void* value) const override {
        Folding::destroyValue(value);
        Hostility::current->stop(value);
        Hostility::current->act();
    }
};

template <class Table>
struct HostileTables : Hostility {
    typedef std::map<std::string, std::string> Contents;
    static constexpr bool hasValues = std::is_same_v<Table, HostileDictionary>;

    HostileTables() { current = this; }

    static std::string valueAt([[maybe_unused]] const void* found) {
        if constexpr (hasValues) return static_cast<const fxStr*>(found)->c_str();
        return "";
    }
    fxStr name() {
        static const char* const patterns[] = {"k%d", "K%d", "a/long/common/beginning/%d",
                                               "A/long/COMMON/beginning/%d"};
        const int number = static_cast<int>(rng() % 24);
        return fxStr(number, patterns[static_cast<size_t>(number % 2 * 2) + rng() % 2]);
    }
    Contents contentsOf(Table& table) {
        Contents all;
        size_t count = 0;
        for (auto i = table.begin(); i.notDone(); ++i, ++count) {
            const auto* const found = table.find(i.key());
            EXPECT_TRUE(found != nullptr && lives.count(i.getKey()) != 0);
            all[folded(i.getKey())] = valueAt(found);
        }
        EXPECT_TRUE(all.size() == count && table.size() == count) << "a key is there twice";
        return all;
    }
    // What is found at any time is alive.
    void expectAlive(Table& table) {
        const fxStr key = name();
        const auto* const found = table.find(key);
        EXPECT_TRUE(found == nullptr || lives.count(found) != 0) << "a dead value is found";
        EXPECT_EQ(table.find(key.view()), found);
    }
    void change() override {
        Table& table = *tables[rng() % 2];
        Table& other = *tables[rng() % 2];
        const auto kind = static_cast<unsigned int>(rng() % 12);
        const fxStr key = name();
        const bool isOutermost = depth == 1;
        const unsigned long before = actions;
        Contents model = isOutermost ? contentsOf(table) : Contents();
        const Contents others = isOutermost ? contentsOf(other) : Contents();
        expectAlive(table);
        edit(table, other, kind, key, model, others);
        EXPECT_TRUE(!isOutermost || actions != before || contentsOf(table) == model) << kind;
        expectAlive(table);
    }
    void edit(Table& table, Table& other, unsigned int kind, const fxStr& key, Contents& model,
              const Contents& others) {
        if (kind < 4) return add(table, kind, key, model);
        const std::string lower = folded(&key);
        if (kind == 4) {
            table.remove(key);
            model.erase(lower);
        } else if (kind == 5) {
            for (auto i = table.begin(); i.notDone(); ++i) {
                if (i.getKey() == nullptr || rng() % 4 != 0) continue;
                model.erase(folded(i.getKey()));
                table.remove(i.key());
            }
        } else if (kind == 6 && rng() % 8 == 0) {
            table.clear();
            EXPECT_FALSE(table.begin().notDone()) << "a cleared table has entries";
            model.clear();
        } else if (kind == 7) {
            const unsigned long before = actions;
            Table copy(table);
            EXPECT_TRUE(depth > 1 || before != actions || contentsOf(copy) == model);
        } else if (kind == 8) {
            table = other;
            if (hasValues) model.insert(others.begin(), others.end());
            for (const auto& entry : others) model[entry.first] = entry.second;
            if (!hasValues) model = others;
        } else if (kind > 8) {
            takePart(table, other, kind, key, model, others);
        }
    }
    void add(Table& table, unsigned int kind, const fxStr& key, Contents& model) {
        const std::string lower = folded(&key);
        if constexpr (hasValues) {
            const fxStr second = name();
            const fxStr value = fxStr(static_cast<int>(rng() % 1000), "value %d");
            const fxStr* const stored = kind == 1 ? table.find(second) : &value;
            if (stored == nullptr) return;
            if (kind == 3) {
                table[key];
                model.insert({lower, ""});
            } else {
                model[lower] = stored->c_str();
                table.add(key, *stored);
            }
        } else {
            model.insert({lower, ""});
            table.add(key);
        }
    }
    void takePart(Table& table, [[maybe_unused]] Table& other, unsigned int kind, const fxStr& key,
                  Contents& model, [[maybe_unused]] const Contents& others) {
        if constexpr (hasValues) {
            const auto entry = model.find(folded(&key));
            const void* const place = table.find(key);
            fxStr* const value = table.cut(key);
            if (value == nullptr) return;  // or an addition under way enters it
            stop(place);
            if (entry != model.end()) {
                EXPECT_TRUE(*value == entry->second);
                model.erase(entry);
            }
            value->~fxStr();
            std::free(value);
        } else {
            if (kind == 9) table |= other;
            if (kind == 10) table &= other;
            if (kind == 11) table -= other;
            if (kind == 9) model.insert(others.begin(), others.end());
            for (auto i = model.begin(); kind > 9 && i != model.end();) {
                i = (others.count(i->first) != 0) == (kind == 10) ? std::next(i) : model.erase(i);
            }
        }
    }
    void run() {
        static const unsigned int chains[] = {1, 2, 7, 31};
        for (int round = 0; round < 60; ++round) {
            const bool isFast = round % 2 == 0;
            for (auto& table : tables) {
                table = std::make_unique<Table>(chains[rng() % 4], isFast);
            }
            for (int i = 0; i < 300 && !testing::Test::HasFailure(); ++i) {
                budget = rng() % 3 == 0 ? 0 : 30;  // without actions, contents are known
                step();
                budget = 0;
                contentsOf(*tables[0]), contentsOf(*tables[1]);
            }
            for (auto& table : tables) table.reset();
            EXPECT_TRUE(lives.empty());
        }
    }

    std::unique_ptr<Table> tables[2];
};

TEST(HostileHooks, LeaveDictionariesWhole) { HostileTables<HostileDictionary>().run(); }
TEST(HostileHooks, LeaveSetsWhole) { HostileTables<Folding<fxStrSet>>().run(); }

}  // namespace
