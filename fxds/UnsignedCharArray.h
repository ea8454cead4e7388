// Array of unsigned char.
#ifndef FXDS_UNSIGNEDCHARARRAY_H
#define FXDS_UNSIGNEDCHARARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxUnsignedCharArray_type;

/// An array of bytes.
class FX_API fxUnsignedCharArray
    : public fxRecordedArray<fxUnsignedCharArray, unsigned char, fxUnsignedCharArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
