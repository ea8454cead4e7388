// Texts in JSON.
#ifndef FXGREP_JSON_H
#define FXGREP_JSON_H

#include <string>
#include <string_view>

/// The text in quotes. Bytes that are no UTF-8 become the replacement character.
std::string jsonText(std::string_view text);

#endif
