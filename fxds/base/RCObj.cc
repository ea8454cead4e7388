#include "fxds/RCObj.h"

// Anchors the vtable; the counting is inline.

fxRCObj::~fxRCObj() = default;
