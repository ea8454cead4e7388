// Array of long.
#ifndef FXDS_LONGARRAY_H
#define FXDS_LONGARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxLongArray_type;

/// An array of 64-bit integers.
class FX_API fxLongArray : public fxRecordedArray<fxLongArray, long, fxLongArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
