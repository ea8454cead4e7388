// Dictionary from object address to record number.
#ifndef FXDS_BINARYOTDICT_H
#define FXDS_BINARYOTDICT_H

#include "fxds/TypedDictionary.h"

/// Maps addresses, which it does not follow, to numbers. A default value
/// is 0. It cannot be transcribed, unless it is empty.
class FX_API fxBinaryOTDict : public fxTypedDictionary<const void*, unsigned long> {
public:
    explicit fxBinaryOTDict(unsigned int nBuckets = 0);  ///< `nBuckets` chains; 0 means 31.
    fxBinaryOTDict(Entries entries);                     ///< See fxTypedDictionary.
    fxBinaryOTDict(const fxBinaryOTDict&) = default;
    fxBinaryOTDict(fxBinaryOTDict&&) = default;
    fxBinaryOTDict& operator=(const fxBinaryOTDict&) = default;  // merges
    ~fxBinaryOTDict() override;

    void clear();  ///< Removes every entry.

protected:
    Finder* finder() const override;
};

class FX_API fxBinaryOTDictIter : public fxTypedDictIter<const void*, unsigned long> {
public:
    using fxTypedDictIter::fxTypedDictIter;
    using fxTypedDictIter::operator=;
};

#endif
