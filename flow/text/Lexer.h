// Takes the text of a flow apart. Private to the library.
#ifndef FLOW_TEXT_LEXER_H
#define FLOW_TEXT_LEXER_H

#include <string>
#include <string_view>

#include "flow/Text.h"
#include "flow/text/Problems.h"

/// A piece of a flow's text.
struct fxFlowToken {
    enum class Kind { word, quoted, sign, arrow, lineEnd, textEnd, unknown };

    Kind kind = Kind::textEnd;
    bool isGlued = false;  ///< Whether it follows the one before without a blank.
    std::string text;      ///< Of a word, a sign; the text in quotes.
    fxFlowPlace place;

    bool is(char sign) const { return kind == Kind::sign && text[0] == sign; }
    bool isWord(std::string_view word) const { return kind == Kind::word && text == word; }
    bool isValue() const { return kind == Kind::word || kind == Kind::quoted; }
    bool endsLine() const { return kind == Kind::lineEnd || kind == Kind::textEnd; }
    std::string shown() const;  ///< As problems name it.
};

/// Reads one token after the other. Anything else is a problem, reported here; the token is
/// "unknown" then. The end of a line that goes on in the next one is passed over.
class fxFlowLexer {
public:
    /// The text and the problems are borrowed.
    fxFlowLexer(std::string_view text, fxFlowFile file, fxFlowProblems& problems);

    void next(fxFlowToken& token);  ///< Reuses the memory of the token's texts.
    /// Whether a faulty token is reported: not in a statement that has a problem already.
    void setTelling(bool isTold) { isTelling = isTold; }

private:
    bool skipBlanks();
    bool isContinued() const;
    void takeWord(fxFlowToken& token);
    void takeQuoted(fxFlowToken& token);
    bool takeEscape(std::string& value);
    void takeUnknown(fxFlowToken& token);
    char at(size_t place) const { return place < text.size() ? text[place] : '\0'; }
    bool isArrow(size_t place) const { return at(place) == '-' && at(place + 1) == '>'; }
    void tell(size_t place, const std::string& what) const;
    unsigned int columnOf(size_t place) const;

    const std::string_view text;
    const fxFlowFile file;
    fxFlowProblems& problems;
    size_t here = 0;
    size_t lineBegin = 0;
    unsigned int line = 1;
    bool isTelling = true;
    bool goesOn = false;  // after a comma or an arrow
};

///@{
/// Whether it can be the name of an object or a property, and that of a channel without
/// quotes.
bool fxFlowIsName(std::string_view text);
bool fxFlowIsChannel(std::string_view text);
///@}
/// Whether a value is written without quotes.
bool fxFlowIsBare(std::string_view value);
/// The value in quotes.
std::string fxFlowInQuotes(std::string_view value);

#endif
