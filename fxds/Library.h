// The library's identification: version, build and banner.
#ifndef FXDS_LIBRARY_H
#define FXDS_LIBRARY_H

#include "fxds/Config.h"

extern "C" {
/// Prints one line that names the library, its version and its build. Returns
/// the number of characters.
FX_API int libostrelfxds_print_verid();
/// The same line into `buffer`, which needs room for 256 bytes.
FX_API int libostrelfxds_sprintf_verid(char* buffer);
/// Nine lines of 73 characters and a null pointer. View.
FX_API const char** libostrelfxds_copyright_array();
}

#endif
