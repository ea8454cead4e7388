// What dictionaries and sets have in common, against the most obvious model.

#include <gtest/gtest.h>

#include <cstdlib>

#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "tests/support/HashModel.h"

namespace {

struct Dictionaries {
    typedef fxStrStrDictionary Table;
    typedef fxStrStrDictionaryIter Iter;
    static const bool hasValues = true;
    static fxTypeObj& type() { return fxStrStrDictionary_type; }
    static void add(Table& table, const fxStr& key, const std::string& value) {
        table.add(key, toStr(value));
    }
    static const fxStr* find(const Table& table, const fxStr& key) {
        const fxStr* const value = table.find(key);
        return value != nullptr ? value - 1 : nullptr;  // which follows its key
    }
    static ChainModel::Entry entryAt(const Iter& i) {
        return {std::string(i.key().view()), std::string(i.value().view())};
    }
};

struct Sets {
    typedef fxStrSet Table;
    typedef fxStrSetIter Iter;
    static const bool hasValues = false;
    static fxTypeObj& type() { return fxStrSet_type; }
    static void add(Table& table, const fxStr& key, const std::string&) { table.add(key); }
    static const fxStr* find(const Table& table, const fxStr& key) { return table.find(key); }
    static ChainModel::Entry entryAt(const Iter& i) { return {std::string(i.key().view()), ""}; }
};

template <class Kind>
class Hash : public testing::Test {
public:
    typedef typename Kind::Table Table;
    typedef Open<Table> OpenTable;

    static std::vector<ChainModel::Entry> listOf(Table& table) {
        std::vector<ChainModel::Entry> entries;
        for (typename Kind::Iter i(table); i.notDone(); ++i) entries.push_back(Kind::entryAt(i));
        return entries;
    }

    // Adds or removes a key, here and there.
    static void change(Table& table, ChainModel& model, const std::string& key,
                       const std::string& value, unsigned int kind) {
        if (kind < 2) {
            if (kind == 0) table.remove(toStr(key));
            if (kind == 1) takeOut(table, toStr(key), model.find(key));
            model.remove(key);
        } else {
            Kind::add(table, toStr(key), value);
            model.add(key, Kind::hasValues ? value : "");
        }
    }
    static void takeOut(Table& table, const fxStr& key, const ChainModel::Entry* expected) {
        if constexpr (Kind::hasValues) {
            fxStr* const cut = table.cut(key);
            ASSERT_EQ(cut != nullptr, expected != nullptr);
            if (cut == nullptr) return;
            EXPECT_EQ(*cut, toStr(expected->second));
            cut->~fxStr();
            std::free(cut);
        } else {
            static_cast<void>(expected);
            table.remove(key);
        }
    }

