#include "fxds/StrSet.h"

#include <typeinfo>

#include "fxds/containers/HashContainer.h"

// Only transcription is special: the base's would hand over the generic
// object's part first, of which there is none.

fxStrSet::fxStrSet(unsigned int nBuckets) : fxTypedSet(nBuckets) {}

fxStrSet::fxStrSet(fxTypeObj& type) : fxTypedSet(type) {}

fxStrSet::~fxStrSet() { cleanup(); }

fxBool fxStrSet::xdr(fxTranscriber& transcriber) { return doxdr(transcriber); }

fxTypeObj* fxStrSet::getTypeObj() const { return &fxStrSet_type; }

void* fxStrSet::newInstance(fxTypeObj& type) {
    return fxTypeFunctions<fxStrSet>::newInstance(type);
}

void fxStrSet::deleteInstance(void* object) { fxTypeFunctions<fxStrSet>::deleteInstance(object); }

fxBool fxStrSet::xdr(void* object, fxTranscriber& transcriber) {
    fxStrSet& self = *static_cast<fxStrSet*>(object);
    return transcriber.conclude(self.fxStrSet::xdr(transcriber) != 0, self, object);
}

bool fxStrSet::xdrKey(fxTranscriber& transcriber, void* key) {
    return fxXdrStrInPlace(transcriber, key);
}

fxStrSet::Finder* fxStrSet::finder() const {
    return typeid(*this) == typeid(fxStrSet) ? fxHashCore<fxSet>::findDirectly<fxStr>
                                             : fxSet::finder();
}
