// Random work for the whole dataflow core, checked call by call.
#ifndef FXDS_SOAK_TORTURE_H
#define FXDS_SOAK_TORTURE_H

#include <string>

namespace soak {

/// Makes a few hundred objects and lets them connect, send, tick, serve
/// descriptors and destroy one another, also from inside everything that the
/// library calls, for `steps` random steps. Then destroys them all. Returns an
/// empty text when every call came as the model says and nothing was left
/// alive; else what differed, with the last steps. The same seed and number of
/// steps do the same again.
///
/// Time and descriptors are made up: the program that this is linked into gets
/// a times(), a select() and an fcntl() that serve the torture alone. Nothing
/// sleeps.
std::string torture(unsigned int seed, unsigned long steps);

}  // namespace soak

#endif
