// Dictionaries and sets against chains of entries, newest first: quiet ones under iterators,
// and ones whose hooks call back, throw and look at what is there.
#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/StreamKit.h"
#include "tests/support/TestSeed.h"

namespace {

struct Thrown {};
typedef std::pair<std::string, std::string> Entry;
typedef std::vector<Entry> Entries;

fxStr toStr(std::string_view text) { return fxStr(text); }
std::string folded(std::string_view text) {
    fxStr lower(text);
    lower.lower();
    return std::string(lower.view());
}

/// Chains of (key, value), newest first. Keys are equal when strcmp() says so, folded or
/// as they are.
struct Model {
    Entries& chainOf(const std::string& key) {
        return chains[toStr(folds ? folded(key) : key).hash() % chains.size()];
    }
    Entries::iterator placeOf(const std::string& key) {
        Entries& chain = chainOf(key);
        const auto order = folds ? strcasecmp : std::strcmp;
        return std::find_if(chain.begin(), chain.end(), [&](const Entry& entry) {
            return order(entry.first.c_str(), key.c_str()) == 0;
        });
    }
    bool has(const std::string& key) { return placeOf(key) != chainOf(key).end(); }
    void add(const std::string& key, const std::string& value) {
        if (has(key)) {
            placeOf(key)->second = value;
        } else {
            chainOf(key).insert(chainOf(key).begin(), {key, value});
        }
    }
    void remove(const std::string& key) {
        if (has(key)) chainOf(key).erase(placeOf(key));
    }
    void clear(size_t chainCount) { chains.assign(chainCount, {}); }
    void reverse() {
        for (Entries& chain : chains) std::reverse(chain.begin(), chain.end());
    }
    Entries list() const {
        Entries entries;
        for (const Entries& chain : chains) {
            entries.insert(entries.end(), chain.begin(), chain.end());
        }
        return entries;
    }
    /// The key behind `key`, or the first one behind its chain; "" at the end.
    std::string after(const std::string& key) {
        auto place = placeOf(key) + 1;
        for (Entries* chain = &chainOf(key);; place = chain->begin()) {
            if (place != chain->end()) return place->first;
            if (++chain == chains.data() + chains.size()) return "";
        }
    }

    bool folds = false;
    std::vector<Entries> chains{1};
};

// Short and long keys, many that share the bytes which the hash sees, and some with zero
// bytes inside.
std::string anyKey(std::mt19937& rng, unsigned int range) {
    static const std::string starts[] = {"k", "element-", "/a/common/long/prefix/",
                                         std::string("z\0", 2), ""};
    return starts[rng() % 5] + std::to_string(rng() % range);
}

/// The chains of any table.
template <class Base>
struct ChainsOf : Base {
    static const auto& in(const Base& table) { return table.*(&ChainsOf::buckets); }
};

/// Shows the chains and the iterators of a table of texts.
template <class Base_>
struct Open : Base_ {
    typedef Base_ Base;
    using Base::Base;
    using Base::buckets;
    using Base::iters;

    typename Base::Finder* finder() const override { return this->ownFinder(typeid(Open)); }
    /// The stored key that walking its chain finds, or null.
    static const fxStr* walkFor(const Base& table, const fxStr& key) {
        const auto& chains = ChainsOf<Base>::in(table);
        auto* node = chains[static_cast<unsigned int>(key.hash() % chains.length())];
        while (node != nullptr && compare(key, *static_cast<fxStr*>(node->element)) != 0) {
            node = node->next;
        }
        return node != nullptr ? static_cast<const fxStr*>(node->element) : nullptr;
    }
};

const fxStr* keyFor(const fxStrSet& table, const fxStr& key) { return table.find(key); }
const fxStr* keyFor(const fxStrStrDictionary& table, const fxStr& key) {
    const fxStr* const value = table.find(key);
    return value != nullptr ? value - 1 : nullptr;  // which follows its key
}
std::string valueAt(const fxStrSetIter&) { return ""; }
std::string valueAt(const fxStrStrDictionaryIter& i) {
    return i.getValue() != nullptr ? std::string(i.value().view()) : "being replaced";
}

/// What hooks do, and what they see of the lives of keys and values.
struct Hooks {
    static inline Hooks* current = nullptr;

