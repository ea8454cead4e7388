// Which parts of an object have a root of their own.
#ifndef FXDS_STREAMS_PARTROOT_H
#define FXDS_STREAMS_PARTROOT_H

#include <typeinfo>

#include "fxds/XDRObj.h"

// A class with several bases has one fxXDRObj when they share it, or else one for
// each that brings its own. Its record counts the first as the object's.

/// Whether `root`, of a part that an object inherits, is not that of the object,
/// so that the part gets the call for its own end.
inline bool fxIsRootOfPart(fxXDRObj& root) {
    const fxTypeObj* const type = root.getTypeObj();
    if (type == nullptr || type->typeInfo == nullptr || *type->typeInfo != typeid(root)) {
        return false;
    }
    return type->upcast(dynamic_cast<void*>(&root), fxXDRObj_type) != &root;
}

#endif
