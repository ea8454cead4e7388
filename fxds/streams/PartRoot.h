// Decides which parts of an object have a separate root.
#ifndef FXDS_STREAMS_PARTROOT_H
#define FXDS_STREAMS_PARTROOT_H

#include <typeinfo>

#include "fxds/XDRObj.h"

// A class with several bases has one fxXDRObj when they share it, or else one
// for each base that brings its own. Its record counts the first as the
// object's.

/// Whether `root`, which belongs to a part that an object inherits, is another
/// one than the root of the object. The part then gets the call for its own
/// end.
inline bool fxIsRootOfPart(fxXDRObj& root) {
    const fxTypeObj* const type = root.getTypeObj();
    if (type == nullptr || type->typeInfo == nullptr || *type->typeInfo != typeid(root)) {
        return false;
    }
    return type->upcast(dynamic_cast<void*>(&root), fxXDRObj_type) != &root;
}

#endif
