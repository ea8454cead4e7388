// Whatever the writer writes reads back.
#include "fxds/BinaryReader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <random>

#include "fxds/Globals.h"
#include "fxds/StdioStream.h"
#include "tests/support/RichGraph.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

/// Any number of pointers, counted references taken when all is there.
class Hub : public Listed {
    FX_TRANSCRIBABLE(Hub)
    std::vector<Listed*> spokes;
    fxVoidPtrArray nodes;  // of Node*
    std::vector<long> told;
    void xdrSuccess(fxTranscriber& t) override {
        if (!t.isReading()) return;
        for (Listed* spoke : spokes) told.push_back(spoke != nullptr ? spoke->number : -1);
    }
};
FX_TRANSCRIBABLE_TYPE(Hub, "Hub", 1, Listed);
fxBool Hub::xdr(fxTranscriber& t) {
    return fxXdrBase<Listed>(t, this) && fxXdrObjects(t, spokes) && fxXdrObjects<Node>(t, nodes);
}

/// Counts what it is told and asked. A reading may fail at its end.
class Ender : public fxXDRObj {
public:
    fxStr text = "text";
    int told = 0;
    static inline std::vector<const void*> asked;
    static inline const fxTypeObj* failing = nullptr;

    void xdrSuccess(fxTranscriber& t) override { told += t.isReading() && text == "text"; }
    fxBool xdrFail(fxTranscriber&, void* object) override {
        asked.push_back(object);
        return 1;
    }
    bool fields(fxTranscriber& t, const fxTypeObj& type) {
        return fxXdr(t, text) && !(t.isReading() && failing == &type);
    }
};
class Owned : public Ender {
    FX_TRANSCRIBABLE(Owned)
};
FX_TRANSCRIBABLE_TYPE(Owned, "Owned", 1);
fxBool Owned::xdr(fxTranscriber& t) { return fields(t, Owned_type); }
class Rented : public Ender {
    FX_TRANSCRIBABLE(Rented)
};
FX_TRANSCRIBABLE_TYPE(Rented, "Rented", 1);
fxBool Rented::xdr(fxTranscriber& t) { return fields(t, Rented_type); }

/// Two roots, the second of a part.
class House : public Owned, public Rented {
    FX_TRANSCRIBABLE(House)
};
FX_TRANSCRIBABLE_TYPE(House, "House", 1, Owned, Rented);
fxBool House::xdr(fxTranscriber& t) {
    return fxXdrBase<Owned>(t, this) && fxXdrBase<Rented>(t, this);
}
class Street : public Ender {
    FX_TRANSCRIBABLE(Street)
    House corner;
    std::vector<House> houses;
    unsigned int count = 0;
    double* numbers = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Street, "Street", 1);
fxBool Street::xdr(fxTranscriber& t) {
    return fxXdr(t, corner) && fxXdr(t, houses) && fxXdrBlock(t, numbers, count) &&
           fields(t, Street_type);
}

/// Makes do when its transcription fails.
class Forgiving : public Listed {
    FX_TRANSCRIBABLE(Forgiving)
    fxStr first;
    fxBool xdrFail(fxTranscriber&, void* object) override { return object == this; }
};
FX_TRANSCRIBABLE_TYPE(Forgiving, "Forgiving", 1, Listed);
fxBool Forgiving::xdr(fxTranscriber& t) { return fxXdr(t, first) && false; }

/// Does not care whether its containers could be read, and throws away what
/// they have got so far.
class Careless : public Listed {
    FX_TRANSCRIBABLE(Careless)
    fxStrArray strings;
    fxStrStrDictionary dictionary;
    std::vector<Listed*> objects;
};
FX_TRANSCRIBABLE_TYPE(Careless, "Careless", 1, Listed);
fxBool Careless::xdr(fxTranscriber& t) {
    for (int i = 0; i < 2; ++i) {
        if (!fxXdr(t, strings)) strings = fxStrArray();
        if (!fxXdr(t, dictionary)) dictionary.cleanup();
    }
    if (!fxXdrObjects(t, objects)) std::vector<Listed*>().swap(objects);
    return 1;
}

/// One of very many.
class Link : public fxXDRObj {
    FX_TRANSCRIBABLE(Link)
    long number = 0;
    fxRef<Link> next;
};
FX_TRANSCRIBABLE_TYPE(Link, "Link", 1);
fxBool Link::xdr(fxTranscriber& t) { return fxXdrAll(t, number, next); }

