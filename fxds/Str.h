// The string of the library: a byte string with a length. Its operators
// are in TextOperators.h, which this header includes.
#ifndef FXDS_STR_H
#define FXDS_STR_H

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "fxds/Config.h"
#include "fxds/TempStr.h"
#include "fxds/TextView.h"
#include "fxds/detail/Allocate.h"
#include "fxds/detail/MovesAsBytes.h"
#include "fxds/detail/TextTraits.h"

class fxStr;
class fxStrArray;
class fxTranscriber;
class fxTypeObj;

/// A byte string with a terminating zero, copied by value. It may contain zero bytes;
/// operations on zero-terminated text (ordering, `<<`) are marked so.
///
/// Positions and counts are in bytes of text and start at 0. Ranges must lie
/// within the text: only checked builds test them. A source pointer may lie in
/// the string that is changed. A text that would not fit a 32-bit length is
/// fatal, and so is running out of memory.
///
/// Cost: a block is as large as the text needed when it was made. append() enlarges it
/// by up to as much again, so that appends cost amortised O(1). Empty strings own no
/// block.
///
/// Moving the bytes of a string moves the string: arrays rely on it.
class FX_API fxStr {
public:
    typedef char value_type;  ///< For std::back_inserter() and its like.

    // Construction.

    fxStr() noexcept : slength(1), room(0), data(&emptyString) {}
    /// `n` zero bytes.
    explicit fxStr(unsigned int n);
    /// The same for a plain int, so that a literal 0 is a count and no pointer.
    template <class Int, class = std::enable_if_t<std::is_same_v<Int, int>>>
    explicit fxStr(Int n) : fxStr(static_cast<unsigned int>(n)) {}
    /// Not for types that are no counts: char, bool, fractions.
    template <class T, std::enable_if_t<fxDetail::countsNothing<T>, int> = 0>
    explicit fxStr(T) = delete;  // fxStr(n) is n zero bytes: write fxStr(&c, 1) or fxStr(x, "%g")
    /// The zero-terminated text at `s`; null is the empty text.
    fxStr(const char* s);
    /// Exactly the `n` bytes at `s`, zero bytes included.
    fxStr(const char* s, unsigned int n);
    explicit fxStr(std::string_view text);  ///< The bytes of the view, zero bytes included.
    /// The same, also where a std::string is passed as an fxStr.
    template <class Text, fxDetail::IfStdString<Text> = 0>
    fxStr(const Text& text) : fxStr(static_cast<std::string_view>(text)) {}
    fxStr(const fxStr& other);
    /// Takes over the text and leaves `other` empty.
    fxStr(fxStr&& other) noexcept : fxStr() { takeOver(other); }
    fxStr(const fxTempStr& text);  ///< The text that a concatenation has built.
    ///@{
    /// `v` formatted as printf() would with `fmt`, or with "%d", "%g" and "%lg"
    /// when `fmt` is null. Results of any length are supported.
    fxStr(int v, const char* fmt);
    fxStr(float v, const char* fmt);
    fxStr(double v, const char* fmt);
    ///@}
    /// The same for the integers that no int can hold; a null `fmt` gives their digits.
    template <class Int,
              std::enable_if_t<std::is_integral_v<Int> &&
                                   (sizeof(Int) > sizeof(int) || std::is_same_v<Int, unsigned>),
                               int> = 0>
    fxStr(Int v, const char* fmt) : fxStr() {
        if (fmt != nullptr) {
            format(fmt, v);
        } else {
            *this = number(v);
        }
    }
    ~fxStr() { dropBlock(); }

    fxStr& operator=(const fxStr& other);
    fxStr& operator=(fxStr&& other) noexcept;  ///< Leaves `other` empty.
    fxStr& operator=(const char* s);           ///< Null is the empty text.
    /// The bytes of the view, which may lie in this string.
    fxStr& operator=(std::string_view text);
    /// The same from a std::string.
    template <class Text, fxDetail::IfStdString<Text> = 0>
    fxStr& operator=(const Text& text) {
        return *this = static_cast<std::string_view>(text);
    }
    fxStr& operator=(const fxTempStr& text);
    /// Not for types that the constructors refuse.
    template <class T, std::enable_if_t<fxDetail::countsNothing<T>, int> = 0>
    fxStr& operator=(T) = delete;  // write fxStr(&c, 1) or fxStr::number(x)

