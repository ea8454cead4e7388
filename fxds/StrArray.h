// Array of strings.
#ifndef FXDS_STRARRAY_H
#define FXDS_STRARRAY_H

#include "fxds/Str.h"
#include "fxds/TypedArray.h"

extern FX_API fxTypeObj fxStrArray_type;

/// An array of strings, held in place. New elements are empty strings. find()
/// and sort() go by compare(), the byte order of the texts up to their first
/// zero byte. qsort() places texts as fxArray::qsort() does, each of them a
/// string of its own.
///
/// While a reader runs, the texts arrive later: an array that xdr() has read must not be
/// changed before the reader's readObject() returns. For the same
/// reason xdr() drops, without freeing them, a block that holds strings when it
/// starts to read: a text may still be on its way there. Read into empty arrays.
class FX_API fxStrArray
    : public fxRecorded<fxStrArray, fxTypedArray<fxStrArray, fxStr, fxOwningArray<fxStr>>,
                        fxStrArray_type> {
public:
    using fxRecorded::fxRecorded;

    /// The texts with `separator` between them; see fxStr::split() for the way back.
    fxStr join(fxTextView separator) const { return fxStr::join(*this, separator); }

    /// Compares as ::compare() does.
    int compareElements(const void* a, const void* b) const override;

    using fxRecorded::xdr;
    /// Transcribes the number of strings and each string. False on failure.
    fxBool xdr(fxTranscriber& transcriber) override;

private:
    bool writeStrings(fxTranscriber& transcriber);
    bool readStrings(fxTranscriber& transcriber, unsigned int byteCount);
};

#endif
