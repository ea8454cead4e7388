// Damaged and hostile streams: every end is success, null or a documented message.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <random>

#include "fxds/BinaryReader.h"
#include "fxds/Globals.h"
#include "fxds/Save.h"
#include "tests/support/FatalCatcher.h"
#include "tests/support/RichGraph.h"
#include "tests/support/TestSeed.h"

namespace {

class HostileStream : public ::testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override { Received::deleteAll(); }

    /// How reading a C from the bytes ends: "read", "null" or a message. It makes
    /// no difference how many of them the stream has at hand, and whether what is
    /// wrong is fatal or an answer.
    template <class C>
    static std::string end(const std::string& bytes) {
        C* root = nullptr;
        const std::string message = fatalMessage([&] {
            StingyStream stream(bytes, 0);
            root = loaded<C>(stream);
        });
        const std::string how = endOf(root, message);
        StingyStream stream(bytes, 90);
        fxLoaded<C> answer = fxLoad<C>(stream);
        EXPECT_TRUE(answer || Listed::all().empty());
        EXPECT_EQ(endOf(answer.release(), how == "null" ? "" : answer.fault().reason), how);
        return how;
    }
    template <class C>
    static std::string endOf(C* root, const std::string& message) {
        if constexpr (std::is_same_v<C, Rich>) {
            if (root != nullptr) sumOf(*root);
        } else if constexpr (!std::is_base_of_v<Listed, C>) {
            delete root;
        }
        Received::deleteAll();
        return !message.empty() ? message : root != nullptr ? "read" : "null";
    }
    template <class C>
    static std::string endOfRecords(const std::string& records) {
        return end<C>(header() + records);
    }
    static void expectDocumented(const std::string& how, size_t at) {
        EXPECT_TRUE(how == "read" || how == "null" || isDocumentedMessage(how))
            << at << ": " << how;
    }
};

const std::string node = long8(0) + long8(1);  // number, empty text

std::string nodeRoot() { return typeRecord(2, "Node") + objectRecord(1, 2, node); }
std::string stringRoot(unsigned int length) {
    return typeRecord(2, "fxStr") + objectRecord(1, 2, long8(length));
}
std::string arrayRoot(unsigned int byteCount, unsigned int size, const std::string& items = "") {
    return typeRecord(2, "ARRAY") +
           objectRecord(1, 2, word(byteCount) + word(size) + word(size, 2) + items);
}
std::string dictRoot(unsigned int count, unsigned int keySize, unsigned int valueSize,
                     unsigned long buckets, const std::string& more = "") {
    return typeRecord(2, "DICT") +
           objectRecord(1, 2,
                        word(count) + word(keySize) + word(keySize) + word(valueSize) +
                            long8(valueSize) + long8(static_cast<long>(buckets)) + more);
}
std::string setRoot(unsigned int count, unsigned int keySize, unsigned long buckets,
                    const std::string& more = "") {
    return typeRecord(2, "SET") + objectRecord(1, 2,
                                               word(count) + word(keySize) + long8(keySize) +
                                                   long8(static_cast<long>(buckets)) + more);
}

class Wide : public Listed {
    FX_TRANSCRIBABLE(Wide)
    static constexpr unsigned int count = 40;
    Node* nodes[count] = {};
    fxStr text;
};
FX_TRANSCRIBABLE_TYPE(Wide, "Wide", 1, Listed);
fxBool Wide::xdr(fxTranscriber& t) {
    for (Node*& each : nodes) {
        if (!fxXdrObject(t, each)) return false;
    }
    return fxXdr(t, text);
}

constexpr char badNews[] = "XXX bad news!";
constexpr char baddestNews[] = "XXX baddest news";
constexpr char formatError[] = "format error";
constexpr char missing[] = "XXX error handling is missing";

}  // namespace

