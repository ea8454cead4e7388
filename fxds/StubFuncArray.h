// Array of functions without arguments and result.
#ifndef FXDS_STUBFUNCARRAY_H
#define FXDS_STUBFUNCARRAY_H

#include "fxds/TypedArray.h"

typedef void (*fxStubFunc)();  ///< A function without arguments and result.

/// An array of functions. It cannot be transcribed: xdr() moves nothing.
class FX_API fxStubFuncArray : public fxTypedArray<fxStubFuncArray, fxStubFunc> {
public:
    using fxTypedArray::fxTypedArray;
};

#endif
