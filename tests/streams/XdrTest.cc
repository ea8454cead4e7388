// Fields of every type, what owns its block or object, and what is not written.
#include "fxds/Xdr.h"

#include <gtest/gtest.h>

#include <tuple>

#include "fxds/BoolArray.h"
#include "fxds/Globals.h"
#include "tests/support/StreamKit.h"

namespace {

enum class Colour : unsigned char { red, blue = 200 };
enum class Wide : long { one = 1L << 40 };

/// A value with a text, which moves when its vector grows.
struct Named {
    int number = 0;
    fxStr name;
    std::vector<fxStr> aliases;
    bool xdr(fxTranscriber& t) { return fxXdrAll(t, number, name, aliases); }
    bool operator==(const Named& other) const {
        return number == other.number && name == other.name && aliases == other.aliases;
    }
};

/// Values in values, as deep as a stream says.
struct Deep {
    std::vector<Deep> inner;
    std::unique_ptr<int> number;
    bool xdr(fxTranscriber& t) { return fxXdrAll(t, inner, number); }
};

/// A field of everything.
class Everything : public Listed {
    FX_TRANSCRIBABLE(Everything)
    ~Everything() override {
        std::apply([](auto*... block) { (std::free(block), ...); }, blocks);
        std::free(text);
    }
    auto values() {
        return std::tie(numbers, fixed, strings, lists, records, maps, perhaps, row, flags, texts);
    }

    std::tuple<bool, char, signed char, unsigned char, short, unsigned short, int, unsigned int,
               long, unsigned long, long long, unsigned long long, float, double, long double,
               wchar_t, char16_t, char32_t, Colour, Wide>
        numbers;
    std::pair<std::array<int, 3>, std::array<std::string, 2>> fixed;
    std::pair<fxStr, std::string> strings;
    std::pair<std::vector<int>, std::vector<bool>> lists;
    std::vector<Named> records;
    std::pair<std::map<std::string, std::vector<double>>, std::unordered_map<int, fxStr>> maps;
    std::vector<std::optional<std::pair<int, fxStr>>> perhaps;
    std::array<long, 2> row = {};
    std::array<bool, 2> flags = {};
    std::array<fxStr, 2> texts;
    int ints[3] = {};
    Deep deep;
    std::unique_ptr<Everything> child;
    std::vector<std::unique_ptr<Listed>> children;
    Listed* parent = nullptr;
    unsigned int n = 0;
    std::tuple<char*, unsigned char*, short*, unsigned short*, int*, long*, float*, double*> blocks;
    unsigned int none = 9;
    double* noBlock = nullptr;
    char* text = nullptr;
    char* noText = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Everything, "Everything", 3, Listed);
fxBool Everything::xdr(fxTranscriber& t) {
    const auto all = [&t](auto&... field) { return fxXdrAll(t, field...); };
    return fxXdrBase<Listed>(t, this) && std::apply(all, numbers) &&
           fxXdrAll(t, fixed, strings, lists, records, maps, perhaps, row, flags, texts, ints) &&
           fxXdrAll(t, deep, child, children) && fxXdrObject(t, parent) &&
           std::apply([&](auto&... block) { return (fxXdrBlock(t, block, n) && ...); }, blocks) &&
           fxXdrBlock(t, noBlock, none) && fxXdrString(t, text) && fxXdrString(t, noText);
}

template <class T>
T* pair(T first, T second) {
    T* const block = static_cast<T*>(std::malloc(2 * sizeof(T)));
    block[0] = first;
    block[1] = second;
    return block;
}

/// Two owners and a plain pointer, of texts and objects.
class Owners : public Listed {
    FX_TRANSCRIBABLE(Owners)
    ~Owners() override {
        std::free(first);
        std::free(second);
        std::free(shared);
    }
    char* first = nullptr;
    char* second = nullptr;
    char* shared = nullptr;
    char* again = nullptr;
    std::unique_ptr<Listed> one;
    std::unique_ptr<Listed> other;
};
FX_TRANSCRIBABLE_TYPE(Owners, "Owners", 1, Listed);
fxBool Owners::xdr(fxTranscriber& t) {
    return fxXdrString(t, first) && fxXdrSharedString(t, shared) && fxXdrString(t, second) &&
           fxXdrSharedString(t, again) && fxXdrAll(t, one, other);
}

/// References, one of them beside an owner.
class Linked : public Listed {
    FX_TRANSCRIBABLE(Linked)
    fxRef<Linked> next;
    std::vector<fxRef<const Listed>> others;
    std::unique_ptr<Listed> own;
    fxRef<Listed> last;
};
FX_TRANSCRIBABLE_TYPE(Linked, "Linked", 1, Listed);
fxBool Linked::xdr(fxTranscriber& t) { return fxXdrAll(t, next, others, own, last); }

/// Holds an object, and points to it or to another.
class Holder : public Listed {
    FX_TRANSCRIBABLE(Holder)
    Listed* before = nullptr;
    Node own;
    fxXDRObj* after = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Holder, "Holder", 1, Listed);
fxBool Holder::xdr(fxTranscriber& t) {
    return fxXdrObject(t, before) && fxXdr(t, own) && fxXdrObject(t, after);
}

class Unregistered : public Node {};
/// Its registered base lies at another address.
class Ballast {
public:
    virtual ~Ballast() = default;
    long weight = 0;
};
class Sturdy : public Ballast, public Node {};
FX_TRANSCRIBED_AS(Sturdy, Node);
class UnregisteredInts : public fxIntArray {};

class Xdr : public ::testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override { EXPECT_TRUE(Listed::all().empty()); }
};

}  // namespace

