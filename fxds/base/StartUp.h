// The hint that start-up is missing.
#ifndef FXDS_BASE_STARTUP_H
#define FXDS_BASE_STARTUP_H

namespace fxStartUp {

// Writes to standard error, at the first call, that `missing` (plural) come
// with fxInitializeToolkit(). For operations that are about to fail because
// there are none.
[[gnu::cold]] void hint(const char* missing);

}  // namespace fxStartUp

#endif
