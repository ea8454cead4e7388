// Boxed strings and string arrays.
#ifndef FXDS_STRDATA_H
#define FXDS_STRDATA_H

#include "fxds/Data.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"

/// Boxes a copy of a string.
class FX_API fxStrData : public fxValueData<fxStr, fxStr&> {
public:
    explicit fxStrData(const fxStr& value);  ///< Copies the string. It has no holder yet.
    const char* dataName() const override { return "fxStr"; }
};

/// Boxes a copy of a string array.
class FX_API fxStrArrayData : public fxValueData<fxStrArray, fxStrArray&> {
public:
    explicit fxStrArrayData(const fxStrArray& value);  ///< Copies the array. It has no holder yet.
    const char* dataName() const override { return "fxStrArray"; }
};

#endif
