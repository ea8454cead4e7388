// Random graphs with a field of every kind: what is written reads back the same, whatever
// was on the stream before, and what is damaged is an answer.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "fxds/Globals.h"
#include "fxds/Save.h"
#include "tests/support/RichGraph.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

class Street : public Ender {
    FX_TRANSCRIBABLE(Street)
    House corner;
    std::vector<House> houses;
    unsigned int count = 0;
    double* numbers = nullptr;
};
TRANSCRIBED(Street, 1) {
    return fxXdr(t, corner) && fxXdr(t, houses) && fxXdrBlock(t, numbers, count) &&
           fields(t, Street_type);
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
    Received::deleteAll();
    return fault.kind;
}

/// Fills fields, and graphs of objects.
class Random {
public:
    size_t upTo(size_t most) { return rng() % (most + 1); }

    template <class T>
    std::enable_if_t<std::is_arithmetic_v<T> || std::is_enum_v<T>> fill(T& v) {
        const unsigned long bits = (rng() * (1UL << 32U) + rng()) >> upTo(63);
        if constexpr (std::is_floating_point_v<T>) {
            v = std::ldexp(static_cast<T>(static_cast<int>(bits)), static_cast<int>(upTo(90)));
        } else {
            v = static_cast<T>(std::is_same_v<T, bool> ? bits & 1U : bits);
        }
    }
    void fill(std::string& v) {
        v.resize(upTo(40) == 0 ? 700 : some());
        for (char& c : v) c = static_cast<char>('a' + upTo(20));
    }
    void fill(fxStr& v) { v = made<std::string>(); }
    void fill(Named& v) { all(v.number, v.name, v.aliases); }
    template <class T>  // pairs and arrays
    auto fill(T& v) -> decltype(std::tuple_size<T>::value, void()) {
        std::apply([this](auto&... each) { this->all(each...); }, v);
    }
    template <class T>
    void fill(std::optional<T>& v) {
        if (upTo(1) != 0) fill(v.emplace());
    }
    template <class T>
    void fill(std::unique_ptr<T>& v) {
        fill(*(v = std::make_unique<T>()));
    }
    template <class T>
    auto fill(T& v) -> decltype(v.push_back(typename T::value_type())) {
        for (size_t i = some(); i > 0; --i) v.push_back(made<typename T::value_type>());
    }
    template <class T>
    auto fill(T& v) -> decltype(v.add(fxStr()), void()) {
        for (size_t i = some(); i > 0; --i) v.add(made<fxStr>());
    }
    template <class K, class V>
    void fill(fxTypedDictionary<K, V>& v) {
        for (size_t i = some(); i > 0; --i) v[made<K>()] = made<V>();
    }
    template <class K, class V>
    void fill(std::map<K, V>& v) {
        for (size_t i = some(); i > 0; --i) v[made<K>()] = made<V>();
    }
    template <class K, class V>
    void fill(std::unordered_map<K, V>& v) {
        v[made<K>()] = made<V>();  // more of them have no order that reading keeps
    }
    template <class T>
    T made() {
        T v{};
        fill(v);
        return v;
    }
    template <class... T>
    void all(T&... v) {
        (fill(v), ...);
    }

    /// A root that leads to new objects, which lead to any of those that are known.
    Everything* graph(size_t count) {
        auto* const root = new Everything;
        fresh.clear();
        enter(*root, false);
        for (size_t i = 0; i < count; ++i) {
            const size_t kind = upTo(9);
            root->many.push_back(kind < 4   ? new Node
                                 : kind < 7 ? new Leaf
                                 : kind < 8 ? new Listed
                                            : static_cast<Listed*>(new Everything));
            enter(*root->many.back(), false);
        }
        for (size_t i = 0; i < fresh.size(); ++i) connect(*fresh[i]);
        return root;
    }

