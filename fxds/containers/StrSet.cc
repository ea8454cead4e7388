#include "fxds/StrSet.h"

#include "fxds/containers/StrInPlace.h"

// Only transcription is special: that of the base would begin with the part of
// the generic object, and there is none.

fxStrSet::fxStrSet(unsigned int nBuckets) : fxRecorded(nBuckets) {}

fxStrSet::fxStrSet(fxTypeObj& type) : fxRecorded(type) {}

fxStrSet::fxStrSet(fxDetail::ArrayItems<fxStr> items) : fxRecorded(items) {}

fxStrSet::~fxStrSet() { cleanup(); }

fxBool fxStrSet::xdr(fxTranscriber& transcriber) { return doxdr(transcriber); }

bool fxStrSet::xdrKey(fxTranscriber& transcriber, void* key) {
    return fxXdrStrInPlace(transcriber, key);
}

fxStrSet::Finder* fxStrSet::finder() const { return ownFinder(typeid(fxStrSet)); }
