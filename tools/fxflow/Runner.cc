// The loop is turned by hand, so that the end of the flow is detected between two turns: no
// element is busy, and nothing is queued. The alarm that checks the files keeps a
// descriptor registered, so each turn waits.
#include "Runner.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>
#include <unordered_map>

#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Signal.h"

namespace {

// The name of a flow from its path: without folders and the usual ending.
std::string nameOf(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const size_t end = name.size() > 5 ? name.size() - 5 : 0;
    return end != 0 && name.compare(end, 5, ".flow") == 0 ? name.substr(0, end) : name;
}

// Whether standard output is a pipe that has lost its reader.
bool hasLostReader() {
    pollfd output = {STDOUT_FILENO, 0, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

// "1 new, 2 changed, 0 gone": the objects of a text against those of the one before.
std::string difference(const fxFlowText& before, const fxFlowText& now) {
    std::unordered_map<std::string_view, const fxFlowText::Object*> old;
    for (const fxFlowText::Object& object : before.objects) old[object.name.text] = &object;
    size_t added = 0;
    size_t changed = 0;
    for (const fxFlowText::Object& object : now.objects) {
        const auto found = old.find(object.name.text);
        if (found == old.end()) {
            ++added;
        } else if (!(*found->second == object)) {
            ++changed;
        }
    }
    const size_t gone = before.objects.size() + added - now.objects.size();
    return std::to_string(added) + " new, " + std::to_string(changed) + " changed, " +
           std::to_string(gone) + " gone";
}

// While values multiply in a circle, the loop does not come to what a signal has set. So the
// first signal asks it to end, and a second one has its usual effect.
void catchOnce(const fxSignal& signal, int number) {
    struct sigaction action;
    if (!signal.isValid() || sigaction(number, nullptr, &action) != 0) return;
    action.sa_flags |= static_cast<int>(SA_RESETHAND);
    sigaction(number, &action, nullptr);
}

}  // namespace

Runner::Runner(const Options& options_) : options(options_), path(options_.words[0]) {
    fxConnect(flow.complaint, this, [](const fxStr& what) { complain(what.view()); });
    if (!options.isFixed) fxConnect(files.changed, this, [this] { change(); });
}

int Runner::run() {
    fxSignal interrupt(SIGINT);
    fxSignal terminate(SIGTERM);
    fxSignal hangup(SIGHUP);
    fxSignal pipe(SIGPIPE);
    fxConnect(interrupt.signal(), this, [this](int) { isEnding = true; });
    fxConnect(terminate.signal(), this, [this](int) { isEnding = true; });
    catchOnce(interrupt, SIGINT);
    catchOnce(terminate, SIGTERM);
    fxConnect(hangup.signal(), this, [this](int) { change(); });
    // The flow goes on where another descriptor than standard output has lost its reader.
    fxConnect(pipe.signal(), this, [this](int) { isEnding = isEnding || hasLostReader(); });
    if (!begin()) return failed;
    openDoor();
    loop();
    finishQueue();
    return end() && !hasFailed ? 0 : failed;
}

bool Runner::begin() {
    files.watch({path});
    return apply(readFlow(path, options), true);
}

// Makes the flow that of the text, with the saved state.
bool Runner::load(const fxFlowText& read) {
    std::vector<fxFlowProblem> problems;
    const fxStreamFault fault = flow.load(options.loadPath, read, problems);
    const bool hasNone = fault.isMissing() && options.savePath != nullptr &&
                         std::strcmp(options.loadPath, options.savePath) == 0;
    if (hasNone) return tellProblems(flow.apply(read));
    if (fault) complain(fault.text());
    return tellProblems(problems) && !fault;
}

// Makes the flow that of the text. Returns false, without a change, for a faulty one.
bool Runner::apply(fxFlowText read, bool isFirst) {
    // A file that the faulty text includes may be the one to mend.
    std::vector<std::string> paths = read.files;
    paths.insert(paths.end(), text.files.begin(), text.files.end());
    paths.push_back(path);
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    files.watch(paths);
    const bool isLoading = isFirst && options.loadPath != nullptr;
    if (!(isLoading ? load(read) : tellProblems(flow.apply(read)))) return false;
    text = std::move(read);
    if (door != nullptr) door->setText(text);
    return true;
}

void Runner::change() {
    files.mark();
    fxFlowText read = readFlow(path, options);
    // A full disk leaves an empty file, which would end the flow.
    if (read.problems.empty() && read.objects.empty() && !text.objects.empty()) {
        read.problems.push_back({{path, 0, 0}, "has no objects"});
    }
    const std::string what = difference(text, read);
    if (apply(std::move(read), false)) {
        complain(path + " is applied: " + what);
    } else {
        complain(path + " is faulty; the flow goes on as it was");
    }
}

void Runner::openDoor() {
    std::string why = folder.whyNot();
    if (why.empty()) {
        const std::string& name = options.name.empty() ? nameOf(path) : options.name;
        const int socket = folder.listen(FlowFolder::nameFrom(name));
        if (socket < 0) why = std::strerror(errno);
        if (socket >= 0) door = std::make_unique<Door>(socket, flow);
    }
    if (door != nullptr) door->setText(text);
    if (!why.empty()) complain("no other terminal can look into this flow: " + why);
}

// Classes may add inputs whose exceptions are not complaints.
template <class Work>
void Runner::attempt(Work work) {
    try {
        work();
    } catch (const std::exception& thrown) {
        complain(std::string("an element threw: ") + thrown.what());
        hasFailed = true;
    } catch (...) {
        complain("an element threw an exception of an unknown kind");
        hasFailed = true;
    }
}

void Runner::loop() {
    constexpr float years = 1e8F;
    while (!isEnding && (!fx_theEventHandler->isEmpty() || flow.isBusy())) {
        attempt([] { fx_theExecutive->poll(years); });
    }
}

// Values that are queued when the flow ends still arrive, unless they go in circles.
void Runner::finishQueue() {
    const auto limit = fxAlarm::Clock::now() + std::chrono::seconds(1);
    while (!fx_theEventHandler->isEmpty() && fxAlarm::Clock::now() < limit) {
        attempt([] { fx_theEventHandler->distributeEvents(); });
    }
    const unsigned long lost = fx_theEventHandler->getCount();
    if (lost != 0) complain("still queued at the end, and lost: " + counted(lost, "message"));
}

bool Runner::end() {
    if (door != nullptr) door->closeAll();
    door.reset();
    folder.leave();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) hasFailed = true;
    if (options.savePath == nullptr) return true;
    const fxStreamFault fault = flow.save(options.savePath);
    if (fault) complain(fault.text());
    return !fault;
}
