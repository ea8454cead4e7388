// Reads statements. Private to the library.
#ifndef FLOW_TEXT_PARSER_H
#define FLOW_TEXT_PARSER_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "flow/Text.h"
#include "flow/text/Lexer.h"
#include "flow/text/Problems.h"

/// Reads a flow and the files that it includes into one fxFlowText.
class fxFlowReading {
public:
    explicit fxFlowReading(fxFlowText& flow_) : flow(flow_), problems(flow_.problems) {}

    void readText(std::string_view text, const std::string& name);
    /// `from` is the word that includes it, or null for the flow itself.
    void readFile(const std::string& path, const fxFlowText::Word* from);
    /// Counts a part of the flow. Returns false, and reports it once, when there are too
    /// many.
    bool hasRoom(const fxFlowPlace& place);
    ///@{
    /// A path as the text at `file` means it, and with the folder that it is relative to.
    static std::string beside(const std::string& file, const std::string& path);
    std::string complete(const std::string& path);
    ///@}
    /// Whether reading on would report nothing.
    bool isOver() const { return parts > mostParts || problems.isFull(); }

    fxFlowText& flow;
    fxFlowProblems problems;
    bool isAlone = false;  ///< Whether the text may not refer to other files.

private:
    typedef std::pair<unsigned long, unsigned long> Identity;  // device and inode
    static constexpr size_t mostParts = 1'000'000;
    static constexpr size_t mostFiles = 1000;
    static constexpr size_t deepest = 32;
    static constexpr size_t mostBytes = 16U << 20U;  // of one file
    static constexpr size_t mostBytesInAll = 64U << 20U;

    // Returns the reason why it cannot be read, or "".
    std::string contents(const std::string& path, std::string& text);
    std::string readAll(int fd, std::string& text);

    std::vector<Identity> chain;  // the files that are being read, outermost first
    std::string folder;           // of the program, once it was needed
    size_t parts = 0;
    size_t reads = 0;
    size_t bytes = 0;
};

/// Reads the statements of one text.
class fxFlowParser {
public:
    /// All are borrowed.
    fxFlowParser(fxFlowReading& reading, std::string_view text, const std::string& file);

    void read();

private:
    typedef fxFlowToken::Kind Kind;
    typedef fxFlowText::Word Word;

    void advance() { lexer.next(token); }
    // Reports the expected text in place of the token, and skips the statement. Returns
    // false.
    bool fail(const std::string& expected);
    bool tell(const fxFlowPlace& place, const std::string& what);
    bool skipLine();
    void skipBlock();
    bool endLine();

    void statement();
    void statement(const fxFlowToken& first);
    bool takeObject(const fxFlowToken& name);
    bool takeClass(fxFlowText::Object& object);
    bool takeConnections(const fxFlowToken& first);
    bool takeDelivery(fxFlowDelivery& delivery);
    bool takeFile(const fxFlowToken& keyword);
    bool takeTest();
    bool takeLine(fxFlowText::Test& test);
    bool takeStep(const fxFlowToken& first, fxFlowText::Step& step);
    bool takeSent(fxFlowText::Step& step);
    bool takeName(const fxFlowToken& from, const char* what, Word& name);
    bool isDotApart(const fxFlowToken& first) const;
    bool takeEnd(fxFlowText::End& end);
    bool takeEnd(const fxFlowToken& first, fxFlowText::End& end);
    bool takeValue(const char* expected, Word& value);

    fxFlowReading& reading;
    const std::string& file;
    fxFlowLexer lexer;
    fxFlowToken token;  // the next one
};

#endif
