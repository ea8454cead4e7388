// Dictionary from string to string.
#ifndef FXDS_STRSTRDICTIONARY_H
#define FXDS_STRSTRDICTIONARY_H

#include "fxds/TypedDictionary.h"
#include "fxds/detail/Recorded.h"

extern FX_API fxTypeObj fxStrStrDictionary_type;

/// Maps texts to texts. A default value is the empty text.
class FX_API fxStrStrDictionary
    : public fxRecorded<fxStrStrDictionary, fxTypedDictionary<fxStr, fxStr>,
                        fxStrStrDictionary_type> {
public:
    /// `nBuckets` chains; 0 means 31.
    explicit fxStrStrDictionary(unsigned int nBuckets = 0);
    explicit fxStrStrDictionary(fxTypeObj& type);
    fxStrStrDictionary(Entries entries);  ///< See fxTypedDictionary.
    fxStrStrDictionary(const fxStrStrDictionary&) = default;
    fxStrStrDictionary(fxStrStrDictionary&&) = default;
    fxStrStrDictionary& operator=(const fxStrStrDictionary&) = default;  // merges
    ~fxStrStrDictionary() override;

    using fxRecorded::xdr;
    fxBool xdr(fxTranscriber& transcriber) override;

protected:
    bool xdrKey(fxTranscriber& transcriber, void* key) override;
    bool xdrValue(fxTranscriber& transcriber, void* value) override;
    Finder* finder() const override;
};

/// Walks an fxStrStrDictionary.
class FX_API fxStrStrDictionaryIter : public fxTypedDictIter<fxStr, fxStr> {
public:
    using fxTypedDictIter::fxTypedDictIter;
    using fxTypedDictIter::operator=;
};

#endif
