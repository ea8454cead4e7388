// The tests of flows, and reports of them.
#ifndef FXFLOW_TESTREPORT_H
#define FXFLOW_TESTREPORT_H

#include "Options.h"

/// Runs the tests of the files. Returns the status to exit with.
int runTests(const Options& options);

#endif
