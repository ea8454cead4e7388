#include "fxds/BinaryOTDict.h"

// All of it is fxTypedDictionary's; the class is at home here.

fxBinaryOTDict::fxBinaryOTDict(unsigned int nBuckets) : fxTypedDictionary(nBuckets) {}

fxBinaryOTDict::~fxBinaryOTDict() { cleanup(); }
