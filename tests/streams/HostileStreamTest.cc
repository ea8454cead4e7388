// Streams by hand: what a reader makes of each is stated. Every end is a graph, null or
// a documented message.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <random>
#include <thread>

#include "fxds/BinaryReader.h"
#include "fxds/Globals.h"
#include "fxds/Save.h"
#include "fxds/StdioStream.h"
#include "tests/support/FatalCatcher.h"
#include "tests/support/RichGraph.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

/// Makes do when its transcription fails.
class Forgiving : public Node {
    FX_TRANSCRIBABLE(Forgiving)
    fxBool xdrFail(fxTranscriber&, void* object) override { return object == this; }
};
TRANSCRIBED(Forgiving, 1, Listed) { return fxXdr(t, text) && false; }

/// Does not care whether its containers could be read, and throws away what
/// they have got so far.
class Careless : public Listed {
    FX_TRANSCRIBABLE(Careless)
    fxStrArray strings;
    fxStrStrDictionary dictionary;
    std::vector<Listed*> objects;
};
TRANSCRIBED(Careless, 1, Listed) {
    for (int i = 0; i < 2; ++i) {
        if (!fxXdr(t, strings)) strings = fxStrArray();
        if (!fxXdr(t, dictionary)) dictionary.cleanup();
    }
    if (!fxXdrObjects(t, objects)) std::vector<Listed*>().swap(objects);
    return 1;
}

/// Owners and plain pointers of texts, and owners of objects.
class Owners : public Listed {
    FX_TRANSCRIBABLE(Owners)
    ~Owners() override {
        for (int i = 0; i < 3; ++i) std::free(texts[i]);
    }
    char* texts[4] = {};  // the last two are shared
    fxStr string;
    std::unique_ptr<Listed> one;
    fxRef<Listed> reference;
    std::unique_ptr<Listed> other;
};
TRANSCRIBED(Owners, 1, Listed) {
    return fxXdrString(t, texts[0]) && fxXdrSharedString(t, texts[2]) && fxXdrString(t, texts[1]) &&
           fxXdrSharedString(t, texts[3]) && fxXdrAll(t, string, one, reference, other);
}

class Wide : public Listed {
    FX_TRANSCRIBABLE(Wide)
    static constexpr unsigned int count = 40;
    Node* nodes[count] = {};
    fxStr text;
};
TRANSCRIBED(Wide, 1, Listed) {
    for (Node*& each : nodes) {
        if (!fxXdrObject(t, each)) return false;
    }
    return fxXdr(t, text);
}

/// Has an object with a part at an address of its own.
class Lot : public Listed {
    FX_TRANSCRIBABLE(Lot)
    House house;
    fxXDRObj* any = nullptr;
};
TRANSCRIBED(Lot, 1, Listed) { return fxXdr(t, house) && fxXdrObject(t, any); }

/// May hold a House, which has a count for each base, by both.
class Keeper : public House {
    FX_TRANSCRIBABLE(Keeper)
    fxRef<Owned> owned;
    fxRef<Rented> rented;
};
TRANSCRIBED(Keeper, 1, Owned, Rented) { return fxXdrAll(t, owned, rented); }

// What was read: of each object that is reached its number, its text, and to which
// numbers its pointers lead.
std::string shown(Listed& root) {
    std::string text;
    std::vector<Listed*> walk = {&root};
    for (size_t i = 0; i < walk.size(); ++i) {
        text += (i == 0 ? "" : " ") + std::to_string(walk[i]->number);
        const auto* node = dynamic_cast<Node*>(walk[i]);
        if (node == nullptr) continue;
        text += node->text.c_str();
        for (Listed* next : {static_cast<Listed*>(node->left), node->right}) {
            text += next != nullptr ? '>' + std::to_string(next->number) : ">";
            const bool isNew = std::find(walk.begin(), walk.end(), next) == walk.end();
            if (next != nullptr && isNew) walk.push_back(next);
        }
    }
    return text;
}
template <class C>
std::string shown(C& root) {
    if constexpr (std::is_same_v<C, fxStr>) return root.toStdString();
    if constexpr (std::is_same_v<C, Node>) return shown(static_cast<Listed&>(root));
    if constexpr (std::is_same_v<C, Owners>) {
        const auto& [first, second, shared, again] = root.texts;
        const bool isShared = again == shared && first != shared && second != shared &&
                              root.string.data != shared && first != second;
        return std::string(first) + second + shared + root.string.c_str() + (isShared ? "!" : "");
    }
    return "read";
}

