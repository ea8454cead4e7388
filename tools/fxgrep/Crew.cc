#include "Crew.h"

#include <unistd.h>

#include <cstdio>
#include <new>
#include <system_error>
#include <utility>

namespace {
constexpr size_t mostJobs = 1000;
}

Crew::Crew(const Options& options_, std::vector<std::unique_ptr<Search>> searches_)
    : options(options_),
      printer(options.hasContext && options.output == Options::lines && !options.isJson,
              options.isSilent),
      searches(std::move(searches_)) {
    for (const std::unique_ptr<Search>& search : searches) {
        greps.push_back(std::make_unique<Grep>(options, *search, printer));
    }
    if (greps.size() == 1) return;
    try {
        for (const std::unique_ptr<Grep>& grep : greps) {
            threads.emplace_back([this, &grep] { work(*grep); });
        }
    } catch (const std::system_error&) {
        // The threads that could be started do the work, or this one does.
    }
}

Crew::~Crew() { finish(); }

void Crew::search(std::string path, Grep::Kind kind) {
    Job job = {std::move(path), kind, turns++};
    if (threads.empty()) return run(*greps.front(), job);
    std::unique_lock<std::mutex> lock(mutex);
    hasRoom.wait(lock, [this] { return jobs.size() < mostJobs; });
    jobs.push_back(std::move(job));
    hasJobs.notify_one();
}

void Crew::reportTrouble(const std::string& path, const char* why) {
    Findings findings;
    findings.turn = turns++;
    findings.complaint = complaintText(path.c_str(), why);
    printer.finish(std::move(findings));
}

bool Crew::isDone() const {
    if (printer.outputError() != 0) return true;
    return options.output == Options::nothing && printer.hasFound();
}

void Crew::finish() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isFinishing = true;
    }
    hasJobs.notify_all();
    for (std::thread& thread : threads) thread.join();
    threads.clear();
}

// Private functions.

void Crew::work(Grep& grep) {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        hasJobs.wait(lock, [this] { return isFinishing || !jobs.empty(); });
        if (jobs.empty()) return;
        const Job job = std::move(jobs.front());
        jobs.pop_front();
        if (jobs.size() == mostJobs / 2) hasRoom.notify_one();
        lock.unlock();
        run(grep, job);
        lock.lock();
    }
}

// Without memory for the findings, correct output would be impossible.
void Crew::run(Grep& grep, const Job& job) {
    try {
        Findings findings;
        findings.turn = job.turn;
        if (!isDone()) grep.search(job.path, job.kind, findings);
        printer.finish(std::move(findings));
    } catch (const std::bad_alloc&) {
        complain(job.path.c_str(), "not enough memory");
        _exit(2);
    }
}
