#include <cstring>

#include "fxds/BinaryReader.h"
#include "fxds/Fatal.h"

// Conversion of numbers from machines with other byte orders.

namespace {

bool readPlain(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

// Reads bytes and reorders those of each whole group.
template <size_t... order>
bool readReordered(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    constexpr size_t size = sizeof...(order);
    if (!reader.readBytes(bytes, byteCount)) return false;
    unsigned char* group = static_cast<unsigned char*>(bytes);
    for (size_t left = byteCount / size; left > 0; --left, group += size) {
        const unsigned char arranged[] = {group[order]...};
        std::memcpy(group, arranged, size);
    }
    return true;
}

}  // namespace

bool fxBinaryReader_shorts(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_longs(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_floats(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_doubles(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return reader.readBytes(bytes, byteCount);
}

bool fxBinaryReader_BS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return readReordered<1, 0>(reader, bytes, byteCount);
}

bool fxBinaryReader_longsSS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return readReordered<2, 3, 0, 1>(reader, bytes, byteCount);
}

bool fxBinaryReader_longsBSSS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    return readReordered<3, 2, 1, 0>(reader, bytes, byteCount);
}

bool fxBinaryReader_floatsVAX(fxBinaryReader&, void*, size_t) {
    fxFatal("fxBinaryReader_floatsVAX: not implemented");
}

// The message names the function for floats.
bool fxBinaryReader_doublesVAX(fxBinaryReader&, void*, size_t) {
    fxFatal("fxBinaryReader_floatsVAX: not implemented");
}

fxBinaryReader::Converter* fxBinaryReader::converterOf(unsigned int bodyTag) const {
    switch (bodyTag) {
        case fxTagShorts:
            return shorts;
        case fxTagLongs:
            return longs;
        case fxTagFloats:
            return floats;
        case fxTagDoubles:
            return doubles;
        default:
            return readPlain;
    }
}
