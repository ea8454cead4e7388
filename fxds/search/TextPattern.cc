#include "fxds/TextPattern.h"

// Defined here so that the class has one vtable.
fxTextPattern::~fxTextPattern() = default;
