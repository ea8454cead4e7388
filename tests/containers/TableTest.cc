// The integer hash table, the name space, the bounding box, the sequencer; of sets and
// dictionaries what their model does not reach.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fxds/detail/Mix.h"
#include "fxds/fxds.h"
#include "tests/support/StreamKit.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

/// A table and its chains, newest first, which turn round when the table grows. Some keys
/// differ only in bits that do not count, so that one chain gets long. In others, multiplied
/// by what the index mixes them with, small numbers come out, so that the index cannot tell
/// them apart.
struct HashModel {
    typedef std::pair<unsigned long, void*> Item;
    typedef std::deque<Item> Chain;
    typedef std::vector<Chain> Chains;
    static inline HashModel* current = nullptr;

    HashModel() {
        current = this;
        const unsigned long mixer = fxMix64(1);
        for (int i = 0; i < 6; ++i) inverse *= 2 - mixer * inverse;
    }
    unsigned long anyKey() {
        const unsigned long kind = rng() % 4, number = rng() % few;
        if (kind == 0) return number;
        return kind == 1 ? number * inverse : (number << 20) + 7;
    }
    static void drop(Chain& chain, const Item& item) {
        chain.erase(std::remove(chain.begin(), chain.end(), item), chain.end());
    }
    void add(unsigned long key) {
        void* const value = &values[++count % std::size(values)];
        const auto size = chains.size();
        const bool grows = count > 4 * size && size < 2048 && left.empty();
        if (table.lookup(key) == nullptr) {
            table.add(key, value);
        } else {
            table.addElement(key)->setValue(value);
        }
        ASSERT_EQ(static_cast<size_t>(table.getSize()), grows ? 2 * size : size);
        if (grows) turnRound();
        auto& chain = chains[table.hash(key)];
        chain.emplace_front(key, value);
        if (table.hash(key) > bucket && !left.empty()) {
            left[table.hash(key)].emplace_front(key, value);
        }
    }
    void turnRound() {
        const Chains old = std::exchange(chains, Chains(static_cast<size_t>(table.getSize())));
        for (const auto& chain : old) {
            for (const Item& item : chain) {
                chains[table.hash(item.first)].push_front(item);
            }
        }
    }
    void step() {
        const unsigned long key = anyKey();
        auto& chain = chains[table.hash(key)];
        const auto found = std::find_if(chain.begin(), chain.end(),
                                        [key](const Item& item) { return item.first == key; });
        ASSERT_EQ(table.lookup(key), found != chain.end() ? found->second : nullptr);
        if (rng() % 3 != 0) return add(key);
        table.remove(key);
        if (found == chain.end()) return;
        if (!left.empty()) drop(left[table.hash(key)], *found);
        chain.erase(found);
    }
    // What is removed is not met, what is added is met in a later bucket, and no key moves.
    void walk(bool changes) {
        left = chains;
        budget = changes ? 300 : 0;  // more than let a small one grow
        table.mapcar([](HashEntry* entry) { current->meet(entry); });
        for (const auto& chain : left) EXPECT_TRUE(chain.empty());
        left.clear();
    }
    void meet(HashEntry* entry) {
        bucket = table.hash(entry->getKey());
        ASSERT_FALSE(left[bucket].empty());
        ASSERT_EQ(left[bucket].front(), Item(entry->getKey(), entry->getValue()));
        left[bucket].pop_front();
        for (int i = rng() % 8 == 0 ? 20 : 0; i > 0 && budget > 0; --i, --budget) step();
    }

    std::mt19937 rng{testSeed()};
    HashTable table;
    Chains chains{64}, left;  // to be met
    char values[60000];
    unsigned long inverse = 1, few = 0, count = 0, budget = 0;
    unsigned int bucket = 0;
};

TEST(HashTables, AgreeWithAModel) {
    for (const unsigned long few : {4000UL, 200UL, 2UL}) {
        HashModel model;
        model.few = few;
        for (int step = 0; step < 9000 && !HasFailure(); ++step) {
            model.step();
            if (step % 100 == 0) model.walk(step < 1500);
        }
        EXPECT_TRUE(few < 4000 || model.table.getLevel() == 11);
        EXPECT_EQ(static_cast<unsigned long>(model.table.getCount()), model.count);
    }
}

