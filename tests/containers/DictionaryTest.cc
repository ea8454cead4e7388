#include "fxds/Dictionary.h"

#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdlib>
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

}  // namespace

template <>
struct fxKeyHooks<int> {
    static unsigned long hash(const int& key) { return static_cast<unsigned int>(key); }
    static int compare(const int& a, const int& b) { return a - b; }
};

namespace {

/// Keys that are smaller than what their values are aligned to.
class WideDict : public fxTypedDictionary<int, Wide> {
public:
    using fxTypedDictionary::keySize;
    unsigned long wordsOf(const int& key) const { return fxDictionary::hashKey(&key); }

protected:
    bool xdrKey(fxTranscriber& t, void* key) override { return t.xdr(static_cast<char*>(key), 4); }
    bool xdrValue(fxTranscriber& t, void* value) override {
        return t.xdr(static_cast<double*>(value), 1);
    }
};

/// Shows the chains, which the library keeps to itself.
class OpenDict : public fxStrStrDictionary {
public:
    using fxStrStrDictionary::buckets;
    using fxStrStrDictionary::fxStrStrDictionary;
    using fxStrStrDictionary::iters;
    fxStr* walkFor(const fxStr& key) const {
        for (fxDictBucket* i = buckets[static_cast<unsigned int>(key.hash() % buckets.length())];
             i != nullptr; i = i->next) {
            if (compare(key, *static_cast<fxStr*>(i->element)) == 0) {
                return static_cast<fxStr*>(i->element) + 1;
            }
        }
        return nullptr;
    }

protected:
    Finder* finder() const override { return finderFor(typeid(OpenDict)); }
};

/// Texts are equal whatever their case.
class FoldingDict : public fxStrStrDictionary {
public:
    using fxStrStrDictionary::fxStrStrDictionary;
    mutable unsigned long comparisons = 0;

protected:
    static fxStr folded(const void* key) {
        std::string text(static_cast<const fxStr*>(key)->view());
        for (char& c : text) c = static_cast<char>(std::tolower(c));
        return fxStr(text);
    }
    unsigned long hashKey(const void* key) const override { return folded(key).hash(); }
    int compareKeys(const void* a, const void* b) const override {
        ++comparisons;
        return compare(folded(a), folded(b));
    }
    unsigned long fingerprintKey(const void* key, unsigned long hash) const override {
        return fxKeyHooks<fxStr>::fingerprint(folded(key), hash);
    }
};

/// The same without a fingerprint of its own.
class PlainFoldingDict : public FoldingDict {
    unsigned long fingerprintKey(const void*, unsigned long hash) const override { return hash; }
};

std::vector<ChainModel::Entry> listOf(const fxStrStrDictionary& dict) {
    std::vector<ChainModel::Entry> entries;
    for (auto [key, value] : dict) entries.emplace_back(key.view(), value.view());
    return entries;
}

TEST(Dictionary, AddKeepsTheStoredKeyAndReplacesTheValue) {
    fxStrStrDictionary dict;
    dict.add("key", "one");
    const char* const stored = fxStrStrDictionaryIter(dict).key().c_str();
    dict.add("key", "two");
    dict.add("key", *dict.find("key"));
    EXPECT_EQ(*dict.find("key"), "two");
    EXPECT_EQ(fxStrStrDictionaryIter(dict).key().c_str(), stored);
}

TEST(Dictionary, CreatingLookUpMakesDefaultValuesOnce) {
    fxStrStrDictionary texts;
    EXPECT_EQ(texts["new"], "");
    texts["new"] = "x";
    EXPECT_EQ(*texts.findCreate("new"), "x");
    for (auto [key, value] : texts) value = key;
    EXPECT_EQ(*texts.find("new"), "new");
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

TEST(Dictionary, AgreesWithModel) {
    for (const unsigned int chains : {1U, 7U, 31U, 1009U}) {
        for (const unsigned int range : {20U, 3000U}) {
            std::mt19937 rng(testSeed());
            OpenDict dict(chains);
            ChainModel model(chains);
            for (int step = 0; step < 6000; ++step) {
                const std::string key = randomKey(rng, range);
                const std::string value = std::to_string(step);
                switch (rng() % 6) {
                    case 0:
                        dict.remove(toStr(key));
                        model.remove(key);
                        break;
                    case 1:
                        if (fxStr* const cut = dict.cut(toStr(key))) {
                            ASSERT_EQ(*cut, toStr(model.find(key)->second));
                            cut->~fxStr();
                            std::free(cut);
                        } else {
                            ASSERT_EQ(model.find(key), nullptr);
                        }
                        model.remove(key);
                        break;
                    case 2:
                        dict[toStr(key)] = toStr(value);
                        model.add(key, value);
                        break;
                    default:
                        dict.add(toStr(key), toStr(value));
                        model.add(key, value);
                }
                const std::string probe = randomKey(rng, range);
                const fxStr* const found = dict.find(toStr(probe));
                ASSERT_EQ(found != nullptr, model.find(probe) != nullptr) << "step " << step;
                ASSERT_EQ(found, dict.walkFor(toStr(probe)));
                if (found != nullptr) {
                    ASSERT_EQ(*found, toStr(model.find(probe)->second));
                }
                if (step % 500 == 0) {
                    ASSERT_EQ(listOf(dict), model.list());
                }
            }
            ASSERT_EQ(listOf(dict), model.list());
            ASSERT_EQ(dict.size(), model.list().size());
            const fxStrStrDictionary copy(dict);
            model.reverse();
            EXPECT_EQ(listOf(copy), model.list());
        }
    }
}

TEST(Dictionary, FewChainsCostNoComparisons) {
    FoldingDict dict(31);
    const auto name = [](int i) {
        return fxStr(i, "/a/common/prefix/longer/than/the/hash/sees/%d");
    };
    for (int i = 0; i < 20000; ++i) dict[name(i)] = "x";
    EXPECT_LT(dict.comparisons, 20000U);
    dict.comparisons = 0;
    for (int i = 0; i < 20000; ++i) ASSERT_NE(dict.find(name(i)), nullptr);
    EXPECT_LT(dict.comparisons, 21000U);
    for (int i = 0; i < 20000; ++i) dict.remove(name(i));
    EXPECT_LT(dict.comparisons, 42000U);
    EXPECT_TRUE(dict.isEmpty());
}

TEST(Dictionary, SubclassesSayWhichKeysAreEqual) {
    FoldingDict told;
    PlainFoldingDict plain;
    for (fxStrStrDictionary* dict :
         {static_cast<fxStrStrDictionary*>(&told), static_cast<fxStrStrDictionary*>(&plain)}) {
        for (int i = 0; i < 1000; ++i) {
            dict->add(fxStr(i, "Content-Type-%d"), "a");
            dict->add(fxStr(i, "CONTENT-type-%d"), fxStr(i, nullptr));
        }
        EXPECT_EQ(dict->size(), 1000U);
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(*dict->find(fxStr(i, "content-type-%d")), fxStr(i, nullptr));
        }
    }
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

TEST(Dictionary, AssignmentMerges) {
    fxStrStrDictionary dict, other;
    for (const char* key : {"a", "b"}) dict[key] = "1";
    for (const char* key : {"b", "d"}) other[key] = "2";
    dict = other;
    EXPECT_TRUE(dict.size() == 3 && dict["a"] == "1" && dict["b"] == "2" && dict["d"] == "2");
    const fxStrStrDictionary& same = dict;
    dict = same;
    EXPECT_EQ(dict.size(), 3U);
}

TEST(Dictionary, WithoutChainsItIsEmptyAndUsable) {
    fxStrStrDictionary dict(fxStrStrDictionary_type);
    EXPECT_EQ(dict.find("x"), nullptr);
    EXPECT_EQ(dict.cut("x"), nullptr);
    dict.remove("x");
    EXPECT_FALSE(fxStrStrDictionaryIter(dict).notDone());
    const fxStrStrDictionary copy(dict);
    EXPECT_TRUE(copy.isEmpty());
    dict["x"] = "y";
    EXPECT_EQ(*dict.find("x"), "y");
}

// Iterators.

TEST(DictIter, AgreesWithModel) {
    for (const unsigned int chains : {1U, 5U, 31U}) {
        fxVoidPtrDict dict(chains);
        compareWalks<fxVoidPtrDict, fxVoidPtrDictIter>(
            dict, ChainModel(chains), [](fxVoidPtrDict& d, const fxStr& key) { d[key]; });
    }
}

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

TEST(DictIter, IsRegisteredOnlyWhileItWalks) {
    OpenDict dict;
    dict["a"] = "b";
    {
        fxStrStrDictionaryIter i(dict);
        fxStrStrDictionaryIter j(&dict);
        EXPECT_EQ(dict.iters.length(), 2U);
        j++;
        EXPECT_FALSE(j);
        EXPECT_EQ(dict.iters.length(), 1U);
        dict.removeIter(&j);
        EXPECT_EQ(dict.iters.length(), 1U);
    }
    EXPECT_EQ(dict.iters.length(), 0U);
    fxStrStrDictionaryIter detached;
    EXPECT_FALSE(detached.notDone());
    EXPECT_EQ(detached.getKey(), nullptr);
    EXPECT_EQ(detached.getValue(), nullptr);
    ++detached;
}

// Transcription.

TEST(DictionaryXdr, ReadsBackWithChainsReversed) {
    std::mt19937 rng(testSeed());
    OpenDict dict(13);
    for (int i = 0; i < 2000; ++i) dict[toStr(randomKey(rng, 1000))] = fxStr(i, nullptr);
    MemoryTranscriber in(written(dict));
    OpenDict back(fxStrStrDictionary_type);
    ASSERT_EQ(back.xdr(in), 1);
    EXPECT_EQ(in.taken, in.bytes.size());
    EXPECT_EQ(back.buckets.length(), 13U);
    EXPECT_EQ(listOf(back), listOf(OpenDict(dict)));
    MemoryTranscriber again(written(dict));
    ASSERT_EQ(back.xdr(again), 1);  // into what is not empty
    EXPECT_EQ(back.size(), dict.size());
}

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
// answers what walking the chain finds, with the index too.
TEST(DictionaryXdr, TrustsThePlacesOfTheStream) {
    std::mt19937 rng(testSeed());
    std::string bytes = word(3000, 16) + word(16, 16) + word(16) + word(7);
    for (unsigned int i = 0; i < 3000; ++i) {
        const std::string key = randomKey(rng, 300);
        const unsigned long hash = toStr(key).hash();
        const unsigned int chain = static_cast<unsigned int>(rng() % 4 == 0 ? rng() : hash % 7);
        bytes += text(key) + text(std::to_string(i)) + word(chain % 7);
    }
    MemoryTranscriber in(bytes);
    OpenDict dict;
    ASSERT_EQ(dict.xdr(in), 1);
    ASSERT_EQ(dict.size(), 3000U);
    for (int step = 0; step < 6000; ++step) {
        const fxStr key = toStr(randomKey(rng, 300));
        if (step % 3 == 0) dict.remove(key);
        if (step % 7 == 0) dict[key] = "new";
        ASSERT_EQ(dict.find(key), dict.walkFor(key)) << "step " << step;
    }
}

/// Fills in texts only when it is told to, as the reader of streams does.
class LateTexts : public MemoryTranscriber {
public:
    using MemoryTranscriber::MemoryTranscriber;
    using MemoryTranscriber::xdr;
    bool xdrText(fxStr& string, char**, unsigned int size) override {
        if (bytes.size() - taken < size) return false;
        waiting.emplace_back(&string, bytes.substr(taken, size));
        taken += size;
        return true;
    }
    void arrive() {
        for (auto& [string, text] : waiting) {
            char* const block = static_cast<char*>(std::malloc(text.size()));
            std::memcpy(block, text.data(), text.size());
            string->adopt(block, static_cast<unsigned int>(text.size()));
        }
    }
    size_t placesNoted() const override { return waiting.size(); }
    void forgetPlaces(size_t count) override { waiting.resize(count); }

private:
    std::vector<std::pair<fxStr*, std::string>> waiting;
};

// A class may add what older streams lack as soon as it has read the rest.
TEST(DictionaryXdr, CanBeAddedToBeforeTextsArrive) {
    for (const auto& [entries, chains] : {std::pair(3, 31U), {500, 31U}, {100, 2U}, {1, 1U}}) {
        fxStrStrDictionary dict(chains);
        for (int i = 0; i < entries; ++i) dict[fxStr(i, "key%d")] = fxStr(i, nullptr);
        LateTexts in(written(dict));
        fxStrStrDictionary back;
        ASSERT_EQ(back.xdr(in), 1);
        for (int i = 0; i < 20; ++i) back[fxStr(i, "new%d")] = "value";
        EXPECT_FALSE(back.contains("key0"));
        in.arrive();
        for (int i = 0; i < 20; ++i) EXPECT_EQ(*back.find(fxStr(i, "new%d")), "value");
        for (int i = 0; i < entries; ++i) ASSERT_TRUE(back.contains(fxStr(i, "key%d"))) << i;
    }
}

TEST(DictionaryXdr, NothingIsLeftWhenReadingFails) {
    fxStrStrDictionary dict(1);
    dict["key"] = "value";
    dict["other"] = "value";
    const std::string bytes = written(dict);
    for (size_t length = 0; length < bytes.size(); ++length) {
        fxStrStrDictionary back;
        LateTexts in(bytes.substr(0, length));
        EXPECT_EQ(back.xdr(in), 0) << length;
        EXPECT_TRUE(back.isEmpty());
        EXPECT_EQ(in.placesNoted(), 0U);
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
