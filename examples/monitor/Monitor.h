// The monitor: the objects, their connections, and the actions of the keys.
#ifndef MONITOR_MONITOR_H
#define MONITOR_MONITOR_H

#include <chrono>
#include <memory>
#include <vector>

#include "Display.h"
#include "Keyboard.h"
#include "Options.h"
#include "Recorder.h"
#include "flow/Gauge.h"
#include "fxds/Application.h"
#include "fxds/Clock.h"
#include "fxds/Connection.h"
#include "fxds/Signal.h"
#include "fxds/StreamFault.h"

/// One quantity on its way from its source to its gauge:
///
///     source -> smoothing -> gauge
///                   \------> alarm -> gauge
///
/// or, with the smoothing taken out, source -> gauge and alarm directly.
struct Quantity {
    Quantity(const char* name, const char* unit, double fullScale, double alarmAt, double calmAt);

    /// Connects the output that is the source of the quantity. Borrowed.
    void setSource(fxObj& object, const char* output);
    void setSmoothing(bool on);

    const fxRef<fxObj> smoothing;
    const fxRef<fxObj> alarm;
    fxGauge gauge;

private:
    fxObj* source = nullptr;
    const char* sourceOutput = nullptr;
    fxScopedConnection joints[3];  // with smoothing or without
};

/// Builds the network for the options and runs until quit() is called, or until a recording
/// that is replayed without a terminal is over.
class Monitor : public fxApplication {
public:
    /// `replayed`: the recording to show instead of the machine, or null.
    Monitor(const Options& options, const fxRef<Recording>& replayed);
    ~Monitor() override;
    const char* className() const override { return "Monitor"; }

    void initialize(int argc, char** argv) override;
    void open() override;
    /// Saves the history when --record asks for it.
    void close() override;

    /// Saves the history so far when --record asks for it. Returns why it could not.
    fxStreamFault saveRecord();
    /// The final failure, for the user; empty when there was none.
    const fxStr& getFailure() const { return failure; }
    /// The signal that asked to quit, or 0.
    int getQuitSignal() const { return quitSignal; }

    // Actions of the keys and signals.
    void quit() { close(); }
    void quitBy(int signalNumber);
    void togglePause();
    void lengthenInterval();
    void shortenInterval();
    void toggleSmoothing();
    void save();
    // Actions of the timer and the player.
    void countSample();
    void endReplay();

private:
    static constexpr int quantityCount = 9;
    static constexpr int samplerCount = 5;

    void connectSources();
    void connectSamplers();
    void connectRecorder();
    void connectPlayer();
    void connectScreen();
    void connectReport(int lines);
    void connectSignal(int number, fxObj& target, const char* input);
    void startTimer();
    fxStreamFault saveTo(const fxStr& path);
    void saveNowAndThen();
    void stepInterval(int direction);
    void setSmoothing(bool on);

    const fxRef<fxObj> cpuSampler;
    const fxRef<fxObj> memorySampler;
    const fxRef<fxObj> loadSampler;
    const fxRef<fxObj> diskSampler;
    const fxRef<fxObj> netSampler;
    Quantity cpu;
    Quantity memory;
    Quantity swap;
    Quantity load;
    Quantity tasks;
    Quantity read;
    Quantity written;
    Quantity received;
    Quantity sent;
    fxObj* const samplers[samplerCount];
    Quantity* const quantities[quantityCount];
    std::vector<fxGauge*> gauges;
    // One records the machine, the other takes the place of all the above.
    std::unique_ptr<Recorder> recorder;
    std::unique_ptr<Player> player;

    fxClockTimer timer;
    std::vector<std::unique_ptr<fxSignal>> signals;
    StatusLine status;
    // Only on a terminal, or only without one.
    std::unique_ptr<fxTerminal> terminal;
    std::unique_ptr<Keyboard> keyboard;
    std::unique_ptr<Display> display;
    std::unique_ptr<Report> report;

    // A first sample, so that rates have a beginning.
    const fxOutput<void> prime = addOutput<void>("prime");
    // Something that is shown has changed.
    const fxOutput<void> changed = addOutput<void>("changed");
    const fxOutput<double> interval = addOutput<double>("interval");
    const fxOutput<bool> paused = addOutput<bool>("paused");
    const fxOutput<bool> smoothing = addOutput<bool>("smoothing");
    const fxOutput<int> samples = addOutput<int>("samples");
    // Of the sample, in seconds since 1970.
    const fxOutput<double> time = addOutput<double>("time");
    // The result of a request of the user.
    const fxOutput<const char*> message = addOutput<const char*>("message");
    const fxStr recordPath;
    fxStr failure;
    float intervalSeconds;
    int sampleCount = 0;
    std::chrono::steady_clock::time_point nextSave;  // not before
    bool hasSavingFailed = false;                    // and was reported
    int quitSignal = 0;
    bool smoothingOn = false;
};

#endif
