// Texts in JSON.
#ifndef FXGREP_JSON_H
#define FXGREP_JSON_H

#include <cstddef>
#include <string>
#include <string_view>

/// The length of the UTF-8 character that the text begins with; 0 when it is none.
size_t characterLength(std::string_view text);

/// The text in quotes. Bytes that are no UTF-8 become the replacement character.
std::string jsonText(std::string_view text);

#endif
