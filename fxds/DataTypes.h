// The kinds of value that channels, boxed values and properties carry.
#ifndef FXDS_DATATYPES_H
#define FXDS_DATATYPES_H

#include <string>
#include <string_view>

#include "fxds/Config.h"

class fxStr;
class fxStrArray;

/// The one list of the kinds of value. Each row declares a data type number,
/// `extern unsigned short fxDT_...`; the numbers are 0, 1, 2 ... in the order
/// of the rows. Everything else about the kinds is derived from the list:
/// names, receivers' types, senders, boxes, trace lines. Properties alone carry
/// the kinds of the rows HELD.
///
/// A receiving function takes its closure first and then the value as in the
/// column "receiver": void f(void*, int), void f(void*, fxStr&); for fxDT_void
/// it takes the closure alone: void f(void*). Text and references live for the
/// duration of the call, and all receivers of a value get the same ones: copy
/// what you keep, and change nothing.
///
/// Applications draw numbers for kinds of their own from fx_nextDataType, the
/// first of them 12.
// clang-format off
#define FX_DATA_TYPES(SENT, HELD)                                                       \
    /*   number           name         value          receiver       boxed in        */ \
    SENT(fxDT_void,       "void",      void,          void,          fxVoidData)        \
    SENT(fxDT_fxBool,     "bool",      unsigned char, unsigned char, fxBoolData)        \
    SENT(fxDT_int,        "int",       int,           int,           fxIntData)         \
    SENT(fxDT_long,       "long",      long,          long,          fxLongData)        \
    SENT(fxDT_float,      "float",     float,         float,         fxFloatData)       \
    SENT(fxDT_double,     "double",    double,        double,        fxDoubleData)      \
    SENT(fxDT_CharPtr,    "char*",     const char*,   char*,         fxCharPtrData)     \
    SENT(fxDT_fxStr,      "fxStr",     fxStr,         fxStr&,        fxStrData)         \
    HELD(fxDT_VoidPtr,    "void*")                                                      \
    HELD(fxDT_ObjPtr,     "fxObj*")                                                     \
    HELD(fxDT_DataPtr,    "fxData*")                                                    \
    SENT(fxDT_fxStrArray, "fxStrArray", fxStrArray,   fxStrArray&,   fxStrArrayData)
// clang-format on

/// How values of a C++ type are sent: `Value` is the type that is sent, `Passed` the
/// parameter of receiving functions, `Box` the class that keeps a value, type() the data
/// type number. Undefined for types that no channel carries.
template <class T>
struct fxChannelType;

// The numbers are variables, hence the function.
#define FX_NUMBER(number, ...) extern FX_API unsigned short number;
#define FX_CHANNEL_TYPE(number, name, ValueType, PassedType, BoxType) \
    extern FX_API unsigned short number;                              \
    class BoxType;                                                    \
    template <>                                                       \
    struct fxChannelType<ValueType> {                                 \
        typedef ValueType Value;                                      \
        typedef PassedType Passed;                                    \
        typedef BoxType Box;                                          \
        static unsigned short type() { return number; }               \
    };
FX_DATA_TYPES(FX_CHANNEL_TYPE, FX_NUMBER)
#undef FX_CHANNEL_TYPE
#undef FX_NUMBER

/// Sent as a boolean byte.
template <>
struct fxChannelType<bool> : fxChannelType<unsigned char> {};
/// Sent as any text.
template <>
struct fxChannelType<char*> : fxChannelType<const char*> {};
///@{
/// Sent as a string: all its bytes, zero bytes included. A receiver's view is
/// good for the duration of the call.
template <>
struct fxChannelType<std::string> : fxChannelType<fxStr> {};
template <>
struct fxChannelType<std::string_view> : fxChannelType<fxStr> {};
///@}

/// The name of a data type in print: "int", "fxStr" ...; for one of the application's own
/// the name that it has given, otherwise "type 12" and so on. View, good until the next
/// call.
FX_API const char* fxDataTypeName(unsigned short type);

/// Sets the name of a data type of the application's own in print. The text is copied.
FX_API void fxNameDataType(unsigned short type, const char* name);

#endif
