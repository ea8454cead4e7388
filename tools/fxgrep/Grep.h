// Searches files.
#ifndef FXGREP_GREP_H
#define FXGREP_GREP_H

#include <sys/stat.h>

#include <deque>
#include <string>
#include <string_view>

#include "Blocks.h"
#include "Options.h"
#include "Pattern.h"
#include "Printer.h"

/// Searches one file after the other.
class Grep {
public:
    /// Everything is borrowed.
    Grep(const Options& options, Search& search, Printer& printer);

    /// The file is named by the user (- is standard input), or found in a folder. Of those
    /// found only regular files are searched, because reading from others might wait for
    /// ever or change something; and of those in `foundText` only the ones without zero
    /// bytes.
    enum Kind { named, found, foundText };

    /// Searches the file, prints as much as possible and leaves the rest in `findings`.
    void search(const std::string& path, Kind kind, Findings& findings);

private:
    const char* searchFile(int file, Kind kind);
    bool searchBlock(char* begin, char* end);
    char* skipLines(char* begin, char* end);
    void finishFile();

    void take(char* line, char* end);
    void printContext(const char* line, const char* end);
    void printMatches(char* line, char* end);
    void printLine(char* line, char* end);
    void printJson(char* line, char* end);
    void printHead(unsigned long number, char separator);
    void printName(char separator);
    std::string& text() { return findings->text; }
    void printText(const char* begin, const char* end) { text().append(begin, end); }
    void printColoured(const char* code, std::string_view words);
    bool nextMatch(char* line, char* end);

    const Options& options;
    Search& searcher;
    const LineFilter* const filter;  // null if all lines matter
    Printer& printer;
    Blocks blocks;
    Findings* findings = nullptr;  // of the file that is searched
    struct stat output = {};
    const char* name = "";
    unsigned long lineNumber = 0;
    unsigned long lineCount = 0;  // lines that were selected
    unsigned long toFollow = 0;   // lines behind the last of these still to print
    unsigned long lastPrinted = 0;
    std::deque<std::string> before;  // the last lines that were not printed
};

#endif
