// A picture of the objects of a running program and of their connections.
#ifndef FXDS_NETWORK_H
#define FXDS_NETWORK_H

#include <initializer_list>
#include <iosfwd>

#include "fxds/Obj.h"

/// Writes the network that the roots belong to as Graphviz dot text: every
/// object that connections lead to from a root, forwards or backwards, with its
/// class (called as in a trace, see fxTrace), its inputs and outputs, their data
/// types, and its other properties.
/// An edge that converts is labelled with both types. Null roots are skipped.
///
/// Objects come in the order in which they are found, channels by name, so the
/// same network gives the same text.
FX_API void fxDumpNetwork(std::ostream& out, std::initializer_list<fxObj*> roots);

template <class... Roots>
/// The same for roots of any classes that derive from fxObj.
inline void fxDumpNetwork(std::ostream& out, Roots*... roots) {
    fxDumpNetwork(out, std::initializer_list<fxObj*>{roots...});
}

#endif
