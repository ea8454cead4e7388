// The threads that search.
#ifndef FXGREP_CREW_H
#define FXGREP_CREW_H

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Grep.h"
#include "Options.h"
#include "Pattern.h"
#include "Printer.h"

/// Searches files, in separate threads if there are several searches, each of which one
/// thread uses. A thread uses its own search, whose expression was compiled for it, and
/// standard types, and nothing else of the library.
///
/// Its functions belong to the thread that made it.
class Crew {
public:
    Crew(const Options& options, std::vector<std::unique_ptr<Search>> searches);
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;
    /// Waits for the threads.
    ~Crew();

    /// Searches the file now or later.
    void search(std::string path, Grep::Kind kind);
    /// Reports why a file cannot be searched.
    void reportTrouble(const std::string& path, const char* why);
    /// Whether the result is known already, or cannot be printed any more.
    bool isDone() const;
    /// Waits until all files have been searched. No search may follow.
    void finish();

    const Printer& getPrinter() const { return printer; }

private:
    struct Job {
        std::string path;
        Grep::Kind kind;
        size_t turn;
    };
    void work(Grep& grep);
    void run(Grep& grep, const Job& job);

    const Options& options;
    Printer printer;
    const std::vector<std::unique_ptr<Search>> searches;
    std::vector<std::unique_ptr<Grep>> greps;  // one for each search
    size_t turns = 0;
    std::mutex mutex;  // of what follows
    std::condition_variable hasJobs;
    std::condition_variable hasRoom;
    std::deque<Job> jobs;
    bool isFinishing = false;
    std::vector<std::thread> threads;
};

#endif
