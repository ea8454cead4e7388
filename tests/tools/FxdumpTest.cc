// The tool that shows, draws and checks streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "Dump.h"
#include "fxds/CheckStream.h"
#include "fxds/Globals.h"
#include "fxds/Save.h"
#include "fxds/streams/RecordFormat.h"
#include "tests/support/RichGraph.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

namespace {

struct Outcome {
    std::string text;
    int status = -1;
};

// Of the rich stream, up to the first pointer: the root and its base parts.
constexpr unsigned int rootRecords = 6;

/// What the tool prints, on both outputs, and its exit status.
Outcome fxdump(const std::string& arguments) {
    Outcome outcome;
    outcome.text = outputOf("exec " FXDUMP_PATH " " + arguments, outcome.status);
    return outcome;
}

Outcome fxdump(const std::string& options, const std::string& stream) {
    const TestDirectory directory;
    return fxdump(options + " " + directory.file("stream", stream));
}

/// The same in this process, for the tests with thousands of streams.
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
    return text.find_first_not_of(
               "\n !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
               "abcdefghijklmnopqrstuvwxyz{|}~") == std::string::npos;
}

const std::string& rich() {
    static const std::string stream = richStream();
    return stream;
}

std::string nodeStream() {
    return header() + typeRecord(2, "Node") + objectRecord(1, 2, long8(42) + long8(3)) +
           record(3, word(3) + word(3)) + record(12, word(1)) + record(11, word(4)) +
           objectRecord(4, 2, long8(7) + long8(1)) + record(1) + record(12, word(1)) +
           record(5, word(3) + word(3), std::string("hi\0", 3));
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

TEST_F(Fxdump, PrintsEveryRecord) {
    const Outcome listing = fxdump("", nodeStream());
    EXPECT_EQ(listing.status, 0);
    EXPECT_EQ(listing.text,
              "       0     header         writer \"fxBinaryWriter\"\n"
              "      15                    floats \"ieee\"\n"
              "      20                    short mark 1122\n"
              "      22                    long mark 33445566\n"
              "      30   2 type           #2: \"Node\"\n"
              "      40  10 object         #1: \"Node\" (type #2), version 1, begins a graph; "
              "16 bytes of payload\n"
              "      54      2a 00 00 00 00 00 00 00  03 00 00 00 00 00 00 00  "
              "|*...............|\n"
              "      70   3 block          #3: still to come, 3 bytes\n"
              "      79  12 pointer again  #1: \"Node\" at offset 40\n"
              "      84  11 pointer        #4: still to come\n"
              "      89  10 object         #4: \"Node\" (type #2), version 1; 16 bytes of payload\n"
              "     103      07 00 00 00 00 00 00 00  01 00 00 00 00 00 00 00  "
              "|................|\n"
              "     119   1 null\n"
              "     120  12 pointer again  #1: \"Node\" at offset 40\n"
              "     125   5 bytes          #3, 3 bytes; 3 bytes of payload\n"
              "     135      68 69 00                                          |hi.|\n");
}

TEST_F(Fxdump, ShortensLongPayloadsUnlessAskedNotTo) {
    const std::string stream =
        header() + typeRecord(2, "T") + objectRecord(1, 2, std::string(1000, 'x'));
    const Outcome some = fxdump("", stream);
    EXPECT_TRUE(contains(some.text, "... 936 bytes more\n"));
    const Outcome all = fxdump("--full", stream);
    EXPECT_FALSE(contains(all.text, "more"));
    EXPECT_EQ(std::count(all.text.begin(), all.text.end(), 'x'), 1001);  // one is in a name
}

TEST_F(Fxdump, DrawsTheObjects) {
    const std::string lost = record(11, word(9));
    const Outcome graph = fxdump("--dot", nodeStream() + lost);
    EXPECT_EQ(graph.status, 0);
    EXPECT_EQ(graph.text,
              "digraph stream {\n"
              "    n1 [label=\"#1 Node\" peripheries=2];\n"
              "    n1 -> n3;\n"
              "    n1 -> n1;\n"
              "    n1 -> n4;\n"
              "    n4 [label=\"#4 Node\" shape=ellipse];\n"
              "    n4 -> n1;\n"
              "    n3 [label=\"#3 \\\"hi\\\"\" shape=box];\n"
              "    start -> n9;\n"
              "    // fault at offset 143: the stream ends before id 9, an object that the "
              "pointer at offset 138 leads to\n"
              "    n9 [label=\"#9 missing\" color=red fontcolor=red];\n"
              "    start [shape=point];\n"
              "}\n");
}

TEST_F(Fxdump, ChecksWithoutTheClasses) {
    const TestDirectory directory;
    const std::string whole = directory.file("whole", nodeStream());
    const std::string damaged = directory.file("damaged", nodeStream().replace(125, 1, "\x7f"));
    const Outcome outcome = fxdump("--check -- " + damaged + " " + whole);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.text, damaged + ": offset 125, class Node: tag 63 does not exist\n" + whole +
                                ": valid: 9 records, 1 graph, 2 objects, 1 block\n");
    const std::string listing = fxdump(damaged + " " + whole).text;
    EXPECT_EQ(listing.find(damaged + ":\n       0     header"), 0U);
    EXPECT_TRUE(contains(listing, "\n" + whole + ":\n       0     header"));
    EXPECT_FALSE(fxCheckStream(whole.c_str()));
    const fxStreamFault fault = fxCheckStream(damaged.c_str());
    EXPECT_EQ(fault.text(), damaged + " is damaged at byte 125");
    EXPECT_EQ(fault.place(), "offset 125, class Node");
    EXPECT_EQ(fxCheckStream(directory.path.c_str()).error, EISDIR);
    HeldStream stream(nodeStream() + "x");
    EXPECT_EQ(fxCheckStream(*static_cast<fxStream*>(stream)).offset, nodeStream().size());
}

