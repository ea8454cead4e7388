// The integer hash table, the name space and the bounding box.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "fxds/BoundingBox.h"
#include "fxds/HashTable.h"
#include "fxds/NameSpace.h"
#include "fxds/detail/Mix.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

TEST(HashTables, GrowByAdditions) {
    HashTable table;
    for (unsigned long i = 0; i < 256; ++i) table.add(i, nullptr);
    EXPECT_EQ(table.getSize(), 64);
    table.add(256, nullptr);
    EXPECT_EQ(table.getSize(), 128);
    HashTable busy;
    for (int i = 0; i < 300; ++i) {
        busy.add(7, nullptr);
        busy.remove(7);
    }
    EXPECT_EQ(busy.getSize(), 128);
    EXPECT_EQ(busy.getCount(), 300);
    EXPECT_EXIT(table.add(5, nullptr), testing::KilledBySignal(SIGABRT), "^$");
}

/// Chains newest first, which turn round when the table grows. Some keys differ
/// only in bits that do not count, so that one chain gets long.
TEST(HashTables, AreWalkedByBucketAndChain) {
    std::mt19937 rng(testSeed());
    HashTable table;
    std::vector<std::vector<unsigned long>> chains(64);
    static std::vector<unsigned long> walked;
    for (int step = 0; step < 9000; ++step) {
        const unsigned long key = rng() % 3 == 0 ? rng() % 4000ul << 20 : rng() % 100000;
        const auto& home = chains[table.hash(key)];
        ASSERT_EQ(table.lookup(key) != nullptr,
                  std::find(home.begin(), home.end(), key) != home.end());
        if (step % 3 == 2 && !walked.empty()) {
            const unsigned long old = walked[rng() % walked.size()];
            auto& chain = chains[table.hash(old)];
            table.remove(old);
            chain.erase(std::remove(chain.begin(), chain.end(), old), chain.end());
        } else if (table.lookup(key) == nullptr) {
            const int size = table.getSize();
            table.add(key, &table);
            if (table.getSize() != size) {
                const auto old = std::move(chains);
                chains.assign(static_cast<size_t>(table.getSize()), {});
                for (const auto& chain : old) {
                    for (unsigned long moved : chain) {
                        chains[table.hash(moved)].insert(chains[table.hash(moved)].begin(), moved);
                    }
                }
            }
            chains[table.hash(key)].insert(chains[table.hash(key)].begin(), key);
        }
        if (step % 50 != 0) continue;
        walked.clear();
        table.mapcar([](HashEntry* entry) { walked.push_back(entry->getKey()); });
        std::vector<unsigned long> model;
        for (const auto& chain : chains) model.insert(model.end(), chain.begin(), chain.end());
        ASSERT_EQ(walked, model) << "step " << step;
    }
    EXPECT_EQ(table.getSize(), 2048);
    EXPECT_EQ(table.getLevel(), 11u);
}

// What is removed is not met, what is added is met in a later bucket, and no key moves.
TEST(HashTables, MayBeChangedWhileTheyAreWalked) {
    static HashTable* table;
    static std::vector<std::vector<unsigned long>> left;  // to be met, by bucket
    static std::mt19937 rng(testSeed());
    const auto anyKey = [] { return (rng() % 8 << 20) + rng() % 16; };
    const auto visit = [](HashEntry* entry) {
        const unsigned int bucket = table->hash(entry->getKey());
        ASSERT_TRUE(!left[bucket].empty() && left[bucket].front() == entry->getKey());
        left[bucket].erase(left[bucket].begin());
        for (int i = 0; i < 40; ++i) {  // more than let it grow
            const unsigned long key = (rng() % 8 << 20) + rng() % 16;
            auto& chain = left[table->hash(key)];
            if (rng() % 2 == 0) {
                table->remove(key);
                chain.erase(std::remove(chain.begin(), chain.end(), key), chain.end());
            } else if (table->lookup(key) == nullptr) {
                table->add(key, table);
                if (table->hash(key) > bucket) chain.insert(chain.begin(), key);
            }
        }
    };
    for (int round = 0; round < 200 && !HasFailure(); ++round) {
        table = new HashTable;
        left.assign(64, {});
        for (unsigned long key = anyKey(); table->lookup(key) == nullptr; key = anyKey()) {
            table->add(key, table);
            left[table->hash(key)].insert(left[table->hash(key)].begin(), key);
        }
        table->mapcar(visit);
        for (const auto& chain : left) EXPECT_TRUE(chain.empty());
        table->add(1000, table);
        table->mapcar([](HashEntry*) {
            table->mapcar([](HashEntry*) { delete std::exchange(table, nullptr); });
        });
        EXPECT_EQ(table, nullptr);
    }
}

