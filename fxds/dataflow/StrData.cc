#include "fxds/StrData.h"

// Separate from Data.cc, so that boxes of numbers do not need the containers.

fxStrData::fxStrData(const fxStr& value_) : fxValueData(value_) {}

fxStrArrayData::fxStrArrayData(const fxStrArray& value_) : fxValueData(value_) {}
