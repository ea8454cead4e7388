#include <utility>

#include "fxds/BinaryReader.h"
#include "fxds/Fatal.h"

// How numbers of machines with other byte orders are read.

namespace {

// Rearranges each whole group of `size` bytes.
template <size_t size, class Arrange>
void eachGroup(void* bytes, size_t byteCount, Arrange arrange) {
    unsigned char* group = static_cast<unsigned char*>(bytes);
    for (size_t left = byteCount / size; left > 0; --left, group += size) arrange(group);
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
    if (!reader.readBytes(bytes, byteCount)) return false;
    eachGroup<2>(bytes, byteCount, [](unsigned char* pair) { std::swap(pair[0], pair[1]); });
    return true;
}

bool fxBinaryReader_longsSS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    if (!reader.readBytes(bytes, byteCount)) return false;
    eachGroup<4>(bytes, byteCount, [](unsigned char* word) {
        std::swap(word[0], word[2]);
        std::swap(word[1], word[3]);
    });
    return true;
}

bool fxBinaryReader_longsBSSS(fxBinaryReader& reader, void* bytes, size_t byteCount) {
    if (!reader.readBytes(bytes, byteCount)) return false;
    eachGroup<4>(bytes, byteCount, [](unsigned char* word) {
        std::swap(word[0], word[3]);
        std::swap(word[1], word[2]);
    });
    return true;
}

bool fxBinaryReader_floatsVAX(fxBinaryReader&, void*, size_t) {
    fxFatal("fxBinaryReader_floatsVAX: not implemented");
}

// The message is that of the floats.
bool fxBinaryReader_doublesVAX(fxBinaryReader&, void*, size_t) {
    fxFatal("fxBinaryReader_floatsVAX: not implemented");
}
