// The stack of what an fxBinaryWriter still has to write.
#ifndef FXDS_STREAMS_WRITERSTACK_H
#define FXDS_STREAMS_WRITERSTACK_H

#include <memory>
#include <vector>

#include "fxds/BinaryWriter.h"
#include "fxds/base/ChunkList.h"
#include "fxds/base/StackBounds.h"

class fxWriterStack : public fxChunkList<fxBinaryWriterTarget> {
public:
    fxStackPart dying;  ///< Where a string does not live until its text is written.
    /// Copies of the texts of such strings. They stay as long as their addresses are known,
    /// so that no other text gets one of these.
    std::vector<std::unique_ptr<char[]>> copies;
};

#endif
