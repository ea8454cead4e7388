// Prints the findings of several threads, in the order of the files.
#ifndef FXGREP_PRINTER_H
#define FXGREP_PRINTER_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

/// The findings in one file. Only the thread that searches the file uses them.
struct Findings {
    size_t turn = 0;        ///< The place of the file in the order of all files.
    std::string text;       ///< For standard output.
    std::string complaint;  ///< For standard error; follows the text.
    bool hasFound = false;
};

/// Invariants:
/// (1) Turns are handed out without gaps, and each is finished once.
/// (2) Everything of the turns before `turn` is printed, nothing of those behind it.
/// Any thread may call any function.
class Printer {
public:
    /// `separatesFiles_`: a line with -- is printed between files of which lines are printed.
    Printer(bool separatesFiles_, bool isSilent_);

    /// Prints and clears the text when it is this file's turn; otherwise keeps it, or waits
    /// for the turn if it is too long. Returns false when the output takes nothing more.
    bool print(Findings& findings);
    /// Ends the file's turn: prints the rest, now or when its turn has come.
    void finish(Findings&& findings);

    bool hasFound() const;
    bool hadTrouble() const;
    /// The errno of the first write that failed, 0 for none.
    int outputError() const { return error; }

private:
    void write(Findings& findings);

    const bool separatesFiles;
    const bool isSilent;
    const bool isAtOnce;  // the output is a terminal or a device: nothing is held back
    mutable std::mutex mutex;
    std::condition_variable advanced;
    std::map<size_t, Findings> waiting;  // finished before their turns
    size_t waitingBytes = 0;
    size_t turn = 0;
    size_t lastWritten = 0;  // the turn, where hasWritten
    bool hasWritten = false;
    bool found = false;
    bool trouble = false;
    std::atomic<int> error{0};  // of the output
};

#endif
