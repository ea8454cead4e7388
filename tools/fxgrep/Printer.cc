#include "Printer.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace {
constexpr size_t mostWaiting = size_t{32} << 20;
constexpr size_t mostOfOne = size_t{4} << 20;
}  // namespace

Printer::Printer(bool separatesFiles_, bool isSilent_)
    : separatesFiles(separatesFiles_), isSilent(isSilent_), isAtOnce(isatty(STDOUT_FILENO) != 0) {}

// A file whose turn has not come waits while too much is waiting: its thread then searches
// no further. The thread whose turn it is never waits, and threads take files in the order
// of their turns.
bool Printer::print(Findings& findings) {
    std::unique_lock<std::mutex> lock(mutex);
    const bool isMuch = findings.text.size() > mostOfOne;
    advanced.wait(lock, [&] { return findings.turn == turn || !isMuch; });
    if (findings.turn == turn) write(findings);
    return error == 0;
}

void Printer::finish(Findings&& findings) {
    std::unique_lock<std::mutex> lock(mutex);
    found = found || findings.hasFound;
    trouble = trouble || !findings.complaint.empty();
    if (findings.turn != turn) {
        waitingBytes += findings.text.size();
        const size_t place = findings.turn;
        waiting.emplace(place, std::move(findings));
        advanced.wait(lock, [this] { return waitingBytes <= mostWaiting; });
        return;
    }
    write(findings);
    for (;;) {
        ++turn;
        const auto next = waiting.find(turn);
        if (next == waiting.end()) break;
        waitingBytes -= next->second.text.size();
        write(next->second);
        waiting.erase(next);
    }
    advanced.notify_all();
}

bool Printer::hasFound() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return found;
}

bool Printer::hadTrouble() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return trouble;
}

// Private functions.

void Printer::write(Findings& findings) {
    if (!findings.text.empty()) {
        const bool isFirst = !hasWritten || lastWritten != findings.turn;
        if (separatesFiles && hasWritten && isFirst) std::fputs("--\n", stdout);
        std::fwrite(findings.text.data(), 1, findings.text.size(), stdout);
        if (isAtOnce) std::fflush(stdout);
        if (error == 0 && std::ferror(stdout) != 0) error = errno;
        hasWritten = true;
        lastWritten = findings.turn;
        findings.text.clear();
    }
    if (findings.complaint.empty() || isSilent) return;
    std::fflush(stdout);  // keeps the order where both go to the same place
    std::fputs(findings.complaint.c_str(), stderr);
}
