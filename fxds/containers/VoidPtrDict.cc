#include "fxds/VoidPtrDict.h"

// All behaviour is inherited; this file anchors the vtable.

fxVoidPtrDict::fxVoidPtrDict(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxVoidPtrDict::fxVoidPtrDict(Entries entries) : fxTypedDictionary(entries) {}

fxVoidPtrDict::~fxVoidPtrDict() { cleanup(); }

fxVoidPtrDict::Finder* fxVoidPtrDict::finder() const { return ownFinder(typeid(fxVoidPtrDict)); }
