// Bytes of unknown origin as printable text.
#ifndef FXDUMP_TEXT_H
#define FXDUMP_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

/// The bytes in printable ASCII, with escapes for all others, for `"` and for
/// `\`. Of more than `limit` bytes, the first ones and "...".
std::string escaped(std::string_view bytes, size_t limit = 60);

/// The same in quotes, followed by the number of bytes when it is shortened.
std::string quoted(std::string_view bytes, size_t limit = 60);

/// "#7".
std::string idText(unsigned int id);

constexpr size_t bytesPerLine = 16;

/// "2a 00 ...  |*.|": up to `bytesPerLine` bytes in hexadecimal, and as characters.
std::string dumped(std::string_view bytes);

#endif
