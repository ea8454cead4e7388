#include "fxds/Dictionary.h"

#include <gtest/gtest.h>

#include <array>
#include <tuple>
#include <utility>

#include "fxds/BinaryOTDict.h"
#include "fxds/StrStrDictionary.h"
#include "fxds/VoidPtrDict.h"
#include "tests/support/HashModel.h"

namespace {

/// A dictionary of plain bytes with the default hash.
class WordDict : public fxDictionary {
public:
    explicit WordDict(unsigned int keyBytes, unsigned int chains = 0)
        : fxDictionary(keyBytes, sizeof(long), chains) {}
    explicit WordDict(fxTypeObj& type) : fxDictionary(type) {}
    WordDict(const WordDict&) = default;
    ~WordDict() override { cleanup(); }
    const char* className() const override { return "WordDict"; }
    using fxDictionary::buckets;
    using fxDictionary::count;
    using fxDictionary::iters;
    using fxDictionary::keySize;
    using fxDictionary::valueSize;

    unsigned long hashKey(const void* key) const override { return fxDictionary::hashKey(key); }

protected:
    int compareKeys(const void* a, const void* b) const override {
        return std::memcmp(a, b, keySize);
    }
    void copyKey(const void* from, void* to) const override { std::memcpy(to, from, keySize); }
    void copyValue(const void* from, void* to) const override { std::memcpy(to, from, valueSize); }
    void createValue(void* to) const override { std::memset(to, 0, valueSize); }
    bool xdrKey(fxTranscriber& t, void* key) override {
        return t.xdr(static_cast<char*>(key), keySize);
    }
    bool xdrValue(fxTranscriber& t, void* value) override {
        return t.xdr(static_cast<char*>(value), valueSize);
    }
};

struct alignas(16) Wide {
    double number = 0;
};

/// Keys that are smaller than what their values are aligned to.
class WideDict : public fxTypedDictionary<int, Wide> {
public:
    using fxTypedDictionary::keySize;
    unsigned long wordsOf(const int& key) const {
        return fxDictionary::hashKey(&key);  // NOLINT(bugprone-parent-virtual-call): not our hash
    }

protected:
    bool xdrKey(fxTranscriber& t, void* key) override { return t.xdr(static_cast<char*>(key), 4); }
    bool xdrValue(fxTranscriber& t, void* value) override {
        return t.xdr(static_cast<double*>(value), 1);
    }
};

TEST(Dictionary, CreatingLookUpMakesDefaultValuesOnce) {
    EXPECT_EQ(fxVoidPtrDict()["new"], nullptr);
    fxBinaryOTDict numbers;
    const auto at = [](unsigned long address) { return reinterpret_cast<const void*>(address); };
    EXPECT_EQ(numbers[at(0x1000)], 0U);
    numbers[at(0x100001000)] = 2;  // the same hash
    EXPECT_EQ(*numbers.find(at(0x1000)), 0U);
    EXPECT_STREQ(numbers.className(), "DICT");
}

TEST(Dictionary, FindAnswersTheNode) {
    fxStrStrDictionary dict;
    dict["a"] = "b";
    const fxStr a("a");
    const fxStr other("other");
    void* node = &dict;
    void* const value = static_cast<fxDictionary&>(dict).find(&a, &node);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(static_cast<char*>(static_cast<fxDictBucket*>(node)->element) + sizeof(fxStr), value);
    EXPECT_EQ(static_cast<fxDictBucket*>(node)->next, nullptr);
    EXPECT_EQ(static_cast<fxDictionary&>(dict).find(&other, &node), nullptr);
    EXPECT_EQ(node, nullptr);
}

TEST(Dictionary, DefaultHashTakesWholeWordsOnly) {
    const unsigned long words[3] = {0x0102030405060708, 0x1111111111111111, 0x42};
    EXPECT_EQ(WordDict(7).hashKey(words), 0U);
    EXPECT_EQ(WordDict(8).hashKey(words), words[0]);
    EXPECT_EQ(WordDict(12).hashKey(words), words[0]);
    EXPECT_EQ(WordDict(16).hashKey(words), words[0] ^ words[1]);
    EXPECT_EQ(WordDict(8).hashKey(reinterpret_cast<const char*>(words) + 1), 0x1101020304050607U);
}

TEST(Dictionary, ChainsAreChosenByTheRestOfTheDivision) {
    std::mt19937_64 rng(testSeed());
    for (const unsigned int chains : {1U, 2U, 3U, 31U, 64U, 1009U, 65537U, 1000003U}) {
        WordDict dict(8, chains);
        for (const unsigned long key : {rng(), rng() >> 40, ~0UL, ~0UL - 1, 0UL, 1UL * chains,
                                        ~0UL / chains * chains, ~0UL / chains * chains - 1}) {
            const long value = 1;
            dict.addInternal(&key, &value);
            EXPECT_NE(dict.buckets[static_cast<unsigned int>(key % chains)], nullptr);
            dict.remove(&key);
            EXPECT_EQ(dict.buckets[static_cast<unsigned int>(key % chains)], nullptr);
        }
    }
    EXPECT_EQ(WordDict(8, 0).buckets.length(), 31U);
}

TEST(Dictionary, ValuesAreAligned) {
    WideDict dict;
    for (int i = 0; i < 100; ++i) dict[i].number = i;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(dict.find(i)) % alignof(Wide), 0U);
        EXPECT_EQ(dict.find(i)->number, i);
    }
    EXPECT_EQ(dict.keySize, 16U);
    EXPECT_EQ(dict.wordsOf(7), 0U);  // reads no more than there is
    // The size of the key as it is may be in a stream too.
    std::string bytes = written(dict);
    ASSERT_EQ(bytes.substr(8, 8), word(16, 16));
    bytes.replace(8, 8, word(4, 16));
    WideDict back;
    MemoryTranscriber in(bytes);
    ASSERT_TRUE(back.doxdr(in));
    EXPECT_EQ(back.find(42)->number, 42);
    EXPECT_EQ(back.take(42)->number, 42);
    EXPECT_FALSE(back.take(42).has_value());
}

