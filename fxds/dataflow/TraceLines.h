// The lines of a trace: one function for each event that the library traces.
// Private to the library.
#ifndef FXDS_DATAFLOW_TRACELINES_H
#define FXDS_DATAFLOW_TRACELINES_H

#include <string>
#include <string_view>
#include <typeinfo>

#include "fxds/Trace.h"

class fxData;
class fxEvent;
class fxObj;

/// Unless stated otherwise, a function writes a line, or nothing when its kind
/// is off, and does not change its arguments.
namespace fxTraceLines {

/// The name of an object's class: its className(), or, when no class below the
/// root defines that, the compiler's name without namespaces. Writes nothing.
std::string classNameOf(const fxObj& object);
std::string nameOf(const std::type_info& type);  ///< The compiler's name, without namespaces.

[[gnu::cold, gnu::noinline]] void sending(const fxOutputChannel& output, fxData* data,
                                          int how);  ///< `how` is an fxObj::fxSendFlags.
[[gnu::cold, gnu::noinline]] void delivering(fxInputChannel& input, fxData* data);
[[gnu::cold, gnu::noinline]] void delivering(fxEvent& event);
[[gnu::cold, gnu::noinline]] void replacing(fxEvent& event);
[[gnu::cold]] void timer(const char* what, const fxObj& timer, double seconds);
[[gnu::cold, gnu::format(printf, 1, 2)]] void phase(const char* format, ...);
[[gnu::cold]] void record(const std::string& text);  ///< See fxStreamTrace.

[[gnu::cold]] void connecting(const fxOutputChannel& output, const fxInputChannel& input);
/// `why` is the result of fxExplain.
[[gnu::cold]] void notConnecting(std::string_view why);

/// Written always; `known` lists the words that exist.
void unknownWord(std::string_view word, std::string_view known);

/// Notes the class of an object that gets a holder: the destructor of fxObj can
/// no longer find it. Writes nothing.
[[gnu::cold]] void holding(const fxObj& object);

/// Reports the holders of an object that is being destroyed, and forgets its
/// number.
[[gnu::cold]] void dying(const fxObj& object, unsigned long holders);
void forgetNames();  ///< Forgets the numbers of all objects.

/// Hands a line to the sink. Defined in Trace.cc.
void write(const std::string& line);

}  // namespace fxTraceLines

#endif