class Reader : public ::testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override {
        Received::deleteAll();
        EXPECT_TRUE(Listed::all().empty());
    }
};

}  // namespace

// A graph that is the same object for object is written as the same bytes.
TEST_F(Reader, GraphWithEverythingReadsBackTheSame) {
    Rich* const once = loaded<Rich>(richStream());
    ASSERT_NE(once, nullptr);
    Rich* const twice = fxXdrCopy(once);  // each reading turns the chains round
    ASSERT_NE(twice, nullptr);
    EXPECT_EQ(saved(twice), richStream());
    EXPECT_TRUE(twice->second == twice && twice->many[2] == twice);  // by their bases
    // A root may be asked for as one of its bases.
    const Second* asSecond = loaded<Second>(richStream());
    ASSERT_NE(asSecond, nullptr);
    EXPECT_EQ(asSecond->own, 2);
}

TEST_F(Reader, VectorsOfPointersGrowWithTheStream) {
    Hub hub;
    for (int i = 0; i < 1000; ++i) {
        Node* const node = new Node;
        node->number = i;
        hub.nodes.append(node);
        hub.spokes.push_back(i % 10 == 0
                                 ? nullptr
                                 : static_cast<Node*>(hub.nodes[static_cast<unsigned int>(i / 2)]));
    }
    hub.spokes.push_back(&hub);
    Hub* const read = fxXdrCopy(&hub);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(saved(read), saved(&hub));
    EXPECT_EQ(read->spokes[1000], read);
    // xdrSuccess() came when everything was there.
    ASSERT_EQ(read->told.size(), 1001U);
    EXPECT_EQ(read->told[7], 3);
}

// Written twice to one stream: the second time the parts have other numbers.
TEST_F(Reader, EveryObjectIsToldOnceOfItsOwnEnd) {
    double numbers[] = {1, 2};
    Street street;
    street.houses.resize(100);  // moves what waits to be told
    street.count = 2;
    street.numbers = numbers;
    const std::unique_ptr<House> copy(fxXdrCopy(&street.corner));
    EXPECT_TRUE(copy->Owned::told == 1 && copy->Rented::told == 1);
    HeldStream stream;
    const auto writer = std::make_unique<fxBinaryWriter>(stream);
    ASSERT_TRUE(fxWriteObject(*writer, &street) && fxWriteObject(*writer, &street));
    for (const fxTypeObj* failing : {&fxXDRObj_type, &Street_type, &Rented_type}) {
        stream->rewind();
        Ender::failing = failing;
        fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
        for (int i = 0; i < 2; ++i) {
            Ender::asked.clear();
            const std::unique_ptr<Street> read(fxReadObject<Street>(reader));
            ASSERT_NE(read, nullptr);
            const bool isWhole = failing == &fxXDRObj_type;
            int told = read->told;
            for (const House& house : read->houses) told += house.Owned::told + house.Rented::told;
            EXPECT_EQ(told, isWhole ? 201 : 0);
            EXPECT_EQ(read->corner.Rented::told, isWhole);
            EXPECT_EQ(read->houses.size(), failing == &Rented_type ? 0U : 100U);
            EXPECT_EQ(read->count, isWhole ? 2U : 0U);
            EXPECT_EQ(read->numbers != nullptr, isWhole);
            std::free(read->numbers);
            // The part, what holds it, and the whole, each by its address.
            const std::vector<const void*> all = {static_cast<Rented*>(&read->corner),
                                                  &read->corner, read.get()};
            const auto first = all.end() - (isWhole ? 0 : failing == &Street_type ? 1 : 3);
            EXPECT_EQ(Ender::asked, std::vector<const void*>(first, all.end()));
        }
    }
    Ender::failing = nullptr;
}

TEST_F(Reader, SeveralGraphsOfOneStreamShareTheirObjects) {
    HeldStream stream;
    Node first, second;
    fxStr text("text");
    first.number = 1;
    second.left = &first;
    second.text = "second";
    {
        fxBinaryWriter writer(stream);
        ASSERT_TRUE(fxWriteObject(writer, &first));
        ASSERT_TRUE(fxWriteObject(writer, &text) && fxWriteObject(writer, &text));
        ASSERT_TRUE(fxWriteObject(writer, &second));
    }
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    const Node* readFirst = fxReadObject<Node>(reader);
    for (int i = 0; i < 2; ++i) {
        const std::unique_ptr<fxStr> readText(fxReadObject<fxStr>(reader));
        ASSERT_NE(readText, nullptr);
        EXPECT_EQ(*readText, "text");
    }
    const Node* readSecond = fxReadObject<Node>(reader);
    ASSERT_NE(readSecond, nullptr);
    EXPECT_EQ(readSecond->left, readFirst);
    EXPECT_EQ(readSecond->text, "second");
}

