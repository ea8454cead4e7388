// Searches files and prints what was found.
#ifndef FXGREP_GREP_H
#define FXGREP_GREP_H

#include <sys/stat.h>

#include <cstdio>
#include <deque>
#include <string>
#include <string_view>

#include "Blocks.h"
#include "Options.h"
#include "Pattern.h"

/// Searches one file after the other and prints.
class Grep {
public:
    Grep(const Options& options, Search& search);

    /// Searches a file that the user named, or - for standard input.
    void searchNamed(const char* path);

    /// Searches a file that was found in a folder. Only regular ones are read:
    /// reading from others might wait for ever or change something.
    void searchFound(const char* path, bool mayBeBinary);

    /// Tells of what keeps a file from being searched.
    void reportTrouble(const char* path, const char* why);

    /// Whether what is known already is all that is asked for.
    bool isDone() const { return options.output == Options::nothing && hasFound; }

    bool hasFound = false;
    bool hadTrouble = false;

private:
    // Which files are searched: others than regular ones, and those with zero bytes.
    struct Kinds {
        bool special, binary;
    };
    const char* searchFile(int file, Kinds kinds);
    bool searchBlock(char* begin, char* end);
    char* skipLines(char* begin, char* end);
    bool isBinary(const Blocks& blocks) const;
    void finishFile();

    void take(char* line, char* end);
    void printContext(const char* line, const char* end);
    void printMatches(char* line, char* end);
    void printLine(char* line, char* end);
    void printJson(char* line, char* end);
    void printHead(unsigned long number, char separator);
    void printName(char separator);
    void print(const char* begin, const char* end) const {
        std::fwrite(begin, 1, static_cast<size_t>(end - begin), stdout);
    }
    void colour(const char* code) const {
        if (options.isColoured) std::printf("\33[%sm", code);
    }
    void printColoured(const char* code, std::string_view text) const {
        colour(code);
        print(text.data(), text.data() + text.size());
        colour("");
    }
    bool nextMatch(char* line, char* end);

    const Options& options;
    Search& search;
    const bool mayCopy;  // lines around matches are printed
    struct stat output = {};
    const char* name = "";
    unsigned long lineNumber = 0;
    unsigned long lineCount = 0;  // lines that were selected
    unsigned long toFollow = 0;   // lines behind the last of these still to print
    unsigned long lastPrinted = 0;
    bool hasPrinted = false;         // a line, of any file
    std::deque<std::string> before;  // the last lines that were not printed
};

#endif
