// Streams as machines of other byte orders write them, and as the page about
// the format draws one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "fxds/Globals.h"
#include "fxds/LongArray.h"
#include "fxds/ShortArray.h"
#include "tests/support/RunProgram.h"
#include "tests/support/StreamKit.h"

namespace {

/// How a machine stores a 4-byte number: byte i of its memory is byte order[i]
/// of the number, counted from the lowest.
struct Machine {
    const char* name;
    unsigned int order[4];
    bool swapsShorts;
    long longMark;  // as this machine reads that one's mark
};

const Machine machines[] = {
    {"low byte first", {0, 1, 2, 3}, false, 0x33445566},
    {"bytes of pairs exchanged", {1, 0, 3, 2}, false, 0x44336655},
    {"pairs exchanged", {2, 3, 0, 1}, false, 0x55663344},
    {"high byte first", {3, 2, 1, 0}, false, 0x66554433},
    {"low byte first, shorts high byte first", {0, 1, 2, 3}, true, 0x33445566},
    {"bytes of pairs and of shorts exchanged", {1, 0, 3, 2}, true, 0x44336655},
    {"pairs and bytes of shorts exchanged", {2, 3, 0, 1}, true, 0x55663344},
    {"high byte first throughout", {3, 2, 1, 0}, true, 0x66554433},
};

/// Numbers as the machine stores them.
class Foreign {
public:
    explicit Foreign(const Machine& machine_) : machine(machine_) {}

    std::string int4(unsigned int value) const {
        std::string bytes;
        for (unsigned int i : machine.order) bytes += static_cast<char>(value >> (8 * i) & 0xFFU);
        return bytes;
    }
    /// An int as it travels: with its filler.
    std::string int8(unsigned int value) const { return int4(value) + std::string(4, '\0'); }
    std::string longLowHalfFirst(unsigned long value) const {
        return int4(static_cast<unsigned int>(value)) +
               int4(static_cast<unsigned int>(value >> 32));
    }
    std::string longHighHalfFirst(unsigned long value) const {
        return int4(static_cast<unsigned int>(value >> 32)) +
               int4(static_cast<unsigned int>(value));
    }
    std::string short2(unsigned int value) const {
        std::string bytes = word(value, 2);
        if (machine.swapsShorts) std::swap(bytes[0], bytes[1]);
        return bytes;
    }
    std::string start() const {
        return std::string("fxBinaryWriter\0ieee\0", 20) + short2(0x1122) +
               longLowHalfFirst(0x33445566);
    }

private:
    const Machine& machine;
};

/// What an object may hold.
class Everything : public Listed {
    FX_TRANSCRIBABLE(Everything)
    ~Everything() override {
        std::free(shorts);
        std::free(longs);
        std::free(doubles);
    }

    char letter = 0;
    short small = 0;
    int middle = 0;
    long low = 0;
    long high = 0;
    float single = 0;
    double twice = 0;
    int row[2] = {};
    fxStr text;
    short* shorts = nullptr;
    long* longs = nullptr;
    double* doubles = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Everything, "Everything", 1, Listed);
fxBool Everything::xdr(fxTranscriber& t) {
    return fxXdrAll(t, letter, small, middle, low, high, single, twice, row, text) &&
           t.xdr(&shorts, 2) && t.xdr(&longs, 1) && t.xdr(&doubles, 1);
}

class ForeignStream : public ::testing::TestWithParam<Machine> {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override { Listed::deleteAll(); }
};

constexpr char doubleOne[] = "\x3F\xF0\0\0\0\0\0";  // 1.0, high byte first
constexpr char floatOne[] = "\x3F\x80\0";

}  // namespace

TEST_P(ForeignStream, MarksAreThoseOfTheTable) {
    const Foreign machine(GetParam());
    EXPECT_EQ(machine.start().substr(20),
              header(GetParam().swapsShorts ? 0x2211 : 0x1122, GetParam().longMark).substr(20));
}

