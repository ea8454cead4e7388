// Dictionaries against std::unordered_map and, where it is installed, GLib's
// table, at load 1 and with few chains.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "fxds/BinaryOTDict.h"
#include "fxds/Str.h"
#include "fxds/VoidPtrDict.h"

#ifdef FXDS_HAVE_ABSL
#include <absl/container/flat_hash_map.h>
#endif
#ifdef FXDS_HAVE_GLIB
#include <glib.h>
#endif

// Keys are looked up in another order than they were entered in, as in real
// programs. The number of chains is that of the map at its load of 1.

namespace {

template <const char* pattern>
struct NamesLike {
    typedef fxVoidPtrDict Dict;
    typedef std::unordered_map<std::string, void*> Map;
    static fxStr forDict(int i) { return fxStr(i * 7919, pattern); }
    static std::string forMap(int i) { return std::string(forDict(i)); }
};

// Short enough for a std::string to need no block.
constexpr char shortPattern[] = "%d.level";
typedef NamesLike<shortPattern> Names;
// Of 16 characters, one more than such a std::string holds.
constexpr char longPattern[] = "%09d.output";
typedef NamesLike<longPattern> LongNames;
// Different only in bytes that fxStr::hash() does not use.
constexpr char alikePattern[] = "/machine/sampler/level/%d";
typedef NamesLike<alikePattern> AlikeNames;

struct Addresses {
    typedef fxBinaryOTDict Dict;
    typedef std::unordered_map<const void*, unsigned long> Map;
    static const void* forMap(int i) {
        return reinterpret_cast<const void*>(0x7f0000000000UL +
                                             48UL * static_cast<unsigned int>(i));
    }
    static const void* forDict(int i) { return forMap(i); }
};

template <class Key>
std::vector<Key> makeKeys(benchmark::State& state, Key (*make)(int)) {
    std::vector<Key> keys;
    for (int i = 0; i < state.range(0); ++i) keys.push_back(make(i));
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

unsigned int chainsFor(const benchmark::State& state) {
    const unsigned int few = 31;
    if (state.range(1) != 0) return few;
    std::unordered_map<int, int> sized(static_cast<size_t>(state.range(0)));
    return static_cast<unsigned int>(sized.bucket_count());
}

void perEntry(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Table, class Key>
void enter(Table& table, const Key& key) {
    if constexpr (std::is_base_of_v<fxDictionary, Table>) {
        table.add(key, {});
    } else {
        table.emplace(key, typename Table::mapped_type{});
    }
}

// Into tables that `make()` returns.
template <class Keys, class Make>
void insertAll(benchmark::State& state, const Keys& keys, Make make) {
    for (auto _ : state) {
        auto table = make();
        for (const auto& key : keys) enter(table, key);
        benchmark::DoNotOptimize(table);
        state.PauseTiming();
        table.clear();
        state.ResumeTiming();
    }
    perEntry(state);
}

template <class Table, class Keys>
void fill(Table& table, Keys& keys) {
    for (const auto& key : keys) enter(table, key);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(2));
}

template <class Table, class Keys>
void findAll(benchmark::State& state, Table& table, Keys keys) {
    fill(table, keys);
    for (auto _ : state) {
        for (const auto& key : keys) benchmark::DoNotOptimize(table.find(key));
    }
    perEntry(state);
}

template <class Kind>
void dictInsert(benchmark::State& state) {
    const unsigned int chains = chainsFor(state);
    insertAll(state, makeKeys(state, Kind::forDict), [&] { return typename Kind::Dict(chains); });
}

template <class Kind>
void mapInsert(benchmark::State& state) {
    const auto keys = makeKeys(state, Kind::forMap);
    insertAll(state, keys, [&] { return typename Kind::Map(keys.size()); });
}

template <class Kind>
void dictFind(benchmark::State& state) {
    typename Kind::Dict dict(chainsFor(state));
    findAll(state, dict, makeKeys(state, Kind::forDict));
}

template <class Kind>
void mapFind(benchmark::State& state) {
    const auto keys = makeKeys(state, Kind::forMap);
    typename Kind::Map map(keys.size());
    findAll(state, map, keys);
}

// The floor of short names: chains and entries of the same parts as the dictionary's, in one
// block, without hooks, iterators and removal.
class PlainTable {
public:
    typedef void* mapped_type;

    struct Node {
        Node(const fxStr& key, void* value_, Node* next_)
            : element(&length), next(next_), length(key.length()), data(text), value(value_) {
            std::memcpy(text, key.data, length + 1);
        }
        bool isOf(const fxStr& key) const {
            return length == key.length() && std::memcmp(text, key.data, length) == 0;
        }
        void* element;
        Node* next;
        size_t tag = 0;
        size_t length;
        const char* data;
        void* value;
        char text[16] = {};
    };
    static_assert(sizeof(Node) == 64);

    PlainTable(unsigned int chains, size_t entries) : heads(chains) { nodes.reserve(entries); }
    const Node* find(const fxStr& key) const { return findFrom(heads[chainOf(key)], key); }
    void emplace(const fxStr& key, void* value) {
        Node*& head = heads[chainOf(key)];
        if (findFrom(head, key) == nullptr) head = &nodes.emplace_back(key, value, head);
    }
    void clear() { nodes.clear(); }

private:
    size_t chainOf(const fxStr& key) const { return key.hash() % heads.size(); }
    static const Node* findFrom(const Node* node, const fxStr& key) {
        while (node != nullptr && !node->isOf(key)) node = node->next;
        return node;
    }

    std::vector<Node*> heads;
    std::vector<Node> nodes;
};

void plainInsert(benchmark::State& state) {
    const auto keys = makeKeys(state, Names::forDict);
    const unsigned int chains = chainsFor(state);
    insertAll(state, keys, [&] { return PlainTable(chains, keys.size()); });
}

void plainFind(benchmark::State& state) {
    const auto keys = makeKeys(state, Names::forDict);
    PlainTable table(chainsFor(state), keys.size());
    findAll(state, table, keys);
}

// The cost of one entry that is added and removed in a table that is full
// otherwise.
template <class Kind>
void dictRemove(benchmark::State& state) {
    auto keys = makeKeys(state, Kind::forDict);
    typename Kind::Dict dict(chainsFor(state));
    fill(dict, keys);
    for (auto _ : state) {
        for (const auto& key : keys) {
            dict.remove(key);
            dict.add(key, {});
        }
    }
    perEntry(state);
}

#ifdef FXDS_HAVE_ABSL

template <class Kind>
using AbslFor = absl::flat_hash_map<typename Kind::Map::key_type, typename Kind::Map::mapped_type>;

// The second argument: whether the dictionary grows.
template <class Kind>
void abslInsert(benchmark::State& state) {
    const auto keys = makeKeys(state, Kind::forMap);
    insertAll(state, keys, [&] {
        AbslFor<Kind> map;
        if (state.range(1) == 0) map.reserve(keys.size());
        return map;
    });
}

template <class Kind>
void abslFind(benchmark::State& state) {
    AbslFor<Kind> map;
    findAll(state, map, makeKeys(state, Kind::forMap));
}

#endif

#ifdef FXDS_HAVE_GLIB

// GLib's table keeps texts by their addresses; so does this one.
struct GlibTexts {
    static GHashTable* make() { return g_hash_table_new_full(g_str_hash, g_str_equal, g_free, {}); }
    static const void* find(const std::string& key) { return key.c_str(); }
    static void* enter(const std::string& key) { return g_strdup(key.c_str()); }
};
struct GlibAddresses {
    static GHashTable* make() { return g_hash_table_new(g_direct_hash, g_direct_equal); }
    static const void* find(const void* key) { return key; }
    static void* enter(const void* key) { return const_cast<void*>(key); }
};
template <class Kind>
using GlibFor = std::conditional_t<std::is_same_v<Kind, Addresses>, GlibAddresses, GlibTexts>;

template <class Kind>
void glibInsert(benchmark::State& state) {
    const auto keys = makeKeys(state, Kind::forMap);
    for (auto _ : state) {
        GHashTable* const table = GlibFor<Kind>::make();
        for (const auto& key : keys) g_hash_table_insert(table, GlibFor<Kind>::enter(key), {});
        state.PauseTiming();
        g_hash_table_destroy(table);
        state.ResumeTiming();
    }
    perEntry(state);
}

template <class Kind>
void glibFind(benchmark::State& state) {
    auto keys = makeKeys(state, Kind::forMap);
    GHashTable* const table = GlibFor<Kind>::make();
    for (const auto& key : keys) g_hash_table_insert(table, GlibFor<Kind>::enter(key), {});
    std::shuffle(keys.begin(), keys.end(), std::mt19937(2));
    for (auto _ : state) {
        for (const auto& key : keys) {
            benchmark::DoNotOptimize(g_hash_table_lookup(table, GlibFor<Kind>::find(key)));
        }
    }
    g_hash_table_destroy(table);
    perEntry(state);
}

#endif

void loadOne(benchmark::internal::Benchmark* bench) { bench->Args({1000, 0})->Args({100000, 0}); }

void fewChains(benchmark::internal::Benchmark* bench) {
    for (const int entries : {10, 1000, 100000, 1000000}) bench->Args({entries, 1});
}

#define COMPARE(Kind)                                              \
    BENCHMARK(dictFind<Kind>)->Apply(loadOne)->Apply(fewChains);   \
    BENCHMARK(mapFind<Kind>)->Apply(loadOne);                      \
    BENCHMARK(dictInsert<Kind>)->Apply(loadOne)->Apply(fewChains); \
    BENCHMARK(mapInsert<Kind>)->Apply(loadOne);                    \
    BENCHMARK(dictRemove<Kind>)->Apply(loadOne)->Apply(fewChains)

COMPARE(Names);
COMPARE(LongNames);
COMPARE(AlikeNames);
COMPARE(Addresses);
BENCHMARK(plainFind)->Apply(loadOne);
BENCHMARK(plainInsert)->Apply(loadOne);

#ifdef FXDS_HAVE_ABSL
#define COMPARE_ABSL(Kind)                     \
    BENCHMARK(abslFind<Kind>)->Apply(loadOne); \
    BENCHMARK(abslInsert<Kind>)->Apply(loadOne)->Apply(fewChains)

COMPARE_ABSL(Names);
COMPARE_ABSL(LongNames);
COMPARE_ABSL(Addresses);
#endif

#ifdef FXDS_HAVE_GLIB
#define COMPARE_GLIB(Kind)                     \
    BENCHMARK(glibFind<Kind>)->Apply(loadOne); \
    BENCHMARK(glibInsert<Kind>)->Apply(loadOne)

COMPARE_GLIB(Names);
COMPARE_GLIB(LongNames);
COMPARE_GLIB(Addresses);
#endif

}  // namespace