    // Queries. Pointers and views are good until the string changes or moves.

    unsigned int length() const { return slength - 1; }  ///< Without the terminator.
    bool isEmpty() const { return slength == 1; }
    ///@{
    /// The same, for std::size() and std::empty().
    unsigned int size() const { return length(); }
    bool empty() const { return isEmpty(); }
    ///@}
    ///@{
    /// The text: a pointer to zero-terminated bytes, or a view with the
    /// length.
    const char* c_str() const { return data; }
    operator const char*() const { return data; }
    std::string_view view() const { return {data, length()}; }
    operator std::string_view() const { return view(); }
    ///@}
    std::string toStdString() const { return std::string(view()); }  ///< A copy, zero bytes too.
    /// Refused: the pointer is never null.
    explicit operator bool() const = delete;  // always true: ask isEmpty()

    char& front() { return (*this)[0]; }                ///< Requires: not isEmpty().
    char front() const { return (*this)[0]; }           ///< Requires: not isEmpty().
    char& back() { return (*this)[slength - 2]; }       ///< Requires: not isEmpty().
    char back() const { return (*this)[slength - 2]; }  ///< Requires: not isEmpty().

    char* begin() { return data; }
    char* end() { return data + length(); }
    const char* begin() const { return data; }
    const char* end() const { return data + length(); }

    ///@{
    /// The byte at `index`; the terminator, which must stay zero, at length().
    /// A template, because with overloads for some integer types the others
    /// would be ambiguous next to the conversion to a pointer.
    template <class Index, class = std::enable_if_t<std::is_integral_v<Index>>>
    char& operator[](Index index) {
        FX_ASSERT(static_cast<size_t>(index) < slength);
        return data[index];
    }
    template <class Index, class = std::enable_if_t<std::is_integral_v<Index>>>
    char operator[](Index index) const {
        FX_ASSERT(static_cast<size_t>(index) < slength);
        return data[index];
    }
    ///@}

    // Editing.

    /// Appends the `n` bytes at `s`. As in every operation that takes a text
    /// and a count, `n` = 0 means strlen(s).
    void append(const char* s, unsigned int n = 0);
    void append(char c) {  ///< Also a zero byte.
        const unsigned int used = slength;
        FX_ASSERT(hasRoom());
        if (used >= room) {
            appendGrowing(c);
            return;
        }
        slength = used + 1;
        char* const end = data + used;
        end[-1] = c;
        end[0] = '\0';
    }
    ///@{
    /// Appends the whole text, zero bytes included.
    void append(const fxStr& text) { append(text.view()); }
    void append(const fxTempStr& text) { append(text.view()); }
    void append(std::string_view text);
    ///@}
    /// The same for a std::string.
    template <class Text, fxDetail::IfStdString<Text> = 0>
    void append(const Text& text) {
        append(static_cast<std::string_view>(text));
    }
    ///@{
    /// As append(), for a text of any kind or a char.
    fxStr& operator+=(fxTextView text) {
        append(static_cast<std::string_view>(text));
        return *this;
    }
    template <class T, std::enable_if_t<fxDetail::IsNumber<T>::value, int> = 0>
    fxStr& operator+=(T number) = delete;  // a number as text is fxStr::number(n)
    void push_back(char c) { append(c); }
    ///@}
    /// Inserts the `n` bytes at `s` before position `pos`.
    void insert(const char* s, unsigned int pos = 0, unsigned int n = 0);
    void insert(char c, unsigned int pos = 0);  ///< Also a zero byte.
    ///@{
    /// Inserts the whole text, zero bytes included.
    void insert(const fxStr& text, unsigned int pos = 0) { insert(text.view(), pos); }
    void insert(const fxTempStr& text, unsigned int pos = 0) { insert(text.view(), pos); }
    void insert(std::string_view text, unsigned int pos = 0);
    template <class Text, fxDetail::IfStdString<Text> = 0>
    void insert(const Text& text, unsigned int pos = 0) {
        insert(static_cast<std::string_view>(text), pos);
    }
    ///@}
    /// Removes `n` bytes at `start`. Everything goes when `n` is the whole
    /// length or more, wherever `start` is.
    void remove(unsigned int start, unsigned int n = 1);
    void pop_back() {  ///< Removes the last byte, if there is one.
        if (!isEmpty()) remove(length() - 1);
    }
    /// Removes `n` bytes at `start` and returns them.
    fxStr cut(unsigned int start, unsigned int n);
    /// Overwrites `n` bytes at `pos`; the length stays as it is.
    void replace(const char* s, unsigned int pos, unsigned int n = 0);
    ///@{
    /// Overwrites as many bytes as the text has, zero bytes included.
    void replace(const fxStr& text, unsigned int pos) { replace(text.view(), pos); }
    void replace(const fxTempStr& text, unsigned int pos) { replace(text.view(), pos); }
    void replace(std::string_view text, unsigned int pos);
    template <class Text, fxDetail::IfStdString<Text> = 0>
    void replace(const Text& text, unsigned int pos) {
        replace(static_cast<std::string_view>(text), pos);
    }
    ///@}
    /// Puts `with` in the place of each occurrence of `what`, from left to right; an
    /// empty `what` occurs nowhere. Returns how many there were. Both may lie in
    /// this string.
    unsigned int replaceAll(fxTextView what, fxTextView with);
    void clear();  ///< Leaves the empty text and frees the block.
    /// Makes the text exactly `n` bytes long. New bytes are zero, whatever `fill`:
    /// part of the contract.
    void resize(unsigned int n, unsigned char fill = 0);
    /// Enlarges the block of a non-empty string to hold `n` bytes of text, so that the text
    /// reaches that length without another block. Assignment from a longer text, replaceAll(),
    /// format() and reading cancel that.
    void setMaxLength(unsigned int n);
    // clang-format off
    template <class Count>
    void reserve(Count) = delete;  // room is made by setMaxLength(n), when the text is not empty
    // clang-format on
    void lower();  ///< As tolower() of the C locale in force, byte by byte.
    void raise();  ///< As toupper(), likewise.

