// Array of unsigned long.
#ifndef FXDS_UNSIGNEDLONGARRAY_H
#define FXDS_UNSIGNEDLONGARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxUnsignedLongArray_type;

/// An array of unsigned 64-bit integers.
class FX_API fxUnsignedLongArray
    : public fxRecordedArray<fxUnsignedLongArray, unsigned long, fxUnsignedLongArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
