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

    /// Sets `dir` to the directory part and `leaf` to the last component, which
    /// a trailing slash does not end: a/b/ is a and b, /usr is / and usr, and abc
    /// is the empty directory and abc. Either may be the path itself; when they
    /// are the same object, it becomes the leaf. Returns 1, which stands for
    /// complete parts.
    int split(fxPath* dir, fxPath* leaf) const;

    fxPath leaf() const;       ///< The last component, as split() finds it.
    fxPath directory() const;  ///< What precedes the last component, as split() finds it.
};

#endif
