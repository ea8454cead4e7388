#include "fxds/DataTypes.h"

#include <cstdio>
#include <map>
#include <string>

// The numbers are constants, so that objects made before start-up have their
// kinds. Start-up draws the same numbers from the sequencer.

namespace {

#define FX_POSITION(number, ...) at_##number,
enum Position : unsigned short { FX_DATA_TYPES(FX_POSITION, FX_POSITION) dataTypes };
#undef FX_POSITION

// Types of the application.
std::map<unsigned short, std::string>& ownNames() {
    static auto* const names = new std::map<unsigned short, std::string>;  // never freed
    return *names;
}

}  // namespace

#define FX_NUMBER(number, ...) unsigned short number = at_##number;
FX_DATA_TYPES(FX_NUMBER, FX_NUMBER)
#undef FX_NUMBER

const char* fxDataTypeName(unsigned short type) {
#define FX_NAME_SENT(number, name, Value, Passed, Box) name,
#define FX_NAME_HELD(number, name) name,
    static const char* const names[dataTypes] = {FX_DATA_TYPES(FX_NAME_SENT, FX_NAME_HELD)};
#undef FX_NAME_HELD
#undef FX_NAME_SENT
    if (type < dataTypes) return names[type];
    const auto own = ownNames().find(type);
    if (own != ownNames().end()) return own->second.c_str();
    static char other[16];
    std::snprintf(other, sizeof other, "type %u", static_cast<unsigned int>(type));
    return other;
}

void fxNameDataType(unsigned short type, const char* name) { ownNames()[type] = name; }