TEST_F(HostileStream, NumbersAreOfOneKindAndDefinedOnce) {
    struct Case {
        const char* what;
        std::string records;
        std::string message;
    };
    const std::string body = std::string("abc", 4);
    const Case cases[] = {
        {"an object as a type", typeRecord(2, "Node") + objectRecord(1, 1, node), baddestNews},
        {"an unknown type id", typeRecord(2, "Node") + objectRecord(1, 7, node), baddestNews},
        {"a block that an object waits for",
         nodeRoot() + record(11, word(3)) + record(1) + record(5, word(3) + word(4), body),
         badNews},
        {"an object defined twice",
         nodeRoot() + record(11, word(3)) + record(1) + objectRecord(1, 2, node), baddestNews},
        {"an object under the id of a type",
         nodeRoot() + record(11, word(3)) + record(1) + objectRecord(2, 2, node), baddestNews},
        {"a type defined twice", typeRecord(2, "Node") + typeRecord(2, "Leaf"), baddestNews},
        {"a type under the id of an object", nodeRoot() + typeRecord(1, "Node") + record(1),
         baddestNews},
        {"a type with id 0", typeRecord(0, "Node"), baddestNews},
        {"an object with id 0", typeRecord(2, "Node") + objectRecord(0, 2, node), baddestNews},
        {"a root that is a block", record(5, word(1) + word(4), body), baddestNews},
        {"a root that is a pointer", record(11, word(1)), baddestNews},
        {"a root that is data", record(0, "", "x"), baddestNews},
        {"a root that is a base part", record(13, word(1)), baddestNews},
        {"a tag of 15", record(15), "Whoops!"},
        {"a tag of 63", record(63), "Whoops!"},
        {"an unknown type", typeRecord(2, "Nobody"), "unknown type Nobody"},
        {"a type that cannot be made", typeRecord(2, "fxArray") + objectRecord(1, 2, ""),
         baddestNews},
        {"the version of another type",
         typeRecord(3, "Leaf") + typeRecord(2, "Node") + objectRecord(1, 2, node, 2),
         "XXX version error handling is missing"},
    };
    for (const Case& c : cases) EXPECT_EQ(endOfRecords<Node>(c.records), c.message) << c.what;
    EXPECT_EQ(endOfRecords<fxXDRObj>(typeRecord(2, "fxArray") + objectRecord(1, 2, "")), missing);
}

// The helpers take pointers and texts that are at hand without a look at their numbers,
// up to so many of one object, which are checked together; the rest one by one.
TEST_F(HostileStream, WrongNumbersAreFoundAmongManyPlaces) {
    const std::string right = record(11, word(5));
    const std::string wrongPointers[] = {record(12, word(2)), record(12, word(0)),
                                         record(11, word(0)), record(12, word(1)),
                                         record(3, word(3) + word(4))};
    const std::string wrongTexts[] = {record(3, word(1) + word(4)), record(3, word(0) + word(4)),
                                      record(4, word(2)), record(3, word(5) + word(4)), right};
    std::string before = header() + typeRecord(2, "Wide") + objectRecord(1, 2, "");
    std::string rest;
    for (unsigned int i = 0; i < Wide::count; ++i) rest += right;
    const auto expectEnd = [&](const std::string& wrong, const char* reason) {
        const std::string bytes = before + wrong + rest;
        for (const size_t atHand : {size_t{0}, size_t{200}, bytes.size()}) {
            StingyStream stream(bytes, atHand);
            const fxLoaded<Wide> answer = fxLoad<Wide>(stream);
            EXPECT_EQ(answer.fault().reason, reason) << bytes.size() << " " << atHand;
            EXPECT_TRUE(!answer && Listed::all().empty());
        }
    };
    for (unsigned int place = 0; place < Wide::count; ++place) {
        for (const std::string& wrong : wrongPointers) expectEnd(wrong, badNews);
        before += place + 1 < Wide::count ? right : record(11, word(5), long8(4));
    }
    for (const std::string& wrong : wrongTexts) expectEnd(wrong, formatError);
}

