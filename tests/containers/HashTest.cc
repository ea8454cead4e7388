// Dictionaries and sets against the most obvious model; HashHooksTest.cc has hooks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fxds/BinaryOTDict.h"
#include "fxds/Globals.h"
#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "fxds/VoidPtrDict.h"
#include "tests/support/StreamKit.h"
#include "tests/support/TestSeed.h"

namespace {

fxStr toStr(const std::string& text) { return fxStr(std::string_view(text)); }
fxStr toStr(const char* format, unsigned long number) {
    return fxStr(static_cast<int>(number), format);
}

typedef std::pair<std::string, std::string> Entry;

/// Chains of (key, value), newest first; keys are equal when strcmp() says so.
struct Model {
    typedef std::vector<Entry> Chain;

    Chain& chainOf(const std::string& key) { return chains[toStr(key).hash() % chains.size()]; }
    Chain::iterator placeOf(const std::string& key) {
        Chain& chain = chainOf(key);
        return std::find_if(chain.begin(), chain.end(), [&key](const Entry& entry) {
            return std::strcmp(entry.first.c_str(), key.c_str()) == 0;
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
    void reverse() {
        for (Chain& chain : chains) std::reverse(chain.begin(), chain.end());
    }
    std::vector<Entry> list() const {
        std::vector<Entry> entries;
        for (const Chain& chain : chains) entries.insert(entries.end(), chain.begin(), chain.end());
        return entries;
    }
    /// The key behind `key`, or the first one behind its chain; "" at the end.
    std::string after(const std::string& key) {
        auto place = placeOf(key) + 1;
        for (Chain* chain = &chainOf(key);; place = chain->begin()) {
            if (place != chain->end()) return place->first;
            if (++chain == chains.data() + chains.size()) return "";
        }
    }

    std::vector<Chain> chains;
};

/// Short and long keys, many that share the bytes which the hash sees, and some
/// with zero bytes inside.
std::string randomKey(std::mt19937& rng, unsigned int range) {
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
template <class Base>
struct Open : Base {
    using Base::Base;
    using Base::buckets;
    using Base::iters;

    typename Base::Finder* finder() const override { return this->finderFor(typeid(Open)); }
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

struct Dictionaries {
    typedef fxStrStrDictionary Table;
    typedef fxStrStrDictionaryIter Iter;
    static constexpr bool hasValues = true;
    static fxTypeObj& type() { return fxStrStrDictionary_type; }
    static void add(Table& table, const std::string& key, const std::string& value) {
        table[std::string_view(key)] = toStr(value);
    }
    static const fxStr* keyFor(const Table& table, const fxStr& key) {
        const fxStr* const value = table.find(key);
        return value != nullptr ? value - 1 : nullptr;  // which follows its key
    }
    static Entry entryAt(const Iter& i) {
        return {std::string(i.key().view()), std::string(i.value().view())};
    }
    static std::string taken(Table& table, const fxStr& key) {
        fxStr* const cut = table.cut(key);
        if (cut == nullptr) return "none";
        const std::string text(cut->view());
        cut->~fxStr();
        std::free(cut);
        return text;
    }
};

struct Sets {
    typedef fxStrSet Table;
    typedef fxStrSetIter Iter;
    static constexpr bool hasValues = false;
    static fxTypeObj& type() { return fxStrSet_type; }
    static void add(Table& table, const std::string& key, const std::string&) {
        table.add(toStr(key));
    }
    static const fxStr* keyFor(const Table& table, const fxStr& key) { return table.find(key); }
    static Entry entryAt(const Iter& i) { return {std::string(i.key().view()), ""}; }
    static std::string taken(Table& table, const fxStr& key) {
        return table.take(key) ? "" : "none";
    }
};

template <class Kind>
class Hash : public testing::Test {
protected:
    typedef typename Kind::Table Table;
    typedef typename Kind::Iter Iter;

    // An iterator, and the key where it must be, "" at the end.
    struct Walk {
        std::unique_ptr<Iter> iter;
        std::string key;
        bool hasMoved;
    };

    static std::vector<Entry> listOf(Table& table) {
        std::vector<Entry> entries;
        for (Iter i(table); i.notDone(); ++i) entries.push_back(Kind::entryAt(i));
        return entries;
    }
    void start(unsigned int chains) {
        walks.clear();
        table = std::make_unique<Open<Table>>(chains);
        model.chains.assign(chains, {});
    }
    void step(unsigned int range) {
        const std::string key = randomKey(rng, range), value = std::to_string(rng());
        switch (rng() % 12) {
            case 0:
            case 1:
            case 2:
                return remove(key);
            case 3:
                return startWalk();
            case 4:
                if (!walks.empty()) walks.erase(walks.begin() + static_cast<long>(anyWalk()));
                return;
            case 5:
                if (!walks.empty()) copyWalk(walks[anyWalk()], walks[anyWalk()]);
                return;
            case 6:
                for (Walk& walk : walks) go(walk);
                return;
            default:
                Kind::add(*table, key, value);
                model.add(key, Kind::hasValues ? value : "");
        }
    }
    void remove(const std::string& key) {
        const bool isThere = model.has(key);
        for (Walk& walk : walks) {
            if (!isThere || walk.key != model.placeOf(key)->first) continue;
            walk.key = model.after(key);
            walk.hasMoved = true;
        }
        if (rng() % 2 == 0) {
            table->remove(std::string_view(key + "longer").substr(0, key.size()));
        } else {
            const std::string expected = isThere ? model.placeOf(key)->second : "none";
            ASSERT_EQ(Kind::taken(*table, toStr(key)), expected);
        }
        if (isThere) model.chainOf(key).erase(model.placeOf(key));
    }
    size_t anyWalk() { return rng() % walks.size(); }
    void startWalk() {
        if (walks.size() == 20) return;
        const std::vector<Entry> all = model.list();
        walks.push_back(
            {std::make_unique<Iter>(*table), all.empty() ? "" : all[0].first, all.empty()});
    }
    void copyWalk(Walk& from, Walk& to) {
        if (rng() % 2 == 0) *to.iter = *from.iter;
        to.iter = std::make_unique<Iter>(*from.iter);
        to.key = from.key;
        to.hasMoved = from.hasMoved;
    }
    void go(Walk& walk) {
        if (rng() % 3 != 0) return;
        ++*walk.iter;
        if (walk.key.empty()) return;
        if (!std::exchange(walk.hasMoved, false)) walk.key = model.after(walk.key);
        if (walk.key.empty()) walk.hasMoved = true;
    }
    void expectWalks() {
        unsigned int underWay = 0;
        for (const Walk& walk : walks) {
            const bool isThere = !walk.key.empty() && !walk.hasMoved;
            ASSERT_EQ(walk.iter->notDone(), !walk.key.empty());
            ASSERT_EQ(walk.iter->moved, walk.hasMoved);
            ASSERT_EQ(walk.iter->getKey() != nullptr, isThere);
            ASSERT_TRUE(!isThere || Kind::entryAt(*walk.iter).first == walk.key);
            underWay += walk.iter->notDone();
        }
        ASSERT_EQ(table->iters.length(), underWay);
    }
    // A copy, an assignment and what is read back have each chain reversed.
    void expectCopies() {
        ASSERT_EQ(listOf(*table), model.list());
        ASSERT_EQ(table->size(), model.list().size());
        model.reverse();
        Open<Table> copy(*table), assigned(static_cast<unsigned int>(model.chains.size()));
        ASSERT_EQ(listOf(copy), model.list());
        assigned = *table;
        ASSERT_EQ(listOf(assigned), model.list());
        model.reverse();
        Table plain(*table);
        const std::unique_ptr<Table> back(fxXdrCopy(&plain));
        ASSERT_NE(back, nullptr);
        ASSERT_EQ(listOf(*back), model.list());
        ASSERT_EQ((back.get()->*(&Open<Table>::buckets)).length(), model.chains.size());
    }

    std::mt19937 rng{testSeed()};
    std::unique_ptr<Open<Table>> table;
    Model model;
    std::vector<Walk> walks;
};

typedef testing::Types<Dictionaries, Sets> Kinds;
TYPED_TEST_SUITE(Hash, Kinds, );

TYPED_TEST(Hash, AgreesWithModel) {
    fxInitializeToolkit();
    for (const unsigned int chains : {1U, 7U, 31U, 1009U}) {
        for (const unsigned int range : {20U, 3000U}) {
            this->start(chains);
            for (int step = 0; step < 6000; ++step) {
                this->step(range);
                this->expectWalks();
                const std::string probe = randomKey(this->rng, range);
                const fxStr* const found = TypeParam::keyFor(*this->table, toStr(probe));
                ASSERT_EQ(found, this->table->walkFor(*this->table, toStr(probe)));
                ASSERT_EQ(this->table->contains(std::string_view(probe)), found != nullptr);
                ASSERT_EQ(found != nullptr, this->model.has(probe)) << "step " << step;
                if (step % 1000 == 0) this->expectCopies();
                if (testing::Test::HasFatalFailure()) return;
            }
            this->table.reset();
            for (const auto& walk : this->walks) ASSERT_FALSE(walk.iter->notDone());
        }
    }
}

TYPED_TEST(Hash, WithoutChainsItIsEmptyAndUsable) {
    typename TypeParam::Table none(TypeParam::type());
    EXPECT_EQ(none.find("x"), nullptr);
    EXPECT_FALSE(none.contains(static_cast<const char*>(nullptr)));
    none.remove("x");
    EXPECT_FALSE(typename TypeParam::Iter(none).notDone());
    typename TypeParam::Table copy(none);
    TypeParam::add(copy, "x", "y");
    EXPECT_TRUE(copy.contains("x"));
    copy = none;
    EXPECT_EQ(copy.size(), TypeParam::hasValues ? 1U : 0U);  // merged, or assigned
    TypeParam::add(copy, "y", "z");
    EXPECT_TRUE(copy.contains("y"));
}

// A stream may put an entry into any chain and a key twice into one: this table
// writes other keys than it has. A search finds what walking the chain finds, with the
// index, and without one when five keys are there so often that it drops itself.
struct Lying : fxStrStrDictionary {
    using fxStrStrDictionary::fxStrStrDictionary;
    bool xdrKey(fxTranscriber& t, void*) override {
        keys.push_back(toStr(randomKey(rng, range)));
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
fxBool Holder::xdr(fxTranscriber& t) { return table->doxdr(t); }

TEST(Dictionary, TrustsThePlacesOfTheStream) {
    fxInitializeToolkit();
    for (const auto& [entries, range, steps] : {std::tuple(3000U, 300U, 6000), {24000U, 1U, 200}}) {
        Lying lying(7);
        lying.range = range;
        for (unsigned int i = 0; i < entries; ++i) lying[toStr("%d", i)] = "";
        Holder holder;
        holder.table = &lying;
        const std::unique_ptr<Holder> copy(fxXdrCopy(&holder));
        ASSERT_TRUE(copy != nullptr && copy->own.size() == entries);
        fxStrStrDictionary& dict = copy->own;
        for (int step = 0; step < steps; ++step) {
            const fxStr key = toStr(randomKey(lying.rng, range));
            if (step % 3 == 0) dict.remove(key);
            if (step % 7 == 0) dict[key] = "new";
            const fxStr* const found = Dictionaries::keyFor(dict, key);
            ASSERT_EQ(found, Open<fxStrStrDictionary>::walkFor(dict, key)) << step;
        }
    }
}

// What the model does not reach.

/// Plain records, for which the default hooks do.
struct Records : fxSet {
    explicit Records(unsigned int keyBytes, unsigned int chains = 0) : fxSet(keyBytes, chains) {}
    explicit Records(fxTypeObj& type) : fxSet(type) {}
    Records(const Records&) = default;
    Records(const fxTmpSet& source) : fxSet(source) {}
    Records& operator=(const Records&) = default;
    ~Records() override { cleanup(); }
    bool xdrKey(fxTranscriber& t, void* key) override {
        return t.xdr(static_cast<char*>(key), keySize);
    }
    using fxSet::buckets;
    using fxSet::hashKey;
    using fxSet::keySize;
};

TEST(Set, HashesWholeWordsOfPlainRecords) {
    const unsigned long words[3] = {0x0102030405060708, 0x1111111111111111, 0x42};
    const char* const bytes = reinterpret_cast<const char*>(words);
    const struct {
        unsigned int keyBytes;
        const void* key;
        unsigned long hash;
    } cases[] = {{7, words, 0},
                 {8, words, words[0]},
                 {12, words, words[0]},
                 {16, words, words[0] ^ words[1]},
                 {8, bytes + 1, 0x1101020304050607U}};
    for (const auto& c : cases) EXPECT_EQ(Records(c.keyBytes).hashKey(c.key), c.hash);
    Records small(4, 7);
    for (int i = 0; i < 100; ++i) small.add(&i);
    int number = 99;
    for (const void* key : small) EXPECT_EQ(*static_cast<const int*>(key), number--);
    EXPECT_EQ(number, -1);
}

TEST(Set, ChainsAreChosenByTheRestOfTheDivision) {
    std::mt19937_64 rng(testSeed());
    for (const unsigned int chains : {1U, 2U, 3U, 31U, 64U, 1009U, 65537U, 1000003U}) {
        Records set(8, chains);
        for (const unsigned long key : {rng(), rng() >> 40, ~0UL, ~0UL - 1, 0UL, 1UL * chains,
                                        ~0UL / chains * chains, ~0UL / chains * chains - 1}) {
            set.add(&key);
            EXPECT_NE(set.buckets[static_cast<unsigned int>(key % chains)], nullptr);
            set.remove(&key);
        }
    }
    EXPECT_EQ(Records(8, 0).buckets.length(), 31U);
}

TEST(Set, GoesThroughATemporaryAndTakesTheSizesOfAStream) {
    const unsigned long words[] = {1, 2, 3};
    Records set(8);
    for (const unsigned long& each : words) set.add(&each);
    fxTmpSet temporary(set);
    EXPECT_TRUE(temporary.contains(&words[2]));
    const Records copy(temporary);
    EXPECT_TRUE(copy.size() == 3U && copy.keySize == 8U);
    HeldStream stream;
    fxBinaryWriter writer(stream);
    EXPECT_FALSE(temporary.xdr(writer));
    HeldStream kept;
    fxBinaryWriter keeper(kept);
    ASSERT_TRUE(set.doxdr(keeper) && keeper.flush());
    const HeldStream bytes(std::string(kept->view()));
    fxBinaryReader reader(bytes, 0x1122, 0x33445566, "ieee");
    Records back(fxSet_type);
    EXPECT_TRUE(back.doxdr(reader) && back.keySize == 8U && back.contains(&words[2]));
}

TEST(SetDeathTest, OperatorsThatMakeASetSayTheyDoNot) {
    const Records set(8);
    const std::string line = "^Unimplemented operator overloading is called!  fxTmpSet operator";
    // Standard output goes where the test reads, which is a pipe: what is not
    // flushed is lost there.
    EXPECT_DEATH((dup2(2, 1), set | set), line + "\\|\\(fxSet const &\\)\n$");
    EXPECT_DEATH((dup2(2, 1), set & set), line + "&\\(fxSet const &\\)\n$");
    EXPECT_DEATH((dup2(2, 1), set - set), line + "-\\(fxSet const &\\)\n$");
}

struct alignas(16) Wide {
    double number = 0;
};

/// Keys that are smaller than what their values are aligned to.
struct WideDict : fxTypedDictionary<int, Wide> {
    using fxTypedDictionary::keySize;
};

TEST(Dictionary, ValuesAreAlignedAndOnesOfMissingKeysMadeOnce) {
    WideDict dict;
    for (int i = 0; i < 100; ++i) dict[i].number = i;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(dict.find(i)) % alignof(Wide), 0U);
        EXPECT_EQ(dict.find(i)->number, i);
    }
    EXPECT_EQ(dict.keySize, 16U);
    dict.cleanup();
    EXPECT_TRUE(dict.size() == 100U && !dict.begin().notDone()) << "the size is left alone";
    fxBinaryOTDict numbers;
    const auto at = [](unsigned long address) { return reinterpret_cast<const void*>(address); };
    EXPECT_EQ(numbers[at(0x1000)], 0U);
    numbers[at(0x100001000)] = 2;  // the same hash
    EXPECT_EQ(*numbers.find(at(0x1000)), 0U);
    EXPECT_STREQ(numbers.className(), "DICT");
}

TEST(Dictionary, FindAnswersTheNode) {
    fxVoidPtrDict dict;
    dict["a"] = nullptr;
    const fxStr a("a"), other("other");
    void* node = &dict;
    void* const value = static_cast<fxDictionary&>(dict).find(&a, &node);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(static_cast<char*>(static_cast<fxDictBucket*>(node)->element) + sizeof(fxStr), value);
    EXPECT_EQ(static_cast<fxDictionary&>(dict).find(&other, &node), nullptr);
    EXPECT_EQ(node, nullptr);
}

TEST(Dictionary, ValuesThatAreEnteredElsewhereStayWhole) {
    fxStrStrDictionary source{{"key", "the value that is entered"}};
    struct Merging : fxStrStrDictionary {
        ~Merging() override { cleanup(); }
        void addInternal(const void* key, const void* value) override {
            from.add(*static_cast<const fxStr*>(key), "another");
            fxStrStrDictionary::addInternal(key, value);
        }
        explicit Merging(fxStrStrDictionary& from_) : from(from_) {}
        fxStrStrDictionary& from;
    } merged(source);
    ASSERT_TRUE(source.contains("key"));  // from then on it adds without hooks
    static_cast<fxDictionary&>(merged) = source;
    EXPECT_EQ(*merged.find("key"), "the value that is entered");
    EXPECT_EQ(*source.find("key"), "another");
}

TEST(Dictionary, EntriesOfAnotherClassAreFound) {
    struct Plain : fxStrStrDictionary {
        using fxStrStrDictionary::fxStrStrDictionary;
        explicit Plain(fxStrStrDictionary&& other) : fxStrStrDictionary(std::move(other)) {}
        ~Plain() override { cleanup(); }
    } plain{{"key", "value"}};
    EXPECT_TRUE(plain.contains("key"));
    const fxStrStrDictionary copy(plain);
    fxStrStrDictionary moved(std::move(static_cast<fxStrStrDictionary&>(plain)));
    EXPECT_TRUE(copy.contains("key") && moved.contains("key"));
    EXPECT_TRUE(Plain(std::move(moved)).contains("key"));
}

TEST(Dictionary, PointersAreNotWritten) {
    fxVoidPtrDict dict;
    HeldStream stream;
    fxBinaryWriter writer(stream);
    EXPECT_TRUE(dict.xdr(writer));
    dict["a"] = &dict;
    EXPECT_FALSE(dict.xdr(writer) || fxDictionary::xdr(&dict, writer));
}

#ifdef FXDS_CHECKED
// Its hooks are settled before its class is.
TEST(DictionaryDeathTest, CheckedTableThatABaseHasUsedIsFatal) {
    struct User {
        explicit User(fxVoidPtrDict* dict) { dict->add("x", nullptr); }
    };
    struct Used : fxVoidPtrDict, User {
        // Given its address, because clang++ makes the object a Used as soon as an
        // initialiser of a base uses `this`.
        explicit Used(fxVoidPtrDict* self) : User(self) {}
        using fxVoidPtrDict::forgetFinder;
    } used(&used);
    EXPECT_DEATH(used.add("y", nullptr), "hasOwnHooksNow");
    used.forgetFinder();
    used.add("y", nullptr);
}
#endif

}  // namespace
