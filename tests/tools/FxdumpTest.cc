// The tool that shows, draws and checks streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "Dump.h"
#include "fxds/CheckStream.h"
#include "fxds/Globals.h"
#include "fxds/Save.h"
#include "fxds/streams/RecordFormat.h"
#include "tests/support/RichGraph.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

// Of the rich stream, up to the first pointer: the root and its base parts.
constexpr unsigned int rootRecords = 6;

struct Outcome {
    std::string text;
    int status = -1;
};

/// What the tool prints, made in this process.
Outcome dumped(const std::string& stream, DumpMode mode, bool isFull = false) {
    char* text = nullptr;
    size_t length = 0;
    FILE* const out = open_memstream(&text, &length);
    Outcome outcome;
    const DumpOptions options = {mode, isFull, false};
    outcome.status = static_cast<int>(dumpStream(stream, "it", options, out));
    std::fclose(out);
    outcome.text.assign(text, length);
    std::free(text);
    return outcome;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Empty when the stream is valid. The library has the same answer.
std::string faultOf(const std::string& stream) {
    const Outcome outcome = dumped(stream, DumpMode::check);
    const fxStreamFault fault = fxCheckStream(stream.data(), stream.size());
    EXPECT_NE(outcome.status == 0, static_cast<bool>(fault));
    const std::string told = fault.place() + ": " + fault.reason;
    if (outcome.status == 2) return told;  // no stream at all
    EXPECT_TRUE(!fault || contains(outcome.text, told)) << outcome.text << told;
    return outcome.status == 0 ? "" : outcome.text;
}

size_t offsetIn(const std::string& fault) {
    const std::string word = "offset ";
    return std::stoul(fault.substr(fault.find(word) + word.size()));
}

bool isPrintable(const std::string& text) {
    const auto isGood = [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); };
    return std::all_of(text.begin(), text.end(), isGood);
}

const std::string& rich() {
    static const std::string stream =
        contents(FXDS_SOURCE_DIR "/tests/fuzz/corpus/Reader/rich").substr(1);
    return stream;
}

std::string nodeStream() {
    return header() + records("t2:Node o1:2 42 3 B3:3 p1 P4 o4:2 7 1 n p1 c3:3 =hi~");
}

/// Whether a reader gets a graph from the stream.
bool isReadable(const std::string& stream) {
    fxLoaded<Listed> root = fxLoad<Listed>(stream.data(), stream.size());
    const bool isRead = root.release() != nullptr;
    Received::deleteAll();
    return isRead;
}

class Fxdump : public ::testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override { EXPECT_TRUE(Listed::all().empty()); }
};

TEST_F(Fxdump, TheLibraryChecksFilesAndStreams) {
    const TestDirectory directory;
    const std::string damaged = directory.file("damaged", nodeStream().replace(125, 1, "\x7f"));
    const fxStreamFault fault = fxCheckStream(damaged.c_str());
    EXPECT_EQ(fault.text(), damaged + " is damaged at byte 125");
    EXPECT_EQ(fault.place(), "offset 125, class Node");
    EXPECT_EQ(fxCheckStream(directory.path.c_str()).error, EISDIR);
    HeldStream stream(nodeStream() + "x");
    EXPECT_EQ(fxCheckStream(*static_cast<fxStream*>(stream)).offset, nodeStream().size());
}

TEST_F(Fxdump, AcceptsWhatIsWritten) {
    EXPECT_EQ(faultOf(rich()), "");
    ASSERT_TRUE(isReadable(rich()));
    const std::string listing = dumped(rich(), DumpMode::listing).text;
    for (unsigned int tag = 0; tag <= 14; ++tag) {
        EXPECT_TRUE(contains(listing, std::string(" ") + fxRecordFormat::tagName(tag) + " ") ||
                    contains(listing, std::string(" ") + fxRecordFormat::tagName(tag) + "\n"))
            << tag;
    }
}