TEST_F(HostileStream, ObjectsMustSuitTheirPlaces) {
    const std::string leaf =
        typeRecord(4, "Leaf") + objectRecord(3, 4, long8(0), 2) + record(1, "", long8(0));
    // Node::left wants a Node, Node::right any Listed.
    EXPECT_EQ(endOfRecords<Node>(nodeRoot() + record(11, word(3)) + record(1) + leaf), badNews);
    EXPECT_EQ(endOfRecords<Node>(nodeRoot() + record(1) + record(11, word(3)) + leaf), "read");
    // Two places of which one does not suit, in either order.
    EXPECT_EQ(endOfRecords<Node>(nodeRoot() + record(11, word(3)) + record(12, word(3)) + leaf),
              badNews);
    EXPECT_EQ(endOfRecords<Rich>(nodeRoot() + record(1) + record(1)), baddestNews);
    EXPECT_EQ(endOfRecords<fxStr>(nodeRoot() + record(1) + record(1)), baddestNews);
    EXPECT_EQ(endOfRecords<Node>(stringRoot(1)), baddestNews);
    EXPECT_EQ(endOfRecords<fxXDRObj>(stringRoot(1)), baddestNews);
    // What is there already must suit, too.
    EXPECT_EQ(endOfRecords<Leaf>(typeRecord(2, "Leaf") + objectRecord(1, 2, long8(0), 2) +
                                 record(12, word(1))),
              badNews);
}