TEST(HashTables, MayEndInAWalkAndTakeNoKeyTwice) {
    static HashTable* table;
    table = new HashTable;
    table->add(1000, table);
    EXPECT_EXIT(table->add(1000, nullptr), testing::KilledBySignal(SIGABRT), "^$");
    table->mapcar([](HashEntry*) {
        table->mapcar([](HashEntry*) { delete std::exchange(table, nullptr); });
    });
    EXPECT_EQ(table, nullptr);
}

TEST(HashTables, FoldTheKeyByLevel) {
    HashTable table;
    const unsigned long key = 0xABCDE;
    for (unsigned int bucket : {6u, 114u, 104u, 384u, 625u, 1417u}) {
        EXPECT_EQ(table.hash(key), bucket);
        table.rebuildTable();
    }
    EXPECT_EQ(table.hash(key), 0u) << "beyond the last level";
}

// Names that end where their bytes do, from the longest to the shortest.
const std::vector<char> slice = {'a', 'b', 'a', 'b', 'a'};
int sliceOfNames(NameSpace* names) {
    for (size_t length = slice.size(); length > 0; --length) {
        if (names->makeAtom(slice.data(), static_cast<unsigned int>(length), 1) == 0) return 1;
    }
    return 0;
}

// Of "x" and "xx", which are among them, the hashes are the same.
TEST(NameSpaces, AgreeWithAModel) {
    std::mt19937 rng(testSeed());
    NameSpace names(sliceOfNames, 0);
    EXPECT_EQ(names.nameForAtom(1), slice.data()) << "not a copy";
    std::map<std::string, unsigned long> model = {
        {"ababa", 1}, {"abab", 2}, {"aba", 3}, {"ab", 4}, {"a", 5}};
    for (int step = 0; step < 20000; ++step) {
        std::string name;
        for (size_t i = rng() % 6; i > 0; --i) name += "abx"[rng() % 3];
        const auto known = model.find(name);
        const unsigned long atom = names.makeAtom(name.c_str(), 0);
        ASSERT_EQ(atom, known == model.end() ? 0 : known->second) << name;
        if (known != model.end()) continue;
        // A copy, of the whole text or of that many bytes.
        const std::vector<char> bytes(name.begin(), name.end());
        const auto length = static_cast<unsigned int>(name.size());
        const bool isWhole = name.empty() || rng() % 2 == 0;
        model[name] =
            isWhole ? names.makeAtom(name.c_str(), 1) : names.makeAtom(bytes.data(), length, 1);
        ASSERT_EQ(model[name], model.size());
        ASSERT_EQ(names.getLastAtom(), model.size());
    }
    for (auto& [name, atom] : model) {
        EXPECT_TRUE(atom < 6 || names.nameForAtom(atom) == name) << name;
        EXPECT_EQ(names.validAtom(atom), 1);
    }
    EXPECT_EQ(names.validAtom(0), 0);
    EXPECT_EQ(names.nameForAtom(model.size() + 1), nullptr);
    EXPECT_EQ(names.makeAtom("ab", 2, 0), model["ab"]);
    EXPECT_EQ(names.makeAtom("ab", 0, 0), model[""]) << "an empty name is one too";
    names.freeAllAtoms();
    names.freeAllAtoms();
    EXPECT_EQ(names.nameForAtom(1), nullptr);
    EXPECT_EQ(names.makeAtom("again", 1), 1u);
}