TEST_F(Fxdump, NamesTheFirstFault) {
    const std::string type = header() + records("t2:Node"), start = type + records("o1:2 1");
    const std::string filler(4, '\0'), whole = nodeStream().substr(header().size());
    const size_t after = start.size();
    const struct {
        std::string stream;
        size_t offset;
        const char* what;  // "": it is valid
    } cases[] = {
        {start + records("p1") + filler + records("p1") + filler, 0, ""},
        {start + records("p1") + filler.substr(1) + records("p1"), 0, ""},
        {header(0x2211, 0x55663344) + whole, 0, ""},
        {header(0x1221) + whole, 20, "header: a short mark"},
        {header(0x1122, 0x33445567) + whole, 22, "header: a long mark"},
        {header(0x1122, 0x6655443300000000) + whole, 22, "header: a long mark"},
        {"x" + header() + whole, 0, "header: not a stream of"},
        {"", 0, "within its header"},
        {header(), 30, "before its first object"},
        {type, 40, "before its first object"},
        {start + records("t2:Node"), after, "id 2 is defined already, as a type at offset 30"},
        {start + records("o1:2 1"), after, "id 1 is defined already"},
        {start + records("P5 t5:X"), after + 5, "wants an object"},
        {start + records("B5:2 o5:2"), after + 9, "wants a block"},
        {start + records("P5 c5:0"), after + 5, "wants an object"},
        {start + records("P5 B5:2"), after + 5, "which is an object since"},
        {start + records("b1"), after, "which is an object since offset 40"},
        {start + records("p2"), after, "which is a type since offset 30"},
        {start + records("P0"), after, "id 0"},
        {start + records("n d"), after + 1, "zeros where a record must begin"},
        {start + records("P5") + std::string(6, '\0'), after + 10,
         "zeros where a record must begin"},
        {start + records("o0:2"), after, "a definition of id 0"},
        {start + records("o7:1"), after, "id 1, is not a type"},
        {start + records("s6"), after, "not a base part seen before"},
        {start + records("S6 S6"), after + 5, "defined already"},
        {start + records("c6:0"), after, "an object must begin a graph"},
        {start + records("B6:0x80000000"), after, "impossible number of bytes"},
        {start + records("#15"), after, "tag 15 does not exist"},
        {start + record(2, word(6) + "endless"), after, "has no end"},
        {start + "\xc1\xff\xff\xff\xff", after, "claims 4294967295 bytes of payload and 0"},
        {start + records("P5"), after + 5, "ends before id 5, an object that the pointer at"},
        {start + records("B5:2 c5:2 =x"), after + 20, "lack 1 byte"},
        {start + std::string(1, '\x0b'), after, "within the head of a record"},
    };
    for (const auto& each : cases) {
        const std::string fault = faultOf(each.stream);
        ASSERT_EQ(fault.empty(), each.what[0] == '\0') << each.what << fault;
        EXPECT_TRUE(contains(fault, each.what)) << fault;
        EXPECT_EQ(fault.empty() ? 0 : offsetIn(fault), each.offset) << fault;
    }
}

/// Every mode gets through the stream, and a fault is told in all of them.
/// Answers whether there is none.
bool survives(const std::string& stream, bool isFull = false) {
    const std::string fault = faultOf(stream);
    if (!fault.empty()) {
        EXPECT_LE(offsetIn(fault), stream.size());
    }
    for (const DumpMode mode : {DumpMode::listing, DumpMode::graph}) {
        const Outcome outcome = dumped(stream, mode, isFull);
        if (outcome.status == 2) continue;
        EXPECT_EQ(outcome.status, 0);
        EXPECT_TRUE(isPrintable(outcome.text));
        EXPECT_LT(outcome.text.size(), 40 * rich().size());
        EXPECT_EQ(contains(outcome.text, "fault"), !fault.empty()) << fault;
    }
    return fault.empty();
}

// Cut behind a record while nothing is awaited, a stream looks whole to whoever
// does not know the class: the root has no pointers yet.
TEST_F(Fxdump, RefusesStreamsThatAreCutOff) {
    unsigned int accepted = 0;
    for (size_t length = 0; length < rich().size() && !HasFailure(); ++length) {
        accepted += survives(rich().substr(0, length), length % 2 == 0);
    }
    EXPECT_LE(accepted, rootRecords);
}

TEST_F(Fxdump, LivesOnWithAnyFlippedBitAndAcceptsWhatIsReadable) {
    size_t both = 0;
    for (size_t i = 0; i < 8 * rich().size() && !HasFailure(); i += testShare) {
        std::string stream = rich();
        stream[i / 8] = static_cast<char>(static_cast<unsigned char>(stream[i / 8]) ^ 1U << i % 8);
        const bool isValid = survives(stream);
        if (!isReadable(stream)) continue;
        EXPECT_TRUE(isValid) << i;
        ++both;
    }
    EXPECT_GT(both * testShare, rich().size());
}

}  // namespace
