// What a send, a queued message and a connection cost.
#include <benchmark/benchmark.h>

#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "fxds/EventHandler.h"
#include "fxds/Globals.h"
#include "fxds/Obj.h"

namespace {

class Sink : public fxObj {
public:
    Sink() { addInput<&Sink::receive>("in"); }
    void receive(int value) { sum += value; }
    long sum = 0;
};

void receiveRaw(void* self, int value) { static_cast<Sink*>(self)->receive(value); }

struct Network {
    explicit Network(int64_t receivers) {
        fxInitializeToolkit();
        out = source.addOutput<int>("out").get();
        for (int64_t i = 0; i < receivers; ++i) {
            sinks.push_back(std::make_unique<Sink>());
            source.connect("out", sinks.back().get(), "in");
        }
    }
    fxObj source;
    fxOutputChannel* out;
    std::vector<std::unique_ptr<Sink>> sinks;
};

// The floor: a call through a pointer for each receiver.
void RawCall(benchmark::State& state) {
    Network network(state.range(0));
    struct Slot {
        void* self;
        void (*function)(void*, int);
    };
    std::vector<Slot> slots;
    for (auto& sink : network.sinks) slots.push_back({sink.get(), receiveRaw});
    benchmark::DoNotOptimize(slots.data());
    int value = 0;
    for (auto _ : state) {
        ++value;
        for (const Slot& slot : slots) slot.function(slot.self, value);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(RawCall)->Arg(1)->Arg(8);

void SendNow(benchmark::State& state) {
    Network network(state.range(0));
    int value = 0;
    for (auto _ : state) {
        fxObj::sendInt(network.out, ++value, fxObj::fxSendNow);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(SendNow)->Arg(1)->Arg(8);

constexpr int batch = 100;

void DequeOfFunctions(benchmark::State& state) {
    Sink sink;
    std::deque<std::function<void()>> queue;
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) queue.push_back([&sink, i] { sink.receive(i); });
        while (!queue.empty()) {
            auto call = std::move(queue.front());
            queue.pop_front();
            call();
        }
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(DequeOfFunctions);

void SendQueued(benchmark::State& state) {
    Network network(1);
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) fxObj::sendInt(network.out, i);
        fx_theEventHandler->distributeEvents();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(SendQueued);

void ConnectByName(benchmark::State& state) {
    Network network(1);
    Sink other;
    for (auto _ : state) {
        network.source.connect("out", &other, "in");
        network.source.disconnect("out", &other, "in");
    }
}
BENCHMARK(ConnectByName);

void ConnectChannels(benchmark::State& state) {
    Network network(1);
    Sink other;
    fxInputChannel* in = other.getInput("in");
    for (auto _ : state) {
        network.out->add(in);
        network.out->remove(in);
    }
}
BENCHMARK(ConnectChannels);

}  // namespace
