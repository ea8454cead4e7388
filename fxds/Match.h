// Regular expressions as values: matches with their groups as views, all matches
// of a text, replacing.
#ifndef FXDS_MATCH_H
#define FXDS_MATCH_H

#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "fxds/RegExp.h"
#include "fxds/Str.h"

class fxMatches;

namespace fxDetail {
/// Texts that are known to end in a zero byte, and can be searched where they are.
template <class Text>
inline constexpr bool isTerminated =
    std::is_same_v<Text, fxStr> || std::is_same_v<Text, std::string> ||
    std::is_convertible_v<const Text&, const char*>;

/// Texts that end with the expression that they are part of.
template <class Text, class Plain = std::remove_const_t<Text>>
using IfTemporary =
    std::enable_if_t<std::is_same_v<Plain, fxStr> || std::is_same_v<Plain, std::string> ||
                         std::is_same_v<Plain, fxTempStr>,
                     int>;
}  // namespace fxDetail

/// One match of an expression, or none. Its groups are views of the text that was
/// searched: good as long as that text.
class FX_API fxMatch {
public:
    static constexpr unsigned int groupCount = 10;  ///< Group 0 is the whole match.

    fxMatch() = default;  ///< No match.

    explicit operator bool() const { return has(0); }  ///< Whether there is a match.
    /// Whether the group took part in it.
    bool has(unsigned int group) const {
        return group < groupCount && groups[group].data() != nullptr;
    }
    ///@{
    /// The text of the group; empty when it took no part.
    std::string_view group(unsigned int index) const {
        return has(index) ? groups[index] : std::string_view();
    }
    std::string_view operator[](unsigned int index) const { return group(index); }
    std::string_view text() const { return group(0); }
    ///@}
    ///@{
    /// The bounds of the group in the text that was searched. Requires: has(group).
    std::size_t start(unsigned int group = 0) const;
    std::size_t end(unsigned int group = 0) const { return start(group) + groups[group].size(); }
    ///@}

    /// Expands `form` as fxregsub() does: `&` and `\0` stand for the match, `\1` to
    /// `\9` for its groups. It ends at its first zero byte. Empty when there is no match.
    fxStr expand(fxTextView form) const;

private:
    friend class fxMatches;

    std::string_view subject;
    std::string_view groups[groupCount];  // null where there is none
};

/// A compiled expression. RegExp.h describes the syntax and the cost of a search.
///
///     const fxExpression setting("([a-z]+)=([0-9]+)");
///     for (const fxMatch& match : setting.all(line)) use(match[1], match[2]);
///
/// A text ends at its first zero byte for all searches. A text that is known to be
/// terminated (an fxStr, a std::string, a `const char*`) is searched in place, any other in
/// a copy. An expression that did not compile matches nothing. One object belongs to one
/// thread at a time; a copy is compiled anew and may belong to another.
class FX_API fxExpression {
public:
    /// Compiles the pattern; a faulty one shows in isValid().
    explicit fxExpression(fxTextView pattern);
    fxExpression(const fxExpression& other);
    fxExpression(fxExpression&&) = default;  ///< Leaves an expression that is not valid.
    fxExpression& operator=(const fxExpression& other) { return *this = fxExpression(other); }
    fxExpression& operator=(fxExpression&&) = default;

    const fxStr& pattern() const { return source; }       ///< As it was given.
    bool isValid() const { return compiled != nullptr; }  ///< Whether the pattern compiled.
    /// The reason why it did not, a text that lives as long as the program; null when it
    /// did.
    const char* error() const {
        return isValid() ? nullptr : message != nullptr ? message : "moved away";
    }
    /// The place of the fault in the pattern: a byte without its counterpart, or one that
    /// is not allowed there.
    std::size_t errorOffset() const { return offset; }

    /// The first match that starts at `from` or later, where `^` and `\<` take into
    /// account the bytes before `from`; none when `from` is beyond the end.
    template <class Text>
    fxMatch search(const Text& text, std::size_t from = 0) const;
    /// Refused for a temporary text, which ends before the groups are read.
    template <class Text, fxDetail::IfTemporary<Text> = 0>
    fxMatch search(Text&&, std::size_t = 0) const = delete;  // groups are views: keep the text