TEST(HashTables, FindTheNewestOfEqualKeys) {
    HashTable table;
    HashEntry* const older = table.addElement(7);
    HashEntry* const newer = table.addElement(7);
    older->setValue(older);
    newer->setValue(newer);
    EXPECT_EQ(table.lookup(7), newer);
    for (unsigned long i = 1; i < 100; ++i) table.add((i << 20) + 7, &table);
    EXPECT_EQ(table.lookup(7), newer) << "at the end of a long chain";
    table.rebuildTable();
    EXPECT_EQ(table.lookup(7), older) << "chains turn round";
    table.rebuildTable();
    EXPECT_EQ(table.lookup(7), newer);
    table.remove(7);
    EXPECT_EQ(table.lookup(7), older);
    table.remove(7);
    table.remove(7);
    EXPECT_EQ(table.lookup(7), nullptr);
    EXPECT_EQ(table.lookup(7 + (99ul << 20)), &table);
    HashEntry* newest = nullptr;
    for (int i = 0; i < 5000; ++i) newest = table.addElement(7);  // the index drops itself
    newest->setValue(&newest);
    EXPECT_EQ(table.lookup(7), &newest);
    EXPECT_EQ(table.lookup(7 + (99ul << 20)), &table);
}

// These keys, multiplied by what the index mixes them with, are small numbers,
// so that the index cannot tell them apart.
TEST(HashTables, FindKeysThatTheIndexConfuses) {
    const unsigned long mixer = fxMix64(1);
    unsigned long inverse = mixer;
    for (int i = 0; i < 6; ++i) inverse *= 2 - mixer * inverse;
    ASSERT_EQ(mixer * inverse, 1u);
    HashTable table;
    std::vector<int> values(200);
    for (unsigned long i = 0; i < 100; ++i) table.add(i << 20, nullptr);
    for (unsigned long i = 1; i < 200; ++i) table.add(i * inverse, &values[i]);
    for (unsigned long i = 1; i < 200; i += 2) table.remove(i * inverse);
    for (unsigned long i = 1; i < 200; ++i) {
        EXPECT_EQ(table.lookup(i * inverse), i % 2 == 0 ? &values[i] : nullptr);
    }
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

int threeNames(NameSpace* names) {
    for (const char* name : {"red", "green", "blue"}) names->makeAtom(name, 1);
    return 0;
}

TEST(NameSpaces, AgreeWithAModel) {
    std::mt19937 rng(testSeed());
    NameSpace names(threeNames, 0);
    std::map<std::string, unsigned long> model = {{"red", 1}, {"green", 2}, {"blue", 3}};
    for (int step = 0; step < 20000; ++step) {
        std::string name;
        for (size_t i = rng() % 6; i > 0; --i) name += static_cast<char>('a' + rng() % 3);
        const auto known = model.find(name);
        const unsigned long atom = names.makeAtom(name.c_str(), 0);
        ASSERT_EQ(atom, known == model.end() ? 0 : known->second) << name;
        if (known != model.end()) continue;
        // Only the first bytes of a longer text.
        model[name] =
            names.makeAtom((name + "tail").c_str(), static_cast<unsigned int>(name.size()), 1);
        ASSERT_EQ(model[name], model.size());
        ASSERT_EQ(names.getLastAtom(), model.size());
    }
    for (auto& [name, atom] : model) {
        EXPECT_EQ(names.nameForAtom(atom), name);
        EXPECT_EQ(names.validAtom(atom), 1);
    }
    EXPECT_EQ(names.validAtom(0), 0);
    EXPECT_EQ(names.nameForAtom(model.size() + 1), nullptr);
    EXPECT_EQ(names.makeAtom("ab", 2, 0), model["ab"]);
    names.freeAllAtoms();
    names.freeAllAtoms();
    EXPECT_EQ(names.nameForAtom(1), nullptr);
    EXPECT_EQ(names.makeAtom("again", 1), 1u);
}

TEST(NameSpaces, FrozenOnesTakeOnlyChosenNumbers) {
    NameSpace names(threeNames, 1);
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

// A part of a longer text, which ends nowhere, or just behind the name.
std::vector<char> slice;
int sliceOfNames(NameSpace* names) {
    for (size_t length = slice.size(); length > 0; --length) {
        if (names->makeAtom(slice.data(), static_cast<unsigned int>(length), 1) == 0) return 1;
    }
    return 0;
}

TEST(NameSpaces, ReadNoFurtherThanTheNamesTheyWereGiven) {
    slice.assign({'a', 'b', 'a', 'b', 'a'});
    slice.shrink_to_fit();
    const NameSpace filled(sliceOfNames, 0);
    EXPECT_EQ(filled.getLastAtom(), 5u);
    EXPECT_EQ(filled.nameForAtom(1), slice.data()) << "not a copy";
    NameSpace names(sliceOfNames, 0);
    EXPECT_EQ(names.makeAtom("ababa", 0), 1u);
    EXPECT_EQ(names.makeAtom("ab", 0), 4u);
    EXPECT_EQ(names.makeAtom("ababab", 0), 0u);
    EXPECT_EQ(names.makeAtom("", 0, 1), 6u) << "an empty name is one too";
    EXPECT_EQ(names.makeAtom("", 0), 6u);
    std::string text = "passing";
    const unsigned long atom = names.makeAtom(text.c_str(), 1);
    text = "changed";
    EXPECT_STREQ(names.nameForAtom(atom), "passing") << "a copy, after the initialiser";
    // "x" and "xx" have one hash.
    slice.assign({'x'});
    slice.shrink_to_fit();
    NameSpace single(sliceOfNames, 0);
    EXPECT_EQ(single.makeAtom("xx", 1), 2u);
    EXPECT_EQ(single.makeAtom("x", 0), 1u);
    EXPECT_EQ(single.makeAtom("xx", 0), 2u);
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

}  // namespace
