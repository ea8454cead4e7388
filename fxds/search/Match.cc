#include "fxds/Match.h"

#include <cstdlib>
#include <cstring>

#include "fxds/search/RegInternals.h"

// The engine records a match in the compiled expression. Each search copies the positions
// out at once, so that walks over one expression may be nested. The engine's notes on a
// subject are valid while the subject of a walk is unchanged; the first search of each walk
// discards them.

std::size_t fxMatch::start(unsigned int group) const {
    FX_ASSERT(has(group));
    return static_cast<std::size_t>(groups[group].data() - subject.data());
}

// fxregsub() reads nothing of a compiled expression but its groups and the first
// byte of its program.
fxStr fxMatch::expand(fxTextView form) const {
    if (!*this) return fxStr();
    fxregexp match = {};
    match.program[0] = static_cast<char>(fxRegProgram::magic);
    for (unsigned int i = 0; i < groupCount; ++i) {
        if (!has(i)) continue;
        match.startp[i] = groups[i].data();
        match.endp[i] = groups[i].data() + groups[i].size();
    }
    const fxStr terminated(static_cast<std::string_view>(form));
    const long length = fxregsub(&match, terminated.c_str(), nullptr, 0);
    if (length <= 0) return fxStr();
    fxStr result(fxLengthField(static_cast<std::size_t>(length)));
    fxregsub(&match, terminated.c_str(), result.data, result.slength);
    return result;
}

fxExpression::fxExpression(fxTextView pattern) : source(static_cast<std::string_view>(pattern)) {
    compile();
}

// An invalid one has nothing to compile: its pattern may have been moved away.
fxExpression::fxExpression(const fxExpression& other)
    : source(other.source), message(other.message), offset(other.offset) {
    if (other.isValid()) compile();
}

void fxExpression::compile() {
    const std::size_t zero = source.find('\0');
    if (zero != fxStr::npos) {
        message = "zero byte in the pattern";
        offset = zero;
        return;
    }
    compiled.reset(fxregcomp(source.c_str(), &message, &offset), &std::free);
}

fxStr fxExpression::escape(fxTextView text) {
    std::string result;
    for (const char c : text) {
        if (c != '\0' && std::strchr("\n$().[^|*+?\\", c) != nullptr) result += '\\';
        result += c;
    }
    return result;
}

// The engine searches `terminated`, which is the caller's text or a copy with a terminator.
// Matches are views of the caller's text, and are good without the copy. The compiled
// expression is shared, so that it outlives the fxExpression.
fxMatches::fxMatches(const fxExpression& expression, std::string_view text, bool isTerminated)
    : compiled(expression.compiled),
      subject(text.data() != nullptr ? text.substr(0, text.find('\0')) : ""),
      copy(isTerminated ? std::string_view() : subject),
      terminated(isTerminated ? text.data() : copy.c_str()) {}

fxMatch fxMatches::first(std::size_t from) const {
    if (compiled == nullptr || from > subject.size()) return fxMatch();
    return found(fxregexec(compiled.get(), terminated, terminated + from));
}

// A match behind that of first() or next().
fxMatch fxMatches::next(std::size_t from) const {
    if (from > subject.size()) return fxMatch();
    return found(fxregnext(compiled.get(), terminated, terminated + from));
}

fxMatch fxMatches::found(int isFound) const {
    fxMatch match;
    if (isFound == 0) return match;
    match.subject = subject;
    for (unsigned int i = 0; i < fxMatch::groupCount; ++i) {
        const char* const begin = compiled->startp[i];
        const char* const end = compiled->endp[i];
        if (begin == nullptr || end == nullptr) continue;
        match.groups[i] = {subject.data() + (begin - terminated),
                           static_cast<std::size_t>(end - begin)};
    }
    return match;
}

fxMatches::Iter& fxMatches::Iter::operator++() {
    FX_ASSERT(match);
    match = matches->next(match.end() + (match.text().empty() ? 1 : 0));
    return *this;
}
