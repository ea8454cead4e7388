#include "fxds/Counted.h"

Counted::~Counted() = default;
