// A monitor of the machine for a corner of the screen, whose every value
// travels through the dataflow of the library.

#include <signal.h>

#include <cstdio>
#include <iostream>

#include "Monitor.h"
#include "Options.h"
#include "fxds/Exec.h"
#include "fxds/Globals.h"
#include "fxds/Network.h"

namespace {

constexpr int defaultSamples = 5;

}  // namespace

int main(int argc, char** argv) {
    fxInitializeToolkit();
    Options options;
    fxStr error;
    if (!parseOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "monitor: %s (see monitor --help)\n", error.c_str());
        return 2;
    }
    if (options.action == Options::showHelp) {
        std::fputs(usageText, stdout);
    } else {
        const bool showGraph = options.action == Options::showGraph;
        if (options.samples == 0 && !showGraph && !Terminal::canDraw())
            options.samples = defaultSamples;
        Monitor monitor(options);
        if (showGraph) {
            fxDumpNetwork(std::cout, &monitor);
        } else {
            fx_theExecutive->initialize(argc, argv);
            fx_theExecutive->open();
            fx_theExecutive->loop();
        }
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "monitor: standard output cannot be written\n");
        return 1;
    }
    // Whoever waits for us should see what ended us.
    if (Signals::quitSignal() != 0) raise(Signals::quitSignal());
    return 0;
}