    Hooks() { current = this; }
    virtual ~Hooks() = default;
    virtual void change() = 0;
    void start(const void* place) {
        EXPECT_TRUE(lives.insert(place).second) << "a life was started twice";
        ended.erase(place);
    }
    void stop(const void* place) {
        EXPECT_EQ(lives.erase(place), 1U) << "a life was ended twice";
        ended.insert(place);
    }
    void act() {
        if (depth == 4 || budget == 0 || rng() % 5 > 2) return;
        --budget;
        ++actions;
        step();
    }
    void begin(const void* from) {
        EXPECT_EQ(ended.count(from), 0U) << "an argument has ended";
        act();
        EXPECT_EQ(ended.count(from), 0U) << "an argument has ended";
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

    std::mt19937 rng{testSeed()};
    std::set<const void*> lives, ended;
    int depth = 0, budget = 0;
    unsigned long actions = 0;
    bool isFast = false;
};

/// Its keys are equal whatever their case.
template <class Base>
struct Folding : Open<Base> {
    using Open<Base>::Open;
    Folding(const Folding&) = default;
    Folding& operator=(const Folding& other) {  // merges or assigns
        Base::operator=(other);
        return *this;
    }
    ~Folding() override { this->cleanup(); }
    static fxStr fold(const void* key) {
        return toStr(folded(static_cast<const fxStr*>(key)->view()));
    }
    unsigned long hashKey(const void* key) const override { return fold(key).hash(); }
    int compareKeys(const void* a, const void* b) const override {
        const int order = compare(fold(a), fold(b));
        EXPECT_TRUE(order == 0 || !isFast) << "keys were compared that cannot be equal";
        return order;
    }
    unsigned long fingerprintKey(const void* key, unsigned long hash) const override {
        return isFast ? fxKeyHooks<fxStr>::fingerprint(fold(key), hash) : hash;
    }
    void copyKey(const void* from, void* to) const override {
        Hooks::current->begin(from);
        Base::copyKey(from, to);
        Hooks::current->start(to);
    }
    void destroyKey(void* key) const override {
        Base::destroyKey(key);
        Hooks::current->stop(key);
        Hooks::current->act();
    }
    const bool isFast = Hooks::current->isFast;
};

struct FoldingDictionary : Folding<fxStrStrDictionary> {
    using Folding::Folding;
    ~FoldingDictionary() override { cleanup(); }
    void copyValue(const void* from, void* to) const override {
        Hooks::current->begin(from);
        Folding::copyValue(from, to);
        Hooks::current->start(to);
    }
    void createValue(void* to) const override {
        Hooks::current->begin(nullptr);
        Folding::createValue(to);
        Hooks::current->start(to);
    }
    void destroyValue(void* value) const override {
        Folding::destroyValue(value);
        Hooks::current->stop(value);
        Hooks::current->act();
    }
};

template <class Table_>
class Hash : public testing::Test, protected Hooks {
protected:
    typedef Table_ Table;
    typedef typename Table::Base Base;
    static constexpr bool hasValues = std::is_base_of_v<fxStrStrDictionary, Table>;
    static constexpr bool isHostile = !std::is_same_v<Table, Open<Base>>;
    typedef std::conditional_t<hasValues, fxStrStrDictionaryIter, fxStrSetIter> Iter;

    // An iterator, and the key where it must be, "" at the end.
    struct Walk {
        std::unique_ptr<Iter> iter;
        std::string key;
        bool hasMoved;
    };

    static Entry entryAt(const Iter& i) { return {std::string(i.key().view()), valueAt(i)}; }
    static Entries listOf(Base& table) {
        Entries entries;
        for (Iter i(table); i.notDone(); ++i) entries.push_back(entryAt(i));
        return entries;
    }
    std::string randomKey() {
        std::string key = anyKey(rng, range);
        for (char& c : key) {
            if (isHostile && rng() % 2 == 0) c = static_cast<char>(std::toupper(c));
            if (isHostile && c == '\0') c = '0';
        }
        return key;
    }
    Model modelOf(Table& table) {
        Model model{isHostile, std::vector<Entries>(table.buckets.length())};
        for (Iter i(table); i.notDone(); ++i) {
            const Entry entry = entryAt(i);
            EXPECT_TRUE(keyFor(table, i.key()) == i.getKey() && lives.count(i.getKey()) != 0);
            EXPECT_FALSE(model.has(entry.first)) << "a key is there twice";
            model.chainOf(entry.first).push_back(entry);
        }
        EXPECT_EQ(table.size(), model.list().size());
        return model;
    }

