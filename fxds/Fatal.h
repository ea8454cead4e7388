// The function that ends the process after a fatal fault.
#ifndef FXDS_FATAL_H
#define FXDS_FATAL_H

#include "fxds/Config.h"

/// Writes the formatted message and one newline to standard error, flushes it
/// and calls abort(). No prefix is added and no destructor or exit handler
/// runs. Pass messages without a trailing newline.
[[noreturn]] FX_API void fxFatal(const char* format, ...) __attribute__((format(printf, 1, 2)));

#endif
