#include "fxds/StrStrDictionary.h"

#include <typeinfo>

#include "fxds/containers/HashContainer.h"

// Only transcription is special: the base's would hand over the generic
// object's part first, of which there is none.

fxStrStrDictionary::fxStrStrDictionary(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxStrStrDictionary::fxStrStrDictionary(fxTypeObj& type) : fxTypedDictionary(type) {}

fxStrStrDictionary::~fxStrStrDictionary() { cleanup(); }

fxBool fxStrStrDictionary::xdr(fxTranscriber& transcriber) { return doxdr(transcriber); }

fxTypeObj* fxStrStrDictionary::getTypeObj() const { return &fxStrStrDictionary_type; }

void* fxStrStrDictionary::newInstance(fxTypeObj& type) {
    return fxTypeFunctions<fxStrStrDictionary>::newInstance(type);
}

void fxStrStrDictionary::deleteInstance(void* object) {
    fxTypeFunctions<fxStrStrDictionary>::deleteInstance(object);
}

fxBool fxStrStrDictionary::xdr(void* object, fxTranscriber& transcriber) {
    fxStrStrDictionary& self = *static_cast<fxStrStrDictionary*>(object);
    return transcriber.conclude(self.fxStrStrDictionary::xdr(transcriber) != 0, self, object);
}

bool fxStrStrDictionary::xdrKey(fxTranscriber& transcriber, void* key) {
    return fxXdrStrInPlace(transcriber, key);
}

bool fxStrStrDictionary::xdrValue(fxTranscriber& transcriber, void* value) {
    return fxXdrStrInPlace(transcriber, value);
}

fxStrStrDictionary::Finder* fxStrStrDictionary::finder() const {
    return typeid(*this) == typeid(fxStrStrDictionary)
               ? fxHashCore<fxDictionary>::findDirectly<fxStr>
               : fxDictionary::finder();
}
