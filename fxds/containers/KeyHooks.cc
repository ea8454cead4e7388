#include "fxds/KeyHooks.h"

#include <cstring>

#include "fxds/detail/Mix.h"

// Words of 8 bytes are folded in by multiplication. The last word overlaps the
// one before it unless the text is short; the length tells such texts apart.

namespace {

template <class Word>
Word load(const char* from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

unsigned long shortWord(const char* text, size_t length) {
    if (length >= 4) {
        return load<unsigned int>(text) |
               static_cast<unsigned long>(load<unsigned int>(text + length - 4)) << 32;
    }
    unsigned long word = 0;
    if (length != 0) std::memcpy(&word, text, length);  // of no bytes, null
    return word;
}

unsigned long fold(unsigned long sum, unsigned long word) {
    sum = fxMix64(sum ^ word);
    return sum ^ sum >> 32;
}

}  // namespace

unsigned long fxFingerprint(const void* bytes, std::size_t count) {
    const char* const text = static_cast<const char*>(bytes);
    if (count < 8) return fold(count, shortWord(text, count));
    unsigned long sum = count;
    for (std::size_t i = 0; i + 8 < count; i += 8) sum = fold(sum, load<unsigned long>(text + i));
    return fold(sum, load<unsigned long>(text + count - 8));
}

unsigned long fxKeyHooks<fxStr>::fingerprint(const fxStr& key, unsigned long) {
    return fxFingerprint(key.c_str(), std::strlen(key.c_str()));
}