TEST_F(HostileStream, BlocksMustServeTheirPlaces) {
    const std::string four = record(3, word(3) + word(4));
    const auto bytes = [](unsigned int count) {
        return record(5, word(3) + word(count), std::string("abc", 4));
    };
    const struct {
        unsigned int length;
        std::string records, how;
    } cases[] = {
        {4, four + bytes(4), "read"},
        {0, "", missing},
        {5, record(3, word(3) + word(5)) + bytes(4), formatError},  // shorter than its place
        {3, four + bytes(4), formatError},                          // no zero at the end
        {4, record(1), formatError},
        {4, record(4, word(1)), formatError},
        {4, record(4, word(0)), formatError},
        {4, record(3, word(0) + word(4)), formatError},
        {4, record(3, word(2) + word(4)), formatError},
        {4, four + objectRecord(3, 2, long8(1)), formatError},  // an object instead
        // Impossible sizes: never allocated.
        {4, record(3, word(3) + word(0xFFFFFFFF)), formatError},
        {0x80000001, "", missing},
        {4, four + bytes(0x80000000), "null"},
        {4, four + bytes(0x7FFFFFFF), "null"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(endOfRecords<fxStr>(stringRoot(c.length) + c.records), c.how) << &c - cases;
    }
}

TEST_F(HostileStream, BlocksAreLeftAloneOnceTheyAreGiven) {
    // The first graph gives a block to a plain pointer; a text of the second
    // cannot be copied from it any more.
    HeldStream stream(
        record(3, word(1) + word(4)) + typeRecord(2, "Node") + objectRecord(3, 2, node) +
        record(1) + record(1) + record(5, word(1) + word(4), std::string("abc", 4)) +
        objectRecord(4, 2, long8(0) + long8(4)) + record(4, word(1)) + record(1) + record(1));
    char* plain = nullptr;
    const std::string message = fatalMessage([&] {
        fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
        EXPECT_TRUE(reader.xdr(&plain));
        EXPECT_NE(fxReadObject<Node>(reader), nullptr);
        EXPECT_STREQ(plain, "abc");
        std::free(plain);
        fxReadObject<Node>(reader);
    });
    EXPECT_EQ(message, formatError);
}

TEST_F(HostileStream, ContainersRefuseForeignSizes) {
    EXPECT_EQ(endOfRecords<fxIntArray>(arrayRoot(4, 4, long8(1))), "read");
    for (unsigned int size : {0U, 1U, 2U, 8U, 16U, 65535U}) {
        EXPECT_EQ(endOfRecords<fxIntArray>(arrayRoot(16, size, long8(1))), missing) << size;
    }
    for (unsigned int byteCount : {1U, 7U, 0xFFFFFFFFU, 0xFFFFFFFCU, 0x80000000U, 0x40000000U}) {
        EXPECT_EQ(endOfRecords<fxIntArray>(arrayRoot(byteCount, 4, long8(1))), missing);
        EXPECT_EQ(endOfRecords<fxStrArray>(arrayRoot(byteCount, 16, long8(1))), missing);
    }
    EXPECT_EQ(endOfRecords<fxStrArray>(arrayRoot(0xFFFFFFF0, 16, long8(1))), missing);

    const std::string entry = long8(1) + long8(1);
    EXPECT_EQ(endOfRecords<fxStrStrDictionary>(dictRoot(1, 16, 16, 31, entry + long8(30))), "read");
    EXPECT_EQ(endOfRecords<fxStrStrDictionary>(dictRoot(1, 16, 16, 31, entry + long8(31))),
              missing);
    EXPECT_EQ(endOfRecords<fxStrStrDictionary>(dictRoot(1, 8, 16, 31, entry + long8(0))), missing);
    EXPECT_EQ(endOfRecords<fxStrStrDictionary>(dictRoot(1, 16, 24, 31, entry + long8(0))), missing);
    EXPECT_EQ(endOfRecords<fxStrStrDictionary>(dictRoot(1, 0, 0, 31, entry + long8(0))), missing);
    for (unsigned long buckets : {0x20000001UL, 0xFFFFFFFFUL, 0x7FFFFFFFUL}) {
        EXPECT_EQ(endOfRecords<fxStrStrDictionary>(dictRoot(0, 16, 16, buckets)), missing);
        EXPECT_EQ(endOfRecords<fxStrSet>(setRoot(0, 16, buckets)), missing);
    }
    EXPECT_EQ(endOfRecords<fxStrStrDictionary>(dictRoot(0xFFFFFFFF, 16, 16, 31, entry)), missing);
    EXPECT_EQ(endOfRecords<fxStrSet>(setRoot(1, 16, 31, long8(1) + long8(30))), "read");
    EXPECT_EQ(endOfRecords<fxStrSet>(setRoot(1, 16, 31, long8(1) + long8(31))), missing);
    EXPECT_EQ(endOfRecords<fxStrSet>(setRoot(1, 12, 31, long8(1) + long8(0))), missing);
}

TEST_F(HostileStream, BasePartsAreReadOnceAndBelongToTheirObject) {
    const std::string rich = typeRecord(2, "Rich") + objectRecord(1, 2, "");
    const std::string part = record(13, word(3), long8(1));  // First's Listed
    const std::string first = rich + part + record(0, "", long8(1));
    EXPECT_EQ(endOfRecords<Rich>(rich + record(14, word(9))), "XXX old base previously unseen");
    EXPECT_EQ(endOfRecords<Rich>(rich + record(14, word(1))), "XXX old base previously unseen");
    EXPECT_EQ(endOfRecords<Rich>(rich + record(13, word(1))), "XXX new base for old base");
    EXPECT_EQ(endOfRecords<Rich>(rich + record(13, word(0))), "XXX new base for old base");
    EXPECT_EQ(endOfRecords<Rich>(rich + record(1)), badNews);
    EXPECT_EQ(endOfRecords<Rich>(rich + record(11, word(5))), badNews);
    // Second's Listed is the same: another number for it, and a number of another part.
    const std::string second = record(13, word(4));
    EXPECT_EQ(endOfRecords<Rich>(first + second + record(13, word(5), long8(1))),
              "XXX new base for old base");
    EXPECT_EQ(endOfRecords<Rich>(first + second + record(14, word(4))),
              "XXX old base previously unseen");
}

TEST_F(HostileStream, TextNamedVeryOftenIsRefused) {
    const std::string text(5000, 'x');
    const std::string names = record(0, "", long8(5001)) + record(4, word(3));
    const auto named = [&](unsigned int times) {
        std::string records =
            typeRecord(2, "ARRAY") +
            objectRecord(1, 2, word(16 * times) + word(16) + word(16, 2) + long8(5001)) +
            record(4, word(3));
        for (unsigned int i = 1; i < times; ++i) records += names;
        return endOfRecords<fxStrArray>(records + record(5, word(3) + word(5001), text + '\0'));
    };
    EXPECT_EQ(named(20), "read");
    EXPECT_EQ(named(2000), formatError);
}

// Many chains are granted once, and not again and again.
TEST_F(HostileStream, ChainsAreGrantedInProportion) {
    HeldStream memory;
    fxBinaryWriter writer(memory);
    fxStrSet set(1U << 23);
    ASSERT_TRUE(fxWriteObject(writer, &set) && fxWriteObject(writer, &set));
    EXPECT_FALSE(fxWriteObject(writer, &set));

    std::string records = setRoot(0, 16, 1UL << 23U);
    for (unsigned int id : {3U, 4U}) {
        records += objectRecord(id, 2, word(0) + word(16) + long8(16) + long8(1L << 23U));
    }
    memory.set(records);
    fxBinaryReader reader(memory, 0x1122, 0x33445566, "ieee");
    for (int i = 0; i < 2; ++i) delete fxReadObject<fxStrSet>(reader);
    EXPECT_EQ(fatalMessage([&] { fxReadObject<fxStrSet>(reader); }), missing);
}

TEST_F(HostileStream, ClaimedSizesCostNothing) {
    rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    const std::string huge = word(0x7FFFFFF0);
    const std::string streams[] = {
        stringRoot(0x7FFFFFF0) + record(3, word(3) + huge) + record(5, word(3) + huge, "abc"),
        arrayRoot(0xFFFFFFF0, 16, long8(1)),
        arrayRoot(0x7FFFFFF0, 4, long8(1)),
        dictRoot(0x7FFFFFFF, 16, 16, 31, long8(1)),
        setRoot(0x7FFFFFFF, 16, 1UL << 23U, long8(1)),
        nodeRoot() + record(11, word(0x7FFFFFFF)) + record(12, word(0xFFFFFFFF)),
        std::string("\xC2\xFF\xFF\xFF\x7F", 5) + word(2) + std::string("Node\0x", 6),
    };
    for (const std::string& records : streams) {
        for (const auto& how :
             {endOfRecords<Rich>(records), endOfRecords<fxStr>(records),
              endOfRecords<fxIntArray>(records), endOfRecords<Node>(records),
              endOfRecords<fxStrArray>(records), endOfRecords<fxStrStrDictionary>(records),
              endOfRecords<fxStrSet>(records)}) {
            expectDocumented(how, 0);
        }
    }
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 400000) << "KiB";
}

TEST_F(HostileStream, FarNumbersReadAsWellAsNearOnes) {
    // A chain whose numbers leap.
    std::string records = typeRecord(0x7000000, "Node");
    std::vector<unsigned int> ids;
    std::mt19937 rng(testSeed());
    for (unsigned int i = 0; i < 500; ++i)
        ids.push_back(1 + i + static_cast<unsigned int>(rng() % 1000000) * 1000);
    for (size_t i = 0; i < ids.size(); ++i) {
        records += objectRecord(ids[i], 0x7000000, long8(static_cast<long>(i)) + long8(1));
        records += i + 1 < ids.size() ? record(11, word(ids[i + 1])) : record(1);
        records += record(12, word(ids[i / 2]));
    }
    const Node* read = loaded<Node>(header() + records);
    for (long i = 0; i < 500; ++i, read = read->left) {
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(read->number, i);
        EXPECT_EQ(read->right->number, i / 2);
    }
}
