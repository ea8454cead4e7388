// The costs of flows: reading and checking a text, building its network, changing one
// object of it, and a value through a connection.
#include <benchmark/benchmark.h>

#include <memory>
#include <sstream>
#include <string>

#include "flow/Flow.h"
#include "fxds/fxds.h"

namespace {

void start() {
    static const bool isStarted = [] {
        fxInitializeToolkit();
        fxConverter::createMoreConverters();
        return true;
    }();
    static_cast<void>(isStarted);
}

// `count` objects, each connected to the next five, by all deliveries in turn.
std::string textOf(long count, const char* last = "yes") {
    static const char* const deliveries[] = {"", " (newest)", " (urgent)", "", ""};
    std::ostringstream text;
    for (long i = 0; i < count; ++i) {
        text << "gate" << i << " = Gate open=" << (i + 1 == count ? last : "yes") << '\n';
    }
    for (long i = 0; i < count; ++i) {
        for (long k = 0; k < 5; ++k) {
            text << "gate" << i << ".value -> gate" << (i + k + 1) % count << ".value"
                 << deliveries[k] << '\n';
        }
    }
    return text.str();
}

void readText(benchmark::State& state) {
    start();
    const std::string text = textOf(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(fxFlowText::parse(text, "bench").objects.size());
    state.SetItemsProcessed(state.iterations() * state.range(0) * 6);
}

void checkText(benchmark::State& state) {
    start();
    fxFlowText text = fxFlowText::parse(textOf(state.range(0)), "bench");
    for (auto _ : state) {
        if (!text.check()) state.SkipWithError("the text is not right");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 6);
}

void build(benchmark::State& state) {
    start();
    const fxFlowText text = fxFlowText::parse(textOf(state.range(0)), "bench");
    for (auto _ : state) {
        const auto flow = std::make_unique<fxFlow>();
        if (!flow->apply(text).empty()) state.SkipWithError("it cannot be built");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 6);
}

// One object of the text is another, again and again.
void change(benchmark::State& state) {
    start();
    const fxFlowText texts[] = {fxFlowText::parse(textOf(state.range(0)), "bench"),
                                fxFlowText::parse(textOf(state.range(0), "no"), "bench")};
    fxFlow flow;
    size_t turn = 0;
    for (auto _ : state) {
        if (!flow.apply(texts[++turn % 2]).empty()) state.SkipWithError("it cannot be changed");
        fx_theEventHandler->drain();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 6);
}

// A value through two gates, by connections of one delivery.
void deliver(benchmark::State& state, const char* delivery) {
    start();
    fxFlow flow;
    const std::string text =
        std::string("a = Gate open=yes\nb = Gate open=yes\na.value -> b.value (") + delivery +
        ")\n";
    if (!flow.apply(fxFlowText::parse(text, "bench")).empty()) state.SkipWithError("not built");
    const fxOutputView<fxStr> output(flow.find("a")->getOutput("value"));
    const fxStr value("a line");
    for (auto _ : state) {
        output.send(value, fxObj::fxSendNow);
        fx_theEventHandler->drain();
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(readText)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK(checkText)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK(build)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK(change)->RangeMultiplier(10)->Range(100, 10000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(deliver, queued, "queued");
BENCHMARK_CAPTURE(deliver, urgent, "urgent");
BENCHMARK_CAPTURE(deliver, newest, "newest");
BENCHMARK_CAPTURE(deliver, now, "now");

}  // namespace
