#include "fxds/BinaryOTDict.h"

// All behaviour is inherited; this file is the home of the vtable.

fxBinaryOTDict::fxBinaryOTDict(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxBinaryOTDict::fxBinaryOTDict(Entries entries) : fxTypedDictionary(entries) {}

fxBinaryOTDict::~fxBinaryOTDict() { cleanup(); }

void fxBinaryOTDict::clear() {
    cleanup();
    count = 0;
}

fxBinaryOTDict::Finder* fxBinaryOTDict::finder() const { return ownFinder(typeid(fxBinaryOTDict)); }
