// What the library tells of itself while it is traced.
#ifndef FXDS_DATAFLOW_TRACELINES_H
#define FXDS_DATAFLOW_TRACELINES_H

#include <string>

#include "fxds/Trace.h"

class fxData;
class fxEvent;
class fxObj;

/// Each of the functions without a result writes a line, or nothing when its
/// kind is off, and only looks at what it is given.
namespace fxTraceLines {

/// What the class of an object is called: as its className() says, or, when
/// that is nobody's but the root's, as the compiler does, without namespaces.
std::string classNameOf(const fxObj& object);

[[gnu::cold]] void sending(const fxOutputChannel& output, fxData* data,
                           int how);  ///< `how` is an fxObj::fxSendFlags.
[[gnu::cold]] void delivering(fxInputChannel& input, fxData* data);
[[gnu::cold]] void delivering(fxEvent& event);
[[gnu::cold]] void replacing(fxEvent& event);
[[gnu::cold]] void timer(const char* what, const fxObj& timer, double seconds);
[[gnu::cold, gnu::format(printf, 1, 2)]] void phase(const char* format, ...);

/// Forgets the number of an object that is being destroyed.
[[gnu::cold]] void dying(const fxObj& object);

}  // namespace fxTraceLines

#endif
