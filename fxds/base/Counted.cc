#include "fxds/Counted.h"

// Anchors the vtable; the counting is inline.

Counted::~Counted() = default;
