// Messages about names that do not exist, and about types that do not match. Part of
// what libraries on top of this one use, not of the interface.
#ifndef FXDS_DETAIL_SUGGESTION_H
#define FXDS_DETAIL_SUGGESTION_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "fxds/Config.h"

namespace fxDetail {

// Continues `Lines has no output "lin"`: `; did you mean "line"?` if a name is similar,
// else `; it has "end", "count"`, or `, nor any other`. `has` replaces "it has"; at most
// `most` names are listed.
//
// Cost: O(length of `wanted` and of the names like it, multiplied) for a name of up to 256
// bytes; longer ones are like no other.
FX_API std::string suggestion(std::string_view wanted, const std::vector<std::string_view>& known,
                              const char* has = "it has", size_t most = static_cast<size_t>(-1));

// Why no output of the data type `from` can feed an input of the type `to`, or "".
FX_API std::string unlikeTypes(unsigned short from, unsigned short to);

}  // namespace fxDetail

#endif
