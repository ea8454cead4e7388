#include "fxds/base/FreeLists.h"

fxFreeLists::Block* fxFreeLists::freeBlocks[fxFreeLists::classes] = {};