    std::vector<Listed*> known;  ///< What pointers may lead to.
    std::vector<Listed*> free;   ///< Those that have no owner.

private:
    size_t some() { return upTo(upTo(30) == 0 ? 90 : 2); }
    void enter(Listed& object, bool isOwned) {
        object.number = 1 + static_cast<long>(upTo(1000));
        known.push_back(&object);
        fresh.push_back(&object);
        if (!isOwned) free.push_back(&object);
    }
    template <class C>
    C* any(const std::vector<Listed*>& from) {
        C* found = nullptr;
        for (int i = 0; i < 3 && found == nullptr; ++i)
            found = dynamic_cast<C*>(from[upTo(from.size() - 1)]);
        return found;
    }
    template <class C>
    void lead(C*& pointer) {
        pointer = any<C>(known);
    }
    template <class C>
    void give(C*& object) {
        if (upTo(1) != 0) fill(*(object = new C));
    }
    template <class T>
    void block(T*& items, unsigned int count) {
        if (count == 0) return;
        items = static_cast<T*>(std::malloc(count * sizeof(T)));
        for (unsigned int i = 0; i < count; ++i) fill(items[i]);
    }
    void connect(Listed& object) {
        if (Node* node = dynamic_cast<Node*>(&object)) connectNode(*node);
        if (Leaf* leaf = dynamic_cast<Leaf*>(&object)) {
            lead(leaf->owner);
            fill(leaf->weight);
        }
        if (Everything* all = dynamic_cast<Everything*>(&object)) connectAll(*all);
    }
    template <class N>
    void connectNode(N& node) {
        fill(node.text);
        lead(node.left);
        lead(node.right);
    }
    void connectAll(Everything& e) {
        std::apply([this](auto&... v) { all(v...); }, e.values());
        e.number = 1 + static_cast<long>(upTo(1000));
        fill(e.value);
        e.count = static_cast<unsigned int>(some());
        std::apply([&](auto*&... items) { (block(items, e.count), ...); }, e.counted);
        e.text = e.same = strdup(made<std::string>().c_str());
        e.n = static_cast<unsigned int>(some());
        std::apply([&](auto*&... items) { (block(items, e.n), ...); }, e.blocks);
        e.own = upTo(2) == 0 ? nullptr : strdup(made<std::string>().c_str());
        std::apply([&](auto*&... each) { (lead(each), ...); }, e.to);
        std::apply([&](auto*&... each) { (give(each), ...); }, e.given);
        e.receive();
        connectNode(e.inner);
        e.houses.resize(some());
        if (upTo(6) == 0) enter(*(e.child = std::make_unique<Everything>()), true);
        e.reference = any<Listed>(free);
        for (size_t i = some(); i > 0; --i) {
            e.children.push_back(std::make_unique<Node>());
            enter(*e.children.back(), true);
            e.references.emplace_back(any<Listed>(free));
            e.nodes.append(any<Node>(known));
        }
    }

    std::vector<Listed*> fresh;
    std::mt19937 rng{testSeed()};
};

/// Its bytes are the same, though it takes none of the short ways.
struct Subclass : fxBinaryWriter {
    explicit Subclass(fxStream* out) : fxTranscriber(out, false), fxBinaryWriter(out) {}
};

template <class Writer = fxBinaryWriter>
std::string bytesOf(const std::vector<Everything*>& roots) {
    HeldStream stream;
    Writer writer(stream);
    for (Everything* root : roots) EXPECT_TRUE(fxWriteObject(writer, root));
    return std::string(stream->view());
}

std::vector<Everything*> readAgain(std::vector<Everything*> roots) {
    HeldStream stream(bytesOf(roots));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    for (Everything*& root : roots) root = fxReadObject<Everything>(reader);
    return roots;
}

