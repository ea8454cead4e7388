// The reason why two channels cannot be connected, in words.
#ifndef FXDS_DATAFLOW_EXPLAIN_H
#define FXDS_DATAFLOW_EXPLAIN_H

#include <string>

class fxInputChannel;
class fxObj;
class fxOutputChannel;

namespace fxExplain {

///@{
/// The ends by class, name and type, and the reason; "" when the two can be connected.
std::string whyNotJoined(fxObj* source, const char* output, fxObj* target, const char* input);
std::string whyNotJoined(const fxOutputChannel* output, fxObj* target, const char* input);
std::string whyNotJoined(const fxOutputChannel& output, const fxInputChannel& input);
///@}

}  // namespace fxExplain

#endif
