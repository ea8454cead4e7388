#include "fxds/StrData.h"

fxStrData::fxStrData(const fxStr& value_) : fxValueData(value_) {}

fxStrArrayData::fxStrArrayData(const fxStrArray& value_) : fxValueData(value_) {}
