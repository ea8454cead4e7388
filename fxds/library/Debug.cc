#include "fxds/Debug.h"

// There are no options: both operations do nothing.

fxDebug* fx_theDebugger = nullptr;

fxDebug::fxDebug(unsigned char) {}

void fxDebug::parseOption(fxStr&) {}
