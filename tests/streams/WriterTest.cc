// What the binary writer puts into the stream, to the byte.
#include "fxds/BinaryWriter.h"

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <random>
#include <sstream>

#include "fxds/BinaryReader.h"
#include "fxds/Globals.h"
#include "fxds/XdrEvolution.h"
#include "fxds/streams/AddressIndex.h"
#include "tests/support/RichGraph.h"
#include "tests/support/RunProgram.h"
#include "tests/support/TestSeed.h"

namespace {

enum class Wide : long { one = 1L << 40 };

/// Holds an object, and points to it or to another.
class Holder : public Listed {
    FX_TRANSCRIBABLE(Holder)
    Listed* before = nullptr;
    Node own;
    fxXDRObj* after = nullptr;
};
TRANSCRIBED(Holder, 1, Listed) {
    return fxXdrObject(t, before) && fxXdr(t, own) && fxXdrObject(t, after);
}

/// Does to what transcribes it what a test wants.
class Acting : public Listed {
    FX_TRANSCRIBABLE(Acting)
    static inline bool (*act)(fxTranscriber&) = nullptr;
};
TRANSCRIBED(Acting, 1, Listed) { return act(t); }

class Unregistered : public Node {};
/// Its record does not name the base.
class Forgetful : public Node {
    FX_TRANSCRIBABLE(Forgetful)
};
TRANSCRIBED(Forgetful, 1) { return fxXdrBase<Node>(t, this); }
/// Its registered base lies at another address.
class Ballast {
public:
    virtual ~Ballast() = default;
    long weight = 0;
};
class Sturdy : public Ballast, public Node {};
FX_TRANSCRIBED_AS(Sturdy, Node);
class UnregisteredInts : public fxIntArray {};

/// Writes what it has been given before it asks whether that can be read back.
class Careless : public Listed {
    FX_TRANSCRIBABLE(Careless)
    Node* node = nullptr;
};
TRANSCRIBED(Careless, 1, Listed) {
    return t.xdr(&node, nullptr, Node::typeRecord(), node, node) && fxXdrObject(t, node);
}

/// Notes how it is written to, and takes only so many pieces.
class Pieces : public fxMemoryStream {
public:
    size_t most = SIZE_MAX;
    std::vector<unsigned int> sizes;
    bool putBytes(const char* bytes, unsigned int count) override {
        sizes.push_back(count);
        return sizes.size() <= most && fxMemoryStream::putBytes(bytes, count);
    }
};

/// Has only the stated operations for numbers, and notes how many ints come at once.
template <class Base>
class Foreign : public Base {
public:
    template <class... Format>
    explicit Foreign(fxStream* on, Format... format)
        : fxTranscriber(on, sizeof...(format) != 0), Base(on, format...) {}
    using Base::xdr;
    // NOLINTBEGIN(bugprone-parent-virtual-call): what Base does is to be left out
    bool readsInPieces() const override { return fxTranscriber::readsInPieces(); }
    bool xdr(int* v, unsigned int n) override {
        counts.push_back(n);
        return fxTranscriber::xdr(v, n);
    }
    // NOLINTEND(bugprone-parent-virtual-call)
    std::vector<unsigned int> counts;
};

#ifndef __SANITIZE_ADDRESS__
/// Makes the texts that it writes, one after the other in the same memory.
class Making : public Listed {
    FX_TRANSCRIBABLE(Making)
    fxStr first, second;
    std::vector<std::vector<fxStr>> rows;
    fxStrArray array;
    std::unique_ptr<std::pair<fxStr, int>> pair;
};
FX_TRANSCRIBABLE_TYPE(Making, "Making", 1, Listed);
fxBool Making::xdr(fxTranscriber& t) {
    const auto text = [](char c) { return fxStr(std::string(20, c).c_str()); };
    const auto one = [&](auto& read, auto local) { return fxXdr(t, t.isReading() ? read : local); };
    return one(first, text('a')) && one(second, text('b')) &&
           one(rows, std::vector<std::vector<fxStr>>{{text('c')}}) &&
           one(array, fxStrArray{text('d')}) &&
           one(pair, std::make_unique<std::pair<fxStr, int>>(text('e'), 0));
}
#endif

/// Wants to know when it has been written.
class Told : public fxStrArray {
public:
    void xdrSuccess(fxTranscriber&) override { ++times; }
    int times = 0;
};

/// What is behind the header.
std::string body(const std::string& stream) {
    EXPECT_EQ(stream.substr(0, header().size()), header());
    return stream.substr(std::min(stream.size(), header().size()));
}

/// The bytes of the annotated stream: what is before the words of each line.
std::string drawnStream() {
    const std::string page = contents(FXDS_SOURCE_DIR "/docs/stream-format.md");
    const size_t begin = page.find("```", page.find("## A stream in bytes")) + 4;
    std::istringstream lines(page.substr(begin, page.find("```", begin) - begin));
    std::string bytes;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream drawn(line.substr(0, 48));
        for (unsigned int byte; drawn >> std::hex >> byte;) bytes += static_cast<char>(byte);
    }
    return bytes;
}

