// The header of a binary stream, which describes the machine that wrote it.
#ifndef FXDS_STREAMS_STREAMMARKS_H
#define FXDS_STREAMS_STREAMMARKS_H

#include <string_view>

// The header, in the byte order of the machine that writes it:
//
//     name of the writer, zero byte
//     float format "ieee", zero byte
//     short mark                       2 bytes, 0x1122
//     long mark                        8 bytes, 0x33445566
//
// The name selects the reader; the marks give it the byte order.

namespace fxStreamMarks {

inline constexpr char ownFloatFormat[] = "ieee";
inline constexpr short ownShortMark = 0x1122;
inline constexpr long ownLongMark = 0x33445566;

/// The order of the bytes of a number, as seen from this machine.
enum class Order : unsigned char { same, swapped, halves, reversed, unknown };

struct Mark {
    unsigned long mark;  ///< As this machine reads it.
    Order order;
};
inline constexpr Mark shortMarks[] = {{ownShortMark, Order::same}, {0x2211, Order::swapped}};
inline constexpr Mark longMarks[] = {{ownLongMark, Order::same},
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
/// The byte order that the short mark of a stream denotes.
constexpr Order shortOrder(unsigned short mark) { return orderOf(mark, shortMarks); }
/// The byte order that the long mark of a stream denotes.
constexpr Order longOrder(unsigned long mark) { return orderOf(mark, longMarks); }

/// Whether this machine stores floating-point numbers in the named format.
inline bool isFloatFormat(std::string_view name) { return name == ownFloatFormat; }

}  // namespace fxStreamMarks

#endif
