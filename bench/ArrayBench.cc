// Appending to arrays against std::vector.

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "fxds/IntArray.h"
#include "fxds/StrArray.h"

namespace {

void AppendIntsToArray(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        fxIntArray array;
        for (int i = 0; i < count; ++i) array.append(i);
        benchmark::DoNotOptimize(array.begin());
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(AppendIntsToArray)->Arg(10)->Arg(1000)->Arg(1000000);

void AppendIntsToVector(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        std::vector<int> vector;
        for (int i = 0; i < count; ++i) vector.push_back(i);
        benchmark::DoNotOptimize(vector.data());
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(AppendIntsToVector)->Arg(10)->Arg(1000)->Arg(1000000);

// The texts are longer than what a std::string holds in place.
void AppendStringsToArray(benchmark::State& state) {
    const fxStr text("a text of twenty chars");
    for (auto _ : state) {
        fxStrArray array;
        for (int i = 0; i < 1000; ++i) array.append(text);
        benchmark::DoNotOptimize(array.begin());
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(AppendStringsToArray);

void AppendStringsToVector(benchmark::State& state) {
    const std::string text("a text of twenty chars");
    for (auto _ : state) {
        std::vector<std::string> vector;
        for (int i = 0; i < 1000; ++i) vector.push_back(text);
        benchmark::DoNotOptimize(vector.data());
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(AppendStringsToVector);

}  // namespace
