// Why two channels cannot be joined, in words.
#ifndef FXDS_DATAFLOW_EXPLAIN_H
#define FXDS_DATAFLOW_EXPLAIN_H

#include <string>

class fxObj;

namespace fxExplain {

/// The ends by class, name and type, and what is missing; "" when the two can be joined.
std::string whyNotJoined(fxObj* source, const char* output, fxObj* target, const char* input);

}  // namespace fxExplain

#endif
