#include "fxds/base/FreeLists.h"

// Storage of the lists. It has no destructor, so blocks may come back until the
// process ends.

fxFreeLists::Block* fxFreeLists::freeBlocks[fxFreeLists::classes] = {};
