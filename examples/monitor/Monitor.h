// The monitor: the objects, how they are connected, and what the keys do.
#ifndef MONITOR_MONITOR_H
#define MONITOR_MONITOR_H

#include <memory>

#include "Display.h"
#include "Filters.h"
#include "Gauge.h"
#include "Keyboard.h"
#include "Options.h"
#include "Recorder.h"
#include "Sampler.h"
#include "Signals.h"
#include "fxds/Application.h"
#include "fxds/Timer.h"

/// One quantity on its way from its source to its gauge:
///
///     source -> smoothing -> gauge
///                   \------> alarm -> gauge
///
/// or, with the smoothing taken out, source -> gauge and alarm directly.
struct Quantity {
    Quantity(const char* name, Gauge::Unit unit, float fullScale, double alarmAt, double calmAt);

    /// Connects the output that the quantity comes from. Borrowed.
    void setSource(fxObj& object, const char* output);
    void setSmoothing(bool on);

    Smoothing smoothing;
    Alarm alarm;
    Gauge gauge;

private:
    typedef void (fxObj::*Join)(const char*, fxObj*, const char*);

    void joinSmoothed(Join join);
    void joinDirectly(Join join);

    fxObj* source;
    const char* sourceOutput;
};

/// Builds the network for what the options ask and runs until told to quit, or
/// until a recording that is replayed without a terminal is over.
class Monitor : public fxApplication {
public:
    /// `replayed`: what to show instead of the machine (shared), or null.
    Monitor(const Options& options, Recording* replayed);
    ~Monitor() override;
    const char* className() const override { return "Monitor"; }

    void initialize(int argc, char** argv) override;
    void open() override;
    /// Saves the history when --record asks for it.
    void close() override;

    /// What went wrong in the end, for the user; empty when nothing did.
    const fxStr& getFailure() const { return failure; }

    // What the keys do.
    void quit() { close(); }
    void togglePause();
    void lengthenInterval();
    void shortenInterval();
    void toggleSmoothing();
    void save();
    // What the timer and the player do.
    void countSample();
    void endReplay();

private:
    static constexpr int quantityCount = 6;
    static constexpr int samplerCount = 4;

    void connectSources();
    void connectSamplers();
    void connectRecorder();
    void connectPlayer();
    void connectScreen();
    void connectReport(int lines);
    bool saveTo(const fxStr& path, fxStr& error);
    void stepInterval(int direction);
    void setSmoothing(bool on);

    CpuSampler cpuSampler;
    MemorySampler memorySampler;
    LoadSampler loadSampler;
    NetSampler netSampler;
    Rate cpuRate;
    Rate receivedRate;
    Rate sentRate;
    Quantity cpu;
    Quantity memory;
    Quantity swap;
    Quantity load;
    Quantity received;
    Quantity sent;
    Sampler* const samplers[samplerCount];
    Quantity* const quantities[quantityCount];
    fxVoidPtrArray gauges;
    // One records the machine, the other takes the place of all the above.
    std::unique_ptr<Recorder> recorder;
    std::unique_ptr<Player> player;

    fxTimer timer;
    Signals signals;
    StatusLine status;
    // Only on a terminal, or only without one.
    std::unique_ptr<Terminal> terminal;
    std::unique_ptr<Keyboard> keyboard;
    std::unique_ptr<Display> display;
    std::unique_ptr<Report> report;

    const fxOutput<void> prime;    // a first sample, so that rates have a beginning
    const fxOutput<void> changed;  // something that is shown is different now
    const fxOutput<double> interval;
    const fxOutput<bool> paused;
    const fxOutput<bool> smoothing;
    const fxOutput<int> samples;
    const fxOutput<double> time;          // of the sample, in seconds since 1970
    const fxOutput<const char*> message;  // what came of what the user asked for
    const fxStr recordPath;
    fxStr failure;
    int sampleCount;
    bool smoothingOn;
};

#endif