    // What is done to both.
    void add(Table& table, const std::string& key, Model& model) {
        const std::string text = std::to_string(rng() % 1000);
        if constexpr (hasValues) {
            const fxStr value = toStr(text);
            const fxStr* const stored = rng() % 4 == 0 ? table.find(toStr(randomKey())) : &value;
            if (stored == nullptr) return;
            if (rng() % 4 == 0) {
                if (!model.has(key)) model.add(key, "");
                fxStr& made = table[std::string_view(key)];
                if (!isHostile) made = value, model.add(key, text);
            } else {
                model.add(key, std::string(stored->view()));
                table.add(toStr(key), *stored);
            }
        } else {
            if (!model.has(key)) model.add(key, "");
            table.add(toStr(key));
        }
    }
    std::string taken(Table& table, const fxStr& key) {
        if constexpr (hasValues) {
            const void* const place = table.find(key);
            fxStr* const cut = table.cut(key);
            if (cut == nullptr) return "none";  // or an addition under way enters it
            if (isHostile) stop(place);
            const std::string text(cut->view());
            cut->~fxStr();
            std::free(cut);
            return text;
        } else {
            return table.take(key) ? "" : "none";
        }
    }
    void remove(Table& table, const std::string& key, Model& model) {
        if (rng() % 2 == 0) {
            table.remove(std::string_view(key + "longer").substr(0, key.size()));
        } else {
            const unsigned long before = actions;
            const std::string value = model.has(key) ? model.placeOf(key)->second : "none";
            const std::string was = taken(table, toStr(key));
            EXPECT_TRUE(was == value || depth > 1 || actions != before) << was;
        }
        model.remove(key);
    }
    void assign(Table& table, Table& other, Model& model, const Model& others) {
        table = other;
        if (&table == &other) return;
        if (!hasValues) model.clear(others.chains.size());
        for (const auto& [key, value] : others.list()) model.add(key, value);
    }
    void combine(Table& table, Table& other, unsigned long kind, Model& model, Model others) {
        if constexpr (!hasValues) {
            if (kind == 0) table |= other;
            if (kind == 1) table &= other;
            if (kind == 2) table -= other;
            for (const auto& [key, value] : others.list()) {
                if (kind == 0 && !model.has(key)) model.add(key, value);
            }
            for (const auto& [key, value] : model.list()) {
                if (kind != 0 && others.has(key) == (kind == 2)) model.remove(key);
            }
        }
    }
    // A copy has each chain reversed.
    void expectCopy(Table& table, Model model) {
        const unsigned long before = actions;
        Table copy(table);
        model.reverse();
        EXPECT_TRUE(depth > 1 || before != actions || listOf(copy) == model.list());
    }

    // What is found at any time is alive.
    void expectAlive(Table& table) {
        const fxStr key = toStr(randomKey());
        const auto* const found = table.find(key);
        EXPECT_TRUE(found == nullptr || lives.count(found) != 0) << "a dead value is found";
        EXPECT_EQ(table.find(key.view()), found);
    }
    void change() override {
        Table& table = *tables[rng() % 2];
        Table& other = *tables[rng() % 2];
        const std::string key = randomKey();
        const unsigned long before = actions, kind = rng() % 12;
        const bool isKnown = depth == 1;
        Model model = isKnown ? modelOf(table) : Model();
        const Model others = isKnown ? modelOf(other) : Model();
        expectAlive(table);
        if (kind < 4) add(table, key, model);
        if (kind == 4) remove(table, key, model);
        if (kind == 5) {
            for (Iter i(table); i.notDone(); ++i) {
                if (i.getKey() == nullptr || rng() % 4 != 0) continue;
                model.remove(entryAt(i).first);
                table.remove(i.key());
            }
        } else if (kind == 6 && rng() % 8 == 0) {
            table.clear();
            EXPECT_FALSE(table.begin().notDone()) << "a cleared table has entries";
            model.clear(model.chains.size());
        }
        if (kind == 7) expectCopy(table, model);
        if (kind == 8) assign(table, other, model, others);
        if (kind > 8 && hasValues) remove(table, key, model);
        if (kind > 8) combine(table, other, kind - 9, model, others);
        EXPECT_TRUE(!isKnown || actions != before || listOf(table) == model.list()) << kind;
        expectAlive(table);
    }

