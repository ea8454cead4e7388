#include "fxds/Trace.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fxds/base/StreamTrace.h"
#include "fxds/dataflow/TraceLines.h"

// The kinds of lines that are written, and their destination. TraceLines.cc
// makes the lines.
//
// Invariants:
// (1) fx_traceKinds has bits of existing kinds only, so that 0 means that nothing is traced;
//     then no object has a number.
// (2) fxStreamTrace::sink is set exactly while the kind `streams` is on. Sources of that room
//     write through it, because they cannot include this one.
// (3) theSink is never null.
//
// fx_traceKinds and the sink are constant-initialised, and what the environment asks for is
// entered by a static initialiser of this file. So objects that other files construct before
// it are not traced.

unsigned int fx_traceKinds = 0;

namespace {

void writeToStandardError(void*, const char* line, size_t length) {
    std::string text(line, length);
    text += '\n';
    const char* from = text.data();
    size_t left = text.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, from, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        from += written;
        left -= static_cast<size_t>(written);
    }
}

fxTrace::Sink* theSink = writeToStandardError;
void* theClosure = nullptr;

struct KindName {
    const char* name;
    unsigned int kinds;
};
constexpr KindName kindNames[] = {{"send", fxTrace::sends},       {"events", fxTrace::events},
                                  {"timers", fxTrace::timers},    {"loop", fxTrace::loop},
                                  {"all", fxTrace::all},          {"held", fxTrace::held},
                                  {"connect", fxTrace::connects}, {"streams", fxTrace::streams}};

unsigned int kindsCalled(std::string_view word) {
    for (const KindName& known : kindNames) {
        if (word == known.name) return known.kinds;
    }
    return 0;
}

std::string knownWords() {
    std::string words;
    for (const KindName& known : kindNames) (words += words.empty() ? "" : ", ") += known.name;
    return words;
}

// The next word of the list, without the spaces around it; it may be empty.
std::string_view nextWord(std::string_view& words) {
    const size_t comma = words.find(',');
    std::string_view word = words.substr(0, comma);
    words.remove_prefix(comma < words.size() ? comma + 1 : words.size());
    const size_t first = word.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return word.substr(first, word.find_last_not_of(" \t") + 1 - first);
}

// The environment is ignored in set-user-ID programs.
[[maybe_unused]] const bool isAskedByEnvironment =
    fxTrace::enable(::secure_getenv("FXDS_TRACE")) && fx_traceKinds != 0;

}  // namespace

void fxTrace::enable(unsigned int kinds) {
    fx_traceKinds = kinds & (all | held | connects | streams);
    fxStreamTrace::sink = isOn(streams) ? fxTraceLines::record : nullptr;
    if (fx_traceKinds == 0) fxTraceLines::forgetNames();
}

bool fxTrace::enable(const char* words) {
    unsigned int kinds = 0;
    bool isUnderstood = true;
    std::string_view left = words != nullptr ? words : "";
    while (!left.empty()) {
        const std::string_view word = nextWord(left);
        if (word.empty()) continue;
        const unsigned int called = kindsCalled(word);
        kinds |= called;
        if (called != 0) continue;
        isUnderstood = false;
        fxTraceLines::unknownWord(word, knownWords());
    }
    enable(kinds);
    return isUnderstood;
}

void fxTrace::setSink(Sink* sink, void* closure) {
    theSink = sink != nullptr ? sink : writeToStandardError;
    theClosure = closure;
}

void fxTraceLines::write(const std::string& line) {
    theSink(theClosure, line.c_str(), line.size());
}
