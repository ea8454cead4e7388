// Elements of flows, made by name: the program's samplers and filters.
#ifndef MONITOR_ELEMENTS_H
#define MONITOR_ELEMENTS_H

#include <initializer_list>
#include <utility>

#include "fxds/Obj.h"
#include "fxds/Ref.h"
#include "fxds/Str.h"

/// A new element of the kind with the properties, in the notation of a flow.
/// Requires: the kind and the properties exist, and the values fit.
fxRef<fxObj> makeElement(const char* kind,
                         std::initializer_list<std::pair<const char*, fxStr>> properties);

#endif