    // Iterators.
    Walk& anyWalk() { return walks[rng() % walks.size()]; }
    void quietStep() {
        const std::string key = randomKey();
        const unsigned long kind = rng() % 12;
        if (kind < 3) {
            const std::string there = expected.has(key) ? expected.placeOf(key)->first : "none";
            for (Walk& walk : walks) {
                if (walk.key != there) continue;
                walk.key = expected.after(there);
                walk.hasMoved = true;
            }
            remove(*tables[0], key, expected);
        } else if (kind == 3 && walks.size() < 20) {
            const Entries all = expected.list();
            walks.push_back(
                {std::make_unique<Iter>(*tables[0]), all.empty() ? "" : all[0].first, all.empty()});
        } else if (kind == 4 && !walks.empty()) {
            std::swap(anyWalk(), walks.back());
            walks.pop_back();
        } else if (kind == 5 && !walks.empty()) {
            Walk &from = anyWalk(), &to = anyWalk();
            if (rng() % 2 == 0) *to.iter = *from.iter;
            to = {std::make_unique<Iter>(*from.iter), from.key, from.hasMoved};
        } else if (kind == 6) {
            for (Walk& walk : walks) go(walk);
        } else {
            add(*tables[0], key, expected);
        }
    }
    void go(Walk& walk) {
        if (rng() % 3 != 0) return;
        ++*walk.iter;
        if (walk.key.empty()) return;
        if (!std::exchange(walk.hasMoved, false)) walk.key = expected.after(walk.key);
        if (walk.key.empty()) walk.hasMoved = true;
    }
    void expectWalks() {
        unsigned int underWay = 0;
        for (const Walk& walk : walks) {
            const bool isThere = !walk.key.empty() && !walk.hasMoved;
            ASSERT_EQ(walk.iter->notDone(), !walk.key.empty());
            ASSERT_EQ(walk.iter->moved, walk.hasMoved);
            ASSERT_EQ(walk.iter->getKey() != nullptr, isThere);
            ASSERT_TRUE(!isThere || entryAt(*walk.iter).first == walk.key);
            underWay += walk.iter->notDone();
        }
        ASSERT_EQ(tables[0]->iters.length(), underWay);
    }
    void expectQuietCopies() {
        Table& table = *tables[0];
        ASSERT_EQ(listOf(table), expected.list());
        ASSERT_EQ(table.size(), expected.list().size());
        expectCopy(table, expected);
        Model reversed = expected;
        reversed.reverse();
        Table assigned(static_cast<unsigned int>(expected.chains.size()));
        assigned = table;
        ASSERT_EQ(listOf(assigned), reversed.list());
        Base plain(table);  // is reversed again when it is read
        const std::unique_ptr<Base> back(fxXdrCopy(&plain));
        ASSERT_NE(back, nullptr);
        ASSERT_EQ(listOf(*back), expected.list());
        ASSERT_EQ(ChainsOf<Base>::in(*back).length(), expected.chains.size());
    }

