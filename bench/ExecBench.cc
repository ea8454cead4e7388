// The costs of one turn of the loop and of the start of a timer, against the
// system call, a multimap and, if they are installed, other loops.
#include <benchmark/benchmark.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "fxds/Clock.h"
#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Globals.h"
#include "fxds/SelectHandler.h"
#include "fxds/Timer.h"

#ifdef FXDS_HAVE_GLIB
#include <glib-unix.h>
#include <glib.h>
#endif
#ifdef FXDS_HAVE_LIBEVENT
#include <event2/event.h>
#endif
#ifdef FXDS_HAVE_LIBUV
#include <uv.h>
#endif

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
    fxTimer timer;
    timer.setInterval(1e6F);
    if (state.range(0) == 1) timer.startTimer();
    fxInitializeToolkit();
    fxExec& loop = state.range(0) == 2 ? *fx_theExecutive : exec;  // which has the clock
    fxClockTimer clockTimer;
    if (state.range(0) == 2) clockTimer.start(std::chrono::hours(24));
    loop.addSelectHandler(&reader);
    for (auto _ : state) {
        pipe.fill();
        loop.poll(1000);
    }
    loop.removeSelectHandler(&reader);
    benchmark::DoNotOptimize(reader.bytes);
}
// 0: none, 1: of the loop's time, 2: of the clock.
BENCHMARK(TurnPoll)->ArgName("timer")->DenseRange(0, 2);

#ifdef FXDS_HAVE_GLIB

gboolean readByGlib(gint, GIOCondition, gpointer reader) {
    static_cast<Reader*>(reader)->handleRead();
    return G_SOURCE_CONTINUE;
}

gboolean doNothing(gpointer) { return G_SOURCE_CONTINUE; }

void TurnGlib(benchmark::State& state) {
    Pipe pipe;
    Reader reader(pipe.ends[0]);
    const guint source = g_unix_fd_add(reader.getFd(), G_IO_IN, readByGlib, &reader);
    const guint timer =
        state.range(0) != 0 ? g_timeout_add_seconds(1000000, doNothing, nullptr) : 0;
    for (auto _ : state) {
        pipe.fill();
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(source);
    if (timer != 0) g_source_remove(timer);
    benchmark::DoNotOptimize(reader.bytes);
}
BENCHMARK(TurnGlib)->ArgName("timer")->Arg(0)->Arg(1);

#endif

#ifdef FXDS_HAVE_LIBEVENT

void readByLibevent(evutil_socket_t, short, void* reader) {
    static_cast<Reader*>(reader)->handleRead();
}

void ignore(evutil_socket_t, short, void*) {}

void TurnLibevent(benchmark::State& state) {
    Pipe pipe;
    Reader reader(pipe.ends[0]);
    event_base* const base = event_base_new();
    event* const source =
        event_new(base, reader.getFd(), EV_READ | EV_PERSIST, readByLibevent, &reader);
    event_add(source, nullptr);
    event* const timer = evtimer_new(base, ignore, nullptr);
    const timeval late = {1000000, 0};
    if (state.range(0) != 0) evtimer_add(timer, &late);
    for (auto _ : state) {
        pipe.fill();
        event_base_loop(base, EVLOOP_ONCE);
    }
    event_free(source);
    event_free(timer);
    event_base_free(base);
    benchmark::DoNotOptimize(reader.bytes);
}
BENCHMARK(TurnLibevent)->ArgName("timer")->Arg(0)->Arg(1);

#endif

// With descriptors beside the busy one on which nothing happens.

struct Idle {
    explicit Idle(benchmark::State& state) {
        const auto wanted = static_cast<rlim_t>(state.range(0)) + 100;
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::max(limit.rlim_cur, std::min(wanted, limit.rlim_max));
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int64_t i = 0; i < state.range(0); ++i) {
            const int descriptor = eventfd(0, 0);
            if (descriptor < 0) state.SkipWithError("too few descriptors");
            if (descriptor < 0) break;
            descriptors.push_back(descriptor);
        }
    }
    std::vector<int> descriptors;  // closed by their handlers
};

void numbersOfDescriptors(benchmark::internal::Benchmark* bench) {
    for (const int idle : {10, 100, 1000, 10000}) bench->Arg(idle);
}

