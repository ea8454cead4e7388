#include "fxds/Fatal.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "fxds/base/StartUp.h"

// abort() runs no handlers and flushes nothing, so the message is flushed here.

void fxFatal(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    std::abort();
}

void fxAssertFailed(const char* condition, const char* file, int line) {
    fxFatal("%s:%d: precondition violated: %s", file, line, condition);
}

void fxStartUp::hint(const char* missing) {
    static bool isTold = false;
    if (!isTold) std::fprintf(stderr, "There are no %s yet: call fxInitializeToolkit()\n", missing);
    isTold = true;
}

void fxStartUp::fail(const char* name) {
    fxFatal("%s is null: call fxInitializeToolkit() first", name);
}
