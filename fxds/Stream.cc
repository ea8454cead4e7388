#include "fxds/Stream.h"

fxStream::~fxStream() = default;
