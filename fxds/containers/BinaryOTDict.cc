#include "fxds/BinaryOTDict.h"

// All behaviour is inherited; this file anchors the vtable.

fxBinaryOTDict::fxBinaryOTDict(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxBinaryOTDict::~fxBinaryOTDict() { cleanup(); }

fxBinaryOTDict::Finder* fxBinaryOTDict::finder() const { return finderFor(typeid(fxBinaryOTDict)); }