/// The same values. Whether what pointers lead to is connected alike is for bytesOf().
void expectSameValues(Listed* a, Listed* b, std::set<Listed*>& seen) {
    Everything* const ours = dynamic_cast<Everything*>(a);
    if (ours == nullptr || !seen.insert(ours).second) return;
    auto& theirs = dynamic_cast<Everything&>(*b);
    EXPECT_TRUE(ours->values() == theirs.values() && *ours->value == *theirs.value);
    const std::vector<Listed*> from = ours->pointers(), to = theirs.pointers();
    ASSERT_EQ(from.size(), to.size());
    for (size_t i = 0; i < from.size(); ++i) expectSameValues(from[i], to[i], seen);
}

/// The graphs are the same, as many objects, held by as many and told of their success once.
/// Each reading turns the chains of tables round.
void expectSame(const std::vector<Everything*>& ours, const std::vector<Everything*>& theirs,
                const std::vector<Listed*>& allOurs) {
    long holders = 0, unread = 0;
    EXPECT_EQ(Listed::all().size(), 2 * allOurs.size());
    for (Listed* each : allOurs) holders -= 2 * static_cast<long>(each->refCount);
    for (Listed* each : Listed::all()) {
        holders += static_cast<long>(each->refCount);
        const auto* all = dynamic_cast<Everything*>(each);
        if (all == nullptr) continue;
        unread += all->told == 0 ? 1 : -1;
        EXPECT_TRUE(all->told == 0 || (all->isWhole && all->toldTooOften() == 0));
    }
    EXPECT_TRUE(holders == 0 && unread == 0);
    std::set<Listed*> seen;
    for (size_t i = 0; i < ours.size(); ++i) expectSameValues(ours[i], theirs[i], seen);
    EXPECT_TRUE(bytesOf(readAgain(theirs)) == bytesOf(ours));
}

class Graph : public testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void TearDown() override {
        Received::deleteAll();
        EXPECT_TRUE(Listed::all().empty());
    }
};

/// One of very many. Holders are counted by its base.
class Link : public fxXDRObj {
    FX_TRANSCRIBABLE(Link)
    void take() const { ADD_FAILURE(); }
    long number = 0;
    fxRef<Link> next;
    std::vector<std::unique_ptr<Link>> owned;
};
TRANSCRIBED(Link, 1) { return fxXdrAll(t, number, next, owned); }

}  // namespace

// From each machine, several graphs on one stream, with values between them. Later ones lead to
// objects of earlier ones, until both sides forget them and they go. Nothing is read beyond a
// graph.
TEST_F(Graph, ReadsBackTheSame) {
    Random random;
    for (unsigned int round = 0; round < 24U / testShare; ++round) {
        StingyStream in(random.upTo(2) * 150);
        in.putBytes(headerOf(round % 8).data(), 30);
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(&in));
        HeldStream out;
        NotingWriter writer(out, round % 8);
        std::vector<Everything*> written, read;
        for (int graph = 0; graph < 12; ++graph) {
            std::vector<size_t> ends;
            for (size_t i = random.upTo(2) + 1; i > 0; --i) {
                Everything* const root = random.graph(random.upTo(12));
                fxRef<Listed> again = root;
                long number = graph;
                ASSERT_TRUE(fxXdrAll(writer, number, root->label) && fxWriteObject(writer, root) &&
                            fxXdr(writer, again) && writer.flush());
                static_cast<void>(again.release());
                written.push_back(root);
                ends.push_back(in.length() + out->length());
            }
            in.putBytes(out->bytes(), static_cast<unsigned int>(out->length()));
            out->reset();
            for (const size_t end : ends) {
                long number = -1;
                fxStr label;
                ASSERT_TRUE(fxXdrAll(*reader, number, label));
                read.push_back(fxReadObject<Everything>(*reader));
                fxRef<Listed> again;
                ASSERT_TRUE(read.back() != nullptr && fxXdr(*reader, again));
                EXPECT_EQ(again.release(), read.back());
                EXPECT_TRUE(number == graph && label == written[read.size() - 1]->label);
                EXPECT_EQ(in.taken(), end);
            }
            const size_t event = graph < 11 ? random.upTo(4) : 0;
            if (event > 2) continue;
            expectSame(written, read, random.known);
            ASSERT_FALSE(HasFailure()) << round;
            if (event == 0) writer.reset(), reader->reset();
            if (event > 0) writer.forgetObjects(), reader->forgetObjects();
            writer.copies.clear(), random.known.clear(), random.free.clear();
            written.clear(), read.clear();
            Received::deleteAll();
        }
        if (round % 8 == 0) keep(in.view(), writer.notes);
    }
}