template <class C>
void clear(C* root) {
    if constexpr (!std::is_base_of_v<Listed, C>) delete root;
    if constexpr (std::is_same_v<C, Rich>) {
        if (root != nullptr) readAllOf(*root);
    }
    Received::deleteAll();
}

/// What reading graphs of C comes to, one after the other up to the first that cannot be
/// read: "null", or a message. How many bytes the stream has at hand makes no difference,
/// nor whether what is wrong is fatal or an answer.
template <class C>
std::string endOf(const std::string& bytes) {
    std::string how;
    const std::string message = fatalMessage([&] {
        StingyStream stream(bytes, 0);
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(&stream));
        while (C* root = reader != nullptr ? fxReadObject<C>(*reader) : nullptr) {
            how += (how.empty() ? "" : "; ") + shown(*root);
            if constexpr (!std::is_base_of_v<Listed, C>) delete root;
        }
    });
    Received::deleteAll();
    if (how.empty())
        how = message.empty() ? "null" : message;
    else if (!message.empty())
        how += "; " + message;
    for (const size_t atHand : {size_t{90}, bytes.size()}) {
        StingyStream stream(bytes, atHand);
        fxLoaded<C> answer = fxLoad<C>(stream);
        EXPECT_TRUE(answer || Listed::all().empty());
        const std::string first = answer ? shown(*answer) : answer.fault().reason;
        EXPECT_TRUE(first == how.substr(0, how.find("; ")) || (!answer && how == "null")) << first;
        clear(answer.release());
    }
    return how;
}

template <class C>
std::string ending(const std::string& text) {
    return endOf<C>(header() + records(text));
}

/// Each of the records behind `before` ends like this.
template <class C>
void check(const std::string& end, const std::string& before,
           std::initializer_list<std::string> all) {
    for (const std::string& each : all) EXPECT_EQ(ending<C>(before + each), end) << each;
}

constexpr char badNews[] = "XXX bad news!";
constexpr char baddestNews[] = "XXX baddest news";
constexpr char formatError[] = "format error";
constexpr char missing[] = "XXX error handling is missing";
constexpr char oldBase[] = "XXX old base previously unseen";
constexpr char newBase[] = "XXX new base for old base";

class HostileStream : public ::testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void SetUp() override { getrusage(RUSAGE_SELF, &atStart); }
    void TearDown() override {
        Received::deleteAll();
        rusage after;
        getrusage(RUSAGE_SELF, &after);
        EXPECT_LT(after.ru_maxrss - atStart.ru_maxrss, 400000) << "KiB: claimed sizes cost nothing";
    }
    rusage atStart;
};

}  // namespace

