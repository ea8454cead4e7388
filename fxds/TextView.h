// The bytes of any kind of text, as an argument.
#ifndef FXDS_TEXTVIEW_H
#define FXDS_TEXTVIEW_H

#include <string_view>
#include <type_traits>

#include "fxds/TempStr.h"

/// The parameter of functions that only read a text: an fxStr, a concatenation, a
/// std::string or a view with all of their bytes, zero-terminated text (null is the empty
/// text), or one char. Nothing is copied: it is good until the end of the call.
class fxTextView : public std::string_view {
public:
    ///@{
    /// Of a terminated text, and of a concatenation.
    fxTextView(const char* text) : std::string_view(text != nullptr ? text : "") {}
    fxTextView(const fxTempStr& text) : std::string_view(text.view()) {}
    ///@}
    /// Any object that converts to a std::string_view. Pointers go to the first one,
    /// which accepts null.
    template <class Text,
              std::enable_if_t<(std::is_class_v<Text> || std::is_union_v<Text>)&&  //
                               std::is_convertible_v<const Text&, std::string_view>,
                               int> = 0>
    fxTextView(const Text& text) : std::string_view(static_cast<std::string_view>(text)) {}
    /// One byte. Numbers are not accepted.
    template <class Char, std::enable_if_t<std::is_same_v<Char, char>, int> = 0>
    fxTextView(const Char& byte) : std::string_view(&byte, 1) {}
};

#endif