TEST_F(Graph, NothingLeadsToForgottenOnes) {
    HeldStream stream;
    for (const char* later : {"o9:2 4 1 p1 n", "o9:2 4 3 b3 n n"}) {
        stream.set(records("t2:Node o1:2 1 3 B3:3 P4 n o5:2 5 1 n n o4:2 4 1 n n c3:3 =hi~"));
        fxBinaryReader forgetful(stream, 0x1122, 0x33445566, "ieee");
        ASSERT_TRUE(fxReadObject<Node>(forgetful) != nullptr && Listed::all().size() == 3);
        forgetful.forgetObjects();
        EXPECT_EQ(Listed::all().size(), 2U) << "the reader has one that nothing leads to";
        stream.set(records(later));
        EXPECT_EQ(fxReadObject<Node>(forgetful), nullptr);
        Listed::deleteAll();
    }
}

TEST_F(Graph, EveryCutIsAnAnswer) {
    Everything* const root = Random().graph(2);
    const std::string bytes = saved(root);
    EXPECT_TRUE(bytesOf<Subclass>({root}) == bytesOf({root}));
    Received::deleteAll();
    EXPECT_EQ(loadedKind(bytes, 0), fxStreamFault::none);
    for (size_t n = 0; n < bytes.size(); ++n)
        ASSERT_EQ(loadedKind(bytes.substr(0, n), n), fxStreamFault::ended) << n;
}

TEST_F(Graph, EveryFlippedByteIsAnAnswer) {
    const std::string bytes = saved(Random().graph(2));
    Received::deleteAll();
    for (size_t i = 0; i < bytes.size() && !HasFailure(); i += testShare) {
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
    EXPECT_THROW(reasonWith([](E&) -> bool { throw 1; }), int);
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
        constexpr long count = 1000000 / testShare;
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

// A level of the vector and one of its element for each. Whichever comes first in the stream,
// they are few enough to end inside one another, or none is left.
TEST_F(Graph, OwnedObjectsAreOnlySoDeep) {
    const std::string tooDeep = "objects that own one another more than 10000 deep";
    const auto reasonOf = [](const std::string& text) {
        const std::string bytes = header() + records("t2:Link " + text);
        return fxLoad<Link>(bytes.data(), bytes.size()).fault().reason;
    };
    Link root;
    Link* last = &root;
    for (int count = 1; count <= 5002; ++count) {
        last = last->owned.emplace_back(std::make_unique<Link>()).get();
        if (count != 5000 && count != 5001) continue;
        std::string forth = "o1:2 0 n 1 P3 ", back;
        for (int i = 3; i < count + 3; ++i) {
            const std::string id = std::to_string(i), next = std::to_string(i + 1);
            const std::string link =
                'o' + id + ":2 0 n " + (i < count + 2 ? "1 p" + next : "0") + ' ';
            forth += link;
            back = link + back;
        }
        const std::string reason = count == 5000 ? "" : tooDeep;
        HeldStream stream;
        EXPECT_EQ(fxSave(*static_cast<fxStream*>(stream), root).reason, reason);
        EXPECT_TRUE(reasonOf(forth) == reason && reasonOf("o1:2 0 n 1 P3 " + back) == reason);
    }
    EXPECT_EQ(reasonOf("o1:2 0 n 1 P3 o4:2 0 n 1 p5 o5:2 0 n 1 p4 o3:2 0 n 0"), tooDeep);
}
