// The whole library, room by room; the terms of use are in LICENSE.
#ifndef FXDS_FXDS_H
#define FXDS_FXDS_H

// Counting, failing, types.
#include "fxds/Config.h"
#include "fxds/Counted.h"
#include "fxds/Fatal.h"
#include "fxds/RCObj.h"
#include "fxds/Ref.h"
#include "fxds/Stream.h"
#include "fxds/StreamFault.h"
#include "fxds/Transcriber.h"
#include "fxds/TypeObj.h"
#include "fxds/XDRObj.h"

// Text.
#include "fxds/StackBuffer.h"
#include "fxds/Str.h"
#include "fxds/TempStr.h"

// Containers.
#include "fxds/Array.h"
#include "fxds/BinaryOTDict.h"
#include "fxds/BoolArray.h"
#include "fxds/BoundingBox.h"
#include "fxds/CharArray.h"
#include "fxds/Dictionary.h"
#include "fxds/DoubleArray.h"
#include "fxds/FloatArray.h"
#include "fxds/GenericList.h"
#include "fxds/HashTable.h"
#include "fxds/IndexableList.h"
#include "fxds/IntArray.h"
#include "fxds/KeyHooks.h"
#include "fxds/LongArray.h"
#include "fxds/NameSpace.h"
#include "fxds/SeqRangeArray.h"
#include "fxds/Sequencer.h"
#include "fxds/Set.h"
#include "fxds/ShortArray.h"
#include "fxds/StrArray.h"
#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "fxds/StubFuncArray.h"
#include "fxds/TypedArray.h"
#include "fxds/TypedDictionary.h"
#include "fxds/TypedSet.h"
#include "fxds/UnsignedCharArray.h"
#include "fxds/UnsignedLongArray.h"
#include "fxds/UnsignedShortArray.h"
#include "fxds/VoidPtrArray.h"
#include "fxds/VoidPtrDict.h"

// Saving and loading.
#include "fxds/BinaryReader.h"
#include "fxds/BinaryTranscriber.h"
#include "fxds/BinaryWriter.h"
#include "fxds/CheckStream.h"
#include "fxds/MemoryStream.h"
#include "fxds/Save.h"
#include "fxds/StdioStream.h"
#include "fxds/TypedStream.h"
#include "fxds/Xdr.h"
#include "fxds/XdrEvolution.h"
#include "fxds/XdrValues.h"

// Objects, values and connections.
#include "fxds/Channel.h"
#include "fxds/Connection.h"
#include "fxds/Converter.h"
#include "fxds/Data.h"
#include "fxds/DataTypes.h"
#include "fxds/Event.h"
#include "fxds/EventHandler.h"
#include "fxds/Network.h"
#include "fxds/Obj.h"
#include "fxds/Property.h"
#include "fxds/PropertyAccess.h"
#include "fxds/StrData.h"
#include "fxds/Trace.h"

// The loop.
#include "fxds/Application.h"
#include "fxds/Clock.h"
#include "fxds/Exec.h"
#include "fxds/SelectHandler.h"
#include "fxds/Timer.h"
#include "fxds/Wakeup.h"

// Patterns and paths.
#include "fxds/Path.h"
#include "fxds/PathFunctions.h"
#include "fxds/RegEx.h"
#include "fxds/RegExp.h"
#include "fxds/SLinearPattern.h"
#include "fxds/SearchList.h"
#include "fxds/TextPattern.h"

// Start-up.
#include "fxds/ChannelValue.h"
#include "fxds/Debug.h"
#include "fxds/Globals.h"
#include "fxds/Library.h"

#endif
