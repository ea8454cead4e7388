// The network of objects as a picture.
#ifndef MONITOR_PICTURE_H
#define MONITOR_PICTURE_H

#include "fxds/Obj.h"
#include "fxds/Str.h"

/// Draws the network that the object belongs to into a file: as text for Graphviz when the
/// path ends in .dot or .gv, otherwise, by Graphviz, in the format of the ending. Returns
/// the failure, in a line for the user; empty for none. Runs the loop while Graphviz works.
fxStr drawNetwork(fxObj& object, const fxStr& path);

#endif
