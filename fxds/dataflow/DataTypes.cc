#include "fxds/DataTypes.h"

#include <cstdio>

// Constant from the start: an object made before start-up must not take its
// kinds for one another. Start-up draws the same numbers from the sequencer.

unsigned short fxDT_void = 0;
unsigned short fxDT_fxBool = 1;
unsigned short fxDT_int = 2;
unsigned short fxDT_long = 3;
unsigned short fxDT_float = 4;
unsigned short fxDT_double = 5;
unsigned short fxDT_CharPtr = 6;
unsigned short fxDT_fxStr = 7;
unsigned short fxDT_VoidPtr = 8;
unsigned short fxDT_ObjPtr = 9;
unsigned short fxDT_DataPtr = 10;
unsigned short fxDT_fxStrArray = 11;

const char* fxDataTypeName(unsigned short type) {
    static const char* const names[] = {"void",  "bool",   "int",     "long",
                                        "float", "double", "char*",   "fxStr",
                                        "void*", "fxObj*", "fxData*", "fxStrArray"};
    if (type < sizeof names / sizeof names[0]) return names[type];
    static char other[16];
    std::snprintf(other, sizeof other, "type %u", static_cast<unsigned int>(type));
    return other;
}
