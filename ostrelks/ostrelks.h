// Support library: identification messages and file-name splitting.
#ifndef OSTRELKS_OSTRELKS_H
#define OSTRELKS_OSTRELKS_H

#ifdef __cplusplus
extern "C" {
#endif

/// Marks what the library exports.
#define OSTRELKS_API __attribute__((visibility("default")))

/// Prints a message to standard output and returns the number of characters
/// written, negative on an output error. `stream` and `id` select the output
/// and the message in catalogues; both are accepted and not used.
OSTRELKS_API int imsg_print(int stream, const char* format, int id, ...);

/// The same into `buffer`, which must be large enough for the text and its
/// terminating zero. Returns the number of characters without the zero.
OSTRELKS_API int imsg_sprintf(char* buffer, const char* format, int id, ...);

/// Splits `path` into the directory part and the last component. Trailing
/// slashes do not count: a/b/ is a and b. A path without a slash has the empty
/// directory, /usr is / and usr, and the empty path is two empty parts.
/// Each part is zero-terminated and cut to its size in bytes, terminator
/// included. Returns 1, or 0 when a part was cut.
OSTRELKS_API int fileutl_strip_leaf(const char* path, unsigned int dirSize, char* dir,
                                    unsigned int leafSize, char* leaf);

#ifdef __cplusplus
}
#endif

#endif
