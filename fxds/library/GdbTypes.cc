#include "fxds/dataflow/Belongings.h"
#include "fxds/fxds.h"

// No code: the descriptions of our types and global variables that the debugger needs in
// every build.
//
// Compilers describe a class with virtual functions only beside its vtable, which is in
// this library, and an optimised build has no debug information. So a program compiled with
// -g could not show a single fxIntArray. This file is always compiled with it, and with
// complete descriptions: of the public classes, and of the private ones through which the
// printers follow a pointer. They take some 100 KB of the file, are not loaded, and strip
// treats them as it does all debug information.

namespace {

struct Described {
    fxStr* string;
    fxPath* path;
    fxTempStr* tempStr;
    fxStackBuffer* stackBuffer;

    fxBoolArray* boolArray;
    fxCharArray* charArray;
    fxUnsignedCharArray* unsignedCharArray;
    fxShortArray* shortArray;
    fxUnsignedShortArray* unsignedShortArray;
    fxIntArray* intArray;
    fxLongArray* longArray;
    fxUnsignedLongArray* unsignedLongArray;
    fxFloatArray* floatArray;
    fxDoubleArray* doubleArray;
    fxVoidPtrArray* voidPtrArray;
    fxStubFuncArray* stubFuncArray;
    fxSeqRangeArray* seqRangeArray;
    fxStrArray* strArray;
    fxSearchList* searchList;

    fxVoidPtrDict* voidPtrDict;
    fxStrStrDictionary* strStrDictionary;
    fxBinaryOTDict* binaryOTDict;
    fxDictBucket* dictBucket;
    fxStrSet* strSet;
    fxTmpSet* tmpSet;
    fxSetBucket* setBucket;

#define FX_BOX(number, name, Value, Passed, Box) Box* boxOf_##number;
#define FX_NO_BOX(...)
    FX_DATA_TYPES(FX_BOX, FX_NO_BOX)
#undef FX_NO_BOX
#undef FX_BOX

    fxProperty* property;
    fxBelongings* belongings;
    fxObj* object;
    fxConverter* converter;
    fxOutputChannel* output;
    fxMessageEvent* messageEvent;
    fxEventHandler* eventHandler;
    fxTimer* timer;
    fxClockTimer* clockTimer;
    fxWakeup* wakeup;
    fxSignal* signal;
    fxLineReader* lineReader;
    fxLineWriter* lineWriter;
    fxFileFollower* fileFollower;
    fxReadNotifier* readNotifier;
    fxProcess* process;
    fxApplication* application;
    fxExec* executive;
    fxSequencer* sequencer;

    fxTypeObj* typeObj;
    fxBinaryReader* binaryReader;
    fxBinaryWriter* binaryWriter;
    fxBinaryWriterItem* binaryWriterItem;
    fxXdrAddress* xdrAddress;
    fxStdioStream* stdioStream;
    fxMemoryStream* memoryStream;

    fxRegEx* regEx;
    fxExpression* expression;
    fxSLinearPattern* linearPattern;

    Counted* counted;
    GenericList* genericList;
    fxIndexableList* indexableList;
    HashTable* hashTable;
    HashEntry* hashEntry;
    NameSpace* nameSpace;
};

[[gnu::used]] const Described* const described = nullptr;

// g++ also describes global variables where they are used; clang++ only where they are
// defined.
[[gnu::used]] const void* const describedGlobals[] = {&fx_theEventHandler,
                                                      &fx_theExecutive,
                                                      &fx_theConverters,
                                                      &fx_theDebugger,
                                                      &fx_propertyNames,
                                                      &fx_nextDataType,
                                                      &fx_nextEventType,
                                                      &fxTypeObj::knownTypes,
                                                      &fx_toolkitGlobalOrder,
                                                      &fx_applicationGlobalOrder,
                                                      &fxOG_Init,
                                                      &fxOG_Transcriber,
                                                      &fxTimer::activeTimers,
                                                      &fxEvent::nextSequenceNumber,
                                                      &fxET_Unknown,
                                                      &fxET_MessageEvent,
                                                      &fxStr::resizeIncrement,
                                                      &fxStr::delim_idx,
                                                      &fxConverter::hasMoreConverters};

}  // namespace
