// Random graphs with a field of every kind: what is written reads back the same, whatever
// was on the stream before, and what is damaged is an answer.
#include <gtest/gtest.h>

#include "fxds/Globals.h"
#include "fxds/Save.h"
#include "tests/streams/RandomGraph.h"
#include "tests/support/Surroundings.h"

namespace {

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

// The bytes of a graph of about so many objects.
std::string bytesOf(size_t count) {
    Random random;
    const std::string bytes = saved(random.graph(count));
    deleteAll();
    return bytes;
}

// Loading an Everything leaves nothing behind but what it gives. Why it does not load, or
// fxStreamFault::none.
fxStreamFault::Kind loadedKind(const std::string& bytes, size_t at) {
    StingyStream stream(bytes, at % 3 * 100);
    fxLoaded<Everything> root = fxLoad<Everything>(stream);
    const fxStreamFault fault = root.fault();
    EXPECT_NE(static_cast<bool>(root), static_cast<bool>(fault)) << at;
    if (root) {
        HeldStream again;
        fxBinaryWriter writer(again);
        fxWriteObject(writer, root.release());  // looks at all of it
    } else {
        EXPECT_TRUE(Listed::all().empty()) << at;
        EXPECT_LE(fault.offset, bytes.size()) << at;
        EXPECT_FALSE(fault.text().empty()) << at;
        EXPECT_TRUE(fault.kind == fxStreamFault::ended || fault.kind == fxStreamFault::foreign ||
                    isDocumentedMessage(fault.reason) || fault.kind == fxStreamFault::refused)
            << at << ": " << fault.reason;
    }
    deleteAll();
    return fault.kind;
}

/// How a machine stores a 4-byte number: byte i of its memory is byte order[i] of the
/// number, counted from the lowest. The long mark is that number's as this machine reads it.
struct Machine {
    unsigned int order[4];
    long longMark;
    bool swapsShorts;
};
const Machine machines[] = {
    {{0, 1, 2, 3}, 0x33445566, false}, {{1, 0, 3, 2}, 0x44336655, false},
    {{2, 3, 0, 1}, 0x55663344, false}, {{3, 2, 1, 0}, 0x66554433, false},
    {{0, 1, 2, 3}, 0x33445566, true},  {{1, 0, 3, 2}, 0x44336655, true},
    {{2, 3, 0, 1}, 0x55663344, true},  {{3, 2, 1, 0}, 0x66554433, true},
};

/// Writes numbers as a machine stores them, floating-point ones as this one does.
class ForeignWriter : public fxBinaryWriter {
    typedef fxBinaryWriter Base;

public:
    ForeignWriter(fxStream* out, const Machine& machine_)
        : fxTranscriber(out, false), Base(out), machine(machine_) {}
    using fxBinaryWriter::xdr;
// NOLINTBEGIN(bugprone-macro-parentheses): the parameter is a type
#define STORED(Type)                                                                     \
    bool xdr(Type* v, unsigned int n) override {                                         \
        std::vector<Type> copy(v, v + n);                                                \
        if (depth == 0 && !isOfContents()) store(copy);                                  \
        return nested([&] { return Base::xdr(copy.data(), n); });                        \
    }                                                                                    \
    bool xdr(Type** v, unsigned int n) override {                                        \
        if (&machine == machines || *v == nullptr || depth != 0) return Base::xdr(v, n); \
        std::shared_ptr<void>& copy = copies[*v];                                        \
        if (copy == nullptr) {                                                           \
            const auto stored = std::make_shared<std::vector<Type>>(*v, *v + n);         \
            store(*stored);                                                              \
            copy = std::shared_ptr<void>(stored, stored->data());                        \
        }                                                                                \
        Type* block = static_cast<Type*>(copy.get());                                    \
        return nested([&] { return Base::xdr(&block, n); });                             \
    }
    // NOLINTEND(bugprone-macro-parentheses)
    STORED(short)
    STORED(unsigned short)
    STORED(int)
    STORED(unsigned int)
    STORED(long)
    STORED(unsigned long)
#undef STORED
    std::map<const void*, std::shared_ptr<void>> copies;  // of blocks

private:
    // The base may ask itself for another operation, and for those of contents.
    bool isOfContents() const { return tag >= fxTagBytes && tag <= fxTagDoubles; }
    template <class Do>
    bool nested(Do operation) {
        ++depth;
        const bool isDone = operation();
        --depth;
        return isDone;
    }
    template <class T>
    void store(std::vector<T>& numbers) const {
        char* const bytes = reinterpret_cast<char*>(numbers.data());
        const std::string was(bytes, numbers.size() * sizeof(T));
        for (size_t i = 0; i < was.size(); ++i) {
            bytes[i] = was[sizeof(T) == 2 ? i ^ size_t{machine.swapsShorts}
                                          : i / 4 * 4 + machine.order[i % 4]];
        }
    }
    const Machine& machine;
    int depth = 0;
};

class Graph : public testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override {
        deleteAll();
        EXPECT_TRUE(Listed::all().empty());
    }
};