TEST_F(HostileStream, HeadersEndAsStated) {
    for (size_t n = 0; n < 30; ++n) EXPECT_EQ(endOf<Node>(header().substr(0, n)), "null");
    const auto ending = [](short shortMark, long longMark, const char* format) {
        return endOf<Node>(payloadOf(std::string("=fxBinaryWriter~") + format + "~") +
                           header(shortMark, longMark).substr(20));
    };
    HeldStream nobody("Nobody" + header().substr(14));
    fxTranscriber::addTranscriber("Nobody", nullptr);
    EXPECT_EQ(fatalMessage([&] { fxTranscriber::getReader(nobody); }),
              "Unknown transcriber type \"Nobody\"");
    // The long mark is printed for both.
    const std::string reader = "fxBinaryReader: ";
    EXPECT_EQ(ending(0x1133, 0x33445566, "ieee"), reader + "unknown short ordering 33445566");
    EXPECT_EQ(ending(0x1122, 0x12, "ieee"), reader + "unknown long ordering 12");
    EXPECT_EQ(ending(0x1122, 0x6655443300000000, "ieee"), reader + "unknown long ordering 0");
    EXPECT_EQ(ending(0x1122, 0x33445566, "ieee754"),
              reader + "unsupported floating point format ieee754");
    const std::string stray = "fxBinary\n" + header();  // whose sender may wait for an answer
    StingyStream waiting(stray, 0);
    EXPECT_TRUE(!fxLoad<Node>(waiting) && waiting.taken() == 9);
    HeldStream stream;
    fxBinaryReader read(stream, 0x1122, 0x33445566, "ieee");
    const char noFloats[] = "fxBinaryReader_floatsVAX: not implemented";
    EXPECT_EQ(fatalMessage([&] { fxBinaryReader_floatsVAX(read, nullptr, 0); }), noFloats);
    EXPECT_EQ(fatalMessage([&] { fxBinaryReader_doublesVAX(read, nullptr, 0); }), noFloats);
    EXPECT_EQ(fatalMessage([&] { read.writeObject(nullptr, nullptr); }),
              "tried to invoke fxBinaryReader::writeObject");
}

TEST_F(HostileStream, NodesEndAsStated) {
    // Bodies in any order, fillers of ids, and what nothing leads to.
    check<Node>("1>3>4 3>4>4 4>>3", "t2:Node o1:2 1 1 p3 p4 o3:2 3 1 P4 P4 o4:2 4 1 n P3", {""});
    check<Node>("7>7>8 8>7>8", "t2:Node o1:2 7 1 p1:0 P3:0 o3:2 8 1 p1:0 p3:0", {""});
    const std::string late = "t2:Node t3:Listed o1:2 1 1 n P4 o5:2 5 1 p1 p4 o4:3 4 ";
    check<Node>("1>>4 4", late, {""});
    check<Node>("1>>4 4; 6>5> 5>1>4 1>>4 4", late, {"o6:2 6 1 p5 n"});
    check<Node>("1hi>>; 2hi>1> 1hi>>", "t2:Node o1:2 1 3 B3:3 n n c3:3 =hi~ o4:2 2 3 b3 p1 n",
                {""});
    check<Node>("1>2>1 2>3>1 3>>4 4>3>2", "t0x7000000:Node o1:0x7000000 1 1 P999999999 p1 ",
                {"o999999999:0x7000000 2 1 P77 p1 o77:0x7000000 3 1 n P0xFFFFFFFE "
                 "o0xFFFFFFFE:0x7000000 4 1 p77 p999999999"});
    // Numbers are of one kind and defined once.
    const std::string root = "t2:Node o1:2 0 1 ", leaf = "t4:Leaf o3:4:2 5 n 0 ";
    check<Node>("null", root, {"P0x7FFFFFFF p0xFFFFFFFF"});
    check<Node>(baddestNews, root, {"P3 n o1:2 0 1", "P3 n o2:2 0 1", "t1:Node n"});
    check<Node>(
        baddestNews, "",
        {"t2:Node o1:1 0 1", "t2:Node o1:7 0 1", "t2:Node t2:Leaf", "t0:Node", "t2:Node o0:2 0 1",
         "c1:4 =abc~", "P1", "d =x", "S1", "t2:fxArray o1:2", "t2:fxStr o1:2 1"});
    check<Node>("Whoops!", "", {"#15", "#63"});
    check<Node>("unknown type Nobody", "", {"t2:Nobody"});
    check<Node>("XXX version error handling is missing", "",
                {"t3:Leaf t2:Node o1:2:2 0 1", "t2:Node t3:Leaf o1:2:2 0 1 n n"});
    // Objects suit their places: left is a Node, right any Listed.
    check<Node>("0>>5 5", root, {"n P3 " + leaf});
    check<Node>(badNews, root, {"P3 n " + leaf, "P3 p3 " + leaf, "P3 n c3:4 =abc~"});
    check<Leaf>(badNews, "t2:Leaf ", {"o1:2:2 0 p1"});
    check<Rich>(baddestNews, root, {"n n"});
    check<fxXDRObj>(missing, "t2:fxArray ", {"o1:2"});
    check<fxXDRObj>(baddestNews, "t2:fxStr ", {"o1:2 1"});
}

