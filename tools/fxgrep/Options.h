// The options of fxgrep.
#ifndef FXGREP_OPTIONS_H
#define FXGREP_OPTIONS_H

#include <climits>
#include <string>
#include <vector>

struct Options {
    enum Kind { guess, expression, literal } kind = guess;
    std::vector<std::string> patterns;
    bool hasPatterns = false;  // by options, so that the first word is a file
    std::vector<std::string> files;
    std::vector<std::string> includes;  // globs for names of files in folders
    std::vector<std::string> excludes;

    bool ignoresCase = false;
    bool isInverted = false;
    bool isWholeWord = false;
    bool isWholeLine = false;
    bool isRecursive = false;
    bool takesAll = false;  // of folders: binary files and .git too
    unsigned long most = ULONG_MAX;
    static constexpr unsigned long unset = ULONG_MAX;
    unsigned long around = unset;  // for those of the next two that are not given
    unsigned long before = unset;  // unset only while options are read
    unsigned long after = unset;
    bool hasContext = false;  // one of them is given: parts that do not touch are separated

    // If several are given, the later ones of these win.
    enum Output { lines, matches, counts, namesWith, namesWithout, nothing } output = lines;
    const char* replacement = nullptr;  // for matches
    bool isNumbered = false;
    bool isJson = false;
    bool isColoured = false;
    bool endsNamesWithZero = false;
    bool isSilent = false;  // of files that cannot be read
    enum Names { whereSeveral, always, never } names = whereSeveral;

    /// Whether it matters where in a line the matches are.
    bool needsPlaces() const { return output == matches || isJson || isColoured; }

    const char* path = nullptr;
    const char* name = ".*";
};

/// Reads the command line. Returns -1 to go on, or the status to exit with.
int readOptions(int argc, char** argv, Options& options);

/// The line that reports trouble.
std::string complaintText(const char* subject, const char* why);

/// Reports an error on standard error.
void complain(const char* subject, const char* why);

#endif