TEST_F(Fxdump, ReadsStandardInput) {
    const TestDirectory directory;
    const std::string file = directory.file("stream", nodeStream());
    for (const char* input : {"--check < ", "--check - < "}) {
        const Outcome outcome = fxdump(input + file);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_TRUE(contains(outcome.text, "standard input: valid"));
    }
}

TEST_F(Fxdump, ComplainsInOneLine) {
    const struct {
        const char* arguments;
        const char* complaint;
    } cases[] = {
        {"--no-such-thing", "fxdump: unknown option --no-such-thing (see --help)\n"},
        {"-x", "fxdump: unknown option -x (see --help)\n"},
        {"/no/a /no/b",
         "fxdump: /no/a: No such file or directory\nfxdump: /no/b: No such file or directory\n"},
        {"--dot --check", "fxdump: --dot, --json and --check exclude each other\n"},
        {"/dev/null", "fxdump: /dev/null: not a stream of fxBinaryWriter\n"},
        {"--check <" FXDUMP_PATH, "fxdump: standard input: not a stream of fxBinaryWriter\n"},
        {"-- --none", "fxdump: --none: No such file or directory\n"},
        {"/", "fxdump: /: Is a directory\n"},
        {"'a\033b'", "fxdump: a\\x1bb: No such file or directory\n"},
        {"--help >/dev/full", "fxdump: cannot write: No space left on device\n"},
    };
    for (const auto& each : cases) {
        const Outcome outcome = fxdump(each.arguments);
        EXPECT_EQ(outcome.status, 2) << each.arguments;
        if (!contains(each.arguments, ">")) {
            EXPECT_EQ(outcome.text, each.complaint);
        }
    }
    const Outcome help = fxdump("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* option : {"--full", "--dot", "--json", "--check", "--help"}) {
        EXPECT_TRUE(contains(help.text, option));
    }
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

    // Several graphs that refer to one another, and numbers and pointers
    // outside of any object.
    HeldStream stream;
    const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
    Node first;
    Node second;
    second.left = &first;
    second.text = "later";
    long number = 5;
    char* text = number == 5 ? strdup("loose") : nullptr;
    EXPECT_TRUE(fxXdr(*writer, number) && fxXdrString(*writer, text));
    EXPECT_TRUE(fxWriteObject(*writer, &first) && fxXdr(*writer, number));
    EXPECT_TRUE(fxWriteObject(*writer, &second));
    EXPECT_EQ(faultOf(std::string(stream->view())), "");
    std::free(text);
}

TEST_F(Fxdump, AcceptsForeignByteOrdersAndRefusesUnknownOnes) {
    const std::string records = nodeStream().substr(header().size());
    for (const short shortMark : {short{0x1122}, short{0x2211}}) {
        for (const long longMark : {0x33445566, 0x44336655, 0x55663344, 0x66554433}) {
            EXPECT_EQ(faultOf(header(shortMark, longMark) + records), "");
        }
    }
    EXPECT_TRUE(contains(faultOf(header(0x1221) + records), "offset 20, header: a short mark"));
    EXPECT_TRUE(
        contains(faultOf(header(0x1122, 0x33445567) + records), "offset 22, header: a long mark"));
    const long highFirst = static_cast<long>(0x6655443300000000);
    EXPECT_TRUE(
        contains(faultOf(header(0x1122, highFirst) + records), "offset 22, header: a long mark"));
    EXPECT_TRUE(contains(faultOf("x" + header() + records), "offset 0, header: not a stream of"));
}

