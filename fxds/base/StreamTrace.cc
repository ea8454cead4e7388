#include "fxds/base/StreamTrace.h"

#include "fxds/StreamFault.h"

void (*fxStreamTrace::sink)(const std::string& line) = nullptr;

void fxStreamTrace::record(const char* way, size_t offset, const char* kind, unsigned int id,
                           const char* className) {
    std::string line = std::string(way) + " offset " + std::to_string(offset) + ", " + kind;
    if (id != 0) line += " #" + std::to_string(id);
    if (className != nullptr) line += ", class " + fxStreamFault::printable(className);
    sink(line);
}
