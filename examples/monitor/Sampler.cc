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

// Whether the device only passes on to others what it is given, or keeps it in memory.
bool isNoDisk(const std::string& name) {
    for (const char* const prefix : {"loop", "ram", "zram", "dm-", "md", "sr", "fd"}) {
        if (name.compare(0, std::strlen(prefix), prefix) == 0) return true;
    }
    return false;
}

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
      busy(addOutput<double>("busy")),
      cores(addOutput<const char*>("cores")) {}

// name user nice system idle iowait irq softirq steal; old kernels have only four
bool CpuSampler::parseLine(const char* line, Ticks& ticks) {
    double parts[8] = {};
    if (std::strncmp(line, "cpu", 3) != 0) return false;
    const int found = std::sscanf(line, "%*s %lf %lf %lf %lf %lf %lf %lf %lf", &parts[0], &parts[1],
                                  &parts[2], &parts[3], &parts[4], &parts[5], &parts[6], &parts[7]);
    if (found < 4) return false;
    ticks = {};
    for (const double part : parts) ticks.total += part;
    ticks.busy = ticks.total - parts[3] - parts[4];
    return true;
}

bool CpuSampler::parse(const char* text) {
    Ticks all;
    if (!parseLine(text, all)) return false;
    sendCores(text);
    total.send(all.total, fxSendNow);
    busy.send(all.busy, fxSendNow);
    return true;
}

// A line for each processor follows the one for all.
void CpuSampler::sendCores(const char* text) {
    std::vector<Ticks> now;
    Ticks ticks;
    for (const char* end = std::strchr(text, '\n'); end != nullptr; end = std::strchr(end, '\n')) {
        if (!parseLine(++end, ticks)) break;
        now.push_back(ticks);
    }
    fxStr words;
    for (size_t i = 0; i < now.size() && now.size() == lastOfCores.size(); ++i) {
        const double passed = now[i].total - lastOfCores[i].total;
        const double used = now[i].busy - lastOfCores[i].busy;
        const fxStr share = fxStr::number(passed > 0 ? static_cast<int>(100 * used / passed) : 0);
        words = words | share | " ";
    }
    if (!words.isEmpty()) cores.send(words, fxSendNow);
    lastOfCores = now;
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
    hasSwap.send(swapTotal > 0, fxSendNow);
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
    char counts[32];
    if (std::sscanf(text, "%31s %31s %31s %31s", minutes[0], minutes[1], minutes[2], counts) != 4)
        return false;
    fxStr words;
    words.format("%s %s", minutes[1], minutes[2]);
    detail.send(words, fxSendNow);
    one.send(minutes[0], fxSendNow);
    int runningTasks = 0;
    int allTasks = 0;
    if (std::sscanf(counts, "%d/%d", &runningTasks, &allTasks) != 2) return true;
    running.send(fxStr::number(runningTasks) | " running", fxSendNow);
    tasks.send(allTasks, fxSendNow);
    return true;
}

void TrafficSampler::send(bool isThere, double bytesIn, double bytesOut) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    exists.send(isThere, fxSendNow);
    time.send(static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9, fxSendNow);
    in.send(bytesIn, fxSendNow);
    out.send(bytesOut, fxSendNow);
}

NetSampler::NetSampler(const fxStr& procDirectory)
    : TrafficSampler(procDirectory | "/net/dev", "network") {}

bool NetSampler::parse(const char* text) {
    // Two lines of headings, then a line for each interface:
    //   name: received-bytes (seven more) sent-bytes ...
    double received = 0;
    double sent = 0;
    int interfaces = 0;
    int lines = 0;
    for (const char* colon = std::strchr(text, ':'); colon != nullptr;
         colon = std::strchr(colon + 1, ':')) {
        double receivedBytes;
        double sentBytes;
        if (std::sscanf(colon + 1, "%lf %*s %*s %*s %*s %*s %*s %*s %lf", &receivedBytes,
                        &sentBytes) != 2)
            return false;
        ++lines;
        const bool loopback = colon - text >= 3 && std::strncmp(colon - 3, " lo", 3) == 0;
        if (loopback) continue;
        ++interfaces;
        received += receivedBytes;
        sent += sentBytes;
    }
    if (lines == 0) return false;
    send(interfaces != 0, received, sent);
    return true;
}

DiskSampler::DiskSampler(const fxStr& procDirectory)
    : TrafficSampler(procDirectory | "/diskstats", "disk") {}

bool DiskSampler::parse(const char* text) {
    // major minor name reads merged read-sectors ms writes merged written-sectors ...
    // A disk is listed before its partitions, whose names begin with its name.
    constexpr double sectorBytes = 512;  // whatever the disk's own are
    double read = 0;
    double written = 0;
    std::string disk;
    for (const char* line = text; line != nullptr && *line != '\0';
         line = std::strchr(line, '\n'), line += line != nullptr) {
        char name[64];
        double readSectors;
        double writtenSectors;
        if (std::sscanf(line, "%*u %*u %63s %*u %*u %lf %*u %*u %*u %lf", name, &readSectors,
                        &writtenSectors) != 3)
            return false;
        const bool isPartition =
            !disk.empty() && std::string(name).compare(0, disk.size(), disk) == 0;
        if (isPartition || isNoDisk(name)) continue;
        disk = name;
        read += readSectors * sectorBytes;
        written += writtenSectors * sectorBytes;
    }
    send(!disk.empty(), read, written);
    return true;
}