TEST_F(Fxdump, TakesFillers) {
    const std::string filler(4, '\0');
    const std::string begin = header() + typeRecord(2, "Node") + objectRecord(1, 2, long8(1));
    EXPECT_EQ(faultOf(begin + record(12, word(1)) + filler + record(12, word(1) + filler)), "");
    EXPECT_EQ(faultOf(begin + record(12, word(1)) + filler.substr(1) + record(12, word(1))), "");
}

TEST_F(Fxdump, NamesTheFirstFault) {
    const std::string type = typeRecord(2, "Node");
    const std::string root = objectRecord(1, 2, long8(1));
    const std::string start = header() + type + root;
    const size_t after = start.size();
    const std::string block = record(3, word(5) + word(2));
    const std::string pointer = record(11, word(5));
    const struct {
        std::string stream;
        size_t offset;
        const char* what;
    } cases[] = {
        {"", 0, "within its header"},
        {header(), 30, "before its first object"},
        {header() + type, 40, "before its first object"},
        {start + type, after, "id 2 is defined already, as a type at offset 30"},
        {start + root, after, "id 1 is defined already"},
        {start + pointer + typeRecord(5, "X"), after + 5, "wants an object"},
        {start + block + objectRecord(5, 2, ""), after + 9, "wants a block"},
        {start + pointer + record(5, word(5) + word(0)), after + 5, "wants an object"},
        {start + pointer + block, after + 5, "which is an object since"},
        {start + record(4, word(1)), after, "which is an object since offset 40"},
        {start + record(12, word(2)), after, "which is a type since offset 30"},
        {start + record(11, word(0)), after, "id 0"},
        {start + record(1) + record(0), after + 1, "zeros where a record must begin"},
        {start + pointer + std::string(6, '\0'), after + 10, "zeros where a record must begin"},
        {start + objectRecord(0, 2, ""), after, "a definition of id 0"},
        {start + objectRecord(7, 1, ""), after, "id 1, is not a type"},
        {start + record(14, word(6)), after, "not a base part seen before"},
        {start + record(13, word(6)) + record(13, word(6)), after + 5, "defined already"},
        {start + record(5, word(6) + word(0)), after, "an object must begin a graph"},
        {start + record(3, word(6) + word(1UL << 31)), after, "impossible number of bytes"},
        {start + record(15), after, "tag 15 does not exist"},
        {start + record(2, word(6) + "endless"), after, "has no end"},
        {start + "\xc1\xff\xff\xff\xff", after, "claims 4294967295 bytes of payload and 0"},
        {start + pointer, after + 5, "ends before id 5, an object that the pointer at"},
        {start + block + record(5, word(5) + word(2), "x"), after + 20, "lack 1 byte"},
        {start + std::string(1, '\x0b'), after, "within the head of a record"},
    };
    for (const auto& each : cases) {
        const std::string fault = faultOf(each.stream);
        ASSERT_FALSE(fault.empty()) << each.what;
        EXPECT_TRUE(contains(fault, each.what)) << fault;
        EXPECT_EQ(offsetIn(fault), each.offset) << fault;
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

TEST_F(Fxdump, LivesOnWithAnyFlippedByte) {
    for (size_t i = 0; i < 8 * rich().size() && !HasFailure(); ++i) {
        std::string stream = rich();
        stream[i / 8] = static_cast<char>(static_cast<unsigned char>(stream[i / 8]) ^ 1U << i % 8);
        survives(stream);
    }
}

TEST_F(Fxdump, AcceptsWhatTheReaderAccepts) {
    size_t both = 0;
    for (size_t i = 0; i < 8 * rich().size(); ++i) {
        std::string stream = rich();
        stream[i / 8] = static_cast<char>(static_cast<unsigned char>(stream[i / 8]) ^ 1U << i % 8);
        if (!isReadable(stream)) continue;
        EXPECT_EQ(faultOf(stream), "") << i;
        ++both;
    }
    EXPECT_GT(both, rich().size());
}

}  // namespace
