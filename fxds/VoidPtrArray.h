// Array of void*.
#ifndef FXDS_VOIDPTRARRAY_H
#define FXDS_VOIDPTRARRAY_H

#include "fxds/TypedArray.h"

/// An array of pointers, borrowed. New elements are null. It cannot be
/// transcribed: xdr() moves nothing.
class FX_API fxVoidPtrArray : public fxTypedArray<fxVoidPtrArray, void*, fxZeroFilledArray> {
public:
    using fxTypedArray::fxTypedArray;
};

#endif
