#include "fxds/RCObj.h"

fxRCObj::~fxRCObj() = default;
