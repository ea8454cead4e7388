#include "fxds/StreamFault.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "fxds/Fatal.h"

// Each sentence names the remedy: another copy, or a newer program. place() and
// `reason` have the details.

std::string fxStreamFault::printable(std::string_view bytes) {
    constexpr size_t longest = 200;
    std::string shown(bytes.substr(0, longest));
    for (char& c : shown) {
        if (c < ' ' || c > '~') c = '?';
    }
    return shown;
}

fxStreamFault fxStreamFault::inHeader() {
    fxStreamFault fault;
    fault.kind = foreign;
    fault.record = "header";
    return fault;
}

std::string fxStreamFault::place() const {
    std::string text = "offset " + std::to_string(offset);
    if (*record != '\0') text += std::string(", ") + record;
    if (!className.empty()) text += ", class " + className;
    if (kind == newer || kind == older) text += ", edition " + std::to_string(edition);
    return text;
}

void fxStreamFault::end(const char* message) const {
    const char* const separator = reason.empty() || reason == printable(message) ? "" : ": ";
    const char* const why = *separator != '\0' ? reason.c_str() : "";
    std::fprintf(stderr, "fxds: stream at %s%s%s\n", place().c_str(), separator, why);
    fxFatal("%s", message);
}

std::string fxStreamFault::text() const {
    std::string what = path.empty() ? "the data" : path;
    std::replace(what.begin(), what.end(), '\0', '?');  // which would end the sentence in C
    const std::string ofClass = className.empty() ? "" : ": class " + className;
    switch (kind) {
        case none:
            break;
        case systemError:
            return what + ": " + (reason.empty() ? std::strerror(error) : reason);
        case ended:
            return what + " is not complete: something is missing after byte " +
                   std::to_string(offset);
        case foreign:
            return what + " is not a file of this kind" + ofClass;
        case damaged:
            return what + " is damaged at byte " + std::to_string(offset);
        case unknownType:
            return what + " is from a newer version of this program, or from another one" + ofClass;
        case newer:
        case older:
            return what + " is from " + (kind == newer ? "a newer" : "an older") +
                   " version of this program" + ofClass + ", edition " + std::to_string(edition);
        case refused:
            return what + " holds what this program cannot use" + ofClass +
                   (reason.empty() ? "" : ", " + reason);
        case unwritable:
            return what + " cannot be saved" + ofClass + (reason.empty() ? "" : ", " + reason);
    }
    return "";
}
