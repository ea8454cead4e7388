#include "FlowFile.h"

#include <chrono>
#include <cstdio>
#include <map>
#include <utility>

#include "flow/Flow.h"

namespace {

bool isSame(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

fxFlowText readFlow(const std::string& path, const Options& options) {
    fxFlowText text = fxFlowText::load(path);
    for (const Options::Setting& each : options.settings) {
        text.set(each.object, each.property, each.value);
    }
    return text;
}

bool loadPlugins(const Options& options) {
    bool isGood = true;
    for (const std::string& path : options.plugins) {
        const std::string why = fxLoadPlugin(path);
        if (!why.empty()) complain(why);
        isGood = isGood && why.empty();
    }
    return isGood;
}

bool tellProblems(const std::vector<fxFlowProblem>& problems) {
    bool isGood = true;
    for (const fxFlowProblem& problem : problems) {
        std::fprintf(stderr, "%s\n", printable(problem.line()).c_str());
        isGood = isGood && problem.isWarning;
    }
    return isGood;
}

FileWatch::FileWatch() {
    looking = fxEvery(std::chrono::milliseconds(200), this, [this] { compare(); });
}

void FileWatch::mark() { told = seen = look(); }

void FileWatch::watch(const std::vector<std::string>& paths) {
    std::map<std::string, Stamp> marked;
    for (size_t i = 0; i < files.size(); ++i) marked.emplace(files[i], told[i]);
    files = paths;
    mark();
    for (size_t i = 0; i < files.size(); ++i) {
        const auto old = marked.find(files[i]);
        if (old != marked.end()) told[i] = old->second;
    }
}

bool FileWatch::Stamp::operator==(const Stamp& other) const {
    return device == other.device && file == other.file && size == other.size &&
           isSame(written, other.written) && isSame(altered, other.altered);
}

FileWatch::Stamps FileWatch::look() const {
    Stamps stamps;
    for (const std::string& path : files) {
        struct stat status;
        Stamp stamp;
        if (stat(path.c_str(), &status) == 0) {
            stamp = {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
        }
        stamps.push_back(stamp);
    }
    return stamps;
}

void FileWatch::compare() {
    Stamps now = look();
    const bool isStill = now == seen;
    seen = std::move(now);
    if (!isStill || seen == told) return;
    told = seen;
    changed.send(fxSendNow);
}