/// One of very many.
class Link : public fxXDRObj {
    FX_TRANSCRIBABLE(Link)
    long number = 0;
    fxRef<Link> next;
};
FX_TRANSCRIBABLE_TYPE(Link, "Link", 1);
fxBool Link::xdr(fxTranscriber& t) { return fxXdrAll(t, number, next); }

}  // namespace

// From each machine, several graphs on one stream, with values between them. Later ones lead to
// objects of earlier ones, until both sides forget them and they go. Nothing is read beyond a
// graph.
TEST_F(Graph, ReadsBackTheSame) {
    Random random;
    for (size_t round = 0; round < 16; ++round) {
        const Machine& machine = machines[round % 8];
        StingyStream in(random.upTo(2) * 150);
        in.putBytes(header(machine.swapsShorts ? 0x2211 : 0x1122, machine.longMark).data(), 30);
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(&in));
        HeldStream out;
        ForeignWriter writer(out, machine);
        NotedStream notes;
        auto same = std::make_unique<Same>();
        for (int graph = 0; graph < 12; ++graph) {
            std::vector<std::pair<Everything*, size_t>> written;
            for (size_t i = random.upTo(2) + 1; i > 0; --i) {
                Everything* const root = random.graph(random.upTo(12));
                fxRef<Listed> again = root;
                long number = graph;
                const auto write = [&](fxTranscriber& t) {
                    return fxXdrAll(t, number, root->label) && fxWriteObject(t, root) &&
                           fxXdr(t, again);
                };
                ASSERT_TRUE(write(writer) && writer.flush() && notes.write(write));
                written.emplace_back(root, in.length() + out->length());
                static_cast<void>(again.release());
            }
            in.putBytes(out->bytes(), static_cast<unsigned int>(out->length()));
            out->reset();
            for (const auto& [root, end] : written) {
                long number = -1;
                fxStr label;
                ASSERT_TRUE(fxXdrAll(*reader, number, label));
                Everything* const read = fxReadObject<Everything>(*reader);
                fxRef<Listed> again;
                ASSERT_TRUE(read != nullptr && fxXdr(*reader, again) && again == read);
                static_cast<void>(again.release());
                EXPECT_EQ(in.taken(), end);
                EXPECT_TRUE(number == graph && label == root->label);
                same->expect(root, read);
            }
            same->run();
            ASSERT_FALSE(HasFailure()) << round;
            const size_t event = graph < 11 ? random.upTo(4) : 0;
            if (event > 2) continue;
            if (event == 0) writer.reset(), reader->reset(), notes.reset();
            if (event > 0) writer.forgetObjects(), reader->forgetObjects(), notes.forget();
            writer.copies.clear();
            same = std::make_unique<Same>();
            random.known.clear();
            random.free.clear();
            deleteAll();
        }
        if (round % 8 == 0) notes.keep(in.view());
    }
}

TEST_F(Graph, EveryCutIsAnAnswer) {
    const std::string bytes = bytesOf(2);
    EXPECT_EQ(loadedKind(bytes, 0), fxStreamFault::none);
    for (size_t n = 0; n < bytes.size(); ++n)
        ASSERT_EQ(loadedKind(bytes.substr(0, n), n), fxStreamFault::ended) << n;
}

TEST_F(Graph, EveryFlippedByteIsAnAnswer) {
    const std::string bytes = bytesOf(2);
    for (size_t i = 0; i < bytes.size() && !HasFailure(); ++i) {
        for (const size_t way : {i, i + 2}) {
            std::string flipped = bytes;
            flipped[i] = static_cast<char>(flipped[i] ^ "\x01\x06\x08\x80\xFF"[way % 5]);
            loadedKind(flipped, i);
        }
    }
}