void TurnIdle(benchmark::State& state) {
    Idle idle(state);
    Pipe pipe;
    Reader reader(pipe.ends[0]);
    fxExec exec;
    std::vector<std::unique_ptr<Reader>> others;
    for (const int descriptor : idle.descriptors) {
        others.push_back(std::make_unique<Reader>(descriptor));
        exec.addSelectHandler(others.back().get());
    }
    exec.addSelectHandler(&reader);
    for (auto _ : state) {
        pipe.fill();
        exec.poll(1000);
    }
    benchmark::DoNotOptimize(reader.bytes);
}
BENCHMARK(TurnIdle)->Apply(numbersOfDescriptors);

#ifdef FXDS_HAVE_LIBEVENT

void TurnIdleLibevent(benchmark::State& state) {
    Idle idle(state);
    Pipe pipe;
    Reader reader(pipe.ends[0]);
    event_base* const base = event_base_new();
    std::vector<event*> events;
    idle.descriptors.push_back(reader.getFd());
    for (const int descriptor : idle.descriptors) {
        events.push_back(
            event_new(base, descriptor, EV_READ | EV_PERSIST, readByLibevent, &reader));
        event_add(events.back(), nullptr);
    }
    for (auto _ : state) {
        pipe.fill();
        event_base_loop(base, EVLOOP_ONCE);
    }
    for (event* one : events) event_free(one);
    idle.descriptors.pop_back();
    for (const int descriptor : idle.descriptors) close(descriptor);
    event_base_free(base);
    benchmark::DoNotOptimize(reader.bytes);
}
BENCHMARK(TurnIdleLibevent)->Apply(numbersOfDescriptors);

#endif

#ifdef FXDS_HAVE_LIBUV

void TurnIdleLibuv(benchmark::State& state) {
    Idle idle(state);
    Pipe pipe;
    Reader reader(pipe.ends[0]);
    uv_loop_t loop;
    uv_loop_init(&loop);
    idle.descriptors.push_back(reader.getFd());
    std::vector<uv_poll_t> polls(idle.descriptors.size());
    for (size_t i = 0; i < polls.size(); ++i) {
        uv_poll_init(&loop, &polls[i], idle.descriptors[i]);
        polls[i].data = &reader;
        uv_poll_start(&polls[i], UV_READABLE, [](uv_poll_t* poll, int, int) {
            static_cast<Reader*>(poll->data)->handleRead();
        });
    }
    for (auto _ : state) {
        pipe.fill();
        uv_run(&loop, UV_RUN_ONCE);
    }
    for (uv_poll_t& poll : polls) uv_close(reinterpret_cast<uv_handle_t*>(&poll), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
    idle.descriptors.pop_back();
    for (const int descriptor : idle.descriptors) close(descriptor);
    benchmark::DoNotOptimize(reader.bytes);
}
BENCHMARK(TurnIdleLibuv)->Arg(0)->Apply(numbersOfDescriptors);

#endif

// Beyond a thousand only for timers that need no walk.
void numbersOfTimers(benchmark::internal::Benchmark* bench) {
    for (const int timers : {10, 100, 1000, 100000, 1000000}) bench->Arg(timers);
}

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
BENCHMARK(StartAndStopMultimap)->Apply(numbersOfTimers);

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

// Of the clock.
void StartAndStopClockTimers(benchmark::State& state) {
    fxInitializeToolkit();
    const std::vector<float> seconds = intervals(state);
    std::vector<std::unique_ptr<fxClockTimer>> timers(seconds.size());
    for (auto& timer : timers) timer = std::make_unique<fxClockTimer>();
    for (auto _ : state) {
        for (size_t i = 0; i < seconds.size(); ++i) {
            timers[i]->start(std::chrono::duration<float>(seconds[i]));
        }
        for (auto& timer : timers) timer->stop();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StartAndStopClockTimers)->Apply(numbersOfTimers);

#ifdef FXDS_HAVE_LIBEVENT

void StartAndStopLibevent(benchmark::State& state) {
    event_base* const base = event_base_new();
    std::vector<std::pair<event*, timeval>> timers;
    for (float seconds : intervals(state)) {
        timers.push_back({evtimer_new(base, ignore, nullptr), {static_cast<time_t>(seconds), 0}});
    }
    for (auto _ : state) {
        for (auto& [timer, interval] : timers) evtimer_add(timer, &interval);
        for (auto& [timer, interval] : timers) evtimer_del(timer);
    }
    for (auto& [timer, interval] : timers) event_free(timer);
    event_base_free(base);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StartAndStopLibevent)->Apply(numbersOfTimers);

#endif

}  // namespace
