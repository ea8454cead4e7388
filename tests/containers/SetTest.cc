#include "fxds/Set.h"

#include <gtest/gtest.h>
#include <unistd.h>

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

TEST(Set, PlainRecordsNeedNoHooks) {
    RecordSet small(4, 7);  // the hash takes whole words of 8 bytes
    for (int i = 0; i < 100; ++i) small.add(&i);
    for (unsigned int i = 1; i < 7; ++i) EXPECT_EQ(small.buckets[i], nullptr);
    int number = 99;
    for (const void* key : small) EXPECT_EQ(*static_cast<const int*>(key), number--);
    EXPECT_EQ(number, -1);
}

TEST(Set, AlgebraMovesIteratorsOn) {
    fxStrSet set(1), some{"4", "3"};
    for (const char* key : {"0", "1", "2", "3", "4"}) set.add(key);
    fxStrSetIter i(set);
    set -= some;
    EXPECT_TRUE(i.moved);
    EXPECT_EQ(i.getKey(), nullptr);
    ++i;
    EXPECT_EQ(i.key(), "2");
    set &= some;
    EXPECT_FALSE(i.notDone());
}

// Calls a function while it copies a key.
struct Acting : fxStrSet {
    using fxStrSet::fxStrSet;
    ~Acting() override { cleanup(); }
    void copyKey(const void* from, void* to) const override {
        if (const auto action = std::exchange(onCopy, nullptr)) action();
        fxStrSet::copyKey(from, to);
    }
    mutable std::function<void()> onCopy;
};

TEST(Set, AKeyBeingCopiedMayChangeTheNumberOfChains) {
    const fxStrSet wide(100);
    Acting acting(3);
    fxStrSet& set = acting;
    acting.onCopy = [&] { set = wide; };
    set.add("5");
    const fxStrSet& itself = set;
    set = itself;
    EXPECT_TRUE(set.contains("5"));
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
