// The numbers that tell which kind of value a channel, a boxed value or a
// property carries.
#ifndef FXDS_DATATYPES_H
#define FXDS_DATATYPES_H

#include "fxds/Config.h"

class fxStr;
class fxStrArray;

// Applications draw further numbers from fx_nextDataType. The library's own
// have their final values from the start, so that objects made before
// fxInitializeToolkit() are what they seem.
//
// A receiving function takes its closure first and then the value:
//
//     number            value          receiving function
//     fxDT_void         none           void f(void*)
//     fxDT_fxBool       boolean byte   void f(void*, unsigned char)
//     fxDT_int          int            void f(void*, int)
//     fxDT_long         long           void f(void*, long)
//     fxDT_float        float          void f(void*, float)
//     fxDT_double       double         void f(void*, double)
//     fxDT_CharPtr      char*          void f(void*, char*)
//     fxDT_fxStr        fxStr          void f(void*, fxStr&)
//     fxDT_VoidPtr      void*          void f(void*, void*)
//     fxDT_ObjPtr       fxObj*         void f(void*, fxObj*)
//     fxDT_DataPtr      fxData*        void f(void*, fxData*)
//     fxDT_fxStrArray   fxStrArray     void f(void*, fxStrArray&)
//
// Text and references live for the duration of the call: copy what you keep.

extern FX_API unsigned short fxDT_void;        ///< 0
extern FX_API unsigned short fxDT_fxBool;      ///< 1
extern FX_API unsigned short fxDT_int;         ///< 2
extern FX_API unsigned short fxDT_long;        ///< 3
extern FX_API unsigned short fxDT_float;       ///< 4
extern FX_API unsigned short fxDT_double;      ///< 5
extern FX_API unsigned short fxDT_CharPtr;     ///< 6
extern FX_API unsigned short fxDT_fxStr;       ///< 7
extern FX_API unsigned short fxDT_VoidPtr;     ///< 8
extern FX_API unsigned short fxDT_ObjPtr;      ///< 9
extern FX_API unsigned short fxDT_DataPtr;     ///< 10
extern FX_API unsigned short fxDT_fxStrArray;  ///< 11

/// What a data type is called in print: "int", "fxStr" ...; "type 12" and so on
/// for the application's own. View, good until the next call.
FX_API const char* fxDataTypeName(unsigned short type);

/// How values of a C++ type travel: `Passed` is what receiving functions take,
/// type() the data type number. Undefined for types that no channel carries.
template <class T>
struct fxChannelType;

// One member for every kind; the numbers are variables, hence the function.
#define FX_CHANNEL_TYPE(CppType, PassedType, number)    \
    template <>                                         \
    struct fxChannelType<CppType> {                     \
        typedef PassedType Passed;                      \
        static unsigned short type() { return number; } \
    }
FX_CHANNEL_TYPE(bool, unsigned char, fxDT_fxBool);
FX_CHANNEL_TYPE(unsigned char, unsigned char, fxDT_fxBool);
FX_CHANNEL_TYPE(int, int, fxDT_int);
FX_CHANNEL_TYPE(long, long, fxDT_long);
FX_CHANNEL_TYPE(float, float, fxDT_float);
FX_CHANNEL_TYPE(double, double, fxDT_double);
FX_CHANNEL_TYPE(char*, char*, fxDT_CharPtr);
FX_CHANNEL_TYPE(const char*, char*, fxDT_CharPtr);
FX_CHANNEL_TYPE(fxStr, fxStr&, fxDT_fxStr);
FX_CHANNEL_TYPE(fxStrArray, fxStrArray&, fxDT_fxStrArray);
#undef FX_CHANNEL_TYPE

#endif
