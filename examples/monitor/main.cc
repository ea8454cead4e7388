// A monitor of the machine for a corner of the screen, whose every value
// travels through the dataflow of the library.

#include <climits>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "Monitor.h"
#include "Options.h"
#include "Picture.h"
#include "fxds/Exec.h"
#include "fxds/Globals.h"
#include "fxds/Network.h"

namespace {

constexpr int defaultSamples = 5;

int fail(const fxStr& reason, int status) {
    std::fprintf(stderr, "monitor: %s\n", reason.c_str());
    return status;
}

// The defaults of the command line: a replay takes the interval of its recording or, when
// it is printed, runs as fast as possible.
void setDefaults(Options& options, const Recording* replayed) {
    const bool drawn =
        options.samples == 0 && (options.action == Options::showGraph || fxTerminal::canDraw());
    if (!drawn && options.samples == 0) {
        options.samples = replayed != nullptr ? INT_MAX : defaultSamples;
    }
    if (options.intervalSeconds > 0) return;
    if (replayed == nullptr) {
        options.intervalSeconds = 1;
    } else if (drawn) {
        options.intervalSeconds = replayed->intervalSeconds;
    }
}

// Runs the monitor. Returns the exit status; `signalNumber` is the signal that ended it, or
// 0.
int run(Options& options, int argc, char** argv, int& signalNumber) {
    fxRef<Recording> replayed;
    fxStr error;
    if (!options.replay.isEmpty()) {
        replayed = loadRecording(options.replay, error);
        if (!replayed) return fail(error, 1);
    }
    setDefaults(options, replayed);
    Monitor monitor(options, replayed);
    if (options.action == Options::showGraph && options.picture.isEmpty()) {
        fxDumpNetwork(std::cout, &monitor);
    } else if (options.action == Options::showGraph) {
        error = drawNetwork(monitor, options.picture);
    } else if (const fxStreamFault fault = monitor.saveRecord()) {
        error = fault.text();  // now, not when hours have been recorded
    } else {
        fx_theExecutive->initialize(argc, argv);
        fx_theExecutive->open();
        fx_theExecutive->loop();
    }
    if (!error.isEmpty()) return fail(error, 1);
    signalNumber = monitor.getQuitSignal();
    return monitor.getFailure().isEmpty() ? 0 : fail(monitor.getFailure(), 1);
}

}  // namespace

int main(int argc, char** argv) {
    fxInitializeToolkit();
    Options options;
    fxStr error;
    if (!parseOptions(argc, argv, options, error)) {
        return fail(error | " (see monitor --help)", 2);
    }
    int status = 0;
    int signalNumber = 0;
    if (options.action == Options::showHelp) {
        std::fputs(usageText, stdout);
    } else if (options.action == Options::showVersion) {
        std::puts("monitor of libostrelfxds " MONITOR_VERSION);
    } else {
        status = run(options, argc, argv, signalNumber);
    }
    std::cout.flush();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || std::cout.fail()) {
        return fail("standard output cannot be written", 1);
    }
    // The signal's own effect, so that the parent process sees what ended this one.
    if (status == 0 && signalNumber != 0) raise(signalNumber);
    return status;
}