TEST(Dictionary, CleanUpEndsWhatIsAddedMeanwhile) {
    struct Adding : fxStrStrDictionary {
        ~Adding() override { cleanup(); }
        void destroyValue(void* value) const override {
            fxStrStrDictionary::destroyValue(value);
            if (added < 10) const_cast<Adding*>(this)->add(fxStr(added++, "late %d"), "");
        }
        mutable int added = 0;
    } dict;
    for (int i = 0; i < 5; ++i) dict.add(fxStr(i, "%d"), "");
    dict.cleanup();
    EXPECT_EQ(dict.size(), 15U);  // which cleanup() leaves alone
    EXPECT_FALSE(dict.begin().notDone());
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

#ifdef FXDS_CHECKED
// Its hooks are settled before its class is.
TEST(DictionaryDeathTest, CheckedTableThatABaseHasUsedIsFatal) {
    struct User {
        explicit User(fxVoidPtrDict& dict) { dict.add("x", nullptr); }
    };
    struct Used : fxVoidPtrDict, User {
        Used() : User(static_cast<fxVoidPtrDict&>(*this)) {}
        using fxVoidPtrDict::forgetFinder;
    } used;
    EXPECT_DEATH(used.add("y", nullptr), "hasOwnHooksNow");
    used.forgetFinder();
    used.add("y", nullptr);
}
#endif

// Iterators.

TEST(DictIter, ShowsNothingWhereItsEntryWent) {
    fxVoidPtrDict dict(1);
    dict["b"] = &dict;
    dict["a"] = &dict;
    fxVoidPtrDictIter i(dict);
    EXPECT_EQ(i.value(), &dict);
    dict.remove("a");
    EXPECT_TRUE(i.notDone() && i.getKey() == nullptr && i.getValue() == nullptr);
    dict.remove("b");  // where it was moved to
    EXPECT_TRUE(!i.notDone() && i.dict == nullptr && i.moved);
    dict["d"] = nullptr;
    i = dict;
    EXPECT_TRUE(!i.moved && i.key() == "d");
}

// Transcription.

TEST(DictionaryXdr, EmptyTableOfPointersAloneCanBeWritten) {
    fxVoidPtrDict dict;
    MemoryTranscriber out;
    EXPECT_EQ(dict.xdr(out), 1);
    EXPECT_EQ(out.baseParts, 1);
    EXPECT_EQ(out.bytes, word(0, 16) + word(16, 8) + word(8) + word(31));
    dict["a"] = &dict;
    EXPECT_EQ(dict.xdr(out), 0);
    EXPECT_EQ(fxDictionary::xdr(&dict, out), 0);
}

// A stream may put an entry into any chain and a key twice into one. A search
// answers what walking the chain finds, with the index too, and without one when
// five keys are there so often that it drops itself.
TEST(DictionaryXdr, TrustsThePlacesOfTheStream) {
    std::mt19937 rng(testSeed());
    for (const auto& [entries, range, steps] : {std::tuple(3000U, 300U, 6000), {24000U, 1U, 200}}) {
        std::string bytes = word(entries, 16) + word(16, 16) + word(16) + word(7);
        for (unsigned int i = 0; i < entries; ++i) {
            const std::string key = randomKey(rng, range);
            const unsigned long hash = toStr(key).hash();
            const unsigned int chain = static_cast<unsigned int>(rng() % 4 == 0 ? rng() : hash % 7);
            bytes += text(key) + text(std::to_string(i)) + word(chain % 7);
        }
        MemoryTranscriber in(bytes);
        Open<fxStrStrDictionary> dict;
        ASSERT_EQ(dict.xdr(in), 1);
        ASSERT_EQ(dict.size(), entries);
        for (int step = 0; step < steps; ++step) {
            const fxStr key = toStr(randomKey(rng, range));
            if (step % 3 == 0) dict.remove(key);
            if (step % 7 == 0) dict[key] = "new";
            const fxStr* const found = dict.find(key);
            ASSERT_EQ(found != nullptr ? found - 1 : nullptr, dict.walkFor(key)) << step;
        }
    }
}

TEST(DictionaryXdr, RefusesNumbersThatCannotBeRight) {
    const std::string sizes = word(16, 16) + word(16);
    const std::string entry = text("k") + text("v");
    const std::array<std::string, 8> streams = {
        word(1) + word(8) + word(16) + word(1) + entry + word(0),
        word(1) + word(16) + word(8) + word(1) + entry + word(0),
        word(1) + word(0xFFFFFFF0U) + word(16) + word(1) + entry + word(0),
        word(1) + sizes + word(0) + entry + word(0),
        word(1) + sizes + word(0x20000001U) + entry + word(0),
        word(1) + sizes + word(0xFFFFFFFFU) + entry + word(0),
        word(1) + sizes + word(3) + entry + word(3),
        word(0xFFFFFFFFU) + sizes + word(3) + entry + word(2),
    };
    for (const std::string& bytes : streams) {
        MemoryTranscriber in(bytes);
        fxStrStrDictionary dict;
        dict["old"] = "gone";
        EXPECT_EQ(dict.xdr(in), 0);
        EXPECT_EQ(dict.find("old"), nullptr);
        dict["still"] = "usable";
        EXPECT_EQ(*dict.find("still"), "usable");
    }
    MemoryTranscriber none(word(0) + sizes + word(0));
    fxStrStrDictionary dict;
    EXPECT_EQ(dict.xdr(none), 1);
    EXPECT_TRUE(dict.isEmpty());
}

TEST(DictionaryXdr, UnknownSizesComeFromTheStream) {
    WordDict dict(12, 3);
    for (const char* key : {"aaaaaaaaaaaa", "aaaaaaaabbbb"}) {
        const long value = key[11];
        dict.addInternal(key, &value);
    }
    const std::string bytes = written(dict);
    WordDict back(fxDictionary_type);
    MemoryTranscriber in(bytes);
    ASSERT_TRUE(back.doxdr(in));
    EXPECT_EQ(back.keySize, 12U);
    const long value = 'b';
    EXPECT_EQ(std::memcmp(back.find("aaaaaaaabbbb"), &value, sizeof value), 0);
    WordDict refusing(fxDictionary_type);
    MemoryTranscriber huge(word(1) + word(0xFFFFFFFFU) + word(0xFFFFFFFFU) + word(1));
    EXPECT_FALSE(refusing.doxdr(huge));
    MemoryTranscriber nothing(word(1) + word(0) + word(8) + word(1) + word(0));
    EXPECT_FALSE(refusing.doxdr(nothing));
}

// What derives from a dictionary finds its fields in this order.
TEST(Dictionary, FieldsStandInOrder) {
    WordDict dict(8);
    const auto offset = [&dict](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&dict);
    };
    EXPECT_EQ(offset(&dict.count), 16);
    EXPECT_EQ(offset(&dict.keySize), 20);
    EXPECT_EQ(offset(&dict.valueSize), 24);
    EXPECT_EQ(offset(&dict.buckets), 32);
    EXPECT_EQ(offset(&dict.iters), 32 + static_cast<long>(sizeof(fxDictBuckets)));
    fxDictIter iter;
    EXPECT_EQ(reinterpret_cast<char*>(&iter.node) - reinterpret_cast<char*>(&iter), 16);
}

}  // namespace
