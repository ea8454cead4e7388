// Random graphs of objects that have a field of every kind, and their comparison.
#ifndef FXDS_TESTS_RANDOMGRAPH_H
#define FXDS_TESTS_RANDOMGRAPH_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <tuple>

#include "fxds/XdrTables.h"
#include "tests/support/RichGraph.h"
#include "tests/support/TestSeed.h"

enum class Colour : unsigned char { red };
enum class Far : long { away };

/// A value with texts, which move when its vector grows.
struct Named {
    int number = 0;
    fxStr name;
    std::vector<fxStr> aliases;
    bool xdr(fxTranscriber& t) { return fxXdrAll(t, number, name, aliases); }
    bool operator==(const Named& other) const {
        return number == other.number && name == other.name && aliases == other.aliases;
    }
};

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
inline fxBool Owned::xdr(fxTranscriber& t) { return fields(t, Owned_type); }
class Rented : public Ender {
    FX_TRANSCRIBABLE(Rented)
};
FX_TRANSCRIBABLE_TYPE(Rented, "Rented", 1);
inline fxBool Rented::xdr(fxTranscriber& t) { return fields(t, Rented_type); }

/// Two roots, the second of a part.
class House : public Owned, public Rented {
    FX_TRANSCRIBABLE(House)
    int allTold() const { return Owned::told + Rented::told; }
};
FX_TRANSCRIBABLE_TYPE(House, "House", 1, Owned, Rented);
inline fxBool House::xdr(fxTranscriber& t) {
    return fxXdrBase<Owned>(t, this) && fxXdrBase<Rented>(t, this);
}
/// Embedded, so that no list has it.
struct Inside : public fxXDRObj {
    fxStr text;
    Node* left = nullptr;
    Listed* right = nullptr;
    fxBool xdr(fxTranscriber& t) {
        return fxXdr(t, text) && fxXdrObject(t, left) && fxXdrObject(t, right);
    }
};

/// The fields that a Rich has none of.
class Everything : public Rich {
    FX_TRANSCRIBABLE(Everything)
    ~Everything() override {
        std::apply([](auto*... block) { (std::free(block), ...); }, blocks);
        std::free(own);
    }
    void xdrSuccess(fxTranscriber& t) override {
        Rich::xdrSuccess(t);
        if (!t.isReading()) return;
        ++told;
        isWhole &= t.readObject(typeRecord()) == nullptr;  // nor is the next graph read now
        for (const Listed* each : pointers()) isWhole &= each == nullptr || each->number != 0;
    }
    fxBool xdrFail(fxTranscriber&, void*) override { return makesDo; }
    auto ofRich() {
        return std::tie(flag, small, real, label, First::number, Second::own, ints, bools, strings,
                        set, dictionary);
    }
    auto added() {
        return std::tie(fixed, names, lists, records, maps, perhaps, longs, flags, texts, table,
                        keys, rows, optionals);
    }
    std::vector<Listed*> pointers() {
        std::vector<Listed*> all = many;
        all.insert(all.end(), {other, second, any, dynamic_cast<Listed*>(anything), child.get(),
                               reference.get()});
        for (const auto& each : children) all.push_back(each.get());
        for (const auto& each : references) all.push_back(const_cast<Listed*>(each.get()));
        for (void* each : nodes) all.push_back(static_cast<Node*>(each));
        return all;
    }
    // Leaves what it holds to others.
    void letGo() {
        static_cast<void>(child.release());
        static_cast<void>(reference.release());
        for (auto& each : children) static_cast<void>(each.release());
        for (auto& each : references) static_cast<void>(each.release());
    }

