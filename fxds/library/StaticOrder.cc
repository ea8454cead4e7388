#include "fxds/BinaryReader.h"
#include "fxds/BoolArray.h"
#include "fxds/CharArray.h"
#include "fxds/DoubleArray.h"
#include "fxds/FloatArray.h"
#include "fxds/Globals.h"
#include "fxds/IntArray.h"
#include "fxds/LongArray.h"
#include "fxds/Set.h"
#include "fxds/ShortArray.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "fxds/UnsignedCharArray.h"
#include "fxds/UnsignedLongArray.h"
#include "fxds/UnsignedShortArray.h"

// All objects that loading the library constructs, in the order in which they are entered.
// The order is observable: all typed arrays share one name, under which the last of them is
// found. They are in one source file because only within one file does the language promise
// an order.
//
// The bases, by which a reader decides whether an object is allowed for a pointer of
// another class, are constants and need no order.

namespace {

fxTypeObj* const noBase[] = {nullptr};
fxTypeObj* const xdrObjBase[] = {&fxXDRObj_type, nullptr};
fxTypeObj* const arrayBase[] = {&fxArray_type, nullptr};
fxTypeObj* const dictionaryBase[] = {&fxDictionary_type, nullptr};
fxTypeObj* const setBase[] = {&fxSet_type, nullptr};

void registerReaders() { fxTranscriber::addTranscriber("fxBinaryWriter", makeBinaryReader); }

fxOrderedGlobal* transcriberNeeds[] = {&fxOG_Init, nullptr};

}  // namespace

// A class that can be made by name.
#define FX_RECORD(Class, name, bases)                                                             \
    fxTypeObj Class##_type(name, 1, Class::newInstance, Class::deleteInstance, Class::xdr, bases, \
                           nullptr, &typeid(Class))
// One that can only be written.
#define FX_ABSTRACT_RECORD(Class, name)                                                \
    fxTypeObj Class##_type(name, 1, nullptr, nullptr, Class::xdr, xdrObjBase, nullptr, \
                           &typeid(Class))

FX_RECORD(fxUnsignedShortArray, "ARRAY", arrayBase);
FX_RECORD(fxUnsignedLongArray, "ARRAY", arrayBase);
FX_RECORD(fxUnsignedCharArray, "ARRAY", arrayBase);
fxOrderedGlobal fxOG_Transcriber(registerReaders, transcriberNeeds, 1);
FX_RECORD(fxStrStrDictionary, "DICT", dictionaryBase);
FX_RECORD(fxStrSet, "SET", setBase);
FX_RECORD(fxStrArray, "ARRAY", arrayBase);
FX_RECORD(fxShortArray, "ARRAY", arrayBase);
FX_ABSTRACT_RECORD(fxSet, "fxSet");
FX_RECORD(fxLongArray, "ARRAY", arrayBase);
FX_RECORD(fxIntArray, "ARRAY", arrayBase);
FX_RECORD(fxXDRObj, "fxXDRObj", noBase);
FX_RECORD(fxStr, "fxStr", noBase);
fxOrderedGlobal fxOG_Init(fxOG_Init_cons, fxOG_Init_dest, nullptr, 1);
FX_RECORD(fxFloatArray, "ARRAY", arrayBase);
FX_RECORD(fxDoubleArray, "ARRAY", arrayBase);
FX_ABSTRACT_RECORD(fxDictionary, "fxDictionary");
FX_RECORD(fxCharArray, "ARRAY", arrayBase);
FX_RECORD(fxBoolArray, "ARRAY", arrayBase);
FX_ABSTRACT_RECORD(fxArray, "fxArray");
