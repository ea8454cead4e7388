# The room of each file of the library; lowest room first. A room includes only itself, the
# rooms listed after ON and the rooms below these, sources too. Everything else follows from
# this table: the files that are compiled, installed and documented, the order of
# fxds/fxds.h, and the checks of cmake/CheckRooms.cmake, which fail for a file that is
# missing here and for a name that has no file.
#
#   ON       the rooms right below
#   HEADERS  fxds/Name.h         public: what programs include
#   DETAIL   fxds/detail/Name.h  for public templates; programs do not name it
#   PRIVATE  fxds/<room>/Name.h  for sources only; not installed
#   SOURCES  fxds/<room>/Name.cc

# Failing, assertions, counting and allocation; type records; the abstract
# transcriber and the abstract stream that it works on.
fxds_room(base
  HEADERS Config Counted Fatal RCObj Ref Stream StreamFault Transcriber TypeObj XDRObj
  DETAIL Allocate FilePath Hold Mix MovesAsBytes NestedRelease Owned ReadyRecords Walk
  PRIVATE ChunkList CopyShort FreeLists OpenFile PackedInts QuietWrite Scoped StackBounds StartUp
    StreamTrace Uninterrupted Utf8
  SOURCES Counted Fatal FreeLists NestedRelease RCObj Stream StreamFault StreamTrace Transcriber
    TypeObj XDRObj)

# The string, and classes that build texts.
fxds_room(text
  ON base
  HEADERS StackBuffer Str TempStr TextOperators TextView
  DETAIL StrTemplates TextTraits
  PRIVATE TextHash
  SOURCES StackBuffer Str StrFormat StrNumber StrSearch StrStream TempStr)

# Arrays, dictionaries and sets, lists, integer tables, atoms, boxes, number
# ranges.
fxds_room(containers
  ON text
  HEADERS Array BinaryOTDict BoolArray BoundingBox CharArray Dictionary DoubleArray FloatArray
    GenericList HashTable IndexableList IntArray KeyHooks LongArray NameSpace SeqRangeArray
    Sequencer Set ShortArray StrArray StrSet StrStrDictionary StubFuncArray TypedArray
    TypedDictionary TypedSet UnsignedCharArray UnsignedLongArray UnsignedShortArray VoidPtrArray
    VoidPtrDict
  DETAIL HashExtra HashIndex HashNode ListIterator NodeStore Recorded
  PRIVATE HashContainer HashHooks HashIters HashXdr StrInPlace TextKeys
  SOURCES Array ArraySort BinaryOTDict BoundingBox Dictionary GenericList HashTable IndexableList
    KeyHooks NameSpace Sequencer Set StrArray StrSet StrStrDictionary TypedArray VoidPtrDict)

# Byte streams, and object graphs written to them and read from them.
fxds_room(streams
  ON containers
  HEADERS BinaryReader BinaryTranscriber BinaryWriter CheckStream MemoryStream Save StdioStream TypedStream
    Xdr XdrEvolution XdrRecord XdrTables XdrValues
  PRIVATE AddressIndex AddressSet NewFile OutBuffer Ownership PartRoot ReaderEntry ReaderFaults
    ReaderGraph ReaderNumbers ReaderPlaces RecordFormat RecordParser RecordReader StreamMarks StreamWalk
    TextChunks WatchedContainers WriterStack
  SOURCES BinaryReader BinaryTranscriber BinaryWriter CheckStream MemoryStream NewFile ReaderCompletion
    ReaderConverters ReaderDefinitions ReaderFaults ReaderGraph RecordParser RecordReader Save
    StdioStream StreamHeader StreamWalk WriterPointers WriterRecords XdrRecord)

# Objects with properties, inputs and outputs; values sent at once or queued.
fxds_room(dataflow
  ON containers
  HEADERS Channel Connection Converter Data DataTypes Event EventHandler Network Obj Property PropertyAccess
    StrData Trace
  DETAIL Callable Suggestion TraceHooks TypedChannels
  PRIVATE Belongings ChannelTable Explain Links MessageIndex TraceLines
  SOURCES Channel Connection Converter Data DataTypes Event EventHandler Network Obj ObjChannels Property
    StrData Suggestion Trace TraceLines)

# The select() loop: timers, descriptors, applications.
fxds_room(loop
  ON dataflow
  HEADERS Application Clock Exec FileFollower Lines Post Process ReadNotifier SelectHandler Signal Timer
    Wakeup
  PRIVATE AlarmClock HandlerTable
  SOURCES Application Clock Exec FileFollower HandlerTable LineReader LineWriter Post Process ReadNotifier
    SelectHandler Signal Timer Wakeup)

# Regular expressions, text patterns, paths.
fxds_room(search
  ON containers
  HEADERS Match Path PathFunctions RegEx RegExp SLinearPattern SearchList TextPattern
  PRIVATE ByteVectors RegBacktracker RegByteSet RegInStep RegInternals RegReader RegSignposts RegStarts
  SOURCES Match Path PathFunctions RegBacktracker RegEx RegExp RegInStep RegMatch RegParser RegPlan
    RegSignposts RegStarts SLinearPattern SearchList TextPattern)

# Start-up, the library's identification, the type records and globals whose
# order of construction shows, names for debuggers.
fxds_room(library
  ON streams loop search
  HEADERS ChannelValue Debug Globals Library fxds
  SOURCES Debug GdbTypes Globals Library StaticOrder)

# Includes of a higher room, each with its reason.
fxds_exception(base/TypeObj.cc VoidPtrDict "The registry of types is an fxVoidPtrDict.")
fxds_exception(base/TypeObj.cc Str "Its keys are strings.")
