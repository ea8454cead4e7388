// What the binary writer puts into the stream, to the byte.
#include "fxds/BinaryWriter.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "fxds/Globals.h"
#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "fxds/streams/AddressIndex.h"
#include "tests/support/StreamKit.h"
#include "tests/support/TestSeed.h"

namespace {

/// A field of every kind of record.
class Sample : public Listed {
    FX_TRANSCRIBABLE(Sample)
    int count = 7;
    char* name = nullptr;
    char* again = nullptr;
    short* shorts = nullptr;
    long* longs = nullptr;
    float* floats = nullptr;
    double* doubles = nullptr;
    int* ints = nullptr;
    Sample* self = nullptr;
    Leaf* leaf = nullptr;
    Leaf* none = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Sample, "Sample", 1, Listed);
fxBool Sample::xdr(fxTranscriber& t) {
    return fxXdr(t, count) && t.xdr(&name) && t.xdr(&again) && t.xdr(&shorts, 2) &&
           t.xdr(&longs, 1) && t.xdr(&floats, 1) && t.xdr(&doubles, 1) && t.xdr(&ints, 3) &&
           fxXdrObject(t, self) && fxXdrObject(t, leaf) && fxXdrObject(t, none) && fxXdr(t, number);
}

/// A part at an address of its own, reached by two ways.
class Part : public virtual Listed {
    FX_TRANSCRIBABLE(Part)
    long own = 1;
};
FX_TRANSCRIBABLE_TYPE(Part, "Part", 1, Listed);
fxBool Part::xdr(fxTranscriber& t) { return fxXdrBase<Listed>(t, this) && fxXdr(t, own); }

class Twice : public Part {
    FX_TRANSCRIBABLE(Twice)
};
FX_TRANSCRIBABLE_TYPE(Twice, "Twice", 1, Part);
fxBool Twice::xdr(fxTranscriber& t) {
    return fxXdrBase<Part>(t, this) && fxXdrBase<Listed>(t, this);
}

/// Cannot be written to its end.
class Refusing : public Listed {
    FX_TRANSCRIBABLE(Refusing)
    Node* node = nullptr;
    bool throws = false;
};
FX_TRANSCRIBABLE_TYPE(Refusing, "Refusing", 1, Listed);
fxBool Refusing::xdr(fxTranscriber& t) {
    if (fxXdrObject(t, node) && throws) throw 1;
    return 0;
}

/// Notes how it is written to.
class Pieces : public fxMemoryStream {
public:
    std::vector<unsigned int> sizes;
    bool putBytes(const char* bytes, unsigned int count) override {
        sizes.push_back(count);
        return fxMemoryStream::putBytes(bytes, count);
    }
};

/// Wants to know when it has been written.
class Told : public fxStrArray {
public:
    void xdrSuccess(fxTranscriber&) override { ++times; }
    int times = 0;
};

/// What the records after the header are.
std::string records(const std::string& stream) {
    EXPECT_EQ(stream.substr(0, header().size()), header());
    return stream.substr(std::min(stream.size(), header().size()));
}

/// Makes bare writers and shows what is protected.
class OpenWriter : public fxBinaryWriter {
public:
    explicit OpenWriter(fxStream* out) : fxTranscriber(out, false), fxBinaryWriter(out) {}
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

TEST_F(Writer, EveryKindOfRecordIsAsTheFormatHasIt) {
    Sample sample;
    Leaf leaf;
    char text[] = "hey";
    short shorts[] = {1, -1};
    long longs[] = {0x0102030405060708};
    float floats[] = {1.0F};
    double doubles[] = {-2.0};
    int ints[] = {1, 2, -3};
    sample.number = 5;
    sample.name = sample.again = text;
    sample.shorts = shorts;
    sample.longs = longs;
    sample.floats = floats;
    sample.doubles = doubles;
    sample.ints = ints;
    sample.self = &sample;
    sample.leaf = leaf.owner == nullptr ? &leaf : nullptr;
    leaf.weight = 1.0;

    EXPECT_EQ(records(saved(&sample)),
              typeRecord(2, "Sample")                                      // the root's type
                  + objectRecord(1, 2, long8(7))                           // the root: count
                  + record(3, word(3) + word(4))                           // name, 4 bytes
                  + record(4, word(3))                                     // again: the same
                  + record(3, word(4) + word(4))                           // shorts
                  + record(3, word(5) + word(8))                           // longs
                  + record(3, word(6) + word(4))                           // floats
                  + record(3, word(7) + word(8))                           // doubles
                  + record(3, word(8) + word(24))                          // ints, 8 bytes each
                  + record(12, word(1))                                    // self
                  + typeRecord(9, "Leaf")                                  // of what comes now
                  + record(11, word(10))                                   // leaf
                  + record(1, "", long8(5))                                // none; number behind it
                  + objectRecord(10, 9, long8(0), 2)                       // leaf: its number
                  + record(1, "", std::string("\0\0\0\0\0\0\xF0\x3F", 8))  // no owner; weight
                  + record(7, word(8) + word(24),                          // 3 ints, then filler
                           word(1) + word(2) + word(0xFFFFFFFD) + std::string(12, '\0')) +
                  record(9, word(7) + word(8), std::string("\0\0\0\0\0\0\0\xC0", 8)) +
                  record(8, word(6) + word(4), std::string("\0\0\x80\x3F", 4)) +
                  record(7, word(5) + word(8), "\x08\x07\x06\x05\x04\x03\x02\x01") +
                  record(6, word(4) + word(4), std::string("\x01\0\xFF\xFF", 4)) +
                  record(5, word(3) + word(4), std::string("hey", 4)));
}

TEST_F(Writer, BasePartIsWrittenOnceAndThenReferredTo) {
    Twice twice;
    twice.number = 3;
    EXPECT_EQ(records(saved(&twice)), typeRecord(2, "Twice") + objectRecord(1, 2, "") +
                                          record(13, word(3), long8(3) + long8(1)) +
                                          record(14, word(3)));
}

TEST_F(Writer, ContainersHaveTheirSizesBeforeTheirElements) {
    fxIntArray ints;
    for (int i : {1, -2, 3}) ints.append(i);
    ASSERT_EQ(ints.getMaxLength(), 4U);
    const std::string packed = word(1) + word(0xFFFFFFFE) + word(3) + std::string(12, '\0');
    EXPECT_EQ(
        records(saved(&ints)),
        typeRecord(2, "ARRAY") + objectRecord(1, 2, word(12) + word(4) + word(4, 2) + packed));

    fxStrStrDictionary dictionary;
    dictionary.add("k", "v");
    const std::string entry = long8(2);  // length with the terminator
    const unsigned long bucket = fxStr("k").hash() % 31;
    EXPECT_EQ(
        records(saved(&dictionary)),
        typeRecord(2, "DICT") +
            objectRecord(1, 2,
                         word(1) + word(16) + word(16) + word(16) + long8(16) + long8(31) + entry) +
            record(3, word(3) + word(2), entry) +
            record(3, word(4) + word(2), long8(static_cast<long>(bucket))) +
            record(5, word(4) + word(2), std::string("v", 2)) +
            record(5, word(3) + word(2), std::string("k", 2)));

    fxStrSet set;
    set.add("k");
    EXPECT_EQ(records(saved(&set)),
              typeRecord(2, "SET") +
                  objectRecord(1, 2, word(1) + word(16) + long8(16) + long8(31) + entry) +
                  record(3, word(3) + word(2), long8(static_cast<long>(bucket))) +
                  record(5, word(3) + word(2), std::string("k", 2)));
}

TEST_F(Writer, PayloadIsCutAt512Bytes) {
    for (size_t n : {0U, 1U, 255U, 256U, 511U, 512U, 513U, 1000U, 1024U, 100000U}) {
        std::string payload;
        for (size_t i = 0; i < n; ++i) payload += static_cast<char>(i * 7 % 251);
        std::string expected = record(5, word(1) + word(n), payload.substr(0, 512));
        std::string data;
        for (size_t i = 0; i < n; i += 512) data += record(0, "", payload.substr(i, 512));
        if (n > 512) expected += data.substr(record(0, "", payload.substr(0, 512)).size());

        // As a block, at once as scalars, and as scalars one by one.
        HeldStream block;
        OpenWriter blockWriter(block);
        Listed root;
        char* p = payload.data();
        EXPECT_TRUE(blockWriter.xdr(&p, static_cast<unsigned int>(n)));
        EXPECT_TRUE(fxWriteObject(blockWriter, &root));
        EXPECT_NE(block->view().find(expected), std::string::npos) << n;

        HeldStream atOnce;
        OpenWriter atOnceWriter(atOnce);
        EXPECT_TRUE(atOnceWriter.xdr(payload.data(), static_cast<unsigned int>(n)));
        EXPECT_TRUE(atOnceWriter.flush());
        HeldStream singly;
        OpenWriter singlyWriter(singly);
        for (char& byte : payload) EXPECT_TRUE(singlyWriter.xdr(&byte, 1));
        EXPECT_TRUE(singlyWriter.flush());
        EXPECT_EQ(atOnce->view(), data) << n;
        EXPECT_EQ(singly->view(), data) << n;
    }
}

TEST_F(Writer, LengthHasOneTwoOrFourBytes) {
    const auto head = [](unsigned int tag, unsigned long length) {
        char bytes[5];
        return std::string(bytes, OpenWriter::putHeader(bytes, tag, length));
    };
    EXPECT_EQ(head(5, 0), "\x05");
    EXPECT_EQ(head(5, 1), "\x45\x01");
    EXPECT_EQ(head(5, 255), "\x45\xFF");
    EXPECT_EQ(head(5, 256), std::string("\x85\0\x01", 3));
    EXPECT_EQ(head(5, 65535), "\x85\xFF\xFF");
    EXPECT_EQ(head(14, 65536), std::string("\xCE\0\0\x01\0", 5));
}

TEST_F(Writer, ContainersAreToldOfTheirSuccess) {
    Told strings;
    ASSERT_TRUE(writer->writeObject(&strings, &strings));
    EXPECT_EQ(strings.times, 1);
}

TEST_F(Writer, ResetForgetsButNumbersGoOn) {
    fxStr text("abc");
    ASSERT_TRUE(fxWriteObject(*writer, &text));
    stream->reset();
    ASSERT_TRUE(fxWriteObject(*writer, &text));
    EXPECT_EQ(stream->view(), objectRecord(4, 2, long8(4)) + record(4, word(3)));
    stream->reset();
    writer->reset();
    ASSERT_TRUE(fxWriteObject(*writer, &text));
    EXPECT_EQ(stream->view(), typeRecord(6, "fxStr") + objectRecord(5, 6, long8(4)) +
                                  record(3, word(7) + word(4)) +
                                  record(5, word(7) + word(4), std::string("abc", 4)));
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
            index.at(place) = model[address] = number;
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
        Refusing refusing;
        refusing.throws = throws;
        refusing.node = new Node;
        if (throws) {
            EXPECT_THROW(fxWriteObject(failing, &refusing), int);
        } else {
            EXPECT_FALSE(fxWriteObject(failing, &refusing));
        }
        delete refusing.node;
        failing.reset();
        const std::string before(bytes->view());
        Listed root;
        fxStr text("x");
        char* block = nullptr;
        EXPECT_FALSE(fxWriteObject(failing, &root) || fxXdr(failing, root.number) ||
                     fxXdr(failing, text) || failing.xdr(&block, 1) || failing.flush());
        EXPECT_EQ(bytes->view(), before);
    }
    fxMemoryStream full(600);
    full.take();
    fxBinaryWriter failing(&full);
    fxStr text("x");
    for (int i = 0; full.length() < 600 && i < 100; ++i) fxWriteObject(failing, &text);
    EXPECT_FALSE(fxWriteObject(failing, &text) || failing.flush());
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
}

TEST_F(Writer, RefusesWhatItCannotWrite) {
    Listed root;
    EXPECT_FALSE(writer->writeObject(nullptr, &root));
    EXPECT_FALSE(writer->writeObject(&root, nullptr));
    EXPECT_FALSE(fxWriteObject<Listed>(*writer, nullptr));
    long* block = &root.number;
    EXPECT_FALSE(writer->xdr(&block, 0x10000000));  // 2^31 bytes
    EXPECT_EQ(stream->view(), "");

    fxMemoryStream readOnly(nullptr, 0);
    readOnly.take();
    fxBinaryWriter refused(&readOnly);
    EXPECT_FALSE(fxWriteObject(refused, &root));
    EXPECT_EQ(fxTranscriber::getWriter(&readOnly), nullptr);
}

TEST_F(Writer, FatalCasesAreNamed) {
    EXPECT_DEATH(writer->readObject(fxStr_type), "tried to invoke fxBinaryWriter::readObject");
    EXPECT_DEATH((writer->setTag(15), writer->flush()), "Whoops!");
}
