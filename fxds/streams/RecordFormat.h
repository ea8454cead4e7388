// The layout of the records of a binary stream, for every tool that takes one apart.
#ifndef FXDS_STREAMS_RECORDFORMAT_H
#define FXDS_STREAMS_RECORDFORMAT_H

#include <cstddef>
#include <cstring>

#include "fxds/BinaryTranscriber.h"

// A record. All numbers have the least significant byte first:
//
//     1 byte     tag in the low 6 bits, size of the length in the high 2
//     0 1 2 4    length of the payload; absent when there is none
//     4 each     the fields of the tag
//     n + 1      name and zero byte, tag 2 only
//     length     payload
//
// The *head* is the part before the name and the payload. Everything here is header-only
// and reports failure by its result, so that tools which must survive damaged streams share
// it with the reader.

namespace fxRecordFormat {

inline constexpr unsigned int maxBlockBytes = 0x7FFFFFFF;  ///< The longest block there can be.
inline constexpr unsigned int maxHeadBytes = 1 + 4 + 12;
inline constexpr unsigned int maxId = 0x7FFFFFFF;  ///< The greatest number that is written.

/// Bytes of the fields that follow the length, for each tag.
inline constexpr unsigned char fieldBytes[] = {0, 0, 4, 8, 4, 8, 8, 8, 8, 8, 12, 4, 4, 4, 4};
/// Tags from here on do not exist.
inline constexpr unsigned int tagCount = sizeof fieldBytes;

/// The name of the tag in docs/stream-format.md; "" for one that does not exist.
constexpr const char* tagName(unsigned int tag) {
    constexpr const char* names[] = {"data",   "null",    "type",          "block",  "block again",
                                     "bytes",  "shorts",  "longs",         "floats", "doubles",
                                     "object", "pointer", "pointer again", "part",   "part again"};
    static_assert(sizeof names / sizeof *names == tagCount);
    return tag < tagCount ? names[tag] : "";
}

/// Whether the record's fields hold one id and nothing else.
constexpr bool hasOneId(unsigned int tag) {
    constexpr unsigned int tags = 1U << fxTagBlockAgain | 1U << fxTagPointer |
                                  1U << fxTagPointerAgain | 1U << fxTagPart | 1U << fxTagPartAgain;
    return tag < tagCount && (tags >> tag & 1U) != 0;
}

/// The payload of `count` numbers of type T.
template <class T>
constexpr size_t bytesOf(unsigned int count) {
    return size_t{count} * sizeof(T);
}

/// Whether the record holds the contents of a block.
constexpr bool isContents(unsigned int tag) { return tag >= fxTagBytes && tag <= fxTagDoubles; }

constexpr unsigned int word(const unsigned char* bytes) {
    return bytes[0] | static_cast<unsigned int>(bytes[1]) << 8U |
           static_cast<unsigned int>(bytes[2]) << 16U | static_cast<unsigned int>(bytes[3]) << 24U;
}

inline void putWord(char* place, unsigned int word) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap32(word);
#endif
    std::memcpy(place, &word, sizeof word);
}

/// A decoded head. Fields that the tag does not have are meaningless.
struct Head {
    unsigned int tag = 0;
    unsigned int payloadBytes = 0;
    unsigned int fields[3] = {};

    unsigned int id() const { return fields[0]; }
    unsigned int byteCount() const { return fields[1]; }  ///< Of a block.
    unsigned int typeId() const { return fields[1]; }     ///< Of an object.
    unsigned int version() const { return fields[2]; }    ///< Of an object.
};

/// The state that one record passes to the next: zeros may extend an id field to 8 bytes.
/// Where such a record has no payload, the filler looks like zeros before the next head,
/// which never begins with one. After four of them, these fields are taken to have 8 bytes.
class Filler {
public:
    /// Whether the byte, which is where a head is due, is a filler.
    bool takes(unsigned char byte) {
        if (byte != 0 || left == 0) return false;
        isWide_ = --left == 0;
        return true;
    }
    void follow(const Head& head) {
        left = hasOneId(head.tag) && head.payloadBytes == 0 && !isWide_ ? fillerBytes : 0;
    }
    bool isWide() const { return isWide_; }
    /// Bytes that fill the fields of the record.
    unsigned int bytesIn(unsigned int tag) const {
        return isWide_ && hasOneId(tag) ? fillerBytes : 0;
    }

private:
    static constexpr unsigned int fillerBytes = 4;

    bool isWide_ = false;
    unsigned char left = 0;  // bytes that may follow
};

/// Bytes of the length, and the mask for four bytes of it, by the high bits of a head.
inline constexpr unsigned char lengthBytes[] = {0, 1, 2, 4};
inline constexpr unsigned int lengthMask[] = {0, 0xFF, 0xFFFF, 0xFFFFFFFF};

/// Bytes of a head by its first byte; of an unknown tag, up to the length.
struct HeadBytes {
    constexpr HeadBytes() {
        for (unsigned int first = 0; first < 0x100; ++first) {
            const unsigned int tag = first & 0x3FU;
            of[first] = static_cast<unsigned char>(1 + lengthBytes[first >> 6U] +
                                                   (tag < tagCount ? fieldBytes[tag] : 0));
        }
    }
    unsigned char of[0x100] = {};
};
inline constexpr HeadBytes headBytes;

/// The same for the usual heads: 0 for a type, whose name follows, for a tag that does not
/// exist, and for a zero, which may be a filler.
struct QuickHeadBytes {
    constexpr QuickHeadBytes() {
        for (unsigned int first = 1; first < 0x100; ++first) {
            const unsigned int tag = first & 0x3FU;
            if (tag < tagCount && tag != fxTagType) of[first] = headBytes.of[first];
        }
    }
    unsigned char of[0x100] = {};
};
inline constexpr QuickHeadBytes quickHeadBytes;

/// Puts the tag and the length of a payload at `place`. Returns how many bytes they take.
/// Requires: room for 5 bytes, which may all change.
inline unsigned int putLength(char* place, unsigned int tag, unsigned int payloadBytes) {
    const unsigned int code = payloadBytes < 0x100     ? payloadBytes != 0
                              : payloadBytes < 0x10000 ? 2
                                                       : 3;
    *place = static_cast<char>(code << 6U | tag);
    putWord(place + 1, payloadBytes);
    return 1U + lengthBytes[code];
}

/// Decodes a head. Reads all of the maxHeadBytes at `bytes`.
inline Head decode(const unsigned char* bytes) {
    const unsigned int code = *bytes >> 6U;
    const unsigned char* const fields = bytes + 1 + lengthBytes[code];
    return {*bytes & 0x3FU,
            word(bytes + 1) & lengthMask[code],
            {word(fields), word(fields + 4), word(fields + 8)}};
}

/// A whole record of a block of bytes whose length takes one byte.
struct ShortBlock {
    const unsigned char* record = nullptr;  ///< Null: there is none.

    unsigned int id() const { return word(record + 2); }
    unsigned int byteCount() const { return word(record + 6); }
    const unsigned char* bytes() const { return record + headBytes; }

    static constexpr unsigned int headBytes = 10;
};

}  // namespace fxRecordFormat

#endif
