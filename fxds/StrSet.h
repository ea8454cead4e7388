// Set of strings.
#ifndef FXDS_STRSET_H
#define FXDS_STRSET_H

#include "fxds/TypedSet.h"
#include "fxds/detail/Recorded.h"

extern FX_API fxTypeObj fxStrSet_type;

/// A set of texts, which are equal when compare() returns 0.
///
///     fxStrSet names;
///     names.add("left");
///     for (const fxStr& name : names) std::cout << name << '\n';
class FX_API fxStrSet : public fxRecorded<fxStrSet, fxTypedSet<fxStr>, fxStrSet_type> {
public:
    explicit fxStrSet(unsigned int nBuckets = 0);  ///< `nBuckets` chains; 0 means 31.
    explicit fxStrSet(fxTypeObj& type);
    fxStrSet(fxDetail::ArrayItems<fxStr> items);  ///< Holds the keys.
    fxStrSet(const fxStrSet&) = default;
    fxStrSet(fxStrSet&&) = default;
    fxStrSet& operator=(const fxStrSet&) = default;
    ~fxStrSet() override;

    using fxRecorded::xdr;
    fxBool xdr(fxTranscriber& transcriber) override;

protected:
    bool xdrKey(fxTranscriber& transcriber, void* key) override;
    Finder* finder() const override;
};

/// Walks an fxStrSet.
class FX_API fxStrSetIter : public fxTypedSetIter<fxStr> {
public:
    using fxTypedSetIter::fxTypedSetIter;
    using fxTypedSetIter::operator=;
};

#endif
