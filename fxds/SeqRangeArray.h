// Array of ranges of sequence numbers.
#ifndef FXDS_SEQRANGEARRAY_H
#define FXDS_SEQRANGEARRAY_H

#include "fxds/TypedArray.h"

/// The sequence numbers [start, start + length).
struct fxSeqRange {
    unsigned int start;   ///< First number.
    unsigned int length;  ///< How many numbers.
};

/// An array of ranges. It cannot be transcribed: xdr() moves nothing.
class FX_API fxSeqRangeArray : public fxTypedArray<fxSeqRangeArray, fxSeqRange> {
public:
    using fxTypedArray::fxTypedArray;
};

#endif