/// Makes bare writers and shows what is protected.
class OpenWriter : public fxBinaryWriter {
public:
    explicit OpenWriter(fxStream* out) : fxTranscriber(out, false), fxBinaryWriter(out) {}
    using fxBinaryWriter::alreadyWritten;
    using fxBinaryWriter::nextId;
    using fxBinaryWriter::putHeader;
    void setTag(unsigned int newTag) { tag = newTag; }
};

class Writer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override {
        Listed::deleteAll();
        delete writer;
    }

    HeldStream stream;
    OpenWriter* writer = new OpenWriter(stream);
};

}  // namespace

// Blocks outside of objects, which follow with the next graph, the last one first.
TEST_F(Writer, EveryKindOfRecordIsAsThePageHasIt) {
    char text[] = "hey", *name = text;
    short shorts[] = {1, -1}, *two = shorts;
    long longs[] = {0x0102030405060708}, *one = longs;
    float floats[] = {1.0F}, *single = floats;
    double doubles[] = {-2.0}, *real = doubles;
    int ints[] = {1, 2, -3}, *three = ints;
    ASSERT_TRUE(writer->xdr(&name) && writer->xdr(&name) && writer->xdr(&two, 2) &&
                writer->xdr(&one, 1) && writer->xdr(&single, 1) && writer->xdr(&real, 1) &&
                writer->xdr(&three, 3));
    Rich root;
    Node node;
    std::get<Rich*>(root.to) = &root;
    std::get<Listed*>(root.to) = &node;
    ASSERT_TRUE(fxWriteObject(*writer, &root));
    EXPECT_EQ(stream->view(),
              records("B1:4 b1 B2:4 B3:8 B4:4 B5:8 B6:24 t8:Rich o7:8 S9 0 1 S10 s9 0 1/1 1/2 "
                      "1/4 2/4 3/4 0/4*3 0x3FE0000000000000 0/4 4/4 4/2 0/4 1/4 1/2 0/4 16/4 16/2 "
                      "0/4 16/4 16 31 0/4 16/4*3 16 31 0/1*38 p7 n t11:Node P12 n n n n 0 "
                      "o12:11 0 1 n n l6:24 1/4 2/4 -3/4 0/4*3 g5:8 -0x4000000000000000 "
                      "f4:4 0x3F800000/4 l3:8 0x0102030405060708 h2:4 1/2 -1/2 c1:4 =hey~"));
}