TEST_F(Xdr, EverythingReadsBackAsItWas) {
    Everything in;
    in.numbers = {true,        'c',         -3,   250,          -4,           65535,    -5,
                  4000000000U, -(1L << 40), ~0UL, -(1LL << 50), ~0U,          0.5F,     1e300,
                  1.25L,       L'w',        u'x', U'y',         Colour::blue, Wide::one};
    in.fixed = {{1, -2, 3}, {"a", ""}};
    in.strings = {"text", std::string("a\0b", 3)};
    for (int i = 0; i < 100; ++i) {
        in.lists.first.push_back(i - 50);
        in.lists.second.push_back(i % 3 == 0);
        in.records.push_back({i, fxStr(i, "name%d"), {fxStr(i, "a%d"), fxStr(i, "b%d")}});
        in.maps.first[std::to_string(i)] = {i / 3.0, 1.0};
        in.maps.second[i] = fxStr(i, "value%d");
        in.perhaps.emplace_back();
        if (i % 2 == 0) in.perhaps.back().emplace(i, fxStr(i, "perhaps%d"));
        in.children.push_back(std::make_unique<Listed>());
        in.children.back()->number = i;
    }
    in.row = {1L << 40, -2};
    in.flags = {false, true};
    in.texts = {"", "second"};
    in.ints[2] = -3;
    in.deep.inner.resize(2);
    in.deep.inner[1].number = std::make_unique<int>(7);
    in.child = std::make_unique<Everything>();
    in.child->parent = &in;
    in.parent = in.children[40].get();
    in.n = 2;
    in.blocks = std::make_tuple(pair('x', 'y'), pair<unsigned char>(1, 255), pair<short>(-1, 2),
                                pair<unsigned short>(65535, 1), pair(-7, 8), pair(1L << 50, -1L),
                                pair(0.25F, -1.0F), pair(1e-300, 2.0));
    in.text = strdup("some text");

    const std::string bytes = saved(&in);
    const std::unique_ptr<Everything> out(loaded<Everything>(bytes));
    ASSERT_NE(out, nullptr);
    EXPECT_TRUE(out->values() == in.values());
    EXPECT_TRUE(std::equal(in.ints, in.ints + 3, out->ints));
    EXPECT_EQ(*out->deep.inner.at(1).number, 7);
    EXPECT_TRUE(out->child->parent == out.get() && out->parent == out->children.at(40).get());
    const auto pairsOf = [](const auto&... block) {
        return std::make_tuple(std::make_pair(block[0], block[1])...);
    };
    EXPECT_EQ(std::apply(pairsOf, out->blocks), std::apply(pairsOf, in.blocks));
    EXPECT_STREQ(out->text, "some text");
    EXPECT_TRUE(out->noText == nullptr && out->noBlock == nullptr && out->none == 0);
}

