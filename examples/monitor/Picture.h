// The network of objects as a picture.
#ifndef MONITOR_PICTURE_H
#define MONITOR_PICTURE_H

#include "fxds/Obj.h"
#include "fxds/Str.h"

/// Draws the network that the object belongs to into a file: as text for Graphviz when
/// the path ends in .dot or .gv, else, by Graphviz, as what the ending names. Returns
/// what went wrong, in a line for the user; empty when nothing did. Runs the loop
/// while Graphviz works.
fxStr drawNetwork(fxObj& object, const fxStr& path);

#endif
