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
    return tag == fxTagBlockAgain || (tag >= fxTagPointer && tag <= fxTagPartAgain);
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
    /// Bytes that fill the fields of the record.
    unsigned int bytesIn(unsigned int tag) const {
        return isWide_ && hasOneId(tag) ? fillerBytes : 0;
    }
    bool isWide() const { return isWide_; }

private:
    static constexpr unsigned int fillerBytes = 4;

    bool isWide_ = false;
    unsigned char left = 0;  // bytes that may follow
};

constexpr unsigned int lengthBytes(unsigned char first) { return first < 0xC0 ? first >> 6U : 4; }

/// Bytes of the head behind the first one; of an unknown tag, of its length.
inline unsigned int restBytes(unsigned char first, const Filler& filler) {
    const unsigned int tag = first & 0x3FU;
    return lengthBytes(first) + (tag < tagCount ? fieldBytes[tag] + filler.bytesIn(tag) : 0);
}

/// Decodes a head. All of the maxHeadBytes at `bytes` are looked at.
inline void decode(const unsigned char* bytes, Head& head) {
    constexpr unsigned int masks[] = {0, 0xFF, 0xFFFF, 0, 0xFFFFFFFF};
    const unsigned int size = lengthBytes(*bytes);
    const unsigned char* const fields = bytes + 1 + size;
    head.tag = *bytes & 0x3FU;
    head.payloadBytes = word(bytes + 1) & masks[size];
    for (unsigned int i = 0; i < 3; ++i) head.fields[i] = word(fields + 4 * i);
}

}  // namespace fxRecordFormat

#endif
