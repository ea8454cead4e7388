// The hint that start-up is missing.
#ifndef FXDS_BASE_STARTUP_H
#define FXDS_BASE_STARTUP_H

namespace fxStartUp {

// Writes to standard error, at the first call, that `missing` (plural) come
// with fxInitializeToolkit(). For operations that are about to fail because
// there are none.
[[gnu::cold]] void hint(const char* missing);

// Ends the process with a sentence about the global pointer `name`.
[[noreturn, gnu::cold]] void fail(const char* name);

// Fatal if `service`, the `this` of a function of a service that start-up makes, is null: the
// program has called it by the pointer `name` before.
template <class Service>
void require(const Service* service, const char* name) {
    asm("" : "+r"(service));  // the compiler assumes that `this` is not null
    if (__builtin_expect(service == nullptr, 0)) fail(name);
}

}  // namespace fxStartUp

#endif