    // Extraction.

    fxStr extract(unsigned int start, unsigned int n) const;  ///< The `n` bytes at `start`.
    fxStr head(unsigned int n) const;                         ///< The first `n` bytes.
    fxStr tail(unsigned int n) const;                         ///< The last `n` bytes.
    fxStr copy() const;                                       ///< The same as copying.
    /// As much of the `n` bytes at `start` as there is: no range is too large.
    fxStr substr(std::size_t start, std::size_t n = npos) const;
    ///@{
    /// Without the bytes of `set` at both ends, or at the end; empty when nothing
    /// else is there.
    fxStr trim(const char* set = " \t\n\r\v\f") const;
    fxStr trimRight(const char* set = " \t\n\r\v\f") const;
    ///@}

    ///@{
    /// Search for `c`, or for any of the `n` bytes of `set`. The forward ones
    /// return an index in [pos, length()], where length() means that there is
    /// none. The backward ones look at the bytes before `pos` and return the
    /// found index plus one, or 0.
    unsigned int next(unsigned int pos, char c) const;
    unsigned int next(unsigned int pos, const char* set, unsigned int n = 0) const;
    unsigned int nextR(unsigned int pos, char c) const;
    unsigned int nextR(unsigned int pos, const char* set, unsigned int n = 0) const;
    ///@}
    ///@{
    /// As next() and nextR(), for the first byte that is not `c` or not in `set`.
    unsigned int skip(unsigned int pos, char c) const;
    unsigned int skip(unsigned int pos, const char* set, unsigned int n = 0) const;
    unsigned int skipR(unsigned int pos, char c) const;
    unsigned int skipR(unsigned int pos, const char* set, unsigned int n = 0) const;
    ///@}

    ///@{
    /// Returns the text from `pos` to the next delimiter and moves `pos` past
    /// the run of delimiters that follows it.
    fxStr token(unsigned int& pos, char c) const;
    fxStr token(unsigned int& pos, const char* set, unsigned int n = 0) const;
    ///@}
    ///@{
    /// The mirror image: the text between the last delimiter before `pos` and
    /// `pos`, which moves back over the run of delimiters.
    fxStr tokenR(unsigned int& pos, char c) const;
    fxStr tokenR(unsigned int& pos, const char* set, unsigned int n = 0) const;
    ///@}

