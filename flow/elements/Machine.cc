// Elements that sample the machine: the files in which the kernel describes it.
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "flow/Element.h"
#include "flow/elements/Settings.h"

// Values are sent at once: when sample() returns, everything behind this sampler has
// received them. Counters of the kernel become rates here, so the first sample sends none.

namespace {

constexpr double notYet = std::numeric_limits<double>::quiet_NaN();

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

// Whether the device passes everything on to other devices, or is in memory.
bool isNoDisk(const std::string& name) {
    for (const char* const prefix : {"loop", "ram", "zram", "dm-", "md", "sr", "fd"}) {
        if (name.compare(0, std::strlen(prefix), prefix) == 0) return true;
    }
    return false;
}

// Turns a counter into a rate: its growth per unit of growth of a base.
class Growth {
public:
    // False when the base has not grown, or the count has shrunk: it was reset.
    bool next(double base, double count, double& rate) {
        const double grown = count - lastCount;
        const double passed = base - lastBase;
        lastCount = count;
        lastBase = base;
        rate = grown / passed;
        return grown >= 0 && passed > 0;  // neither holds for NaN
    }

private:
    double lastBase = notYet;
    double lastCount = notYet;
};

// Reads a file when its time has come, and on request. When the file cannot be read or
// understood, it reports the reason and stays off.
class Sampler : public fxElement {
public:
    // `file_` is relative to the directory; `what_` names the data that is lost without it.
    // Borrowed.
    Sampler(const char* file_, const char* what_) : file(file_), what(what_) {}

    std::string start() override {
        isOn = true;
        if (every > 0) {
            setBusy(true);
            // The first sample as soon as the flow runs, so that rates have a beginning.
            first = time().after(fxAlarm::Span(0), this, [this] { sample(); });
            alarm = time().every(fxFlowTime::seconds(every), this, [this] { sample(); });
        }
        return "";
    }

    void sample() {
        const fxRef<fxObj> hold(this);
        if (!isOn) return;
        const fxStr path = directory | "/" | file;
        std::ifstream stream(path);
        const std::string text(std::istreambuf_iterator<char>(stream), {});
        if (!stream.is_open()) {
            switchOff(path, std::strerror(errno));
        } else if (!parse(text.c_str())) {
            switchOff(path, "not in the form expected");
        }
    }

    double every = 1;
    fxStr directory;
    fxOutputView<fxStr> notice;

protected:
    // Sends the values in the text, or returns false if they are missing.
    virtual bool parse(const char* text) = 0;

private:
    void switchOff(const fxStr& path, const char* reason) {
        isOn = false;
        if (alarm) alarm->stop();
        setBusy(false);
        const fxStr words = what | fxStr(" is off: ") | path | ": " | reason;
        complain(words.toStdString());
        notice.send(words, fxSendNow);
    }

    const char* const file;
    const char* const what;
    bool isOn = false;
    fxRef<fxFlowAlarm> first;
    fxRef<fxFlowAlarm> alarm;
};

class Cpu final : public Sampler {
public:
    Cpu() : Sampler("stat", "cpu") {}
    const char* className() const override { return "Cpu"; }

    fxOutputView<double> used;
    fxOutputView<fxStr> cores;

protected:
    bool parse(const char* text) override {
        Ticks all;
        if (!parseLine(text, all)) return false;
        sendCores(text);
        double share = 0;
        if (growth.next(all.total, all.busy, share)) used.send(100 * share, fxSendNow);
        return true;
    }

private:
    struct Ticks {
        double busy = 0;
        double total = 0;
    };

    // name user nice system idle iowait irq softirq steal; old kernels have only four
    static bool parseLine(const char* line, Ticks& ticks) {
        double parts[8] = {};
        if (std::strncmp(line, "cpu", 3) != 0) return false;
        const int found =
            std::sscanf(line, "%*s %lf %lf %lf %lf %lf %lf %lf %lf", &parts[0], &parts[1],
                        &parts[2], &parts[3], &parts[4], &parts[5], &parts[6], &parts[7]);
        if (found < 4) return false;
        ticks = {};
        for (const double part : parts) ticks.total += part;
        ticks.busy = ticks.total - parts[3] - parts[4];
        return true;
    }

    // A line for each processor follows the one for all.
    void sendCores(const char* text) {
        std::vector<Ticks> now;
        Ticks ticks;
        for (const char* end = std::strchr(text, '\n'); end != nullptr;
             end = std::strchr(end, '\n')) {
            if (!parseLine(++end, ticks)) break;
            now.push_back(ticks);
        }
        fxStr words;
        for (size_t i = 0; i < now.size() && now.size() == lastOfCores.size(); ++i) {
            const double passed = now[i].total - lastOfCores[i].total;
            const double worked = now[i].busy - lastOfCores[i].busy;
            const fxStr share =
                fxStr::number(passed > 0 ? static_cast<int>(100 * worked / passed) : 0);
            words = words | share | " ";
        }
        if (!words.isEmpty()) cores.send(words, fxSendNow);
        lastOfCores = now;
    }

    Growth growth;
    std::vector<Ticks> lastOfCores;
};

class Memory final : public Sampler {
public:
    Memory() : Sampler("meminfo", "memory") {}
    const char* className() const override { return "Memory"; }

