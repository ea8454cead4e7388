#include "fxds/BinaryOTDict.h"

#include <typeinfo>

#include "fxds/containers/HashContainer.h"

// All of it is fxTypedDictionary's; the class is at home here.

fxBinaryOTDict::fxBinaryOTDict(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxBinaryOTDict::~fxBinaryOTDict() { cleanup(); }

fxBinaryOTDict::Finder* fxBinaryOTDict::finder() const {
    return typeid(*this) == typeid(fxBinaryOTDict)
               ? fxHashCore<fxDictionary>::findDirectly<const void*>
               : fxDictionary::finder();
}