TEST_P(ForeignStream, WhatTheTableCallsRightReadsRight) {
    const Foreign m(GetParam());
    const unsigned long number = 0x1122334455667788;
    const std::string bytes =
        m.start() + typeRecord(2, "Everything") +
        objectRecord(1, 2,
                     "a" + m.short2(0x1234) + m.int8(0xFFFFFFFE) + m.longLowHalfFirst(number) +
                         m.longHighHalfFirst(number) + std::string(floatOne, 4) +
                         std::string(doubleOne, 8) + m.int4(7) + m.int4(0x01020304) +
                         std::string(8, '\0') + m.int8(3)) +
        record(3, word(3) + word(3)) + record(3, word(4) + word(4)) + record(3, word(5) + word(8)) +
        record(3, word(6) + word(8)) + record(9, word(6) + word(8), std::string(doubleOne, 8)) +
        record(7, word(5) + word(8), m.longLowHalfFirst(number)) +
        record(6, word(4) + word(4), m.short2(1) + m.short2(0xFFFF)) +
        record(5, word(3) + word(3), std::string("hi", 3));
    const Everything* read = loaded<Everything>(bytes);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->letter, 'a');
    EXPECT_EQ(read->small, 0x1234);
    EXPECT_EQ(read->middle, -2);
    EXPECT_EQ(read->low, 0x1122334455667788);
    EXPECT_EQ(read->high, 0x5566778811223344);  // the halves stay exchanged
    EXPECT_EQ(read->row[0], 7);
    EXPECT_EQ(read->row[1], 0x01020304);
    EXPECT_EQ(read->text, "hi");
    EXPECT_TRUE(read->shorts[0] == 1 && read->shorts[1] == -1);
    EXPECT_EQ(read->longs[0], 0x1122334455667788);
    // Floating-point numbers are taken as they stand.
    EXPECT_NEAR(static_cast<double>(read->single) * 1e41, 4.6, 0.01);
    EXPECT_NEAR(read->twice * 1e300 * 1e19, 3.04, 0.01);
    EXPECT_EQ(read->doubles[0], read->twice);
}

TEST_P(ForeignStream, ArraysReadRight) {
    const Foreign m(GetParam());
    const auto array = [&m](unsigned int byteCount, unsigned int size, const std::string& items) {
        return m.start() + typeRecord(2, "ARRAY") +
               objectRecord(1, 2,
                            m.int4(byteCount) + m.short2(size) + std::string(2, '\0') +
                                m.short2(size) + items);
    };
    // The word of sizes is swapped as a long: only its first half is a number.
    const std::unique_ptr<fxIntArray> ints(loaded<fxIntArray>(
        array(12, 4, m.int4(1) + m.int4(2) + m.int4(3) + std::string(12, '\0'))));
    ASSERT_NE(ints, nullptr);
    EXPECT_EQ(ints->length(), 3U);
    EXPECT_EQ((*ints)[2], 3);
    const std::unique_ptr<fxShortArray> shorts(
        loaded<fxShortArray>(array(4, 2, m.short2(1) + m.short2(0x0203))));
    ASSERT_NE(shorts, nullptr);
    EXPECT_EQ((*shorts)[1], 0x0203);
    const std::unique_ptr<fxLongArray> longs(
        loaded<fxLongArray>(array(8, 8, m.longLowHalfFirst(0x1122334455667788))));
    ASSERT_NE(longs, nullptr);
    EXPECT_EQ((*longs)[0], 0x1122334455667788);
}

INSTANTIATE_TEST_SUITE_P(Machines, ForeignStream, ::testing::ValuesIn(machines));

TEST(ForeignConverters, LeaveAnIncompleteGroupAlone) {
    HeldStream stream(record(0, "", "abcdefg") + record(0, "", "abcdefg") +
                      record(0, "", "abcdefg"));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    std::string bytes(7, '\0');
    EXPECT_TRUE(fxBinaryReader_BS(reader, bytes.data(), 7));
    EXPECT_EQ(bytes, "badcfeg");
    EXPECT_TRUE(fxBinaryReader_longsSS(reader, bytes.data(), 7));
    EXPECT_EQ(bytes, "cdabefg");
    EXPECT_TRUE(fxBinaryReader_longsBSSS(reader, bytes.data(), 7));
    EXPECT_EQ(bytes, "dcbaefg");
    EXPECT_FALSE(fxBinaryReader_shorts(reader, bytes.data(), 1));
    EXPECT_TRUE(fxBinaryReader_longs(reader, bytes.data(), 0));
}

namespace {

/// The bytes of the annotated stream: what stands before the words of each line.
std::string drawnStream() {
    const std::string page = contents(FXDS_SOURCE_DIR "/docs/stream-format.md");
    const size_t begin = page.find("```", page.find("## A stream in bytes")) + 4;
    std::istringstream lines(page.substr(begin, page.find("```", begin) - begin));
    std::string bytes;
    for (std::string line, word; std::getline(lines, line);) {
        std::istringstream words(line);
        const auto isByte = [](const std::string& text) {
            return text.size() == 2 && std::isxdigit(static_cast<unsigned char>(text[0])) != 0 &&
                   std::isxdigit(static_cast<unsigned char>(text[1])) != 0;
        };
        while (words >> word && isByte(word)) {
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
        }
    }
    return bytes;
}

}  // namespace

TEST(DrawnStream, IsWhatIsWrittenAndReads) {
    fxInitializeToolkit();
    Node root, second;
    root.number = 42;
    root.text = "hi";
    root.left = &root;
    root.right = &second;
    second.number = 7;
    second.right = &root;
    const std::string drawn = drawnStream();
    EXPECT_EQ(drawn, saved(&root));

    const Node* const read = loaded<Node>(drawn);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->left, read);
    EXPECT_EQ(read->text, "hi");
    EXPECT_EQ(read->right->number, 7);
    const Listed* const other = read->right;
    delete read;
    delete other;
}
