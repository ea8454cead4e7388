// Regular expressions: compile, match, substitute. This is the engine; RegEx.h
// wraps it as a text pattern, which frees it and searches through the interface
// that literal texts have too.
#ifndef FXDS_REGEXP_H
#define FXDS_REGEXP_H

#include <cstddef>

#include "fxds/Config.h"

/// A compiled expression: one malloc() block. The fields are for reading; a modified
/// program is detected and matches nothing.
///
/// The program is a magic byte and then nodes: an opcode byte, two bytes with
/// the distance to the next node (high byte first, 0 for none; backwards for a
/// loop's way back) and an operand, which for text and sets is zero-terminated.
/// The matcher's own data follows the program in the same block: at most 400 bytes for each
/// byte of the program.
struct fxregexp {
    ///@{
    /// Start and end of the last match and of its groups 1 to 9: views into the
    /// subject, null for a group that took no part and after a failed match.
    const char* startp[10];
    const char* endp[10];
    ///@}
    char regstart;                ///< A byte that every match begins with, or 0.
    char reganch;                 ///< Not 0 when a match can only be at the very start.
    unsigned short programSize_;  ///< In padding: moves no other field.
    char* regmust;                ///< Text that every match contains, in the program; or null.
    int regmlen;                  ///< Length of `regmust`.
    char program[1];              ///< Actually as long as the nodes need.
};

/// Compiles `pattern`. Given: release it with free(). Returns null when the
/// pattern is null or faulty, is too big (32767 bytes of program), or when
/// memory runs out.
///
/// Alternatives are separated by `|` or newlines; they are sequences of pieces. A piece is
/// an atom, or an atom and `*` (any number), `+` (at least one) or `?` (at most one).
/// Atoms: a group in parentheses (nine at most), `.` (any character, newline too), `^` and
/// `$` (start and end of the subject, anywhere in the pattern), a set such as `[a-z_]` or
/// its complement `[^a-z_]`, `\<` (start of a word), `\>` (no word character follows), a
/// backslash and the character that it names, or a character that matches itself. Braces
/// are ordinary.
///
/// What `*` and `+` repeat must not be able to match the empty text.
FX_API fxregexp* fxregcomp(const char* pattern);

/// As above. When null is returned, `*message` is set to the reason, a text that
/// lives as long as the program; otherwise it is set to null.
/// Requires: message not null.
FX_API fxregexp* fxregcomp(const char* pattern, const char** message);

/// As above. When null is returned, `*offset` is set to the place of the fault in the
/// pattern: a byte that is not allowed there, one without its counterpart, or the end of a
/// pattern that is too big; otherwise it is set to 0.
/// Requires: message and offset not null.
FX_API fxregexp* fxregcomp(const char* pattern, const char** message, size_t* offset);

/// Searches the zero-terminated `subject`. Returns 1 and sets `startp` and
/// `endp` when there is a match: the leftmost, and there the first that trying
/// alternatives in order and repeating as often as possible leads to. Returns 0
/// otherwise, also for null arguments and a damaged program.
///
/// Cost: at the worst, time in proportion to the length of the subject times the
/// size of the program, for every pattern and subject; bytes behind the match are read
/// only where an alternative with precedence might need them. Memory does not limit a search: it
/// allocates nothing, does not recurse, and takes under 64 KiB of stack; what it
/// needs besides is part of the block. No byte of it depends on the subject.
/// Different compiled expressions may be matched in different threads.
FX_API int fxregexec(fxregexp* compiled, const char* subject);

/// As above, for the first match that starts at `from` or later: to go on behind
/// an earlier match with `^` and `\<` still seeing what comes before.
/// Requires: `from` lies in `subject` or at its end.
FX_API int fxregexec(fxregexp* compiled, const char* subject, const char* from);

/// Searches as fxregexec(compiled, subject, from) does, to go on in a subject that
/// has been searched before: states that have failed at a position are not tried there again.
/// So all matches of a subject, each found behind the one before, take one expression
/// time in proportion to its length and the logarithm of that. By fxregexec(), which
/// does not remember, each may take time in proportion to the length: those of
/// `a[^b]*b|a` in n times `a` take n * n together.
/// Requires: since the last search with `compiled`, nothing from `from` on has changed
/// in `subject`, unless that search was of another subject.
FX_API int fxregnext(fxregexp* compiled, const char* subject, const char* from);

/// As fxregexec(), and reports why there is no result: when the search could not be made,
/// `*message` is set to the reason, a text that lives as long as the program; when
/// 0 means that there is no match, and after a match, it is set to null.
/// Requires: message not null.
FX_API int fxregexec(fxregexp* compiled, const char* subject, const char* from,
                     const char** message);

/// Expands `text` with the last match: `&` and `\0` stand for the whole match,
/// `\1` to `\9` for the groups (nothing for one without part), `\&` and `\\` for
/// `&` and `\`; any other backslash is copied. Writes nothing when an
/// argument is null or the expression is damaged. Ends early when the subject
/// has been cut short by a zero byte within a group.
/// Requires: the subject of the match is still there; `dest` has room for the
/// result and its terminator.
FX_API void fxregsub(const fxregexp* compiled, const char* text, char* dest);

/// The same into `size` bytes: what does not fit is cut off, and the result is
/// terminated unless `size` is 0. Returns the length of the whole expansion
/// without the terminator, so a result >= size was cut; -1 when nothing was
/// written or the subject has been cut short. `dest` may be null if `size` is 0.
FX_API long fxregsub(const fxregexp* compiled, const char* text, char* dest, size_t size);

/// Called with the reason of every failure. This one does nothing: failures are
/// reported by the results alone.
FX_API void fxregerror(const char* message);

#endif
