// Comparison of strings with texts of any kind, concatenation, and the
// standard's streams. Str.h includes this.
#ifndef FXDS_TEXTOPERATORS_H
#define FXDS_TEXTOPERATORS_H

#include <cstring>
#include <iosfwd>
#include <string_view>

#include "fxds/Str.h"
#include "fxds/TempStr.h"
#include "fxds/TextView.h"
#include "fxds/detail/Allocate.h"
#include "fxds/detail/TextTraits.h"

///@{
/// strcmp() of the texts: the comparison ends at the first zero byte. A null
/// `char const*` counts as the empty text, here and in all the operators.
FX_API int compare(char const* a, char const* b);
inline int compare(fxStr const& a, fxStr const& b) { return std::strcmp(a.data, b.data); }
inline int compare(fxStr const& a, char const* b) { return compare(a.data, b); }
inline int compare(char const* a, fxStr const& b) { return compare(a, b.data); }
/// Also for texts that are not terminated.
FX_API int fxCompareTexts(std::string_view a, std::string_view b);
template <class A, class B, fxDetail::IfMixed<A, B> = 0>
int compare(A const& a, B const& b) {
    return fxCompareTexts(fxTextView(a), fxTextView(b));
}
///@}

///@{
/// Ordered as compare() orders.
inline bool operator<(const fxStr& a, const fxStr& b) { return compare(a, b) < 0; }
inline bool operator<(const fxStr& a, const char* b) { return compare(a, b) < 0; }
inline bool operator<(const char* a, const fxStr& b) { return compare(a, b) < 0; }
inline bool operator<=(const fxStr& a, const fxStr& b) { return compare(a, b) <= 0; }
inline bool operator<=(const fxStr& a, const char* b) { return compare(a, b) <= 0; }
inline bool operator<=(const char* a, const fxStr& b) { return compare(a, b) <= 0; }
inline bool operator>(const fxStr& a, const fxStr& b) { return compare(a, b) > 0; }
inline bool operator>(const fxStr& a, const char* b) { return compare(a, b) > 0; }
inline bool operator>(const char* a, const fxStr& b) { return compare(a, b) > 0; }
inline bool operator>=(const fxStr& a, const fxStr& b) { return compare(a, b) >= 0; }
inline bool operator>=(const fxStr& a, const char* b) { return compare(a, b) >= 0; }
inline bool operator>=(const char* a, const fxStr& b) { return compare(a, b) >= 0; }
template <class A, class B, fxDetail::IfMixed<A, B> = 0>
bool operator<(const A& a, const B& b) {
    return compare(a, b) < 0;
}
template <class A, class B, fxDetail::IfMixed<A, B> = 0>
bool operator<=(const A& a, const B& b) {
    return compare(a, b) <= 0;
}
template <class A, class B, fxDetail::IfMixed<A, B> = 0>
bool operator>(const A& a, const B& b) {
    return compare(a, b) > 0;
}
template <class A, class B, fxDetail::IfMixed<A, B> = 0>
bool operator>=(const A& a, const B& b) {
    return compare(a, b) >= 0;
}
///@}

///@{
/// Equal in length and in every byte, so zero bytes within the text count here.
inline bool operator==(const fxStr& a, const fxStr& b) {
    return a.slength == b.slength && std::memcmp(a.data, b.data, a.slength) == 0;
}
FX_API bool operator==(const fxStr& a, const char* b);
inline bool operator==(const char* a, const fxStr& b) { return b == a; }
inline bool operator!=(const fxStr& a, const fxStr& b) { return !(a == b); }
inline bool operator!=(const fxStr& a, const char* b) { return !(a == b); }
inline bool operator!=(const char* a, const fxStr& b) { return !(b == a); }
template <class A, class B, fxDetail::IfMixed<A, B> = 0>
bool operator==(const A& a, const B& b) {
    return static_cast<std::string_view>(fxTextView(a)) == fxTextView(b);
}
template <class A, class B, fxDetail::IfMixed<A, B> = 0>
bool operator!=(const A& a, const B& b) {
    return !(a == b);
}
///@}

///@{
/// Concatenation (see TempStr.h). A null `const char*` counts as the empty text.
inline fxTempStr operator|(const fxStr& a, const fxStr& b) {
    return fxTempStr(a.data, a.length(), b.data, b.length());
}
inline fxTempStr operator|(const fxStr& a, const char* b) {
    return fxTempStr(a.data, a.length(), b, fxStr::textLength(b));
}
inline fxTempStr operator|(const char* a, const fxStr& b) {
    return fxTempStr(a, fxStr::textLength(a), b.data, b.length());
}
template <class A, class B, fxDetail::IfJoins<A, B> = 0>
fxTempStr operator|(const A& a, const B& b) {
    const fxTextView left(a);
    const fxTextView right(b);
    return fxTempStr(left.data(), fxLengthField(left.size()), right.data(),
                     fxLengthField(right.size()));
}
///@}

///@{
/// Appends to `a` itself and returns it: `a` is the accumulator, although it
/// is taken by constant reference so that a temporary can be bound to it.
/// Requires: `a` was not defined as a constant object.
inline fxTempStr& operator|(const fxTempStr& a, const fxStr& b) {
    return const_cast<fxTempStr&>(a).concat(b.data, b.length());
}
inline fxTempStr& operator|(const fxTempStr& a, const char* b) {
    return const_cast<fxTempStr&>(a).concat(b, fxStr::textLength(b));
}
template <class Text, fxDetail::IfAppends<Text> = 0>
fxTempStr& operator|(const fxTempStr& a, const Text& b) {
    const fxTextView text(b);
    return const_cast<fxTempStr&>(a).concat(text.data(), fxLengthField(text.size()));
}
///@}
/// Pointers would be added: texts are joined by `|`.
template <class A, class B, fxDetail::IfTexts<A, B> = 0>
void operator+(const A& a, const B& b) = delete;  // texts are joined by a | b
///@{
/// A number would move a pointer into the text, and 0 be a null pointer.
template <class A, class B, fxDetail::IfNumbered<A, B> = 0>
void operator+(const A& a, const B& b) = delete;  // a | fxStr::number(n), or a.c_str() + n
template <class A, class B, fxDetail::IfNumbered<A, B> = 0>
void operator|(const A& a, const B& b) = delete;  // a number as text is fxStr::number(n)
///@}

/// Writes the text up to its first zero byte.
FX_API std::ostream& operator<<(std::ostream& out, const fxStr& str);

/// Reads one item: everything up to the delimiter of the stream, which is
/// taken but not stored, or up to the end of the stream. An empty item is an
/// empty string and no failure; the read fails, leaving an empty string, when
/// nothing is left. So `while (in >> item)` sees every item once. Blanks are
/// not skipped. When the stream throws, some of the item may be in the string.
FX_API std::istream& operator>>(std::istream& in, fxStr& str);

/// Sets the delimiter of this stream's items; it is '\n' before. Any byte will
/// do. Also as a manipulator: `in >> _delimiter(',') >> item`.
FX_API std::istream& _delimiter(std::istream& in, char c);

/// The argument of `in >> _delimiter(c)`.
struct fxDelimiter {
    char c;  ///< The byte that ends an item.
};
inline fxDelimiter _delimiter(char c) { return {c}; }  ///< The manipulator form.
/// Sets the delimiter; see _delimiter().
inline std::istream& operator>>(std::istream& in, fxDelimiter delimiter) {
    return _delimiter(in, delimiter.c);
}

#endif