    std::tuple<bool, char, signed char, unsigned char, short, unsigned short, int, unsigned int,
               long, unsigned long, long long, unsigned long long, float, double, long double,
               wchar_t, char16_t, char32_t, Colour, Far>
        numbers;
    std::pair<std::array<int, 3>, std::array<std::string, 2>> fixed;
    std::pair<fxStr, std::string> names;
    std::pair<std::vector<int>, std::vector<bool>> lists;
    std::vector<Named> records;
    std::pair<std::map<std::string, std::vector<double>>, std::unordered_map<int, fxStr>> maps;
    std::vector<std::optional<std::pair<int, fxStr>>> perhaps;
    std::array<long, 2> longs = {};
    std::array<bool, 2> flags = {};
    std::array<fxStr, 2> texts;
    fxXdrDictionary<fxStr, std::map<int, std::string>> table;
    fxXdrSet<fxStr> keys;
    std::vector<std::vector<fxStr>> rows;
    std::map<std::string, std::optional<fxStr>> optionals;
    std::unique_ptr<std::pair<long, fxStr>> value;
    Inside inner;
    House corner;
    std::vector<House> houses;
    std::unique_ptr<Everything> child;
    std::vector<std::unique_ptr<Listed>> children;
    fxRef<Listed> reference;
    std::vector<fxRef<const Listed>> references;
    fxVoidPtrArray nodes;  // of Node*
    unsigned int n = 0;
    std::tuple<char*, unsigned char*, short*, unsigned short*, int*, long*, float*, double*> blocks;
    char* own = nullptr;
    fxStr late;
    std::vector<fxStr> lates;
    int told = 0;
    bool isWhole = true;
    static inline bool (*act)(Everything& self) = nullptr;  // when all was read
    static inline int local = 0;  // what is read into a variable: 1, a text, 2, a vector
    static inline bool makesDo = false;
};
FX_TRANSCRIBABLE_TYPE(Everything, "Everything", 3, Rich);
inline fxBool Everything::xdr(fxTranscriber& t) {
    const auto all = [&t](auto&... field) { return fxXdrAll(t, field...); };
    const auto owned = [&](auto&... block) { return (fxXdrBlock(t, block, n) && ...); };
    fxStr localText;
    std::vector<fxStr> localTexts;
    return fxXdrBase<Rich>(t, this) && std::apply(all, numbers) && std::apply(all, added()) &&
           all(value, inner, corner, houses, child, children, reference, references) &&
           fxXdrObjects<Node>(t, nodes) && std::apply(owned, blocks) && fxXdrString(t, own) &&
           fxXdr(t, local == 1 ? localText : late) && fxXdr(t, local == 2 ? localTexts : lates) &&
           (!t.isReading() || act == nullptr || act(*this));
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
    template <class A, class B>
    void fill(std::pair<A, B>& v) {
        all(v.first, v.second);
    }
    template <class T, size_t n>
    void fill(std::array<T, n>& v) {
        for (T& each : v) fill(each);
    }
    template <class T>
    void fill(std::optional<T>& v) {
        if (upTo(1) != 0) fill(v.emplace());
    }
    template <class T>
    void fill(std::vector<T>& v) {
        for (size_t i = some(); i > 0; --i) v.push_back(made<T>());
    }
    template <class T>
    std::enable_if_t<std::is_base_of_v<fxArray, T>> fill(T& v) {
        for (size_t i = some(); i > 0; --i) v.push_back(made<std::decay_t<decltype(v[0])>>());
    }
    template <template <class...> class Map, class K, class V, class... More>
    void fill(Map<K, V, More...>& v) {
        for (size_t i = some(); i > 0; --i) v[made<K>()] = made<V>();
    }
    void fill(fxStrStrDictionary& v) {
        for (size_t i = some(); i > 0; --i) v[made<fxStr>()] = made<fxStr>();
    }
    template <class Set>
    std::enable_if_t<std::is_base_of_v<fxSet, Set>> fill(Set& v) {
        for (size_t i = some(); i > 0; --i) v.add(made<fxStr>());
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
    // Released with what was received.
    template <class C>
    void give(
        C*& object,
        std::set<typename std::conditional_t<std::is_same_v<C, fxStr>, fxStr, fxXDRObj>*>& all) {
        if (upTo(1) == 0) return;
        object = new C;
        fill(*object);
        all.insert(object);
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
        const auto fillAll = [this](auto&... v) { all(v...); };
        std::apply(fillAll, e.numbers);
        std::apply(fillAll, e.added());
        std::apply(fillAll, e.ofRich());
        fillAll(e.late, e.lates);
        e.number = 1 + static_cast<long>(upTo(1000));
        e.value = std::make_unique<std::pair<long, fxStr>>(made<std::pair<long, fxStr>>());
        e.count = static_cast<unsigned int>(some());
        block(e.shorts, e.count), block(e.integers, e.count);
        block(e.doubles, e.count), block(e.floats, e.count);
        e.text = e.same = strdup(made<std::string>().c_str());
        for (void* each : {static_cast<void*>(e.shorts), static_cast<void*>(e.integers),
                           static_cast<void*>(e.doubles), static_cast<void*>(e.floats),
                           static_cast<void*>(e.text)}) {
            if (each != nullptr) Received::blocks().insert(each);
        }
        e.n = static_cast<unsigned int>(some());
        std::apply([&](auto*&... items) { (block(items, e.n), ...); }, e.blocks);
        e.own = upTo(2) == 0 ? nullptr : strdup(made<std::string>().c_str());
        lead(e.other), lead(e.second), lead(e.any), lead(e.anything);
        give(e.shortArray, Received::objects()), give(e.stringArray, Received::objects());
        give(e.string, Received::strings());
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

/// Walks two graphs at once: they are to be the same, connected alike.
class Same {
public:
    void expect(Listed* a, Listed* b) {
        ASSERT_EQ(a == nullptr, b == nullptr);
        if (a == nullptr) return;
        const bool isNew = partner.emplace(a, b).second;
        ASSERT_EQ(partner.emplace(b, a).second, isNew);
        ASSERT_TRUE(partner[a] == b && partner[b] == a);
        if (isNew) walk.emplace_back(a, b);
    }
    void run() {
        for (; next < walk.size(); ++next) {
            const auto [a, b] = walk[next];
            ASSERT_EQ(typeid(*a), typeid(*b));
            EXPECT_EQ(a->number, b->number);
            if (Node* node = dynamic_cast<Node*>(a)) expectNode(*node, dynamic_cast<Node&>(*b));
            if (Leaf* leaf = dynamic_cast<Leaf*>(a)) {
                EXPECT_EQ(leaf->weight, dynamic_cast<Leaf&>(*b).weight);
                expect(leaf->owner, dynamic_cast<Leaf&>(*b).owner);
            }
            if (Everything* all = dynamic_cast<Everything*>(a))
                expectAll(*all, dynamic_cast<Everything&>(*b));
        }
        for (const auto& [a, b] : walk) EXPECT_EQ(a->refCount, b->refCount);
    }

private:
    template <class N>
    void expectNode(N& a, N& b) {
        EXPECT_EQ(a.text, b.text);
        expect(a.left, b.left);
        expect(a.right, b.right);
    }
    template <class T>
    static bool areEqual(const T* a, const T* b, unsigned int count) {
        return a == nullptr || b == nullptr ? a == b : std::equal(a, a + count, b);
    }
    template <class T>
    static void expectEqual(const T* a, const T* b) {
        EXPECT_TRUE(a == nullptr || b == nullptr ? a == b : *a == *b);
    }
    void expectAll(Everything& a, Everything& b) {
        EXPECT_TRUE(a.numbers == b.numbers && a.added() == b.added() && a.ofRich() == b.ofRich());
        EXPECT_TRUE(a.late == b.late && a.lates == b.lates && *a.value == *b.value &&
                    std::equal(a.row, a.row + 3, b.row));
        EXPECT_TRUE(a.count == b.count && areEqual(a.shorts, b.shorts, a.count) &&
                    areEqual(a.integers, b.integers, a.count) &&
                    areEqual(a.doubles, b.doubles, a.count) &&
                    areEqual(a.floats, b.floats, a.count));
        EXPECT_STREQ(a.text, b.text);
        EXPECT_EQ(b.text, b.same);
        EXPECT_STREQ(a.own, b.own);
        EXPECT_TRUE(a.n == b.n && areBlocksEqual(a, b, std::make_index_sequence<8>()));
        expectEqual(a.shortArray, b.shortArray);
        expectEqual(a.stringArray, b.stringArray);
        expectEqual(a.string, b.string);
        EXPECT_TRUE(b.told == 1 && b.isWhole);
        expectNode(a.inner, b.inner);
        ASSERT_EQ(a.houses.size(), b.houses.size());
        EXPECT_EQ(b.corner.allTold(), 2);
        for (const House& house : b.houses) EXPECT_EQ(house.allTold(), 2);
        const std::vector<Listed*> ours = a.pointers(), theirs = b.pointers();
        ASSERT_EQ(ours.size(), theirs.size());
        for (size_t i = 0; i < ours.size(); ++i) expect(ours[i], theirs[i]);
    }
    template <size_t... i>
    static bool areBlocksEqual(Everything& a, Everything& b, std::index_sequence<i...>) {
        return (areEqual(std::get<i>(a.blocks), std::get<i>(b.blocks), a.n) && ...);
    }

    std::map<Listed*, Listed*> partner;
    std::vector<std::pair<Listed*, Listed*>> walk;
    size_t next = 0;
};

inline void deleteAll() {
    for (Listed* each : Listed::all()) {
        if (Everything* holder = dynamic_cast<Everything*>(each)) holder->letGo();
    }
    Received::deleteAll();
}

#endif
