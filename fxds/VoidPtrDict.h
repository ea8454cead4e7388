// Dictionary from string to pointer.
#ifndef FXDS_VOIDPTRDICT_H
#define FXDS_VOIDPTRDICT_H

#include "fxds/TypedDictionary.h"

/// Maps names to pointers, which are borrowed. A default value is null. It
/// cannot be transcribed, unless it is empty.
class FX_API fxVoidPtrDict : public fxTypedDictionary<fxStr, void*> {
public:
    explicit fxVoidPtrDict(unsigned int nBuckets = 0);  ///< `nBuckets` chains; 0 means 31.
    fxVoidPtrDict(Entries entries);                     ///< See fxTypedDictionary.
    fxVoidPtrDict(const fxVoidPtrDict&) = default;
    fxVoidPtrDict(fxVoidPtrDict&&) = default;
    fxVoidPtrDict& operator=(const fxVoidPtrDict&) = default;  // merges
    ~fxVoidPtrDict() override;

protected:
    Finder* finder() const override;
};

/// Walks an fxVoidPtrDict.
class FX_API fxVoidPtrDictIter : public fxTypedDictIter<fxStr, void*> {
public:
    using fxTypedDictIter::fxTypedDictIter;
    using fxTypedDictIter::operator=;
};

#endif
