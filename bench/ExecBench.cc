// What one turn of the loop and the start of a timer cost, against the system
// call and a multimap.
#include <benchmark/benchmark.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/SelectHandler.h"
#include "fxds/Timer.h"

namespace {

// One byte through a pipe per turn, so that each wait finds something.
class Reader : public fxSelectHandler {
public:
    explicit Reader(int fd_) : fxSelectHandler(fd_, 1) {}
    const char* className() const override { return "Reader"; }
    void handleRead() override {
        char byte;
        if (read(fd, &byte, 1) == 1) ++bytes;
    }
    long bytes = 0;
};

struct Pipe {
    Pipe() {
        if (pipe(ends) != 0) std::abort();
    }
    ~Pipe() { close(ends[1]); }
    void fill() {
        if (write(ends[1], "x", 1) != 1) std::abort();
    }
    int ends[2];  // the read end belongs to the Reader
};

void TurnRawSelect(benchmark::State& state) {
    Pipe pipe;
    Reader reader(pipe.ends[0]);
    for (auto _ : state) {
        pipe.fill();
        fd_set set;
        FD_ZERO(&set);
        FD_SET(reader.getFd(), &set);
        timeval wait{1000, 0};
        if (select(reader.getFd() + 1, &set, nullptr, nullptr, &wait) > 0 &&
            FD_ISSET(reader.getFd(), &set)) {
            reader.handleRead();
        }
    }
    benchmark::DoNotOptimize(reader.bytes);
}
BENCHMARK(TurnRawSelect);

void TurnPoll(benchmark::State& state) {
    Pipe pipe;
    Reader reader(pipe.ends[0]);
    fxExec exec;
    exec.addSelectHandler(&reader);
    fxTimer timer;
    timer.setInterval(1e6F);
    if (state.range(0) != 0) timer.startTimer();
    for (auto _ : state) {
        pipe.fill();
        exec.poll(1000);
    }
    benchmark::DoNotOptimize(reader.bytes);
}
BENCHMARK(TurnPoll)->ArgName("timer")->Arg(0)->Arg(1);

// Distinct intervals in random order.
std::vector<float> intervals(benchmark::State& state) {
    std::vector<float> result;
    for (int64_t i = 0; i < state.range(0); ++i) result.push_back(static_cast<float>(i + 1));
    std::shuffle(result.begin(), result.end(), std::mt19937(1));
    return result;
}

void StartAndStopMultimap(benchmark::State& state) {
    const std::vector<float> seconds = intervals(state);
    std::multimap<double, int> expiries;
    std::vector<std::multimap<double, int>::iterator> entries(seconds.size());
    for (auto _ : state) {
        for (size_t i = 0; i < seconds.size(); ++i) entries[i] = expiries.emplace(seconds[i], 0);
        for (auto entry : entries) expiries.erase(entry);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StartAndStopMultimap)->Arg(10)->Arg(100)->Arg(1000);

void StartAndStopTimers(benchmark::State& state) {
    std::vector<std::unique_ptr<fxTimer>> timers;
    for (float seconds : intervals(state)) {
        timers.push_back(std::make_unique<fxTimer>());
        timers.back()->setInterval(seconds);
    }
    for (auto _ : state) {
        for (auto& timer : timers) timer->startTimer();
        for (auto& timer : timers) timer->stopTimer();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StartAndStopTimers)->Arg(10)->Arg(100)->Arg(1000);

}  // namespace