TEST_F(Writer, PayloadsAreThoseOfThePage) {
    fxIntArray ints = {1, -2, 3};
    EXPECT_EQ(body(saved(&ints)), records("t2:ARRAY o1:2 12/4 4/4 4/2 1/4 -2/4 3/4 0/4*3"));
    const std::string chain = std::to_string(fxStr("k").hash() % 31);
    fxStrStrDictionary dictionary = {{"k", "v"}};
    EXPECT_EQ(body(saved(&dictionary)), records("t2:DICT o1:2 1/4 16/4*3 16 31 2 B3:2 2 B4:2 " +
                                                chain + " c4:2 =v~ c3:2 =k~"));
    fxStrSet set = {"k"};
    EXPECT_EQ(body(saved(&set)),
              records("t2:SET o1:2 1/4 16/4 16 31 2 B3:2 " + chain + " c3:2 =k~"));

    char letter = 'c';
    bool flag = true;
    short small = -1;
    unsigned int whole = 7, count = 2, none = 9;
    int edition = 3;
    int row[] = {1, -2};
    Wide wide = Wide::one;
    long double sum = 1;
    std::array<wchar_t, 2> chars = {L'a', L'b'};
    std::map<std::string, std::vector<int>> map = {{"k", {1, -1}}};
    std::optional<signed char> absent, some = -1;
    std::unique_ptr<Wide> held = std::make_unique<Wide>(Wide::one);
    fxStr empty;
    char text[] = "hi", *texts[] = {text, nullptr};
    double numbers[] = {1, 1, 1}, *blocks[] = {numbers, nullptr};
    std::vector<Listed*> objects = {nullptr, nullptr};
    ASSERT_TRUE(fxXdrAll(*writer, letter, flag, small, whole, row, wide, sum, chars, map, absent,
                         some, held, empty) &&
                fxXdrString(*writer, texts[0]) && fxXdrString(*writer, texts[1]) &&
                fxXdrBlock(*writer, blocks[0], count) && fxXdrBlock(*writer, blocks[1], none) &&
                fxXdrBlock(*writer, blocks[0], ++count) && fxXdrString(*writer, texts[0]) &&
                fxXdrEdition(*writer, &set, edition) && fxXdrObjects(*writer, objects) &&
                writer->flush());
    EXPECT_EQ(stream->view(),
              records("d =c 1/1 -1/2 7 1/4 -2/4 0 0x10000000000 0x3FF0000000000000 0 97 98 "
                      "1 1 =k 2 1 0xFFFFFFFF 0/1 1/1 -1/1 1/1 0x10000000000 1 "
                      "1/1 B1:3 0/1 2 1/1 B2:16 9 0/1 3 1/1 B3:24 1/1 B4:3 3 2 n n"));
}

TEST_F(Writer, TheDrawnStreamIsWhatIsWritten) {
    Node root, second;
    root.number = 42;
    root.text = "hi";
    root.left = &root;
    root.right = &second;
    second.number = 7;
    second.right = &root;
    EXPECT_EQ(drawnStream(), saved(&root));
}

// As a block, at once as scalars, and as scalars one by one.
TEST_F(Writer, PayloadIsCutAt512Bytes) {
    for (size_t n : {0U, 1U, 255U, 256U, 511U, 512U, 513U, 1000U, 1024U, 100000U}) {
        std::string payload;
        for (size_t i = 0; i < n; ++i) payload += static_cast<char>(i * 7 % 251);
        std::string data;
        for (size_t i = 0; i < n; i += 512) data += record(0, "", payload.substr(i, 512));
        HeldStream block, atOnce, singly;
        OpenWriter blockWriter(block), atOnceWriter(atOnce), singlyWriter(singly);
        Listed root;
        char* p = payload.data();
        EXPECT_TRUE(blockWriter.xdr(&p, static_cast<unsigned int>(n)));
        EXPECT_TRUE(fxWriteObject(blockWriter, &root));
        const size_t first = record(0, "", payload.substr(0, 512)).size();
        EXPECT_NE(block->view().find(record(5, word(1) + word(n), payload.substr(0, 512)) +
                                     (n > 512 ? data.substr(first) : "")),
                  std::string::npos);
        EXPECT_TRUE(atOnceWriter.xdr(payload.data(), static_cast<unsigned int>(n)));
        for (char& byte : payload) EXPECT_TRUE(singlyWriter.xdr(&byte, 1));
        EXPECT_TRUE(atOnceWriter.flush() && singlyWriter.flush());
        EXPECT_TRUE(atOnce->view() == data && singly->view() == data) << n;
    }
    char head[5];  // a longer payload, of a subclass
    EXPECT_EQ(std::string(head, OpenWriter::putHeader(head, 5, 65536)) + std::string(65536, 'x'),
              record(5, "", std::string(65536, 'x')));
}