    std::unique_ptr<Table> tables[2];
    unsigned int range = 24;
    Model expected;
    std::vector<Walk> walks;
};

template <class Table>
class QuietHash : public Hash<Table> {};
typedef testing::Types<Open<fxStrStrDictionary>, Open<fxStrSet>> QuietTables;
TYPED_TEST_SUITE(QuietHash, QuietTables, );

TYPED_TEST(QuietHash, AgreesWithModel) {
    fxInitializeToolkit();
    for (const unsigned int chains : {1U, 7U, 31U, 1009U}) {
        for (const unsigned int numbers : {20U, 3000U}) {
            this->range = numbers;
            this->walks.clear();
            this->tables[0] = std::make_unique<TypeParam>(chains);
            this->expected.clear(chains);
            for (int step = 0; step < 4000 / testShare; ++step) {
                this->quietStep();
                this->expectWalks();
                const TypeParam& table = *this->tables[0];
                const std::string probe = this->randomKey();
                const fxStr* const found = keyFor(table, toStr(probe));
                ASSERT_EQ(found, table.walkFor(table, toStr(probe)));
                ASSERT_EQ(table.contains(std::string_view(probe)), found != nullptr);
                ASSERT_EQ(found != nullptr, this->expected.has(probe)) << "step " << step;
                if (step % 1000 == 0) this->expectQuietCopies();
                if (this->HasFatalFailure()) return;
            }
            this->tables[0].reset();
            for (const auto& walk : this->walks) ASSERT_FALSE(walk.iter->notDone());
        }
    }
}

TYPED_TEST(QuietHash, WithoutChainsItIsEmptyAndUsable) {
    typedef typename TypeParam::Base Plain;
    Plain none(this->hasValues ? fxStrStrDictionary_type : fxStrSet_type);
    EXPECT_EQ(none.find("x"), nullptr);
    EXPECT_FALSE(none.contains(static_cast<const char*>(nullptr)));
    none.remove("x");
    EXPECT_TRUE(this->listOf(none).empty());
    const auto add = [](Plain& table, const char* key) {
        if constexpr (TestFixture::hasValues) {
            table[key] = "value";
        } else {
            table.add(key);
        }
    };
    Plain copy(none);
    add(copy, "x");
    EXPECT_TRUE(copy.contains("x"));
    copy = none;
    EXPECT_EQ(copy.size(), this->hasValues ? 1U : 0U);  // merged, or assigned
    add(copy, "y");
    EXPECT_TRUE(copy.contains("y"));
}

template <class Table>
class HostileHash : public Hash<Table> {};
typedef testing::Types<FoldingDictionary, Folding<fxStrSet>> HostileTables;
TYPED_TEST_SUITE(HostileHash, HostileTables, );

TYPED_TEST(HostileHash, StaysWhole) {
    static const unsigned int chains[] = {1, 2, 7, 31};
    for (int round = 0; round < 60 / testShare; ++round) {
        this->isFast = round % 2 == 0;
        for (auto& table : this->tables) {
            table = std::make_unique<TypeParam>(chains[this->rng() % 4]);
        }
        for (int i = 0; i < 300 && !this->HasFailure(); ++i) {
            this->budget = this->rng() % 3 == 0 ? 0 : 30;  // without actions, contents are known
            this->step();
            this->budget = 0;
            for (auto& table : this->tables) this->modelOf(*table);
        }
        for (auto& table : this->tables) table.reset();
        EXPECT_TRUE(this->lives.empty());
    }
}

/// When it is asked for "2", it removes that from another set.
struct Spiteful : Open<fxStrSet> {
    using Open::Open;
    unsigned long hashKey(const void* key) const override {
        if (victim != nullptr && *static_cast<const fxStr*>(key) == "2") victim->remove("2");
        return Open::hashKey(key);
    }
    fxStrSet* victim = nullptr;
};

TEST(SetAlgebra, OperandsMayRemoveWhatIsLookedUp) {
    Spiteful other(1);
    for (const char* key : {"1", "3"}) other.add(key);
    fxStrSet set(1);
    for (const char* key : {"3", "2", "1"}) set.add(key);  // newest first
    other.victim = &set;
    set &= other;
    EXPECT_EQ(set, (fxStrSet{"1", "3"}));
    set.add("2");
    other.victim = &set;
    other -= set;
    EXPECT_TRUE(other.isEmpty() && set == (fxStrSet{"1", "3"}));
}

// A stream may put an entry into any chain and a key twice into one: this table
// writes other keys than it has. A search finds what walking the chain finds, with the
// index, and without one when five keys are there so often that it drops itself.
struct Lying : fxStrStrDictionary {
    using fxStrStrDictionary::fxStrStrDictionary;
    bool xdrKey(fxTranscriber& t, void*) override {
        keys.push_back(toStr(anyKey(rng, range)));
        return keys.back().xdr(t);
    }
    unsigned int range = 0;
    std::deque<fxStr> keys;
    std::mt19937 rng{testSeed()};
};

struct Holder : Listed {
    FX_TRANSCRIBABLE(Holder)
    fxStrStrDictionary own;
    fxStrStrDictionary* table = &own;
};
FX_TRANSCRIBABLE_TYPE(Holder, "Holder", 1);
fxBool Holder::xdr(fxTranscriber& t) {
    const bool isDone = table->doxdr(t);
    // Searches while a reader still owes the texts of the keys.
    return isDone && !(t.isReading() && table->find(toStr("1")) != nullptr);
}

TEST(DictionaryXdr, TrustsThePlacesOfTheStream) {
    fxInitializeToolkit();
    for (const auto& [entries, range, steps] : {std::tuple(3000U, 300U, 6000), {24000U, 1U, 200}}) {
        Lying lying(7);
        lying.range = range;
        for (unsigned int i = 0; i < entries; ++i) lying[toStr(std::to_string(i))] = "";
        Holder holder;
        holder.table = &lying;
        const std::unique_ptr<Holder> copy(fxXdrCopy(&holder));
        ASSERT_TRUE(copy != nullptr && copy->own.size() == entries);
        fxStrStrDictionary& dict = copy->own;
        for (int step = 0; step < steps; ++step) {
            const fxStr key = toStr(anyKey(lying.rng, range));
            if (step % 3 == 0) dict.remove(key);
            if (step % 7 == 0) dict[key] = "new";
            ASSERT_EQ(keyFor(dict, key), Open<fxStrStrDictionary>::walkFor(dict, key)) << step;
        }
    }
}

}  // namespace
