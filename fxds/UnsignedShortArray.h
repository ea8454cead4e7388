// Array of unsigned short.
#ifndef FXDS_UNSIGNEDSHORTARRAY_H
#define FXDS_UNSIGNEDSHORTARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxUnsignedShortArray_type;

/// An array of unsigned 16-bit integers.
class FX_API fxUnsignedShortArray
    : public fxRecordedArray<fxUnsignedShortArray, unsigned short, fxUnsignedShortArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
