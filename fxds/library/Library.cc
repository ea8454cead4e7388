#include "fxds/Library.h"

#include "Version.h"
#include "ostrelks/ostrelks.h"

// Version, date and banner are constants of the build: see Version.h.in.

namespace {

constexpr const char* verIdFormat = "%-*s %s (%s) %s\n";
constexpr int nameWidth = 33;
constexpr const char* libraryName = "libostrelfxds";

}  // namespace

int libostrelfxds_print_verid() {
    return imsg_print(0, verIdFormat, -1, nameWidth, libraryName, FXDS_VERSION, FXDS_BUILD_DATE,
                      "64-bit");
}

int libostrelfxds_sprintf_verid(char* buffer) {
    return imsg_sprintf(buffer, verIdFormat, -1, nameWidth, libraryName, FXDS_VERSION,
                        FXDS_BUILD_DATE, "64-bit");
}

const char** libostrelfxds_copyright_array() {
    static const char* lines[] = {FXDS_BANNER, nullptr};
    static_assert(sizeof lines / sizeof lines[0] == 9 + 1, "the banner has nine lines");
    return lines;
}
