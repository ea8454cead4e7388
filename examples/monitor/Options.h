// The command line of the monitor.
#ifndef MONITOR_OPTIONS_H
#define MONITOR_OPTIONS_H

#include "fxds/Str.h"

struct Options {
    enum Action { watch, showHelp, showVersion, showGraph };

    Action action = watch;
    int samples = 0;            ///< Lines to print; 0: draw in place until quit.
    float intervalSeconds = 0;  ///< Between samples; 0: not given.
    fxStr procDirectory = "/proc";
    fxStr record;   ///< The file to save in; empty: none.
    fxStr replay;   ///< The recording to show instead of the machine; empty: none.
    fxStr picture;  ///< The file for showGraph; empty: text to standard output.
};

/// Shortest and longest time between samples.
constexpr float shortestInterval = 0.01F;
constexpr float longestInterval = 3600;

/// Reads the command line into `options`. Returns false, with one line for the
/// user in `error`, when it is faulty.
bool parseOptions(int argc, char** argv, Options& options, fxStr& error);

extern const char usageText[];

#endif