TEST_F(Reader, ResetForgetsWhatWasRead) {
    HeldStream stream;
    Node first, second;
    second.left = &first;
    fxBinaryWriter writer(stream);
    ASSERT_TRUE(fxWriteObject(writer, &first));
    writer.reset();
    ASSERT_TRUE(fxWriteObject(writer, &second));
    ASSERT_TRUE(fxWriteObject(writer, &first));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    const Node* readFirst = fxReadObject<Node>(reader);
    reader.reset();
    const Node* readSecond = fxReadObject<Node>(reader);
    ASSERT_NE(readSecond, nullptr);
    EXPECT_NE(readSecond->left, readFirst);
    reader.reset();  // but the writer goes on, by numbers that mean nothing now
    EXPECT_DEATH(fxReadObject<Node>(reader), "XXX baddest news");
}

// Each message is deleted when it was written, and when it was read, so that
// addresses come again; the type is written once.
TEST_F(Reader, ForgottenObjectsMayGo) {
    HeldStream stream;
    fxBinaryWriter writer(stream);
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    for (int i = 0; i < 3000; ++i) {
        const auto message = std::make_unique<Node>();
        message->text.format("%d", i);
        message->right = message.get();
        ASSERT_TRUE(fxWriteObject(writer, message.get()));
        writer.forgetObjects();
        const std::unique_ptr<Node> read(fxReadObject<Node>(reader));
        reader.forgetObjects();
        ASSERT_EQ(read->text, message->text);
        ASSERT_EQ(read->right, read.get());
    }
    EXPECT_EQ(stream->view().find("Node"), stream->view().rfind("Node"));
    // A reference to what the reader has forgotten leads nowhere.
    Node first, second;
    second.right = &first;
    ASSERT_TRUE(fxWriteObject(writer, &first) && fxWriteObject(writer, &second));
    ASSERT_NE(fxReadObject<Node>(reader), nullptr);
    reader.forgetObjects();
    EXPECT_EQ(fxReadObject<Node>(reader), nullptr);
}

TEST_F(Reader, PlainPointersShareTheirBlockAndStringsDoNot) {
    HeldStream memory;
    {
        fxBinaryWriter writer(memory);
        char block[] = "shared";
        char* p = block;
        Listed root;
        ASSERT_TRUE(writer.xdr(&p) && writer.xdr(&p) && writer.xdr(&p, 7));
        ASSERT_TRUE(fxWriteObject(writer, &root));
    }
    fxBinaryReader reader(memory, 0x1122, 0x33445566, "ieee");
    char* one = nullptr;
    char* two = nullptr;
    char* three = nullptr;
    ASSERT_TRUE(reader.xdr(&one) && reader.xdr(&two) && reader.xdr(&three, 7));
    EXPECT_EQ(one, nullptr);
    ASSERT_NE(fxReadObject<Listed>(reader), nullptr);
    EXPECT_STREQ(one, "shared");
    EXPECT_TRUE(one == two && two == three);
    std::free(one);

    // Two strings and a pointer that a stream gives one block.
    memory.set(record(0, "", long8(4)) + record(3, word(1) + word(4)) + record(0, "", long8(4)) +
               record(4, word(1)) + record(4, word(1)) + typeRecord(3, "Listed") +
               objectRecord(2, 3, long8(0)) + record(5, word(1) + word(4), std::string("abc", 4)));
    fxBinaryReader strings(memory, 0x1122, 0x33445566, "ieee");
    fxStr a, b;
    char* plain = nullptr;
    ASSERT_TRUE(a.xdr(strings) && b.xdr(strings) && strings.xdr(&plain));
    ASSERT_NE(fxReadObject<Listed>(strings), nullptr);
    EXPECT_TRUE(a == "abc" && b == "abc");
    EXPECT_STREQ(plain, "abc");
    EXPECT_TRUE(a.data != b.data && a.data != plain && b.data != plain);
    std::free(plain);

    // A string at the start of a longer block that ends in no zero.
    memory.set(record(0, "", long8(4)) + record(3, word(1) + word(8)) + record(4, word(1)) +
               typeRecord(3, "Listed") + objectRecord(2, 3, long8(0)) +
               record(5, word(1) + word(8), std::string("abc\0defg", 8)));
    fxBinaryReader longer(memory, 0x1122, 0x33445566, "ieee");
    fxStr start;
    ASSERT_TRUE(start.xdr(longer) && longer.xdr(&plain, 8));
    ASSERT_NE(fxReadObject<Listed>(longer), nullptr);
    EXPECT_TRUE(start == "abc");
    EXPECT_EQ(std::memcmp(plain, "abc\0defg", 8), 0);
    std::free(plain);
}

