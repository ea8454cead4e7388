#include "fxds/VoidPtrDict.h"

// All of it is fxTypedDictionary's; the class is at home here.

fxVoidPtrDict::fxVoidPtrDict(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxVoidPtrDict::~fxVoidPtrDict() { cleanup(); }