    // A copy, an assignment and what is read back have each chain reversed.
    static void compareCopies(OpenTable& table, ChainModel& model) {
        model.reverse();
        OpenTable copy(table);
        EXPECT_EQ(listOf(copy), model.list());
        OpenTable assigned(static_cast<unsigned int>(model.chains.size()));
        assigned = table;
        EXPECT_EQ(listOf(assigned), model.list());
        MemoryTranscriber in(written(table));
        OpenTable back(Kind::type());
        Kind::add(back, "goes", "");
        ASSERT_EQ(back.xdr(in), 1);
        EXPECT_EQ(in.taken, in.bytes.size());
        EXPECT_EQ(back.buckets.length(), model.chains.size());
        EXPECT_EQ(listOf(back), model.list());
        EXPECT_EQ(back.size(), table.size());
        model.reverse();
    }
};

typedef testing::Types<Dictionaries, Sets> Kinds;
TYPED_TEST_SUITE(Hash, Kinds, );

TYPED_TEST(Hash, AgreesWithModel) {
    for (const unsigned int chains : {1U, 7U, 31U, 1009U}) {
        for (const unsigned int range : {20U, 3000U}) {
            std::mt19937 rng(testSeed());
            typename TestFixture::OpenTable table(chains);
            ChainModel model(chains);
            for (int step = 0; step < 5000; ++step) {
                const std::string key = randomKey(rng, range);
                this->change(table, model, key, std::to_string(step),
                             static_cast<unsigned int>(rng() % 6));
                const std::string probe = randomKey(rng, range);
                const fxStr* const found = TypeParam::find(table, toStr(probe));
                ASSERT_EQ(found, table.walkFor(toStr(probe))) << "step " << step;
                ASSERT_EQ(found != nullptr, model.find(probe) != nullptr) << "step " << step;
            }
            ASSERT_EQ(this->listOf(table), model.list());
            ASSERT_EQ(table.size(), model.list().size());
            this->compareCopies(table, model);
        }
    }
}

TYPED_TEST(Hash, IteratorsAgreeWithModel) {
    for (const unsigned int chains : {1U, 5U, 31U}) {
        typename TypeParam::Table table(chains);
        compareWalks<typename TypeParam::Table, typename TypeParam::Iter>(
            table, ChainModel(chains),
            [](auto& t, const fxStr& key) { TypeParam::add(t, key, ""); });
    }
}

TYPED_TEST(Hash, WithoutChainsItIsEmptyAndUsable) {
    typename TypeParam::Table none(TypeParam::type());
    EXPECT_EQ(none.find("x"), nullptr);
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

TYPED_TEST(Hash, IteratorsAreRegisteredWhileTheyWalk) {
    typename TypeParam::Iter survivor;
    ++survivor;
    {
        Open<typename TypeParam::Table> table;
        TypeParam::add(table, "a", "");
        typename TypeParam::Iter i(table);
        typename TypeParam::Iter j(&table);
        survivor = table;
        EXPECT_EQ(table.iters.length(), 3U);
        j++;
        EXPECT_FALSE(j);
        EXPECT_EQ(table.iters.length(), 2U);
        table.removeIter(&j);
        EXPECT_EQ(table.iters.length(), 2U);
    }
    EXPECT_FALSE(survivor);
    EXPECT_EQ(survivor.getKey(), nullptr);
    ++survivor;
}

TYPED_TEST(Hash, NothingIsLeftWhenReadingFails) {
    typename TypeParam::Table table(1);
    TypeParam::add(table, "key", "value");
    TypeParam::add(table, "other", "value");
    const std::string bytes = written(table);
    for (size_t half = 0; half < 2 * bytes.size(); ++half) {
        const size_t length = half / 2;
        typename TypeParam::Table back;
        LateTexts in(bytes.substr(0, length));
        in.throws = half % 2 != 0;
        try {
            EXPECT_EQ(back.xdr(in), 0) << length;
        } catch (const LateTexts::EndOfTexts&) {
        }
        EXPECT_TRUE(back.isEmpty());
        EXPECT_EQ(in.placesNoted(), 0U);
    }
}

// A class may add what a stream lacks as soon as it has read the rest.
TYPED_TEST(Hash, CanBeAddedToBeforeTextsArrive) {
    for (const auto& [entries, chains] : {std::pair(3, 31U), {500, 31U}, {100, 2U}, {1, 1U}}) {
        typename TypeParam::Table table(chains);
        for (int i = 0; i < entries; ++i) TypeParam::add(table, fxStr(i, "key%d"), "x");
        LateTexts in(written(table));
        typename TypeParam::Table back;
        ASSERT_EQ(back.xdr(in), 1);
        for (int i = 0; i < 20; ++i) TypeParam::add(back, fxStr(i, "new%d"), "x");
        EXPECT_FALSE(back.contains("key0"));
        in.arrive();
        for (int i = 0; i < 20; ++i) EXPECT_TRUE(back.contains(fxStr(i, "new%d")));
        for (int i = 0; i < entries; ++i) ASSERT_TRUE(back.contains(fxStr(i, "key%d"))) << i;
    }
}

}  // namespace
