// A string that names a file.
#ifndef FXDS_PATH_H
#define FXDS_PATH_H

#include "fxds/Str.h"

/// A path: a string that can be taken apart into a directory and a leaf.
class FX_API fxPath : public fxStr {
public:
    using fxStr::fxStr;
    using fxStr::operator=;
    fxPath() = default;
    fxPath(const fxStr& str) : fxStr(str) {}  ///< A copy of the text.

    /// Sets `dir` to the directory part and `leaf` to the last component,
    /// ignoring a trailing slash: a/b/ gives a and b, /usr gives / and usr, and
    /// abc gives the empty directory and abc. Either may be the path itself;
    /// when they are the same object, it becomes the leaf. Returns 1: the parts
    /// are complete.
    int split(fxPath* dir, fxPath* leaf) const;

    fxPath leaf() const;       ///< The last component, as split() finds it.
    fxPath directory() const;  ///< What precedes the last component, as split() finds it.
};

#endif