TEST_F(Xdr, LayoutIsThatOfThePartsWithTheirCount) {
    HeldStream stream;
    fxBinaryWriter writer(stream);
    std::map<std::string, std::vector<int>> map = {{"k", {1, -1}}};
    std::optional<signed char> none, some = -1;
    std::unique_ptr<Wide> wide = std::make_unique<Wide>(Wide::one);
    std::array<wchar_t, 2> chars = {L'a', L'b'};
    ASSERT_TRUE(fxXdrAll(writer, map, none, some, wide, chars) && writer.flush());
    EXPECT_EQ(stream->view(), record(0, "",
                                     word(1, 8) + word(1, 8) + "k" + word(2, 8) + word(1, 8) +
                                         word(0xFFFFFFFF, 8) + '\0' + "\1\xFF" + '\1' +
                                         word(1UL << 40, 8) + word('a', 8) + word('b', 8)));
}

TEST_F(Xdr, ClaimsAndDepthCostNothing) {
    const auto reads = [](const std::string& payload, auto value) {
        HeldStream stream(record(0, "", payload));
        fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
        return fxXdr(reader, value);
    };
    const std::string most = word(0xFFFFFFFF, 8);
    EXPECT_FALSE(reads(most, std::string()));
    EXPECT_FALSE(reads(most, std::vector<int>()));
    EXPECT_FALSE(reads(most, std::vector<bool>()));
    EXPECT_FALSE(reads(most, std::vector<std::string>()));
    EXPECT_FALSE(reads(word(2, 8) + word(1, 8) + word(5, 8) + word(1, 8) + word(6, 8),
                       std::map<int, int>()));  // a key that comes twice
    std::string nested;
    for (int i = 0; i < 200000; ++i) nested += word(1, 8);
    Deep deep;
    HeldStream stream(record(0, "", nested));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    EXPECT_FALSE(fxXdr(reader, deep));
    Deep written;
    Deep* level = &written;
    for (unsigned int i = 0; i < fxXdrNesting::most; ++i) level = &level->inner.emplace_back();
    HeldStream out;
    fxBinaryWriter writer(out);
    EXPECT_FALSE(fxXdr(writer, written));
    long double huge = 1e4000L;
    EXPECT_FALSE(fxXdr(writer, huge));
}

TEST_F(Xdr, OwnersGetBlocksOfTheirOwn) {
    Owners in;
    char text[] = "abc";
    in.first = in.second = in.shared = in.again = text;
    const std::string bytes = saved(&in);
    // As a stream that names one block for all of them.
    const std::string one = header() + typeRecord(2, "Owners") + objectRecord(1, 2, "\1") +
                            record(3, word(3) + word(4), "\1") + record(4, word(3), "\1") +
                            record(4, word(3), "\1") + record(4, word(3)) + record(1) + record(1) +
                            record(5, word(3) + word(4), std::string("abc", 4));
    in.first = in.second = in.shared = in.again = nullptr;
    for (const std::string& stream : {bytes, one}) {
        const std::unique_ptr<Owners> out(loaded<Owners>(stream));
        ASSERT_NE(out, nullptr);
        for (const char* field : {out->first, out->second, out->shared}) EXPECT_STREQ(field, "abc");
        EXPECT_TRUE(out->first != out->second && out->first != out->shared);
        EXPECT_TRUE(out->second != out->shared && out->again == out->shared);
        for (size_t cut = 1; cut < 14; ++cut) {
            EXPECT_EQ(loaded<Owners>(stream.substr(0, stream.size() - cut)), nullptr);
        }
    }
}

