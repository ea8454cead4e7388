#include "fxds/TextPattern.h"

// Here rather than in the header, so that the class has one table of functions.
fxTextPattern::~fxTextPattern() = default;
