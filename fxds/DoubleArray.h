// Array of double.
#ifndef FXDS_DOUBLEARRAY_H
#define FXDS_DOUBLEARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxDoubleArray_type;

/// An array of doubles. find() compares bytes: -0 is not 0, and a NaN is found.
class FX_API fxDoubleArray : public fxRecordedArray<fxDoubleArray, double, fxDoubleArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