TEST_F(Xdr, ObjectsHaveOneOwner) {
    Owners in;
    in.one = std::make_unique<Listed>();
    HeldStream stream;
    fxBinaryWriter writer(stream);
    EXPECT_TRUE(fxWriteObject(writer, &in));
    EXPECT_FALSE(fxWriteObject(writer, &in));  // its child would have two
    const auto streamOf = [](unsigned int other) {
        return header() + typeRecord(2, "Owners") + objectRecord(1, 2, std::string(4, '\0')) +
               record(11, word(3)) + record(12, word(other));
    };
    EXPECT_DEATH(loaded<Owners>(streamOf(3)), "XXX bad news!");
    EXPECT_DEATH(loaded<Owners>(streamOf(1)), "XXX bad news!");  // the root has one
    for (const bool isOwnerFirst : {false, true}) {
        const std::string owned = record(11, word(3)), none = record(1);
        EXPECT_DEATH(loaded<Linked>(header() + typeRecord(2, "Linked") + objectRecord(1, 2, "") +
                                    (isOwnerFirst ? none : owned) + record(0, "", long8(0)) +
                                    owned + (isOwnerFirst ? owned : none)),
                     "XXX bad news!");
    }
}

TEST_F(Xdr, ReferencesHoldOnceTheGraphIsThere) {
    const fxRef<Linked> in = fxMake<Linked>();
    in->next = fxMake<Linked>();
    for (int i = 0; i < 20; ++i) in->others.emplace_back(i % 2 == 0 ? in->next : nullptr);
    in->next->next = in;  // a circle
    in->last = fxMake<Listed>();
    const std::string bytes = saved(in.get());
    in->next->next = nullptr;
    const size_t before = Listed::all().size();
    for (size_t cut = 1; cut < bytes.size() - header().size(); ++cut) {
        HeldStream stream(bytes.substr(0, bytes.size() - cut));
        fxStreamFault fault;
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(stream, fault));
        EXPECT_EQ(fxReadObject<Linked>(*reader), nullptr);
        EXPECT_EQ(Listed::all().size(), before);
    }
    HeldStream stream(bytes);
    {
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(stream));
        const fxRef<Linked> out(fxReadObject<Linked>(*reader));
        ASSERT_TRUE(out != nullptr && out->next->next == out && out->others.size() == 20);
        EXPECT_EQ(out->refCount, 2U);
        EXPECT_EQ(out->next->refCount, 11U);
        EXPECT_EQ(fxXdrCopy(out->last)->refCount, 1U);
        fxRef<Listed> again;  // outside of objects: what was handed out is there at once
        const std::string name = record(12, word(1));
        stream->putBytes(name.data(), static_cast<unsigned int>(name.size()));
        stream->setPosition(bytes.size());
        EXPECT_TRUE(fxXdr(*reader, again) && again == out && out->refCount == 3);
        out->next->next = nullptr;
    }
    EXPECT_EQ(Listed::all().size(), before);
}

TEST_F(Xdr, WhatCannotBeReadBackIsNotWritten) {
    Holder holder;
    EXPECT_NE(saved(&holder), "failed");
    holder.before = &holder.own;
    EXPECT_EQ(saved(&holder), "failed");
    holder.before = nullptr;
    holder.after = &holder.own;
    EXPECT_EQ(saved(&holder), "failed");

    Unregistered unregistered;
    UnregisteredInts ints;
    fxIntArray plainInts;  // readers know another array by its name
    fxBoolArray bools;
    fxVoidPtrArray pointers;
    for (fxXDRObj* object :
         {static_cast<fxXDRObj*>(&unregistered), static_cast<fxXDRObj*>(&ints),
          static_cast<fxXDRObj*>(&plainInts), static_cast<fxXDRObj*>(&pointers)}) {
        holder.after = object;
        EXPECT_EQ(saved(&holder), "failed");
    }
    EXPECT_EQ(saved<Node>(&unregistered), "failed");
    EXPECT_EQ(saved<fxIntArray>(&ints), "failed");
    EXPECT_NE(saved(&plainInts), "failed");
    holder.after = &bools;
    EXPECT_NE(saved(&holder), "failed");

    Sturdy sturdy;
    sturdy.number = 4;
    holder.after = nullptr;
    holder.before = &sturdy;
    const std::unique_ptr<Holder> read(loaded<Holder>(saved(&holder)));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->before->number, 4);
    delete read->before;
}