TEST_F(HostileStream, BlocksEndAsStated) {
    const std::string root = "t2:fxStr o1:2 ", abc = "c3:4 =abc~ ";
    check<fxStr>("abc", root, {"4 B3:4 " + abc, "4 B3:8 c3:8 =abc~defg"});
    // One is shorter than its place, one has no zero at the end, and one is an object.
    check<fxStr>(formatError, root,
                 {"5 B3:5 " + abc, "3 B3:4 " + abc, "4 B3:4 o3:2 1", "4 n", "4 b1", "4 b0",
                  "4 B0:4", "4 B2:4", "4 B3:0xFFFFFFFF"});
    // Impossible sizes: never allocated.
    check<fxStr>(missing, root, {"0", "0x80000001"});
    check<fxStr>("null", root,
                 {"4 B3:4 c3:0x80000000 =abc~", "4 B3:4 c3:0x7FFFFFFF =abc~",
                  "0x7FFFFFF0 B3:0x7FFFFFF0 c3:0x7FFFFFF0 =abc"});
    check<fxStr>(baddestNews, "t2:Node ", {"o1:2 0 1 n n"});
    // An owner and a string get a block of their own, plain pointers the same one, which
    // no text of a later graph can be copied from. An object has one owner, and the root has.
    const std::string owners = "t2:Owners o1:2 1/1 B3:4 1/1 b3 1/1 b3 1/1 b3 4 b3 ";
    check<Owners>("abcabcabcabc!", owners, {"n n n " + abc});
    check<Owners>(badNews, owners,
                  {"P4 n p4 " + abc, "p1 n n " + abc, "P4 p4 n " + abc, "n P4 p4 " + abc});
    check<Listed>(std::string("0; ") + badNews, owners,
                  {"n n n t7:Node o8:7 0 1 n n " + abc + "o9:2 0/1*4 1 p8 n n"});
    check<Listed>("0; format error", owners, {"n n n " + abc + "t7:Node o8:7 0 4 b3 n n"});
}

// The first asks for a text, which follows unless it is empty, and fails. What it does not
// ask for is passed over: a text, pointers and a part.
TEST_F(HostileStream, WhoForgivesIsOwedNothing) {
    const std::string more = "d 4 B4:4 P5 p1 n S8 1 t6:Listed o5:6 7 c4:4 =abc~ ";
    check<Listed>("0>>; 9", "t2:Forgiving o1:2 ",
                  {"4 B3:4 " + more + "c3:4 =abc~ o7:6 9", "1 " + more + "o7:6 9"});
    Forgiving written;
    EXPECT_NE(saved(&written), "failed");
    // Each container is promised two members, and the second is impossible.
    std::string texts =
        "t2:Careless o1:2 32 16/2 4 B3:4 0 2 16 16 1 4 B4:4 4 B5:4 0 0 "
        "32 16/2 4 B6:4 0 2 16 16 1 4 B7:4 4 B8:4 0 0 0 ";
    for (int id = 8; id > 2; --id) texts += "c" + std::to_string(id) + ":4 =abc~ ";
    const std::string pointers = "t2:Careless o1:2 0 16/2 0 16 16 1 0 16/2 0 16 16 1 2 p1";
    for (const std::string& each : {texts, pointers}) {
        EXPECT_NE(loaded<Careless>(header() + records(each)), nullptr);
    }
}

