#include "fxds/base/FreeLists.h"

fxPool::Block* fxPool::freeBlocks[fxPool::classes] = {};
