// The stack of what an fxBinaryWriter still has to write, and the steps from one record to the
// next. They are inline, because a graph takes several for each of its objects.
#ifndef FXDS_STREAMS_WRITERSTACK_H
#define FXDS_STREAMS_WRITERSTACK_H

#include <memory>
#include <vector>

#include "fxds/BinaryWriter.h"
#include "fxds/base/ChunkList.h"
#include "fxds/base/StackBounds.h"
#include "fxds/streams/RecordFormat.h"

class fxWriterStack : public fxChunkList<fxBinaryWriterTarget> {
public:
    fxStackPart dying;  ///< Where a string does not live until its text is written.
    /// Copies of the texts of such strings. They stay as long as their addresses are known,
    /// so that no other text gets one of these.
    std::vector<std::unique_ptr<char[]>> copies;
};

namespace fxWriterTargets {

inline fxBinaryWriterTarget objectTarget(const void* address, fxTypeObj& type, unsigned int id) {
    return {fxBinaryWriterTarget::object, fxTagObject, false, id, address, {&type}};
}

inline fxBinaryWriterTarget blockTarget(const void* address, unsigned int byteCount,
                                        fxBinaryOTTag tag, bool isOfInts, unsigned int id) {
    fxBinaryWriterTarget target = {
        fxBinaryWriterTarget::block, tag, isOfInts, id, address, {nullptr}};
    target.byteCount = byteCount;
    return target;
}

inline bool isObject(const fxBinaryWriterTarget& target) {
    return target.kind == fxBinaryWriterTarget::object;
}

// Prefetches memory that will be written soon: the beginning of an object or block.
inline void fetchSoon(const fxBinaryWriterTarget& target) {
    __builtin_prefetch(target.address);
    if (isObject(target)) __builtin_prefetch(static_cast<const char*>(target.address) + 64);
}

}  // namespace fxWriterTargets

// Does what flush() does, without a call for a record that putEarly() has put.
inline bool fxBinaryWriter::complete() {
    if (!isPut) return flush();
    isPut = false;
    tag = fxTagData;
    return true;
}

inline void fxBinaryWriter::push(const fxBinaryWriterTarget& target) {
    fxWriterTargets::fetchSoon(target);
    if (isOfThisClass) return waiting->push_back(target);
    pushItem(new fxBinaryWriterItem(target));
}

#endif