// Its xdr() asks for a text, which follows unless it is empty, and fails. A text,
// pointers and a part follow that it does not ask for, and another graph.
TEST_F(Reader, ObjectThatForgivesItsFailureIsOwedNothing) {
    const std::string abc("abc", 4);
    for (const bool isEmpty : {false, true}) {
        HeldStream stream(typeRecord(2, "Forgiving") + objectRecord(1, 2, long8(isEmpty ? 1 : 4)) +
                          (isEmpty ? "" : record(3, word(3) + word(4))) + record(0, "", long8(4)) +
                          record(3, word(4) + word(4)) + record(11, word(5)) + record(12, word(1)) +
                          record(1) + record(13, word(8), long8(1)) + typeRecord(6, "Listed") +
                          objectRecord(5, 6, long8(7)) + record(5, word(4) + word(4), abc) +
                          (isEmpty ? "" : record(5, word(3) + word(4), abc)) +
                          objectRecord(7, 6, long8(9)));
        fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
        const Forgiving* read = fxReadObject<Forgiving>(reader);
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(read->first, "");
        const Listed* next = fxReadObject<Listed>(reader);
        ASSERT_NE(next, nullptr);
        EXPECT_EQ(next->number, 9);
    }
    Forgiving written;
    EXPECT_NE(saved(&written), "failed");
}

/// Writes the records of one object, whose payload goes on behind each pointer.
struct Payload {
    std::string bytes;  // of the records that are complete
    unsigned int tag = 10;
    std::string fields = word(1) + word(2) + word(1);
    std::string open;

    void next(unsigned int nextTag, const std::string& nextFields) {
        bytes += record(tag, fields, open);
        tag = nextTag;
        fields = nextFields;
        open.clear();
    }
    void numbers(std::initializer_list<long> values) {
        for (const long value : values) open += long8(value);
    }
    void text(unsigned int id) {
        numbers({4});
        next(3, word(id) + word(4));
    }
};

TEST_F(Reader, ContainersThatFailAreOwedNothing) {
    // Each container is promised two members, and the second is impossible. The
    // texts of the first arrive all the same.
    Payload payload;
    unsigned int id = 3;
    for (int i = 0; i < 2; ++i) {
        payload.numbers({32});
        payload.open += word(16, 2);
        payload.text(id++);
        payload.numbers({0, 2, 16, 16, 1});
        payload.text(id++);
        payload.text(id++);
        payload.numbers({0, 0});
    }
    payload.numbers({0});
    payload.next(0, "");
    while (id-- > 3) payload.bytes += record(5, word(id) + word(4), std::string("abc", 4));
    EXPECT_NE(loaded<Careless>(header() + typeRecord(2, "Careless") + payload.bytes), nullptr);

    // Two pointers are promised; the first leads to what is there already.
    Payload pointers;
    for (int i = 0; i < 2; ++i) {
        pointers.numbers({0});
        pointers.open += word(16, 2);
        pointers.numbers({0, 16, 16, 1});
    }
    pointers.numbers({2});
    pointers.next(12, word(1));
    pointers.next(0, "");
    EXPECT_NE(loaded<Careless>(header() + typeRecord(2, "Careless") + pointers.bytes), nullptr);
}

TEST_F(Reader, ObjectsThatNothingLeadsToDieWithTheReader) {
    const std::string bytes = header() + typeRecord(2, "Node") + typeRecord(3, "Listed") +
                              objectRecord(1, 2, long8(1) + long8(1)) + record(1) +
                              record(11, word(4))                          // awaits 4
                              + objectRecord(5, 2, long8(5) + long8(1)) +  // nobody's
                              record(12, word(1)) + record(12, word(4)) +  // leads here
                              objectRecord(4, 3, long8(4));
    {
        HeldStream stream(bytes);
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(stream));
        const Node* root = fxReadObject<Node>(*reader);
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->right->number, 4);
        EXPECT_EQ(Listed::all().size(), 3U);
    }
    EXPECT_EQ(Listed::all().size(), 2U);
}

