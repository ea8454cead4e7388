#include "fxds/StrData.h"

#include "fxds/DataTypes.h"

fxStrData::fxStrData(const fxStr& value_) : fxValueData(fxDT_fxStr, value_) {}

fxStrArrayData::fxStrArrayData(const fxStrArray& value_) : fxValueData(fxDT_fxStrArray, value_) {}
