// Fatal errors as results, for tests that meet thousands of them: include it
// in one source file of a program. It replaces abort(), which fxFatal() calls
// last, by a function that throws.
#ifndef FXDS_TESTS_FATALCATCHER_H
#define FXDS_TESTS_FATALCATCHER_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <string>

struct Fatal {};

[[noreturn]] __attribute__((visibility("default"))) void throwFatal() __asm__("abort");
void throwFatal() { throw Fatal{}; }

// A fatal error ends the process; thrown through the reading of an entry, it
// leaves the entry behind.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:readEntry\n"; }

/// What went to the standard error while it existed.
class ErrorText {
public:
    ErrorText() : kept(dup(2)) {
        static const int memory = memfd_create("stderr", MFD_CLOEXEC);
        file = memory;
        if (ftruncate(file, 0) == 0) lseek(file, 0, SEEK_SET);
        dup2(file, 2);
    }
    ErrorText(const ErrorText&) = delete;
    ErrorText& operator=(const ErrorText&) = delete;
    ~ErrorText() {
        dup2(kept, 2);
        close(kept);
    }
    std::string text() const {
        std::fflush(stderr);
        std::string bytes(1000, '\0');
        const ssize_t length = pread(file, bytes.data(), bytes.size(), 0);
        bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return bytes;
    }

private:
    int kept;
    int file;
};

/// The fatal message of `action`; "" when it ends well. It is what follows the line that
/// says where in a stream it happened, if there is one: the name of a type in it may have
/// any bytes. Otherwise it is the last line.
template <class Action>
std::string fatalMessage(Action action) {
    const ErrorText error;
    try {
        action();
    } catch (const Fatal&) {
        std::string text = error.text();
        if (!text.empty() && text.back() == '\n') text.pop_back();
        const size_t place = text.find("fxds: stream at ");
        const bool hasPlace = place != std::string::npos;
        return text.substr((hasPlace ? text.find('\n', place) : text.rfind('\n')) + 1);
    }
    return "";
}

#endif
