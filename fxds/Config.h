// Export macro, checked-build assertions and the library's boolean byte. The terms of
// use of this header and of all others are in LICENSE.
#ifndef FXDS_CONFIG_H
#define FXDS_CONFIG_H

/// Marks what the shared library exports; everything else is hidden.
#define FX_API __attribute__((visibility("default")))

/// The byte-sized boolean of the library's interfaces: 0 is false.
typedef unsigned char fxBool;

/// Ends the process after naming the violated precondition. Called by FX_ASSERT only;
/// exported because headers contain assertions.
[[noreturn]] FX_API void fxAssertFailed(const char* condition, const char* file, int line);

/// Checks a precondition in checked builds (FXDS_CHECKED, set by the build for
/// the library and its users alike). In other builds it evaluates nothing.
#ifdef FXDS_CHECKED
#define FX_ASSERT(condition) \
    ((condition) ? static_cast<void>(0) : fxAssertFailed(#condition, __FILE__, __LINE__))
#else
#define FX_ASSERT(condition) static_cast<void>(0)
#endif

#endif