TEST_F(Writer, ResetForgetsButNumbersGoOn) {
    fxStr text("abc");
    ASSERT_TRUE(fxWriteObject(*writer, &text));
    stream->reset();
    ASSERT_TRUE(fxWriteObject(*writer, &text));
    EXPECT_EQ(stream->view(), records("o4:2 4 b3"));
    stream->reset();
    writer->reset();
    ASSERT_TRUE(fxWriteObject(*writer, &text));
    EXPECT_EQ(stream->view(), records("t6:fxStr o5:6 4 B7:4 c7:4 =abc~"));
    EXPECT_TRUE(writer->alreadyWritten(&text) == 5 && writer->alreadyWritten(&fxStr_type) == 6 &&
                writer->alreadyWritten(&fxXDRObj_type) == 0);
    Told strings;
    EXPECT_TRUE(writer->writeObject(&strings, &strings) && strings.times == 1);
}

// Near and far from each other, in one granule of memory too.
TEST(AddressIndex, AgreesWithMap) {
    std::mt19937 rng(testSeed());
    fxAddressIndex index;
    for (const unsigned int most : {40U, 3000U}) {
        std::map<uintptr_t, unsigned int> model;
        index.clear();
        for (unsigned int number = 1; number <= most; ++number) {
            const uintptr_t address = (uintptr_t{rng() % 900} << 10U << rng() % 30) + rng() % 80;
            const void* const place = reinterpret_cast<const void*>(address);
            ASSERT_EQ(index.find(place), model.count(address) != 0 ? model[address] : 0U);
            bool isNew = false;
            index.at(place, isNew) = model[address] = number;
        }
        for (const auto& [address, number] : model) {
            EXPECT_EQ(index.find(reinterpret_cast<const void*>(address)), number);
        }
    }
}

TEST_F(Writer, StaysFailed) {
    for (const bool throws : {false, true}) {
        HeldStream bytes;
        fxBinaryWriter failing(bytes);
        Node node;
        Everything refusing;
        std::get<Listed*>(refusing.to) = &node;
        Everything::act = [](Everything& e) { return e.flag ? throw 1 : false; };
        refusing.flag = throws;
        if (throws) {
            EXPECT_THROW(fxWriteObject(failing, &refusing), int);
        } else {
            EXPECT_FALSE(fxWriteObject(failing, &refusing));
        }
        Everything::act = nullptr;
        failing.reset();
        const std::string before(bytes->view());
        fxStr text("x");
        char* block = nullptr;
        EXPECT_FALSE(fxWriteObject(failing, &node) || fxXdr(failing, node.number) ||
                     fxXdr(failing, text) || failing.xdr(&block, 1) || failing.flush());
        EXPECT_EQ(bytes->view(), before);
    }
    fxStr text("x");
    for (size_t limit = 0; limit < 43; ++limit) {  // the room that a graph lacks
        HeldStream full("", limit);
        fxBinaryWriter failing(full);
        EXPECT_FALSE(fxWriteObject(failing, &text) || failing.flush()) << limit;
    }
    for (const unsigned int last : {0U, 1U, 2U}) {  // numbers that are left
        HeldStream bytes;
        OpenWriter spent(bytes);
        spent.nextId = 0x80000000 - last;
        EXPECT_FALSE(fxWriteObject(spent, &text) || spent.flush());
        const std::string reason = "more objects than a stream has numbers for";
        EXPECT_EQ(spent.objection()->reason, reason);
        EXPECT_NE(contents(FXDS_SOURCE_DIR "/docs/guide/saving.md").find("| " + reason + " |"),
                  std::string::npos);
        spent.reset();
        EXPECT_FALSE(fxXdr(spent, text) || fxWriteObject(spent, &text));
    }
}

