#include "ostrelks/ostrelks.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

int imsg_print(int, const char* format, int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    const int written = std::vprintf(format, arguments);
    va_end(arguments);
    return written;
}

int imsg_sprintf(char* buffer, const char* format, int id, ...) {
    va_list arguments;
    va_start(arguments, id);
    const int written = std::vsprintf(buffer, format, arguments);
    va_end(arguments);
    return written;
}

namespace {

// Copies the run [begin, end), cut to `size` bytes with its terminator.
bool copyPart(const char* begin, const char* end, char* target, unsigned int size) {
    if (size == 0) return false;
    const size_t length = static_cast<size_t>(end - begin);
    const size_t fitting = length < size ? length : size - 1;
    std::memcpy(target, begin, fitting);
    target[fitting] = '\0';
    return fitting == length;
}

}  // namespace

int fileutl_strip_leaf(const char* path, unsigned int dirSize, char* dir, unsigned int leafSize,
                       char* leaf) {
    const char* leafEnd = path + std::strlen(path);
    while (leafEnd > path && leafEnd[-1] == '/') --leafEnd;
    const char* leafBegin = leafEnd;
    while (leafBegin > path && leafBegin[-1] != '/') --leafBegin;
    const char* dirEnd = leafBegin;
    while (dirEnd > path && dirEnd[-1] == '/') --dirEnd;
    if (dirEnd == path && path[0] == '/') dirEnd = path + 1;  // the root keeps its slash

    const bool dirFits = copyPart(path, dirEnd, dir, dirSize);
    const bool leafFits = copyPart(leafBegin, leafEnd, leaf, leafSize);
    return dirFits && leafFits ? 1 : 0;
}
