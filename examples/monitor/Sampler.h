// Where values come from: the files in which the kernel describes the machine.
#ifndef MONITOR_SAMPLER_H
#define MONITOR_SAMPLER_H

#include <vector>

#include "fxds/Obj.h"
#include "fxds/Str.h"

/// Reads a file after each message on its input "sample" and sends what it finds
/// there. When the file cannot be read or understood, it sends the reason on
/// its output "notice" and removes the input: it is off from then on.
class Sampler : public fxObj {
public:
    void sample();

protected:
    /// `what` names what is lost without the file, in the notice; borrowed.
    Sampler(const fxStr& path, const char* what);

    /// Sends the values in `text`, or returns false when they are not there.
    virtual bool parse(const char* text) = 0;

private:
    void switchOff(const char* reason);

    const fxStr path;
    const char* const what;
    const fxOutput<const char*> notice;
};

/// "busy" and "total": time spent by all processors since the system started,
/// in clock ticks. "total" goes first. "cores": how busy each processor was since the
/// last sample, in percent, as numbers with blanks between.
class CpuSampler : public Sampler {
public:
    explicit CpuSampler(const fxStr& procDirectory);
    const char* className() const override { return "CpuSampler"; }

protected:
    bool parse(const char* text) override;

private:
    struct Ticks {
        double busy = 0;
        double total = 0;
    };
    static bool parseLine(const char* line, Ticks& ticks);
    void sendCores(const char* text);

    const fxOutput<double> total;
    const fxOutput<double> busy;
    const fxOutput<const char*> cores;
    std::vector<Ticks> lastOfCores;
};

/// "used" and "swap": percentages; "detail" and "swapDetail": the same in GiB;
/// "hasSwap".
class MemorySampler : public Sampler {
public:
    explicit MemorySampler(const fxStr& procDirectory);
    const char* className() const override { return "MemorySampler"; }

protected:
    bool parse(const char* text) override;

private:
    const fxOutput<double> used;
    const fxOutput<double> swap;
    const fxOutput<const char*> detail;
    const fxOutput<const char*> swapDetail;
    const fxOutput<bool> hasSwap = addOutput<bool>("hasSwap");
};

/// "one": the load average over one minute, in the kernel's own digits; "detail": those
/// over five and fifteen; "tasks": how many there are; "running": how many run.
class LoadSampler : public Sampler {
public:
    explicit LoadSampler(const fxStr& procDirectory);
    const char* className() const override { return "LoadSampler"; }

protected:
    bool parse(const char* text) override;

private:
    const fxOutput<const char*> one;
    const fxOutput<const char*> detail;
    const fxOutput<int> tasks = addOutput<int>("tasks");
    const fxOutput<const char*> running = addOutput<const char*>("running");
};

/// Bytes that went in and out: "in" and "out"; "time", in seconds, goes first. "exists":
/// whether there is anything that they can go through.
class TrafficSampler : public Sampler {
protected:
    using Sampler::Sampler;

    void send(bool isThere, double bytesIn, double bytesOut);

private:
    const fxOutput<double> time = addOutput<double>("time");
    const fxOutput<double> in = addOutput<double>("in");
    const fxOutput<double> out = addOutput<double>("out");
    const fxOutput<bool> exists = addOutput<bool>("exists");
};

/// All interfaces but the loopback.
class NetSampler : public TrafficSampler {
public:
    explicit NetSampler(const fxStr& procDirectory);
    const char* className() const override { return "NetSampler"; }

protected:
    bool parse(const char* text) override;
};

/// All disks: in is what was read.
class DiskSampler : public TrafficSampler {
public:
    explicit DiskSampler(const fxStr& procDirectory);
    const char* className() const override { return "DiskSampler"; }

protected:
    bool parse(const char* text) override;
};

#endif