TEST(NameSpaces, FrozenOnesTakeOnlyChosenNumbers) {
    NameSpace names(
        [](NameSpace* its) {
            return its->makeAtom("red", 1) + its->makeAtom("green", 1) == 3 ? 0 : 1;
        },
        1);
    EXPECT_EQ(names.makeAtom("green", 0), 2u);
    EXPECT_EQ(names.makeAtom(150, "far", 3, 1), 150u);
    EXPECT_EQ(names.getCapacity(), 200u);
    EXPECT_EQ(names.getLastAtom(), 150u);
    EXPECT_EQ(names.validAtom(149), 0);
    EXPECT_EQ(names.makeAtom(2, "verdant", 7, 1), 2u);
    EXPECT_STREQ(names.nameForAtom(2), "verdant") << "the newer name";
    EXPECT_EQ(names.getLastAtom(), 150u);
    EXPECT_EQ(names.makeAtom("green", 0), 2u);
    EXPECT_EQ(names.makeAtom(9, "green", 5, 1), 2u) << "a known name keeps its atom";
    EXPECT_EQ(names.makeAtom(0, "nothing", 7, 1), 0u);
    EXPECT_EQ(names.nameForAtom(0), nullptr);
    EXPECT_EXIT(names.makeAtom("green", 1), testing::KilledBySignal(SIGABRT), "^$");
    EXPECT_EXIT(names.makeAtom(ULONG_MAX, "huge", 4, 1), testing::KilledBySignal(SIGABRT), "");
    NameSpace open(nullptr, 0);
    EXPECT_EXIT(open.makeAtom(5, "five", 4, 1), testing::KilledBySignal(SIGABRT), "^$");
    EXPECT_EXIT(NameSpace([](NameSpace*) { return 1; }, 0), testing::ExitedWithCode(255), "^$");
}

// Names whose hashes rise or fall one by one, so that the tree is one long
// branch, live and die on a stack that has no room for a frame per name.
void makeOneLongBranch(bool isFalling) {
    NameSpace names(nullptr, 0);
    for (int k = 0; k < 12000; ++k) {
        const int i = isFalling ? 11999 - k : k;
        // Four bytes b c d e hash to the number b e c d in base 27.
        char name[] = {static_cast<char>(i / 19683 + 1), static_cast<char>(i / 27 % 27 + 1),
                       static_cast<char>(i % 27 + 1), static_cast<char>(i / 729 % 27 + 1), 0};
        names.makeAtom(name, 1);
    }
    EXPECT_EQ(names.getLastAtom(), 12000u);
}

TEST(NameSpaces, DegenerateTreesNeedNoStack) {
    for (bool isFalling : {false, true})
        onStackOf(128 * 1024, [=] { makeOneLongBranch(isFalling); });
}

TEST(BoundingBoxes, KeepTheirPlaceWhereNothingIsLeft) {
    typedef fxBoundingBox Box;
    EXPECT_EQ(Box(0, 0, 10, 10).intersect(Box(20, 0, 5, 5)), Box(0, 0, 0, 5));
    EXPECT_EQ(Box(0, 0, 10, 10).intersect(Box(10, 0, 10, 10)), Box(0, 0, 0, 10));
    EXPECT_EQ(Box(30000, 0, 5000, 1).bound(Box(0, 0, 1, 1)), Box(0, 0, 1, 1));
    // At equal positions the first box decides; an empty one keeps its place inside.
    EXPECT_EQ(Box(1, 0, 0, 1).intersect(Box(1, 0, 5, 1)), Box(0, 0, 0, 1));
    EXPECT_EQ(Box(1, 0, 5, 1).intersect(Box(1, 0, 0, 1)), Box(1, 0, 0, 1));
    EXPECT_EQ(Box(INT_MAX, 0, 10, 1).intersect(Box(INT_MAX, 0, 1, 1)).width, 0) << "wraps";
    EXPECT_NE(Box(), Box(0, 0, 0, 1));
}

