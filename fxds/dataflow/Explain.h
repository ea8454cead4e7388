// Why two channels cannot be joined, in words.
#ifndef FXDS_DATAFLOW_EXPLAIN_H
#define FXDS_DATAFLOW_EXPLAIN_H

#include <string>

class fxObj;

/// Each returns "" when the two can be joined.
namespace fxExplain {

std::string unlikeTypes(unsigned short from, unsigned short to);
/// The ends by class, name and type, and what is missing.
std::string whyNotJoined(fxObj* source, const char* output, fxObj* target, const char* input);

}  // namespace fxExplain

#endif
