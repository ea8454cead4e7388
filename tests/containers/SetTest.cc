#include "fxds/Set.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

#include "fxds/StrSet.h"
#include "tests/support/HashModel.h"

namespace {

/// Plain records, for which the default hooks do.
class RecordSet : public fxSet {
public:
    explicit RecordSet(unsigned int keyBytes, unsigned int chains = 0) : fxSet(keyBytes, chains) {}
    explicit RecordSet(fxTypeObj& type) : fxSet(type) {}
    RecordSet(const RecordSet&) = default;
    RecordSet(const fxTmpSet& source) : fxSet(source) {}
    RecordSet& operator=(const RecordSet&) = default;
    ~RecordSet() override { cleanup(); }
    using fxSet::buckets;
    using fxSet::count;
    using fxSet::iters;
    using fxSet::keySize;

protected:
    bool xdrKey(fxTranscriber& t, void* key) override {
        return t.xdr(static_cast<char*>(key), keySize);
    }
};

struct Key {
    explicit Key(int n) : number(n) { ++alive; }
    Key(const Key& other) : number(other.number) {
        ++alive;
        if (const auto action = std::exchange(onCopy, nullptr)) action();
    }
    ~Key() { --alive; }
    int number;
    static inline int alive = 0;
    static inline std::function<void()> onCopy;
};

}  // namespace

template <>
struct fxKeyHooks<Key> {
    static unsigned long hash(const Key& key) { return static_cast<unsigned int>(key.number); }
    static int compare(const Key& a, const Key& b) { return a.number - b.number; }
};

namespace {

typedef fxTypedSet<Key> KeySet;

std::vector<int> numbersOf(const KeySet& set) {
    std::vector<int> numbers;
    for (const Key& key : set) numbers.push_back(key.number);
    return numbers;
}

TEST(Set, PlainRecordsNeedNoHooks) {
    RecordSet small(4, 7);  // the hash takes whole words of 8 bytes
    for (int i = 0; i < 100; ++i) small.add(&i);
    for (unsigned int i = 1; i < 7; ++i) EXPECT_EQ(small.buckets[i], nullptr);
    int number = 99;
    for (const void* key : small) EXPECT_EQ(*static_cast<const int*>(key), number--);
    EXPECT_EQ(number, -1);
}

// The other set may be the same one.
TEST(Set, AlgebraAgreesWithModel) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 300; ++round) {
        KeySet a(static_cast<unsigned int>(rng() % 40));
        KeySet other(static_cast<unsigned int>(rng() % 40));
        const KeySet& b = rng() % 4 == 0 ? a : other;
        std::vector<int> expected;
        const int kind = round % 4;
        for (int i = 0; i < 60; ++i) {
            const bool inA = rng() % 2 == 0, inB = &a == &b ? inA : rng() % 2 == 0;
            if (inA) a.add(Key(i));
            if (inB) other.add(Key(i));
            const bool wanted[] = {inA || inB, inA && inB, inA && !inB, inB};
            if (wanted[kind]) expected.push_back(i);
        }
        if (kind == 0) a |= b;
        if (kind == 1) a &= b;
        if (kind == 2) a -= b;
        if (kind == 3) a = b;
        std::vector<int> result = numbersOf(a);
        std::sort(result.begin(), result.end());
        EXPECT_EQ(result, expected);
        EXPECT_EQ(a.size(), expected.size());
    }
    EXPECT_EQ(Key::alive, 0);
}

TEST(Set, AlgebraMovesIteratorsOn) {
    KeySet set(1);
    KeySet some(1);
    for (int i = 0; i < 5; ++i) set.add(Key(i));
    some.add(Key(4));
    some.add(Key(3));
    fxTypedSetIter<Key> i(set);
    set -= some;
    EXPECT_TRUE(i.moved);
    EXPECT_EQ(i.getKey(), nullptr);
    ++i;
    EXPECT_EQ(i.key().number, 2);
    set &= some;
    EXPECT_FALSE(i.notDone());
}

TEST(Set, AKeyBeingCopiedMayChangeTheNumberOfChains) {
    const KeySet wide(100);
    KeySet set(3);
    Key::onCopy = [&] { set = wide; };
    set.add(Key(5));
    EXPECT_TRUE(set.contains(Key(5)));
}

TEST(Set, GoesThroughATemporary) {
    const unsigned long words[] = {1, 2, 3};
    RecordSet set(8);
    for (const unsigned long& word_ : words) set.add(&word_);
    const fxTmpSet temporary(set);
    EXPECT_TRUE(temporary.contains(&words[2]));
    const RecordSet copy(temporary);
    EXPECT_EQ(copy.size(), 3U);
    EXPECT_EQ(copy.keySize, 8U);
    fxTmpSet written(temporary);
    MemoryTranscriber out;
    EXPECT_EQ(written.xdr(out), 0);
}

TEST(SetDeathTest, OperatorsThatMakeASetSayTheyDoNot) {
    const RecordSet set(8);
    const std::string line = "^Unimplemented operator overloading is called!  fxTmpSet operator";
    // Standard output goes where the test reads, which is a pipe: what is not
    // flushed is lost there.
    EXPECT_DEATH((dup2(2, 1), set | set), line + "\\|\\(fxSet const &\\)\n$");
    EXPECT_DEATH((dup2(2, 1), set & set), line + "&\\(fxSet const &\\)\n$");
    EXPECT_DEATH((dup2(2, 1), set - set), line + "-\\(fxSet const &\\)\n$");
}

// What derives from a set finds its fields in this order.
TEST(Set, FieldsStandInOrder) {
    RecordSet set(8);
    const auto offset = [&set](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&set);
    };
    const long buckets = static_cast<long>(sizeof(fxSetBuckets));
    EXPECT_EQ(offset(&set.buckets), 16);
    EXPECT_EQ(offset(&set.count), 16 + buckets);
    EXPECT_EQ(offset(&set.keySize), 20 + buckets);
    EXPECT_EQ(offset(&set.iters), 24 + buckets);
}

}  // namespace
