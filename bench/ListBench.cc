// Lists, the name space and the integer table against the standard containers.

#include <benchmark/benchmark.h>

#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "fxds/GenericList.h"
#include "fxds/HashTable.h"
#include "fxds/IndexableList.h"
#include "fxds/NameSpace.h"

namespace {

int items[1];

// Filling and emptying, 1,000 items.

void AppendToGenericList(benchmark::State& state) {
    for (auto _ : state) {
        GenericList list;
        for (int i = 0; i < 1000; ++i) list.append(items);
        benchmark::DoNotOptimize(list.getHead());
    }
}
BENCHMARK(AppendToGenericList);

void AppendToStdList(benchmark::State& state) {
    for (auto _ : state) {
        std::list<void*> list;
        for (int i = 0; i < 1000; ++i) list.push_back(items);
        benchmark::DoNotOptimize(list.front());
    }
}
BENCHMARK(AppendToStdList);

void AppendToIndexableList(benchmark::State& state) {
    std::vector<fxLinkItem> links(1000);
    for (auto _ : state) {
        fxIndexableList list;
        for (fxLinkItem& link : links) list.append(&link);
        while (fxLinkItem* head = list.getHead()) list.unlink(head);
    }
}
BENCHMARK(AppendToIndexableList);

void SpliceIntoStdList(benchmark::State& state) {
    std::list<void*> spare(1000, items);
    for (auto _ : state) {
        std::list<void*> list;
        while (!spare.empty()) list.splice(list.end(), spare, spare.begin());
        while (!list.empty()) spare.splice(spare.end(), list, list.begin());
    }
}
BENCHMARK(SpliceIntoStdList);

// Positions: one after the other, and anywhere.

template <class Get>
void sumPositions(benchmark::State& state, long count, long step, Get get) {
    long at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(get(at));
        at = (at + step) % count;
    }
}

GenericList* filledGenericList(long count) {
    GenericList* list = new GenericList;
    for (long i = 0; i < count; ++i) list->append(items);
    return list;
}

// Arguments: items, and how far apart the positions are that follow each other.
void PositionInGenericList(benchmark::State& state) {
    GenericList* list = filledGenericList(state.range(0));
    sumPositions(state, state.range(0), state.range(1),
                 [list](long at) { return list->findItem(at); });
    delete list;
}
BENCHMARK(PositionInGenericList)->Args({10000, 1})->Args({10000, 7})->Args({10000, 4999});

void PositionInIndexableList(benchmark::State& state) {
    std::vector<fxLinkItem> links(static_cast<size_t>(state.range(0)));
    fxIndexableList list;
    for (fxLinkItem& link : links) list.append(&link);
    sumPositions(state, state.range(0), state.range(1),
                 [&list](long at) { return list.findLink(at); });
}
BENCHMARK(PositionInIndexableList)->Args({10000, 1})->Args({10000, 7})->Args({10000, 4999});

void PositionInStdList(benchmark::State& state) {
    std::list<void*> list(static_cast<size_t>(state.range(0)), items);
    sumPositions(state, state.range(0), state.range(1),
                 [&list](long at) { return *std::next(list.begin(), at); });
}
BENCHMARK(PositionInStdList)->Args({10000, 1})->Args({10000, 7})->Args({10000, 4999});

void WalkGenericList(benchmark::State& state) {
    GenericList* list = filledGenericList(10000);
    for (auto _ : state) {
        for (void* item : *list) benchmark::DoNotOptimize(item);
    }
    delete list;
}
BENCHMARK(WalkGenericList);

void WalkStdList(benchmark::State& state) {
    std::list<void*> list(10000, items);
    for (auto _ : state) {
        for (void* item : list) benchmark::DoNotOptimize(item);
    }
}
BENCHMARK(WalkStdList);

// The integer table. Keys as in real programs: multiples of 8.

unsigned long keyAt(long i) { return static_cast<unsigned long>(i) * 8; }

void FillHashTable(benchmark::State& state) {
    for (auto _ : state) {
        HashTable table;
        for (long i = 0; i < state.range(0); ++i) table.add(keyAt(i), items);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FillHashTable)->Arg(100)->Arg(8000)->Arg(100000);

void FillUnorderedMap(benchmark::State& state) {
    for (auto _ : state) {
        std::unordered_map<unsigned long, void*> table;
        for (long i = 0; i < state.range(0); ++i) table.emplace(keyAt(i), items);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FillUnorderedMap)->Arg(100)->Arg(8000)->Arg(100000);

void FindInHashTable(benchmark::State& state) {
    HashTable table;
    for (long i = 0; i < state.range(0); ++i) table.add(keyAt(i), items);
    sumPositions(state, state.range(0), 7919,
                 [&table](long at) { return table.lookup(keyAt(at)); });
}
BENCHMARK(FindInHashTable)->Arg(100)->Arg(8000)->Arg(100000);

void FindInUnorderedMap(benchmark::State& state) {
    std::unordered_map<unsigned long, void*> table;
    for (long i = 0; i < state.range(0); ++i) table.emplace(keyAt(i), items);
    sumPositions(state, state.range(0), 7919,
                 [&table](long at) { return table.find(keyAt(at))->second; });
}
BENCHMARK(FindInUnorderedMap)->Arg(100)->Arg(8000)->Arg(100000);

// Names of the kind that widgets and files have.

std::vector<std::string> someNames(long count) {
    std::vector<std::string> names;
    for (long i = 0; i < count; ++i) names.push_back("window.button" + std::to_string(i * 7919));
    return names;
}

void FillNameSpace(benchmark::State& state) {
    const std::vector<std::string> names = someNames(state.range(0));
    for (auto _ : state) {
        NameSpace space(nullptr, 0);
        for (const std::string& name : names) space.makeAtom(name.c_str(), 1);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FillNameSpace)->Arg(100)->Arg(10000);

template <class Map>
void FillMapOfNames(benchmark::State& state) {
    const std::vector<std::string> names = someNames(state.range(0));
    for (auto _ : state) {
        Map atoms;
        std::vector<const std::string*> table;
        for (const std::string& name : names) {
            const auto added = atoms.emplace(name, table.size() + 1);
            table.push_back(&added.first->first);
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FillMapOfNames<std::map<std::string, unsigned long>>)->Arg(100)->Arg(10000);
BENCHMARK(FillMapOfNames<std::unordered_map<std::string, unsigned long>>)->Arg(100)->Arg(10000);

void FindInNameSpace(benchmark::State& state) {
    const std::vector<std::string> names = someNames(state.range(0));
    NameSpace space(nullptr, 0);
    for (const std::string& name : names) space.makeAtom(name.c_str(), 1);
    sumPositions(state, state.range(0), 7919, [&](long at) {
        const std::string& name = names[static_cast<size_t>(at)];
        return space.makeAtom(name.c_str(), static_cast<unsigned int>(name.size()), 0);
    });
}
BENCHMARK(FindInNameSpace)->Arg(100)->Arg(10000);

template <class Map>
void FindInMapOfNames(benchmark::State& state) {
    const std::vector<std::string> names = someNames(state.range(0));
    Map atoms;
    for (const std::string& name : names) atoms.emplace(name, atoms.size() + 1);
    sumPositions(state, state.range(0), 7919,
                 [&](long at) { return atoms.find(names[static_cast<size_t>(at)])->second; });
}
BENCHMARK(FindInMapOfNames<std::map<std::string, unsigned long>>)->Arg(100)->Arg(10000);
BENCHMARK(FindInMapOfNames<std::unordered_map<std::string, unsigned long>>)->Arg(100)->Arg(10000);

}  // namespace
