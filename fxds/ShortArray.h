// Array of short.
#ifndef FXDS_SHORTARRAY_H
#define FXDS_SHORTARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxShortArray_type;

/// An array of 16-bit integers.
class FX_API fxShortArray : public fxRecordedArray<fxShortArray, short, fxShortArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
