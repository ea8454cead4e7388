// Array of char.
#ifndef FXDS_CHARARRAY_H
#define FXDS_CHARARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxCharArray_type;

/// An array of characters; it ends in no zero byte of its own.
class FX_API fxCharArray : public fxRecordedArray<fxCharArray, char, fxCharArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;
};

#endif
