// The tests of flows, and how they are reported.
#ifndef FXFLOW_TESTREPORT_H
#define FXFLOW_TESTREPORT_H

#include "Options.h"

/// Runs the tests of the files. Returns the status to exit with.
int runTests(const Options& options);

#endif