TEST_F(HostileStream, ContainersRefuseForeignSizes) {
    const std::string array = "t2:ARRAY o1:2 ", dictionary = "t2:DICT o1:2 ", set = "t2:SET o1:2 ";
    check<fxIntArray>("read", array, {"4/4 4/4 4/2 1", "4/4 0x40000/4 4/2 1"});  // of two machines
    for (const std::string size : {"0", "1", "2", "8", "16", "65535"}) {
        check<fxIntArray>(missing, array, {"16/4 " + size + "/4 " + size + "/2 1"});
    }
    for (const std::string count : {"1", "7", "0x7FFFFFF0", "0xFFFFFFFF", "0xFFFFFFFC",
                                    "0x80000000", "0x40000000", "0xFFFFFFF0"}) {
        check<fxIntArray>(missing, array, {count + "/4 4/4 4/2 1"});
        check<fxStrArray>(missing, array, {count + "/4 16/4 16/2 1"});
    }
    check<fxStrStrDictionary>("read", dictionary, {"1/4 16/4 16/4 16/4 16 31 1 1 30"});
    check<fxStrStrDictionary>(
        missing, dictionary,
        {"1/4 16/4 16/4 16/4 16 31 1 1 31", "1/4 8/4 8/4 16/4 16 31 1 1 0",
         "1/4 16/4 16/4 24/4 24 31 1 1 0", "1/4 0/4 0/4 0/4 0 31 1 1 0",
         "0xFFFFFFFF/4 16/4 16/4 16/4 16 31 1 1", "0x7FFFFFFF/4 16/4 16/4 16/4 16 31 1"});
    check<fxStrSet>("read", set, {"1/4 16/4 16 31 1 30"});
    check<fxStrSet>(
        missing, set,
        {"1/4 16/4 16 31 1 31", "1/4 12/4 12 31 1 0", "0x7FFFFFFF/4 16/4 16 0x800000 1"});
    for (const std::string chains : {"0x20000001", "0xFFFFFFFF", "0x7FFFFFFF"}) {
        check<fxStrStrDictionary>(missing, dictionary, {"0/4 16/4 16/4 16/4 16 " + chains});
        check<fxStrSet>(missing, set, {"0/4 16/4 16 " + chains});
    }
}

TEST_F(HostileStream, BasePartsAreReadOnceAndBelongToTheirObject) {
    const std::string rich = "t2:Rich o1:2 ";
    check<Rich>(oldBase, rich, {"s9", "s1"});
    check<Rich>(newBase, rich, {"S1", "S0"});
    check<Rich>(badNews, rich, {"n", "P5"});
    // First's Listed, and its label. Second's Listed is the same: another number for it, and
    // a number of another part.
    check<Rich>(newBase, rich + "S3 1 d 1 ", {"S4 S5 1"});
    check<Rich>(oldBase, rich + "S3 1 d 1 ", {"S4 s4"});
    // What a second reading of tables would end waits for its texts.
    const std::string tables =
        "t2:Cabinet o1:2 S3 1 1/4 16/4*3 16 31 4 B4:4 4 B5:4 0 1/4 16/4 16 31 4 B6:4 0 ";
    check<Cabinet>("read", tables, {"s3 c4:4 =abc~ c5:4 =abc~ c6:4 =abc~"});
    check<Cabinet>(newBase, tables, {"S7 1 0/4 16/4*3 16 31 0/4 16/4 16 31"});
    check<Lot>("read", "t2:Lot o1:2 1 S3 1 ", {"n"});
    check<Lot>(badNews, "t2:Lot o1:2 1 S3 1 ", {"p3"});
}

TEST_F(HostileStream, OneObjectIsHeldByOneOfItsRoots) {
    const std::string two = "t2:Keeper t3:House o1:2 ", house = "o4:3 1 S5 1";
    check<Keeper>("read", two,
                  {"P4 n " + house, "n P4 " + house, "P4 P6 " + house + " o6:3 1 S7 1"});
    check<Keeper>(badNews, two, {"P4 p4 " + house, "n p1", "p1 n"});
    HeldStream stream(records("t2:Keeper t3:House o1:2 P4 n " + house + " p4 p4"));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    const std::unique_ptr<Keeper> keeper(fxReadObject<Keeper>(reader));
    fxRef<Owned> owned;
    fxRef<Rented> rented;
    ASSERT_TRUE(keeper != nullptr && fxXdr(reader, owned));
    EXPECT_TRUE(owned == keeper->owned && owned->refCount == 2);
    EXPECT_EQ(fatalMessage([&] { fxXdr(reader, rented); }), badNews);
}