/// The cells of an axis as bits: those of both boxes, or of either.
TEST(BoundingBoxes, CoverTheCellsOfBothOrOfEither) {
    const auto cells = [](int position, int extent) {
        return ((1U << extent) - 1) << (position + 7);
    };
    const auto first = [](unsigned int bits) { return __builtin_ctz(bits) - 7; };
    const auto extent = [first](unsigned int bits) {
        return bits == 0 ? 0 : 32 - __builtin_clz(bits) - 7 - first(bits);
    };
    for (int extents = 0; extents < 36; ++extents) {
        for (int at = -7; at <= 7; ++at) {
            const fxBoundingBox a(0, at, extents / 6, extents % 6);
            const fxBoundingBox b(at, 0, extents % 6, extents / 6);
            const unsigned int mine = cells(a.x, a.width), its = cells(b.x, b.width);
            const fxBoundingBox bound = a.bound(b), overlap = a.intersect(b);
            EXPECT_EQ(bound.width, extent(mine | its));
            EXPECT_TRUE((mine | its) == 0 || bound.x == first(mine | its));
            EXPECT_EQ(overlap.width, extent(mine & its));
            EXPECT_TRUE((mine & its) == 0 || overlap.x == first(mine & its));
            // The other axis has the same numbers, the other way round.
            EXPECT_EQ(b.bound(a).height, bound.width);
            EXPECT_EQ(b.intersect(a).height, overlap.width);
            EXPECT_EQ(b.bound(a).y, bound.x);
        }
    }
}

typedef std::vector<std::pair<unsigned int, unsigned int>> Ranges;

Ranges rangesOf(const fxSequencer& sequencer) {
    Ranges ranges;
    for (const fxSeqRange& range : sequencer.ranges) ranges.emplace_back(range.start, range.length);
    return ranges;
}

// The numbers that are taken, one by one.
struct Taken {
    std::set<unsigned int> numbers;

    unsigned int next() {
        unsigned int number = numbers.empty() ? 0 : *numbers.begin();
        if (number > 0) {
            --number;
        } else {
            while (numbers.count(number) != 0) ++number;
        }
        numbers.insert(number);
        return number;
    }

    Ranges ranges() const {
        Ranges ranges;
        for (unsigned int number : numbers) {
            if (ranges.empty() || ranges.back().first + ranges.back().second != number) {
                ranges.emplace_back(number, 0);
            }
            ++ranges.back().second;
        }
        return ranges;
    }
};

TEST(Sequencer, ReservingTwiceGoesUnnoticed) {
    fxSequencer sequencer;
    for (unsigned int i = 0; i < 3; ++i) EXPECT_EQ(sequencer(), i);
    EXPECT_EQ(sequencer(1), 1U);
    EXPECT_EQ(rangesOf(sequencer), (Ranges{{0, 3}, {1, 1}}));
    EXPECT_EQ(sequencer(0), 0U);
    EXPECT_EQ(rangesOf(sequencer), (Ranges{{0, 3}, {0, 2}}));
    EXPECT_EQ(sequencer(), 3U);
}

TEST(Sequencer, AgreesWithModel) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 50; ++round) {
        fxSequencer sequencer;
        Taken model;
        for (int step = 0; step < 200; ++step) {
            const auto below = static_cast<unsigned int>(rng() % 300);
            const unsigned int number = rng() % 10 == 0 ? ~0U - below : below;
            if (rng() % 3 == 0) {
                ASSERT_EQ(sequencer(), model.next());
            } else if (model.numbers.insert(number).second) {
                ASSERT_EQ(sequencer(number), number);
            }
            ASSERT_EQ(rangesOf(sequencer), model.ranges());
            for (const unsigned int index : {0U, number, 0xFFFFFFFFU}) sequencer.trymerge(index);
            ASSERT_EQ(rangesOf(sequencer), model.ranges());
        }
    }
}

// Sets and dictionaries.

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
    for (unsigned long i = 4; i < 64000; i += 32) numbers.add(at(i), i);  // crowds the chains
    for (unsigned long i = 4; i < 64000; i += 32) EXPECT_EQ(numbers.value(at(i), 1), i);
    EXPECT_EQ(numbers.size(), 2002U);
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

// Looks at all values while one is copied.
struct Curious {
    Curious() = default;
    Curious(const Curious&) {
        if (all == nullptr) return;
        for (const auto& [key, value] : *all) ADD_FAILURE() << key << &value;
    }
    static inline fxTypedDictionary<fxStr, Curious>* all = nullptr;
};

TEST(DictionaryDeathTest, ValueThatIsBeingReplacedIsFatal) {
    fxTypedDictionary<fxStr, Curious> values;
    values.add("a", Curious());
    Curious::all = &values;
    EXPECT_DEATH(values.add("a", Curious()), "being replaced");
    Curious::all = nullptr;
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
