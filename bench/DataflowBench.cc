// The costs of a send, a queued message and a connection. The peers whose
// receivers may be destroyed at any time are measured in the same way, if they
// are installed.
#include <benchmark/benchmark.h>

#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "fxds/EventHandler.h"
#include "fxds/Globals.h"
#include "fxds/Obj.h"

#ifdef FXDS_HAVE_BOOST
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/signals2.hpp>
#endif
#ifdef FXDS_HAVE_SIGC
#include <sigc++/sigc++.h>
#endif

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

#ifdef FXDS_HAVE_BOOST

// Slots that hold their receivers while they are called.
void SendBoostSignals2(benchmark::State& state) {
    boost::signals2::signal<void(int)> signal;
    std::vector<std::shared_ptr<Sink>> sinks;
    for (int64_t i = 0; i < state.range(0); ++i) {
        sinks.push_back(std::make_shared<Sink>());
        signal.connect(
            boost::signals2::signal<void(int)>::slot_type([sink = sinks.back().get()](int value) {
                sink->receive(value);
            }).track_foreign(sinks.back()));
    }
    int value = 0;
    for (auto _ : state) {
        signal(++value);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(SendBoostSignals2)->Arg(1)->Arg(8);

void ConnectBoostSignals2(benchmark::State& state) {
    boost::signals2::signal<void(int)> signal;
    Sink sink;
    Sink other;
    signal.connect([&sink](int value) { sink.receive(value); });
    for (auto _ : state) {
        signal.connect([&other](int value) { other.receive(value); }).disconnect();
    }
}
BENCHMARK(ConnectBoostSignals2);

void PostBoostAsio(benchmark::State& state) {
    Sink sink;
    boost::asio::io_context context(1);
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i) {
            boost::asio::post(context, [&sink, i] { sink.receive(i); });
        }
        context.restart();
        context.run();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(PostBoostAsio);

#endif

#ifdef FXDS_HAVE_SIGC

class TrackedSink : public sigc::trackable {
public:
    void receive(int value) { sum += value; }
    long sum = 0;
};

void SendSigc(benchmark::State& state) {
    sigc::signal<void, int> signal;
    std::vector<std::unique_ptr<TrackedSink>> sinks;
    for (int64_t i = 0; i < state.range(0); ++i) {
        sinks.push_back(std::make_unique<TrackedSink>());
        signal.connect(sigc::mem_fun(*sinks.back(), &TrackedSink::receive));
    }
    int value = 0;
    for (auto _ : state) {
        signal(++value);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(SendSigc)->Arg(1)->Arg(8);

void ConnectSigc(benchmark::State& state) {
    sigc::signal<void, int> signal;
    TrackedSink sink;
    TrackedSink other;
    signal.connect(sigc::mem_fun(sink, &TrackedSink::receive));
    for (auto _ : state) {
        sigc::connection connection = signal.connect(sigc::mem_fun(other, &TrackedSink::receive));
        connection.disconnect();
    }
}
BENCHMARK(ConnectSigc);

#endif

}  // namespace