// Head, name and payload are a write each, in and outside of writeObject().
TEST_F(Writer, StreamsOfOthersSeeThePartsOfEachRecord) {
    Pieces pieces;
    pieces.take();
    fxBinaryWriter toPieces(&pieces);
    Listed root;
    long number = 0;
    char* block = nullptr;
    ASSERT_TRUE(toPieces.xdr(&number, 1) && fxWriteObject(toPieces, &root));
    EXPECT_EQ(pieces.sizes, std::vector<unsigned int>({2, 8, 5, 7, 14, 8}));
    ASSERT_TRUE(toPieces.xdr(&block, 1) && toPieces.flush());
    EXPECT_EQ(pieces.sizes.back(), 1U);
    // What its stream refuses is known at once, in an object too.
    pieces.most = pieces.sizes.size() + 4;
    Acting::act = [](fxTranscriber& t) {
        auto& to = dynamic_cast<fxBinaryWriter&>(t);
        long value = 0;
        return to.xdr(&value, 1) && to.flush() && (to.xdr(&value, 1), !to.flush());
    };
    Acting acting;
    EXPECT_FALSE(fxWriteObject(toPieces, &acting));
    EXPECT_EQ(pieces.sizes.size(), pieces.most + 1);
}

// Nor is what it reads or writes forgotten.
TEST_F(Writer, ObjectsCannotEndTheGraphTheyAreIn) {
    static Listed* self = nullptr;
    Acting acting;
    self = &acting;
    Acting::act = [](fxTranscriber& t) {
        t.reset(), t.forgetObjects();
        const bool isBusy = t.isReading() ? t.readObject(Acting::typeRecord()) == nullptr
                                          : !t.writeObject(self, self);
        return isBusy && fxXdrObject(t, self);
    };
    EXPECT_EQ(body(saved(&acting)), records("t2:Acting o1:2 p1"));
    Acting* const read = loaded<Acting>(header() + records("t2:Acting o1:2 p1"));
    EXPECT_TRUE(read != nullptr && read == self);
}

TEST_F(Writer, TranscribersOfOthersGetAllIntsAtOnce) {
    fxIntArray ints(200000);
    const std::vector<unsigned int> once = {200000};
    Foreign<fxBinaryWriter> foreign(stream);
    ASSERT_TRUE(fxWriteObject(foreign, &ints));
    Foreign<fxBinaryReader> reader(stream, short{0x1122}, 0x33445566L, "ieee");
    EXPECT_EQ(std::unique_ptr<fxIntArray>(fxReadObject<fxIntArray>(reader))->length(), 200000U);
    EXPECT_TRUE(foreign.counts == once && reader.counts == once);
}

#ifndef __SANITIZE_ADDRESS__  // which has local variables elsewhere, and tells of them itself
TEST_F(Writer, TextsOfLocalStringsAreCopied) {
    Making making;
    ASSERT_TRUE(fxWriteObject(*writer, &making) && fxWriteObject(*writer, &making));
    HeldStream bytes(std::string(stream->view()));
    fxBinaryReader reader(bytes, 0x1122, 0x33445566, "ieee");
    for (int graph = 0; graph < 2; ++graph) {
        const auto read = fxReadObject<Making>(reader);
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(
            (read->first | read->second | read->rows[0][0] | read->array[0] | read->pair->first),
            "aaaaaaaaaaaaaaaaaaaabbbbbbbbbbbbbbbbbbbbccccccccccccccccccccdddddddddddddddddddd"
            "eeeeeeeeeeeeeeeeeeee");
    }
}
#endif