// The helpers take pointers and texts that are at hand without a look at their numbers,
// up to so many of one object, which are checked together; the rest one by one.
TEST_F(HostileStream, WrongNumbersAreFoundAmongManyPlaces) {
    std::string before = "t2:Wide o1:2 ", rest;
    for (unsigned int i = 0; i < Wide::count; ++i) rest += "P5 ";
    for (unsigned int place = 0; place < Wide::count; ++place) {
        for (const std::string wrong : {"p2 ", "p0 ", "P0 ", "p1 ", "B3:4 "}) {
            check<Wide>(badNews, before, {wrong + rest});
        }
        before += place + 1 < Wide::count ? "P5 " : "P5 d 4 ";
    }
    for (const std::string wrong : {"B1:4 ", "B0:4 ", "b2 ", "B5:4 ", "P5 "}) {
        check<Wide>(formatError, before, {wrong + rest});
    }
}

TEST_F(HostileStream, TextNamedVeryOftenIsRefused) {
    const auto named = [](int times) {
        std::string all = "t2:ARRAY o1:2 " + std::to_string(16 * times) + "/4 16/4 16/2 5001 b3 ";
        for (int i = 1; i < times; ++i) all += "d 5001 b3 ";
        return ending<fxStrArray>(all + "c3:5001 =x*5000 =~");
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
    const std::string many = ":2 0/4 16/4 16 0x800000 ";
    EXPECT_EQ(ending<fxStrSet>("t2:SET o1" + many + "o3" + many + "o4" + many),
              std::string("read; read; ") + missing);
}

TEST_F(HostileStream, CountsAndDepthOfValuesCostNothing) {
    const auto reads = [](const std::string& payload, auto value) {
        HeldStream stream(records("d " + payload));
        fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
        return fxXdr(reader, value);
    };
    HeldStream some(std::string(100000, 'x'));
    const fxBinaryReader informed(some, 0x1122, 0x33445566, "ieee");
    EXPECT_TRUE(informed.hasToCome(100000) && !informed.hasToCome(100001));
#ifndef __SANITIZE_ADDRESS__
    struct : fxMemoryStream {
        size_t bytesToCome() override { return SIZE_MAX; }
    } boastful;
    boastful.take();
    const std::string claim = records("d 0x1000000");
    boastful.putBytes(claim.data(), static_cast<unsigned int>(claim.size()));
    fxBinaryReader believing(&boastful, 0x1122, 0x33445566, "ieee");
    std::vector<long> longs;
    limitMemory(size_t{64} << 20);
    EXPECT_NO_THROW(EXPECT_FALSE(fxXdr(believing, longs)));
    limit(RLIMIT_AS);
#endif
    EXPECT_FALSE(reads("0xFFFFFFFF", std::string()) || reads("0xFFFFFFFF", std::vector<int>()));
    EXPECT_FALSE(reads("0xFFFFFFFF", std::vector<bool>()) ||
                 reads("0xFFFFFFFF", std::vector<std::string>()));
    EXPECT_FALSE(reads("2 1 5 1 6", std::map<int, int>()));  // a key that comes twice
    EXPECT_FALSE(reads("1*200000", Deep()));
    EXPECT_FALSE(reads("0xFFFFFFFF", std::vector<std::pair<Weightless, Weightless>>()));
    EXPECT_TRUE(reads("1024", std::vector<Weightless>()));
    const auto keeps = [](auto value, const char* number = "=x") {  // one byte of a number
        HeldStream stream(records(std::string("d ") + number));
        fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
        const auto before = value;
        return !fxXdr(reader, value) && value == before;
    };
    EXPECT_TRUE(keeps(short{7}) && keeps(7) && keeps(7L) && keeps(7.5F) && keeps(7.5) &&
                keeps(L'a') && keeps(7.5L));
    enum class Small : unsigned char { one = 1 };
    EXPECT_TRUE(keeps(Small::one) && keeps(Small::one, "256"));
    EXPECT_FALSE(keeps(Small::one, "255"));
}

TEST_F(HostileStream, FieldsThatHoldByNoFunctionArePlain) {
    HeldStream stream(records("P1 t2:Node o1:2 7 1 n n"));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    Node* node = nullptr;
    reader.setHolder(&node, nullptr);
    ASSERT_TRUE(fxXdrObject(reader, node));
    EXPECT_EQ(fxReadObject<Node>(reader), node);
    EXPECT_EQ(node->refCount, 0U);
}

TEST_F(HostileStream, ConvertersLeaveAnIncompleteGroupAlone) {
    HeldStream stream(records("d =abcdefg*3"));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    std::string bytes(7, '\0');
    for (const auto& [turn, turned] : {std::pair(&fxBinaryReader_BS, "badcfeg"),
                                       {fxBinaryReader_longsSS, "cdabefg"},
                                       {fxBinaryReader_longsBSSS, "dcbaefg"}}) {
        EXPECT_TRUE(turn(reader, bytes.data(), 7) && bytes == turned) << turned;
    }
    EXPECT_FALSE(fxBinaryReader_shorts(reader, bytes.data(), 1));
    EXPECT_TRUE(fxBinaryReader_longs(reader, bytes.data(), 0));
}

namespace {

// The records of long values: mostly data of 512 bytes, but also of other lengths, and types.
std::string someRecords(std::mt19937& rng) {
    const auto below = [&](unsigned int most) {
        return std::uniform_int_distribution<unsigned int>(0, most)(rng);
    };
    const unsigned int oddity = 1U << below(12);
    unsigned int id = 0, bytes = 0;
    std::string all;
    while (all.size() < 400000) {
        const unsigned int length = below(oddity) != 0 ? 512 : below(1U << (1 + below(17)));
        std::string payload(length, '?');
        for (char& byte : payload) byte = static_cast<char>(++bytes * 7 % 251);
        const bool isData = below(oddity) != 0;
        all += record(isData ? 0 : 2, isData ? "" : word(++id) + payloadOf("=Node~"), payload);
    }
    all.resize(all.size() - (below(1) != 0 ? below(static_cast<unsigned int>(all.size())) : 0));
    return all;
}

}  // namespace

// Of a file or pipe, the payload of a long value moves together in its place.
TEST_F(HostileStream, LongValuesAreTheSameFromEveryStream) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 60; ++round) {
        const std::string all = someRecords(rng);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        std::thread sender([&, pieceBytes = 1 + rng() % 70000] {
            for (size_t i = 0; i < all.size(); i += pieceBytes) {
                const size_t count = std::min(pieceBytes, all.size() - i);
                ASSERT_EQ(write(ends[1], all.data() + i, count), static_cast<ssize_t>(count));
            }
            close(ends[1]);
        });
        HeldStream memory(all);
        fxStdioStream file(ends[0], fxStream::fxStreamRead);
        file.take();
        fxBinaryReader expected(memory, 0x1122, 0x33445566, "ieee");
        fxBinaryReader reader(&file, 0x1122, 0x33445566, "ieee");
        bool isGood = true;
        while (isGood) {
            std::string wanted(rng() % (1U << (1 + rng() % 19)), '?'), bytes(wanted);
            isGood = expected.readBytes(wanted.data(), wanted.size());
            ASSERT_EQ(reader.readBytes(bytes.data(), bytes.size()), isGood);
            ASSERT_TRUE(!isGood || bytes == wanted) << round;
        }
        sender.join();
    }
}
