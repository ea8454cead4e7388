#include "fxds/Path.h"

#include <algorithm>
#include <cstring>

#include "ostrelks/ostrelks.h"

// Each part can be as long as the whole path. The parts are built in separate
// strings, because the destination of one of them may be the path itself.

int fxPath::split(fxPath* dir, fxPath* leaf) const {
    FX_ASSERT(dir != nullptr && leaf != nullptr);
    fxPath parts[2];
    // At least 1: an empty string has no bytes to write to.
    for (fxPath& part : parts) part.resize(std::max(length(), 1U));
    const int status = fileutl_strip_leaf(c_str(), parts[0].slength, parts[0].data,
                                          parts[1].slength, parts[1].data);
    for (fxPath& part : parts) part.resize(static_cast<unsigned int>(std::strlen(part.c_str())));
    *dir = std::move(parts[0]);
    *leaf = std::move(parts[1]);
    return status;
}

fxPath fxPath::leaf() const {
    fxPath dir;
    fxPath leaf;
    split(&dir, &leaf);
    return leaf;
}

fxPath fxPath::directory() const {
    fxPath dir;
    fxPath leaf;
    split(&dir, &leaf);
    return dir;
}
