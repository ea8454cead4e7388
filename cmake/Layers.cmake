# The headers of fxds/ by layer, lowest first: a header includes headers of its
# own layer and of lower ones only.
set(fxds_layers
  # Ground.
  "Config Fatal Debug Block"
  # Counting, types; classes that need nothing else of the library.
  "RCObj RPtr Counted TypeObj XDRObj Transcriber Pool ChunkList
   RegExp RegProgram PathFunctions GenericList IndexableList ListWalk BoundingBox NameSpace
   HashTable"
  # Arrays and strings.
  "Array TypedArray
   BoolArray CharArray UnsignedCharArray ShortArray UnsignedShortArray IntArray LongArray
   UnsignedLongArray FloatArray DoubleArray VoidPtrArray StubFuncArray SeqRangeArray
   Str TempStr StackBuffer"
  # Tables.
  "HashCore HashNode KeyHooks Dictionary TypedDictionary Set TypedSet
   VoidPtrDict BinaryOTDict StrArray StrSet StrStrDictionary"
  # Values and channels; streams.
  "DataTypes Trace TraceLines Sequencer Data StrData Property Obj Channel Converter Network Event EventHandler
   EventWalk Timer
   Globals
   Stream TypedStream StdioStream MemoryStream AddressIndex ReaderTable BinaryTranscriber BinaryWriter BinaryReader Xdr"
  # The main loop; patterns and paths.
  "SelectHandler Application Exec Wakeup
   TextPattern SLinearPattern RegEx Path SearchList"
  # Everything at once.
  "fxds")

# Headers that only sources include. They are not installed; the others are all
# reached from fxds/fxds.h.
set(fxds_private_headers AddressIndex EventWalk HashCore Pool ReaderTable RegProgram TraceLines)
