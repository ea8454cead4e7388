#include "fxds/VoidPtrDict.h"

#include <typeinfo>

#include "fxds/containers/HashContainer.h"

// All of it is fxTypedDictionary's; the class is at home here.

fxVoidPtrDict::fxVoidPtrDict(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxVoidPtrDict::~fxVoidPtrDict() { cleanup(); }

fxVoidPtrDict::Finder* fxVoidPtrDict::finder() const {
    return typeid(*this) == typeid(fxVoidPtrDict) ? ownFinder() : fxDictionary::finder();
}

fxVoidPtrDict::Finder* fxVoidPtrDict::ownFinder() {
    return fxHashCore<fxDictionary>::findDirectly<fxStr>;
}
