// Root of all objects that are counted by their holders.
#ifndef FXDS_RCOBJ_H
#define FXDS_RCOBJ_H

#include "fxds/Config.h"
#include "fxds/detail/Hold.h"

/// An object that counts its holders. A new object has none; a
/// holder calls take() when it stores the object and release() when it lets go.
/// The holder that brings the count to exactly 0 destroys the object, so every
/// release() must pair with an earlier take(): releasing at 0 wraps the count.
/// From then on the count cannot reach 0 again, so a destructor that takes a reference
/// to its object does not destroy it twice. That holds for objects that the library
/// deletes; the destructor of one that a program deletes itself must take none.
/// Nothing is atomic: an object belongs to one thread.
class FX_API fxRCObj {
public:
    fxRCObj() : refCount(0) {}
    /// A copy is a new object without holders.
    fxRCObj(const fxRCObj&) : refCount(0) {}
    /// Assignment keeps the count: the holders stay.
    fxRCObj& operator=(const fxRCObj&) { return *this; }
    virtual ~fxRCObj();

    void take() { ++refCount; }  ///< Adds one holder.

    /// Destroys the object when this was the last holder.
    void release() {
        if (--refCount == 0) fxEnd(this, refCount);
    }

    unsigned long refCount;  ///< Number of holders.
};

#endif
