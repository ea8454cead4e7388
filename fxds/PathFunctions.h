// File names in parts and with their abbreviations expanded.
#ifndef FXDS_PATHFUNCTIONS_H
#define FXDS_PATHFUNCTIONS_H

#include "fxds/Config.h"

// Every result is given: a zero-terminated text to be released with free().

/// Returns the last component without trailing slashes: c for a/b/c, b for
/// a/b/, the empty text when there is nothing but slashes. Null for null.
FX_API char* pathbasename(const char* path);

/// Returns what precedes the last component and the slashes that lead to
/// it: a for a//b and for a/b/, "." for b. Slashes alone give "/"; but /usr gives
/// the empty text, so that result + "/" + leaf names the file in every case.
/// Null when memory runs out. Requires: path not null.
FX_API char* pathdirname(const char* path);

/// Returns `path` with a leading `~` replaced by the value of HOME (nothing when
/// it is unset), and with a leading `~name` replaced by that user's home
/// directory. Other paths, and those of unknown users or of users without a home
/// directory, are copied. Null for null.
FX_API char* pathexpandtilde(const char* path);

/// Returns the text of the symbolic link `path`, cut to `size` bytes. Null when
/// it is no link, is missing or cannot be read; null for null and a size below 1.
FX_API char* symbolicLinkExtendedName(const char* path, int size);

/// Returns `str` with every `$NAME` replaced by the value of that environment
/// variable; null when one of them is unset, and for null. A name ends before a
/// blank or a slash and nowhere else. It never takes the last character of the
/// text, so give a text that ends in a name a slash at its end: $HOME/ is looked
/// up as HOME, but $HOME as HOM followed by an E. Braces mean nothing. `size` is
/// a least size for the result's block, which grows as needed.
FX_API char* environmentVariableExtendedName(char* str, int size);

#endif
