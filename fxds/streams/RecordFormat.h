// The layout of the records of a binary stream, for all that take streams apart.
#ifndef FXDS_STREAMS_RECORDFORMAT_H
#define FXDS_STREAMS_RECORDFORMAT_H

#include "fxds/BinaryTranscriber.h"

// A record, all numbers with the least significant byte first:
//
//     1 byte     tag in the low 6 bits, size of the length in the high 2
//     0 1 2 4    length of the payload; absent when there is none
//     4 each     the fields of the tag
//     n + 1      name and zero byte, tag 2 only
//     length     payload
//
// The head is what stands before the name and the payload. Everything here is
// header-only and fails by its result, so that tools which must survive damaged
// streams share it with the reader.

namespace fxRecordFormat {

inline constexpr unsigned int maxBlockBytes = 0x7FFFFFFF;  ///< The longest block there can be.
inline constexpr unsigned int maxHeadBytes = 1 + 4 + 12;

/// Bytes of the fields that follow the length, for each tag.
inline constexpr unsigned char fieldBytes[] = {0, 0, 4, 8, 4, 8, 8, 8, 8, 8, 12, 4, 4, 4, 4};
/// Tags from here on do not exist.
inline constexpr unsigned int tagCount = sizeof fieldBytes;

/// Whether an id is all that the record's fields hold.
constexpr bool hasOneId(unsigned int tag) {
    constexpr unsigned int tags = 1U << fxTagBlockAgain | 1U << fxTagPointer |
                                  1U << fxTagPointerAgain | 1U << fxTagPart | 1U << fxTagPartAgain;
    return tag < tagCount && (tags >> tag & 1U) != 0;
}

/// Whether the record holds the contents of a block.
constexpr bool isContents(unsigned int tag) { return tag >= fxTagBytes && tag <= fxTagDoubles; }

/// How a machine orders the bytes of a number, as seen from this machine.
enum class Order : unsigned char { same, swapped, halves, reversed, unknown };

struct Mark {
    unsigned long mark;  ///< As this machine reads it.
    Order order;
};
inline constexpr Mark shortMarks[] = {{0x1122, Order::same}, {0x2211, Order::swapped}};
inline constexpr Mark longMarks[] = {{0x33445566, Order::same},
                                     {0x44336655, Order::swapped},
                                     {0x55663344, Order::halves},
                                     {0x66554433, Order::reversed}};

template <unsigned int count>
constexpr Order orderOf(unsigned long mark, const Mark (&marks)[count]) {
    for (const Mark& known : marks) {
        if (known.mark == mark) return known.order;
    }
    return Order::unknown;
}
/// The order that the short mark of a stream tells.
constexpr Order shortOrder(unsigned short mark) { return orderOf(mark, shortMarks); }
/// The order that the long mark of a stream tells.
constexpr Order longOrder(unsigned long mark) { return orderOf(mark, longMarks); }

constexpr unsigned int word(const unsigned char* bytes) {
    return bytes[0] | static_cast<unsigned int>(bytes[1]) << 8U |
           static_cast<unsigned int>(bytes[2]) << 16U | static_cast<unsigned int>(bytes[3]) << 24U;
}

/// Fields that the tag does not have mean nothing.
struct Head {
    unsigned int tag = 0;
    unsigned int payloadBytes = 0;
    unsigned int fields[3] = {};

    unsigned int id() const { return fields[0]; }
    unsigned int byteCount() const { return fields[1]; }  ///< Of a block.
    unsigned int typeId() const { return fields[1]; }     ///< Of an object.
    unsigned int version() const { return fields[2]; }    ///< Of an object.
};

/// The state that one record hands to the next: an id field may be filled up to
/// 8 bytes by zeros. Where such a record has no payload, the filler is seen as
/// zeros before the next head, which never begins with one. Once four have been
/// seen, these fields are taken to have 8 bytes.
class Filler {
public:
    /// Whether the byte, which stands where a head is due, is a filler.
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

/// Bytes of the length, and what it keeps of four bytes, by the high bits of a head.
inline constexpr unsigned char lengthBytes[] = {0, 1, 2, 4};
inline constexpr unsigned int lengthMask[] = {0, 0xFF, 0xFFFF, 0xFFFFFFFF};

/// Bytes of a head by its first byte; of an unknown tag, as far as the length.
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

/// Decodes a head. All of the maxHeadBytes at `bytes` are looked at.
inline Head decode(const unsigned char* bytes) {
    const unsigned int code = *bytes >> 6U;
    const unsigned char* const fields = bytes + 1 + lengthBytes[code];
    return {*bytes & 0x3FU,
            word(bytes + 1) & lengthMask[code],
            {word(fields), word(fields + 4), word(fields + 8)}};
}

}  // namespace fxRecordFormat

#endif
