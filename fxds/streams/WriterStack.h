// The stack of what an fxBinaryWriter still has to write.
#ifndef FXDS_STREAMS_WRITERSTACK_H
#define FXDS_STREAMS_WRITERSTACK_H

#include "fxds/BinaryWriter.h"
#include "fxds/base/ChunkList.h"

class fxWriterStack : public fxChunkList<fxBinaryWriterTarget> {};

#endif