TEST_F(Writer, RefusesWhatItCannotWrite) {
    Listed root;
    EXPECT_FALSE(writer->writeObject(nullptr, &root) || writer->writeObject(&root, nullptr) ||
                 fxWriteObject<Listed>(*writer, nullptr));
    long* block = &root.number;
    EXPECT_FALSE(writer->xdr(&block, 0x10000000));  // 2^31 bytes
    EXPECT_EQ(stream->view(), "");
    fxMemoryStream readOnly(nullptr, 0);
    readOnly.take();
    fxBinaryWriter refused(&readOnly);
    EXPECT_TRUE(!fxWriteObject(refused, &root) && fxTranscriber::getWriter(&readOnly) == nullptr);
}

TEST_F(Writer, FatalCasesAreNamed) {
    EXPECT_DEATH(writer->readObject(fxStr_type), "tried to invoke fxBinaryWriter::readObject");
    EXPECT_DEATH((writer->setTag(15), writer->flush()), "Whoops!");
    Acting root;
    Acting::act = [](fxTranscriber& t) { return delete &t, true; };
    EXPECT_DEATH(fxWriteObject(*writer, &root), "an fxBinaryWriter is destroyed while it writes");
    EXPECT_DEATH(loaded<Acting>(header() + records("t2:Acting o1:2")),
                 "an fxBinaryReader is destroyed while it reads");
}

TEST_F(Writer, WhatCannotBeReadBackIsNotWritten) {
    Holder holder;
    Forgetful forgetful;
    Unregistered unregistered;
    UnregisteredInts ints;
    fxIntArray plainInts;  // readers know another array by its name
    fxBoolArray bools;
    fxVoidPtrArray pointers;
    const struct {
        Listed* before;
        fxXDRObj* after;
        bool isWritten;
    } cases[] = {{nullptr, nullptr, true},      {&holder.own, nullptr, false},
                 {nullptr, &holder.own, false}, {nullptr, &unregistered, false},
                 {&forgetful, nullptr, false},  {nullptr, &forgetful, true},
                 {nullptr, &ints, false},       {nullptr, &plainInts, false},
                 {nullptr, &pointers, false},   {nullptr, &bools, true}};
    for (const auto& each : cases) {
        holder.before = each.before, holder.after = each.after;
        EXPECT_EQ(saved(&holder) != "failed", each.isWritten) << &each - cases;
    }
    Careless careless;
    careless.node = &holder.own;
    EXPECT_NE(saved(&careless), "failed");
    careless.node = &unregistered;
    EXPECT_EQ(saved(&careless) + saved<Node>(&unregistered) + saved<fxIntArray>(&ints),
              "failedfailedfailed");
    EXPECT_TRUE(saved(&plainInts) != "failed" && saved(&forgetful) != "failed");
    // Without a helper it can be written: there is no copy then.
    Acting acting;
    Acting::act = [](fxTranscriber& t) {
        char* none = nullptr;
        return t.xdr(&none);
    };
    const size_t before = Listed::all().size();
    EXPECT_TRUE(fxXdrCopy(&acting) == nullptr && Listed::all().size() == before);

    Sturdy sturdy;
    sturdy.number = 4;
    holder.before = &sturdy;
    const std::unique_ptr<Holder> read(loaded<Holder>(saved(&holder)));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->before->number, 4);
    delete read->before, delete read->after;

    // A second time on one stream, its child would have two owners.
    Everything parent;
    parent.child = std::make_unique<Everything>();
    EXPECT_TRUE(fxWriteObject(*writer, &parent) && !fxWriteObject(*writer, &parent));
}
