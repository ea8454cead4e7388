// A monitor of the machine for a corner of the screen, whose every value
// travels through the dataflow of the library.

#include <csignal>

#include <climits>
#include <cstdio>
#include <iostream>

#include "Monitor.h"
#include "Options.h"
#include "fxds/Exec.h"
#include "fxds/Globals.h"
#include "fxds/Network.h"

namespace {

constexpr int defaultSamples = 5;

int fail(const fxStr& reason, int status) {
    std::fprintf(stderr, "monitor: %s\n", reason.c_str());
    return status;
}

// What was not said on the command line: a replay takes the interval of its
// recording or, when it is printed, goes as fast as it can.
void setDefaults(Options& options, const Recording* replayed) {
    const bool drawn =
        options.samples == 0 && (options.action == Options::showGraph || Terminal::canDraw());
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

// Runs the monitor and returns the exit status.
int run(Options& options, int argc, char** argv) {
    Recording* replayed = nullptr;
    fxStr error;
    if (!options.replay.isEmpty()) {
        replayed = loadRecording(options.replay, error);
        if (replayed == nullptr) return fail(error, 1);
        replayed->take();
    }
    setDefaults(options, replayed);
    {
        Monitor monitor(options, replayed);
        if (replayed != nullptr) replayed->release();
        if (options.action == Options::showGraph) {
            fxDumpNetwork(std::cout, &monitor);
        } else {
            fx_theExecutive->initialize(argc, argv);
            fx_theExecutive->open();
            fx_theExecutive->loop();
        }
        error = monitor.getFailure();
    }
    return error.isEmpty() ? 0 : fail(error, 1);
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
    if (options.action == Options::showHelp) {
        std::fputs(usageText, stdout);
    } else {
        status = run(options, argc, argv);
    }
    std::cout.flush();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || std::cout.fail()) {
        return fail("standard output cannot be written", 1);
    }
    // Whoever waits for us should see what ended us.
    if (status == 0 && Signals::quitSignal() != 0) raise(Signals::quitSignal());
    return status;
}