TEST_F(Graph, ContainersThatChangeBeforeTheyAreWholeAreRefused) {
    typedef Everything E;
    Node node;
    E written;
    written.strings = {"a", "bb"};
    written.set.add("a");
    written.dictionary["a"] = "b";
    written.rows = {{"a"}, {"b"}};
    written.records.resize(1);
    written.records[0].name = "name";
    written.optionals = {{"a", "b"}, {"c", "d"}};
    written.value = std::make_unique<std::pair<long, fxStr>>(1, "own");
    written.many = {&written};
    written.late = "text";
    written.lates = {"a"};
    written.nodes.append(&node);
    const std::string bytes = saved(&written);
    const auto reasonWith = [&](bool (*act)(E&)) {
        E::act = act;
        fxLoaded<E> read = fxLoad<E>(bytes.data(), bytes.size());
        if (read) delete static_cast<Node*>(read->nodes[0]);
        return read.fault().reason;
    };
    EXPECT_EQ(reasonWith(nullptr), "");
    bool (*const acts[])(E&) = {
        [](E& e) { return e.strings.append("new"), true; },
        [](E& e) { return e.strings.remove(0), true; },
        [](E& e) { return e.strings = fxStrArray::of("1", "2"), true; },
        [](E& e) { return e.dictionary.cleanup(), true; },
        [](E& e) { return e.dictionary["new"] = "entry", true; },
        [](E& e) { return e.set.add("new"), true; },
        [](E& e) { return e.rows.clear(), true; },
        [](E& e) { return e.rows.resize(100), true; },
        [](E& e) { return e.rows[1].push_back("new"), true; },
        [](E& e) { return e.optionals.erase("a") == 1; },
        [](E& e) { return e.optionals["c"].reset(), true; },
        [](E& e) { return e.value.reset(), true; },
        [](E& e) { return e.many.push_back(nullptr), true; },
        [](E& e) { return e.nodes.append(nullptr), true; },
    };
    for (const auto& act : acts) {
        EXPECT_EQ(reasonWith(act), "a container was changed in xdr() after it was read")
            << &act - acts;
    }
#ifndef __SANITIZE_ADDRESS__  // which has local variables elsewhere, and tells of them itself
    for (E::local = 1; E::local < 3; ++E::local) {
        EXPECT_EQ(reasonWith(nullptr), "a local variable of xdr() waits for what it leads to");
    }
    E::local = 0;
#endif
    // One that makes do with what it got before has no elements without any content.
    E::act = [](E& e) { return e.value.reset(), false; };
    E::makesDo = true;
    const fxLoaded<E> read = fxLoad<E>(bytes.data(), bytes.size());
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->strings.isEmpty() && read->dictionary.isEmpty() && read->many.empty() &&
                read->nodes.isEmpty() && read->rows.size() == 2 && read->rows[1].empty());
    E::act = nullptr;
    E::makesDo = false;
}

// Written twice to one stream: the second time the parts have other numbers.
TEST_F(Graph, FailuresAreAskedOfThePartItsHolderAndTheWhole) {
    double numbers[] = {1, 2};
    Street street;
    street.houses.resize(100);  // moves what waits to be told
    street.count = 2;
    street.numbers = numbers;
    EXPECT_EQ(std::unique_ptr<House>(fxXdrCopy(&street.corner))->allTold(), 2);
    HeldStream stream;
    fxBinaryWriter writer(stream);
    ASSERT_TRUE(fxWriteObject(writer, &street) && fxWriteObject(writer, &street));
    for (const fxTypeObj* failing : {&fxXDRObj_type, &Street_type, &Rented_type}) {
        stream->rewind();
        Ender::failing = failing;
        fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
        for (int i = 0; i < 2; ++i) {
            Ender::asked.clear();
            const std::unique_ptr<Street> read(fxReadObject<Street>(reader));
            ASSERT_NE(read, nullptr);
            const bool isWhole = failing == &fxXDRObj_type;
            int told = read->told + read->corner.allTold();
            for (const House& house : read->houses) told += house.allTold();
            EXPECT_EQ(told, isWhole ? 203 : 0);
            EXPECT_EQ(read->houses.size(), failing == &Rented_type ? 0U : 100U);
            EXPECT_EQ(read->count, isWhole ? 2U : 0U);
            EXPECT_EQ(read->numbers != nullptr, isWhole);
            std::free(read->numbers);
            const std::vector<const void*> all = {static_cast<Rented*>(&read->corner),
                                                  &read->corner, read.get()};
            const auto first = all.end() - (isWhole ? 0 : failing == &Street_type ? 1 : 3);
            EXPECT_EQ(Ender::asked, std::vector<const void*>(first, all.end()));
        }
    }
    Ender::failing = nullptr;
}

TEST_F(Graph, MillionObjectsInAChainNeedNoStack) {
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
