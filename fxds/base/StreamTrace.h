// The destination of lines about records of streams while they are traced.
#ifndef FXDS_BASE_STREAMTRACE_H
#define FXDS_BASE_STREAMTRACE_H

#include <cstddef>
#include <string>

class fxStreamTrace {
public:
    /// Writes a line on a record: the direction, its offset, the name of its kind, its
    /// number unless that is 0, and a class or null. Requires: isOn().
    [[gnu::cold]] static void record(const char* way, size_t offset, const char* kind,
                                     unsigned int id, const char* className);
    static bool isOn() { return __builtin_expect(sink != nullptr, 0); }

    /// Receives the lines; null while nothing is traced. fxTrace, of a higher room, sets
    /// it.
    static void (*sink)(const std::string& line);
};

#endif