    fxOutputView<double> used;
    fxOutputView<double> swap;
    fxOutputView<fxStr> detail;
    fxOutputView<fxStr> swapDetail;
    fxOutputView<bool> hasSwap;

protected:
    bool parse(const char* text) override {
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
};

class Load final : public Sampler {
public:
    Load() : Sampler("loadavg", "load") {}
    const char* className() const override { return "Load"; }

    fxOutputView<double> one;
    fxOutputView<fxStr> detail;
    fxOutputView<double> share;
    fxOutputView<int> processors;
    fxOutputView<double> tasks;
    fxOutputView<fxStr> running;

protected:
    bool parse(const char* text) override {
        double minutes = 0;
        char others[2][32];
        char counts[32];
        if (std::sscanf(text, "%lf %31s %31s %31s", &minutes, others[0], others[1], counts) != 4)
            return false;
        const int processorCount = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
        processors.send(processorCount, fxSendNow);
        detail.send(fxStr(others[0] | fxStr(" ") | others[1]), fxSendNow);
        one.send(minutes, fxSendNow);
        share.send(100 * minutes / processorCount, fxSendNow);
        int runningTasks = 0;
        int allTasks = 0;
        if (std::sscanf(counts, "%d/%d", &runningTasks, &allTasks) != 2) return true;
        running.send(fxStr::number(runningTasks) | " running", fxSendNow);
        tasks.send(allTasks, fxSendNow);
        return true;
    }
};

// Incoming and outgoing bytes.
class Traffic : public Sampler {
public:
    using Sampler::Sampler;

    fxOutputView<double> in;
    fxOutputView<double> out;
    fxOutputView<bool> exists;

protected:
    void send(bool isThere, double bytesIn, double bytesOut) {
        const auto passed = std::chrono::steady_clock::now().time_since_epoch();
        const double now = std::chrono::duration<double>(passed).count();
        exists.send(isThere, fxSendNow);
        double rate = 0;
        if (growthIn.next(now, bytesIn, rate)) in.send(rate, fxSendNow);
        if (growthOut.next(now, bytesOut, rate)) out.send(rate, fxSendNow);
    }

private:
    Growth growthIn;
    Growth growthOut;
};

// All interfaces but the loopback.
class Net final : public Traffic {
public:
    Net() : Traffic("net/dev", "network") {}
    const char* className() const override { return "Net"; }

protected:
    bool parse(const char* text) override {
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
};

// All disks. Incoming means read.
class Disk final : public Traffic {
public:
    Disk() : Traffic("diskstats", "disk") {}
    const char* className() const override { return "Disk"; }

protected:
    bool parse(const char* text) override {
        // major minor name reads merged read-sectors ms writes merged written-sectors ...
        // A disk is listed before its partitions, whose names begin with its name.
        constexpr double sectorBytes = 512;  // independent of the disk's own
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
};

// The properties of all samplers.
template <class C>
void describe(fxElementOf<C>& element) {
    element.reachesOutside();
    element.property("every", &C::every, 1.0, "between two samples; 0: only those of \"sample\"")
        .unit("s")
        .range(0, 1e9);
    element.property("proc", &C::directory, "/proc", "the directory of the kernel's files")
        .testedBy(fxFlowDetail::whyZeroByte);
    element.input("sample", &C::sample, "takes a sample");
    element.output("notice", &C::notice, "why there are no samples any more");
}
template <class C>
void describeTraffic(fxElementOf<C>& element, const char* in, const char* out, const char* exists) {
    describe(element);
    element.output("in", &C::in, in);
    element.output("out", &C::out, out);
    element.output("exists", &C::exists, exists);
}

}  // namespace

FX_ELEMENT(Cpu, "tells how busy the processors are") {
    describe(element);
    element.output("used", &Cpu::used, "percent of the time since the last sample");
    element.output("cores", &Cpu::cores, "that of each processor, with blanks between");
}

FX_ELEMENT(Memory, "tells how much memory is used") {
    describe(element);
    element.output("used", &Memory::used, "percent of the memory");
    element.output("swap", &Memory::swap, "percent of the swap space");
    element.output("detail", &Memory::detail, "the memory in GiB, in words");
    element.output("swapDetail", &Memory::swapDetail, "the swap space in GiB, in words");
    element.output("hasSwap", &Memory::hasSwap, "whether there is swap space");
}

FX_ELEMENT(Load, "tells how many tasks want to run") {
    describe(element);
    element.output("one", &Load::one, "the load average over one minute");
    element.output("detail", &Load::detail, "those over five and fifteen minutes, in words");
    element.output("share", &Load::share, "the load in percent of the processors");
    element.output("processors", &Load::processors, "how many processors there are");
    element.output("tasks", &Load::tasks, "how many tasks there are");
    element.output("running", &Load::running, "how many of them run, in words");
}

FX_ELEMENT(Net, "tells how much goes through the network, but for the loopback") {
    describeTraffic(element, "bytes received in a second", "bytes sent in a second",
                    "whether there is an interface");
}

FX_ELEMENT(Disk, "tells how much goes from and to the disks") {
    describeTraffic(element, "bytes read in a second", "bytes written in a second",
                    "whether there is a disk");
}
