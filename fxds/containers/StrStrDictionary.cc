#include "fxds/StrStrDictionary.h"

#include "fxds/containers/StrInPlace.h"

// Only transcription is special: that of the base would begin with the part of
// the generic object, and there is none.

fxStrStrDictionary::fxStrStrDictionary(unsigned int nBuckets) : fxRecorded(nBuckets) {}

fxStrStrDictionary::fxStrStrDictionary(fxTypeObj& type) : fxRecorded(type) {}

fxStrStrDictionary::fxStrStrDictionary(Entries entries) : fxRecorded(entries) {}

fxStrStrDictionary::~fxStrStrDictionary() { cleanup(); }

fxBool fxStrStrDictionary::xdr(fxTranscriber& transcriber) { return doxdr(transcriber); }

bool fxStrStrDictionary::xdrKey(fxTranscriber& transcriber, void* key) {
    return fxXdrStrInPlace(transcriber, key);
}

bool fxStrStrDictionary::xdrValue(fxTranscriber& transcriber, void* value) {
    return fxXdrStrInPlace(transcriber, value);
}

fxStrStrDictionary::Finder* fxStrStrDictionary::finder() const {
    return ownFinder(typeid(fxStrStrDictionary));
}