    /// All matches, for range-for: each is searched for from the end of the one
    /// before, or one byte further when that was empty. The text must stay as it is
    /// meanwhile; the expression need not. Together they cost what fxregnext() states,
    /// unless the expression is used otherwise in between.
    template <class Text>
    fxMatches all(const Text& text) const;
    template <class Text, fxDetail::IfTemporary<Text> = 0>
    fxMatches all(Text&&) const = delete;  // groups are views: keep the text

    /// Whether there is a match in the text.
    bool isIn(fxTextView text) const { return static_cast<bool>(search(text)); }

    /// The text with each match of all() replaced: by the result of `with`, a callable that
    /// takes the match and returns any text, or by the text `with`, expanded by
    /// fxMatch::expand().
    template <class With>
    fxStr replace(fxTextView text, With&& with) const;

    /// A pattern that matches just this text. A zero byte cannot be matched.
    static fxStr escape(fxTextView text);

private:
    friend class fxMatches;

    void compile();

    fxStr source;
    std::shared_ptr<fxregexp> compiled;  // shared with the walks over its matches
    const char* message = nullptr;
    std::size_t offset = 0;
};

/// The matches of an expression in a text; see fxExpression::all().
class FX_API fxMatches {
public:
    /// Walks over the matches. It must not outlive the fxMatches.
    class FX_API Iter {
    public:
        ///@{
        /// For the standard's algorithms.
        typedef std::input_iterator_tag iterator_category;
        typedef fxMatch value_type;
        typedef std::ptrdiff_t difference_type;
        typedef const fxMatch* pointer;
        typedef const fxMatch& reference;
        ///@}

        Iter() = default;  ///< The end.
        ///@{
        /// Requires: not at the end.
        const fxMatch& operator*() const { return match; }
        const fxMatch* operator->() const { return &match; }
        Iter& operator++();
        Iter operator++(int) {
            const Iter before = *this;
            ++*this;
            return before;
        }
        ///@}
        ///@{
        /// Whether both are at the same match, or both at the end.
        bool operator==(const Iter& other) const {
            return match.text().data() == other.match.text().data();
        }
        bool operator!=(const Iter& other) const { return !(*this == other); }
        ///@}

    private:
        friend class fxMatches;
        explicit Iter(const fxMatches& range) : matches(&range), match(range.first(0)) {}

        const fxMatches* matches = nullptr;
        fxMatch match;
    };

    fxMatches(const fxMatches&) = delete;
    fxMatches& operator=(const fxMatches&) = delete;

    Iter begin() const { return Iter(*this); }
    Iter end() const { return Iter(); }

private:
    friend class fxExpression;
    fxMatches(const fxExpression& expression, std::string_view text, bool isTerminated);
    fxMatch first(std::size_t from) const;
    fxMatch next(std::size_t from) const;
    fxMatch found(int isFound) const;

    const std::shared_ptr<fxregexp> compiled;
    const std::string_view subject;
    const fxStr copy;              // of a subject that is not terminated
    const char* const terminated;  // the bytes that are searched
};

template <class Text>
fxMatch fxExpression::search(const Text& text, std::size_t from) const {
    return fxMatches(*this, fxTextView(text), fxDetail::isTerminated<Text>).first(from);
}

template <class Text>
fxMatches fxExpression::all(const Text& text) const {
    return fxMatches(*this, fxTextView(text), fxDetail::isTerminated<Text>);
}

// Works on a copy: the callable may change the text.
template <class With>
fxStr fxExpression::replace(fxTextView text, With&& with) const {
    const fxStr subject(static_cast<std::string_view>(text));
    std::string result;
    std::size_t done = 0;
    for (const fxMatch& match : all(subject)) {
        result += subject.view().substr(done, match.start() - done);
        if constexpr (std::is_invocable_v<With&, const fxMatch&>) {
            const auto& made = with(match);
            result += static_cast<std::string_view>(fxTextView(made));
        } else {
            result += match.expand(with).view();
        }
        done = match.end();
    }
    result += subject.view().substr(done);
    return result;
}

#endif