    // Texts in texts; every argument may be a text of any kind or one char.

    /// What find() and rfind() return for nothing found. They return a std::size_t:
    /// keep it in one, or compare it at once.
    static constexpr std::size_t npos = std::string_view::npos;
    /// Where `text` occurs first at `pos` or later.
    std::size_t find(fxTextView text, std::size_t pos = 0) const { return view().find(text, pos); }
    /// Where `text` occurs last, at `pos` or before.
    std::size_t rfind(fxTextView text, std::size_t pos = npos) const {
        return view().rfind(text, pos);
    }
    bool contains(fxTextView text) const { return find(text) != npos; }  ///< Anywhere.
    /// Whether the text begins with `text`, as every text does with the empty one.
    bool startsWith(fxTextView text) const { return view().substr(0, text.size()) == text; }
    /// Whether it ends with `text`.
    bool endsWith(fxTextView text) const {
        return length() >= text.size() && view().substr(length() - text.size()) == text;
    }
    ///@{
    /// The same, by the names of the standard's strings.
    bool starts_with(fxTextView text) const { return startsWith(text); }
    bool ends_with(fxTextView text) const { return endsWith(text); }
    ///@}
    // clang-format off
    template <class Index>
    char at(Index) const = delete;  // an index is asked for, not tried: test it against length(), then use []
    template <class... Places>
    void erase(Places...) = delete;  // bytes are removed by remove(start, count)
    // clang-format on
    /// The texts between the occurrences of `separator`, empty ones too: one more
    /// than there are separators. An empty separator occurs nowhere. Needs
    /// StrArray.h.
    fxStrArray split(fxTextView separator) const;
    /// The parts, which are texts of any kind, with `separator` between them.
    template <class Parts>
    static fxStr join(const Parts& parts, fxTextView separator);

    // Numbers.

    /// The number as text: an integer in digits to `base`, 2 to 36, of which any other
    /// is fatal; a fraction with as few digits as read back to it.
    template <class Number>
    static fxStr number(Number value, int base = 10);
    ///@{
    /// The number that the whole text is: digits to `base`, as above, with a sign in front
    /// perhaps. Nothing when the text is anything else, blanks around it included,
    /// or when the type does not hold the number. Fractions as strtod() reads them in
    /// the C locale, decimal ones only. The form with an argument returns whether it
    /// has set it.
    template <class Number = int>
    std::optional<Number> toNumber(const int& base = 10) const;
    template <int = 0, class Number>  // deduced only: toNumber<int>(base) is the one above
    bool toNumber(Number& number, int base = 10) const {
        const std::optional<Number> read = toNumber<Number>(base);
        if (read) number = *read;
        return read.has_value();
    }
    std::optional<int> toInt(int base = 10) const;
    std::optional<long> toLong(int base = 10) const;
    std::optional<double> toDouble() const;
    ///@}

    // Hashing and formatting.

    /// A cheap hash of at most the first 16 bytes; equal texts have equal
    /// hashes. Of texts of 9 to 15 bytes only the first 8 count.
    /// 0 for the empty string.
    unsigned long hash() const;
    static unsigned long hash(std::string_view text);  ///< The hash of a string of these bytes.

