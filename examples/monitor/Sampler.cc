#include "Sampler.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>

// Values go on at once: when sample() returns, everything behind this sampler
// has seen them. Only the tick that starts it all is queued.

namespace {

// The number behind `name` at the start of a line; `missing` when there is none.
double field(const char* text, const char* name, double missing) {
    const size_t length = std::strlen(name);
    for (const char* line = text; line != nullptr; line = std::strchr(line, '\n')) {
        if (*line == '\n') ++line;
        double value;
        if (std::strncmp(line, name, length) == 0 && std::sscanf(line + length, "%lf", &value) == 1)
            return value;
    }
    return missing;
}

constexpr double kibPerGib = 1024.0 * 1024.0;

}  // namespace

Sampler::Sampler(const fxStr& path_, const char* what_)
    : path(path_), what(what_), notice(addOutput<const char*>("notice")) {
    addInput<&Sampler::sample>("sample");
}

void Sampler::sample() {
    std::ifstream file(path);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open()) {
        switchOff(std::strerror(errno));
    } else if (!parse(text.c_str())) {
        switchOff("not in the form expected");
    }
}

void Sampler::switchOff(const char* reason) {
    notice.send(fxStr(what | fxStr(" is off: ") | path | ": " | reason), fxSendNow);
    removeInput("sample");
}

CpuSampler::CpuSampler(const fxStr& procDirectory)
    : Sampler(procDirectory | "/stat", "cpu"),
      total(addOutput<double>("total")),
      busy(addOutput<double>("busy")) {}

bool CpuSampler::parse(const char* text) {
    // user nice system idle iowait irq softirq steal; old kernels have only four
    double ticks[8] = {};
    const int found = std::sscanf(text, "cpu %lf %lf %lf %lf %lf %lf %lf %lf", &ticks[0], &ticks[1],
                                  &ticks[2], &ticks[3], &ticks[4], &ticks[5], &ticks[6], &ticks[7]);
    if (found < 4) return false;
    double all = 0;
    for (const double part : ticks) all += part;
    total.send(all, fxSendNow);
    busy.send(all - ticks[3] - ticks[4], fxSendNow);
    return true;
}

MemorySampler::MemorySampler(const fxStr& procDirectory)
    : Sampler(procDirectory | "/meminfo", "memory"),
      used(addOutput<double>("used")),
      swap(addOutput<double>("swap")),
      detail(addOutput<const char*>("detail")),
      swapDetail(addOutput<const char*>("swapDetail")) {}

bool MemorySampler::parse(const char* text) {
    const double total = field(text, "MemTotal:", 0);
    const double available = field(text, "MemAvailable:", field(text, "MemFree:", -1));
    if (total <= 0 || available < 0) return false;
    const double swapTotal = field(text, "SwapTotal:", 0);
    const double swapUsed = swapTotal - field(text, "SwapFree:", swapTotal);

    fxStr words;
    words.format("%.1f of %.1f GiB", (total - available) / kibPerGib, total / kibPerGib);
    detail.send(words, fxSendNow);
    words.format("%.1f of %.1f GiB", swapUsed / kibPerGib, swapTotal / kibPerGib);
    swapDetail.send(words, fxSendNow);
    used.send(100 * (total - available) / total, fxSendNow);
    swap.send(swapTotal > 0 ? 100 * swapUsed / swapTotal : 0, fxSendNow);
    return true;
}

LoadSampler::LoadSampler(const fxStr& procDirectory)
    : Sampler(procDirectory | "/loadavg", "load"),
      one(addOutput<const char*>("one")),
      detail(addOutput<const char*>("detail")) {}

bool LoadSampler::parse(const char* text) {
    char minutes[3][32];
    char tasks[32];
    if (std::sscanf(text, "%31s %31s %31s %31s", minutes[0], minutes[1], minutes[2], tasks) != 4)
        return false;
    fxStr words;
    words.format("%s %s, %s tasks", minutes[1], minutes[2], tasks);
    detail.send(words, fxSendNow);
    one.send(minutes[0], fxSendNow);
    return true;
}

NetSampler::NetSampler(const fxStr& procDirectory)
    : Sampler(procDirectory | "/net/dev", "network"),
      time(addOutput<double>("time")),
      received(addOutput<double>("received")),
      sent(addOutput<double>("sent")) {}

bool NetSampler::parse(const char* text) {
    // Two lines of headings, then a line for each interface:
    //   name: received-bytes (seven more) sent-bytes ...
    double in = 0;
    double out = 0;
    bool anyLine = false;
    for (const char* colon = std::strchr(text, ':'); colon != nullptr;
         colon = std::strchr(colon + 1, ':')) {
        double receivedBytes;
        double sentBytes;
        if (std::sscanf(colon + 1, "%lf %*s %*s %*s %*s %*s %*s %*s %lf", &receivedBytes,
                        &sentBytes) != 2)
            return false;
        anyLine = true;
        const bool loopback = colon - text >= 3 && std::strncmp(colon - 3, " lo", 3) == 0;
        if (loopback) continue;
        in += receivedBytes;
        out += sentBytes;
    }
    if (!anyLine) return false;

    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    time.send(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9, fxSendNow);
    received.send(in, fxSendNow);
    sent.send(out, fxSendNow);
    return true;
}
