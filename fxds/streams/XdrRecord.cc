#include "fxds/XdrRecord.h"

fxXdrAddress::~fxXdrAddress() = default;
