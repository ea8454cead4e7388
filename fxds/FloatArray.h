// Array of float.
#ifndef FXDS_FLOATARRAY_H
#define FXDS_FLOATARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxFloatArray_type;

/// An array of floats. find() compares bytes: -0 is not 0, and a NaN is found.
class FX_API fxFloatArray : public fxRecordedArray<fxFloatArray, float, fxFloatArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
