// Shared by the programs that print tables of costs: the clock, and the objects that are
// connected.
#ifndef FXDS_BENCH_THINGS_H
#define FXDS_BENCH_THINGS_H

#include <ctime>

#include "fxds/fxds.h"

/// In processor time, because other programs run meanwhile.
inline double nanoseconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

class Sink : public fxObj {
public:
    Sink() { addInput<&Sink::receive>("in"); }
    void receive(int value) { sum += value; }
    long sum = 0;
};

class Source : public fxObj {
public:
    const fxOutput<int> out = addOutput<int>("out");
};

#endif
