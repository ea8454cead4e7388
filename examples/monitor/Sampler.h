// Where values come from: the files in which the kernel describes the machine.
#ifndef MONITOR_SAMPLER_H
#define MONITOR_SAMPLER_H

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
/// in clock ticks. "total" goes first.
class CpuSampler : public Sampler {
public:
    explicit CpuSampler(const fxStr& procDirectory);
    const char* className() const override { return "CpuSampler"; }

protected:
    bool parse(const char* text) override;

private:
    const fxOutput<double> total;
    const fxOutput<double> busy;
};

/// "used" and "swap": percentages; "detail" and "swapDetail": the same in GiB.
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
};

/// "one": the load average over one minute, in the kernel's own digits;
/// "detail": what else the file says.
class LoadSampler : public Sampler {
public:
    explicit LoadSampler(const fxStr& procDirectory);
    const char* className() const override { return "LoadSampler"; }

protected:
    bool parse(const char* text) override;

private:
    const fxOutput<const char*> one;
    const fxOutput<const char*> detail;
};

/// "received" and "sent": bytes that went through all interfaces but the
/// loopback; "time", in seconds, goes first.
class NetSampler : public Sampler {
public:
    explicit NetSampler(const fxStr& procDirectory);
    const char* className() const override { return "NetSampler"; }

protected:
    bool parse(const char* text) override;

private:
    const fxOutput<double> time;
    const fxOutput<double> received;
    const fxOutput<double> sent;
};

#endif