TEST_F(Reader, FillersOfIdsArePassedOver) {
    const std::string filler(4, '\0');
    const std::string bytes =
        header() + typeRecord(2, "Node") + objectRecord(1, 2, long8(7) + long8(1)) +
        record(12, word(1)) + filler +  // four seen: 8 bytes from here on
        record(11, word(3) + filler) + objectRecord(3, 2, long8(8) + long8(1)) +
        record(12, word(1) + filler) + record(12, word(3) + filler);
    const Node* read = loaded<Node>(bytes);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->left, read);
    EXPECT_EQ(read->right->number, 8);
    EXPECT_EQ(static_cast<Node*>(read->right)->right, read->right);
}

TEST_F(Reader, BodiesMayComeInAnyOrder) {
    const std::string node = long8(0) + long8(1);
    const std::string bytes = header() + typeRecord(2, "Node") + objectRecord(1, 2, node) +
                              record(12, word(3)) + record(12, word(4)) +  // again before first
                              objectRecord(3, 2, node) + record(11, word(4)) + record(11, word(4)) +
                              objectRecord(4, 2, node) + record(1) + record(11, word(3));
    const Node* read = loaded<Node>(bytes);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->left->left, read->right);
    EXPECT_EQ(read->left->right, read->right);
    EXPECT_EQ(static_cast<Node*>(read->right)->right, read->left);
}

TEST_F(Reader, NothingIsReadBeyondTheGraph) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fxTranscriber* writer =
        fxTranscriber::getWriter(new fxStdioStream(ends[1], fxStream::fxStreamWrite));
    fxTranscriber* reader = nullptr;
    for (int i = 0; i < 3; ++i) {
        Node node;
        node.number = i;
        node.left = &node;  // ends in a reference
        writer->reset();
        ASSERT_TRUE(fxWriteObject(*writer, &node));
        ASSERT_TRUE(static_cast<fxStdioStream*>(writer->getStream())->flush());
        // The pipe is still open: asking it for more would block.
        if (reader == nullptr) {
            reader = fxTranscriber::getReader(new fxStdioStream(ends[0], fxStream::fxStreamRead));
        }
        const Node* read = fxReadObject<Node>(*reader);
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(read->number, i);
        EXPECT_EQ(read->left, read);
    }
    delete writer;
    EXPECT_EQ(fxReadObject<Node>(*reader), nullptr);
    delete reader;
}

TEST_F(Reader, RandomGraphsReadBackTheSame) {
    std::mt19937 rng(testSeed());
    const auto upTo = [&rng](size_t n) { return static_cast<size_t>(rng() % n); };
    for (int round = 0; round < 60; ++round) {
        const size_t count = 1 + upTo(80);
        std::vector<Node*> nodes;
        std::vector<Listed*> any;
        for (size_t i = 0; i < count; ++i) {
            nodes.push_back(new Node);
            nodes.back()->number = static_cast<long>(i);
            nodes.back()->text = fxStr(std::string(upTo(round == 7 ? 3000 : 20), 'a').c_str());
            any.push_back(nodes.back());
            if (upTo(3) == 0) {
                Leaf* leaf = new Leaf;
                leaf->weight = static_cast<double>(i);
                any.push_back(leaf);
            }
        }
        for (Listed* object : any) {
            if (Leaf* leaf = dynamic_cast<Leaf*>(object)) {
                leaf->owner = upTo(4) == 0 ? nullptr : nodes[upTo(count)];
            } else if (Node* node = dynamic_cast<Node*>(object)) {
                node->left = upTo(4) == 0 ? nullptr : nodes[upTo(count)];
                node->right = upTo(4) == 0 ? nullptr : any[upTo(any.size())];
            }
        }
        Node* read = fxXdrCopy(nodes[0]);
        ASSERT_NE(read, nullptr);

        EXPECT_EQ(saved(read), saved(nodes[0]));
        Listed::deleteAll();
    }
}

TEST_F(Reader, MillionObjectsInAChainNeedNoStack) {
    onStackOf(size_t{256} << 10U, [] {
        constexpr long count = 1000000;
        fxRef<Link> first;
        for (long i = count; i-- > 0;) {
            const fxRef<Link> link = fxMake<Link>();
            link->number = i;
            link->next = std::exchange(first, link);
        }
        const fxRef<Link> read = fxXdrCopy(first);
        long good = 0;
        for (const Link* link = read; link != nullptr; link = link->next)
            good += link->number == good;
        EXPECT_EQ(good, count);
    });
}
