// Looking into flows that run in other terminals.
#ifndef FXFLOW_LOOK_H
#define FXFLOW_LOOK_H

#include "Options.h"

/// Lists the flows that run. Returns the status to exit with, as all here do.
int listRunning();
/// Prints each value of ends.
int tap(const Options& options);
/// Shows how many values each output sends, again and again.
int top(const Options& options);
/// Prints the text of a flow.
int show(const Options& options);

#endif
