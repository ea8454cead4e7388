// Finds circles of immediate connections. Private to the library.
#ifndef FLOW_TEXT_CIRCLES_H
#define FLOW_TEXT_CIRCLES_H

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "flow/Text.h"

/// The objects of a flow by name: the index of the first of each.
typedef std::unordered_map<std::string_view, size_t> fxFlowIndex;
fxFlowIndex fxFlowIndexOf(const fxFlowText& flow);

/// A connection that closes a circle, by index.
struct fxFlowCircle {
    size_t connection;
    std::string way;  ///< "a -> b -> a", without its middle where it is long.
};

/// The circles that remain after each connection found before has been cut.
/// Cost: O(objects and connections).
std::vector<fxFlowCircle> fxFlowCircles(const fxFlowText& flow, const fxFlowIndex& index);

#endif
