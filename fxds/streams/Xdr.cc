#include "fxds/Xdr.h"

fxXdrAddress::~fxXdrAddress() = default;