    ///@{
    /// Replaces the text with what printf() would write, up to the first zero
    /// byte of that, and returns the new `slength` (the text length plus one).
    /// The string may be among its own arguments. On an error (an invalid wide
    /// character, a '%' at the end) it holds what comes before; more than INT_MAX
    /// bytes leave it empty.
    unsigned int format(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    unsigned int vformat(const char* fmt, va_list arguments) __attribute__((format(printf, 2, 0)));
    ///@}

    /// strlen(s), 0 for null. Fatal beyond 4 GiB.
    static unsigned int textLength(const char* s) {
        return s != nullptr ? fxLengthField(std::strlen(s)) : 0;
    }

    // Transcription.

    explicit fxStr(fxTypeObj&) noexcept : fxStr() {}
    static void* newInstance(fxTypeObj& type);
    static void deleteInstance(void* str);
    fxTypeObj* getTypeObj() const;

    /// Writes the string, or replaces it with the one that is read. The text is transcribed
    /// after the caller has returned: until the graph is complete, a written string must
    /// not change or be destroyed, and a string being read is empty. Returns 0 when a step
    /// failed; a string that was being read is then empty.
    fxBool xdr(fxTranscriber& transcriber);
    static fxBool xdr(void* str, fxTranscriber& transcriber);

    /// Takes over a block for a string of `lengthBytes` bytes, the terminator
    /// included. Adopted: a malloc() block with at least that many bytes.
    /// Requires: lengthBytes >= 1, a zero at block[lengthBytes - 1].
    void adopt(char* block, unsigned int lengthBytes);

private:
    friend struct fxTextInEntry;

    // For the key of an entry, which has its text, if that is short, in the entry's
    // memory: the text is this string's to write, and ends with the entry.
    struct InEntry {
        char* text;
    };
    fxStr(InEntry where, unsigned int lengthBytes) noexcept
        : slength(lengthBytes), room(inEntry), data(where.text) {}
    static constexpr unsigned int inEntry = 1;  // which no block of a string has as its size
    bool ownsBlock() const { return data != &emptyString && room != inEntry; }
    void dropBlock() {
        if (ownsBlock()) std::free(data);
    }
    // Before the text grows, or its block. The old text stays whole.
    void makeBlockOwn() {
        if (__builtin_expect(room == inEntry, 0)) copyToOwnBlock();
    }
    void copyToOwnBlock();
    // Requires: this string owns no block, and is not `other`.
    void takeOver(fxStr& other) noexcept {
        other.makeBlockOwn();
        slength = std::exchange(other.slength, 1U);
        room = std::exchange(other.room, 0U);
        data = std::exchange(other.data, &emptyString);
    }
    bool hasRoom() const;
    void setBlock(void* block, size_t bytes);
    void setLength(unsigned int lengthBytes);
    void appendGrowing(char c);
    const char* makeRoom(std::string_view more, bool isAppended);
    void enlargeBlock(size_t bytes);
    void assignBytes(const char* s, size_t n);
    void keepWritten(const char* fmt, va_list arguments);
    fxBool readText(fxTranscriber& transcriber);
    static fxStr writtenInteger(bool isNegative, unsigned long long magnitude, int base);
    static fxStr writtenFraction(double value);
    static fxStr writtenFraction(float value);
    bool readInteger(bool& isNegative, unsigned long long& magnitude, int base) const;
    std::optional<double> readFraction() const;
    std::optional<float> readFloat() const;

public:
    // The string itself. Programs may read these; only this class writes them. Another block
    // comes by adopt(); in checked builds, append() notices one that was set here and is smaller.
    unsigned int slength;  ///< Bytes in use, the terminating zero included: 1 when empty.
    /// The bytes of the block, which append() may use; 0 when that is not known, 1 for the text
    /// of a key in its entry.
    unsigned int room;
    /// A malloc() block of ours, or &emptyString. The short text of a key lies in its entry.
    char* data;

    static char emptyString;              ///< What every empty string points at: a zero.
    static unsigned int resizeIncrement;  ///< Least step by which `>>` grows a string.
    static int delim_idx;  ///< Stream word slot of the input delimiter; -1 until first use.
};

extern FX_API fxTypeObj fxStr_type;

static_assert(sizeof(fxStr) == 16 && std::is_standard_layout_v<fxStr>,
              "strings are kept in arrays by their bytes");

template <>
struct fxMovesAsBytes<fxStr> : std::true_type {};

namespace std {
/// Over the whole text, unlike fxStr::hash().
template <>
struct hash<fxStr> {
    /// Equal texts hash equal.
    size_t operator()(const fxStr& str) const noexcept { return hash<string_view>()(str.view()); }
};
}  // namespace std

inline void fxStr::clear() {
    dropBlock();
    slength = 1;
    room = 0;
    data = &emptyString;
}

inline fxStr& fxStr::operator=(fxStr&& other) noexcept {
    if (this != &other) {
        dropBlock();
        takeOver(other);
    }
    return *this;
}

#include "fxds/TextOperators.h"
#include "fxds/detail/StrTemplates.h"

#endif
