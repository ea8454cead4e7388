// Array of int.
#ifndef FXDS_INTARRAY_H
#define FXDS_INTARRAY_H

#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxIntArray_type;

/// An array of 32-bit integers. In a stream its n elements take 8n bytes: the
/// packed ints, then as many zero bytes.
class FX_API fxIntArray : public fxRecordedArray<fxIntArray, int, fxIntArray_type> {
public:
    using fxRecordedArray::fxRecordedArray;

    using fxRecordedArray::xdr;
    /// As that of the base; the ints travel as longs. False on failure.
    fxBool xdr(fxTranscriber& transcriber) override;
};

#endif
