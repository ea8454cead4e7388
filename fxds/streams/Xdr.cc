#include "fxds/Xdr.h"

fxXdrReferent::~fxXdrReferent() = default;
