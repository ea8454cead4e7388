#include "fxds/Trace.h"

#include <cxxabi.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <unordered_map>
#include <utility>

#include "fxds/Data.h"
#include "fxds/Event.h"
#include "fxds/Obj.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/dataflow/TraceLines.h"

// What is traced calls in here before it happens, so that everything a line
// speaks of is still there. A line is put together in full and then written at
// once. Asking objects for their names and values runs their code, as the sink
// runs anybody's, so while a line is being made no other is begun, and errno is
// left as it was.
//
// Everything works before main() and after the last destructor: what is kept is
// made when it is first needed, and never freed.

unsigned int fx_traceKinds = 0;

namespace {

constexpr size_t mostShownBytes = 60;

bool isInLine = false;

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

// One line; it is written when it goes out of scope.
class Line {
public:
    explicit Line(const char* kind) : firstErrno(errno), text("fxds ") {
        isInLine = true;
        text += kind;
        text.resize(sizeof "fxds deliver", ' ');
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line() {
        theSink(theClosure, text.c_str(), text.size());
        isInLine = false;
        errno = firstErrno;
    }

    Line& operator<<(std::string_view piece) {
        text += piece;
        return *this;
    }
    Line& operator<<(long number) { return *this << std::to_string(number); }
    Line& operator<<(double number) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%g", number);
        return *this << digits;
    }

    // In quotes, in one line, and not too long.
    Line& quote(std::string_view shown) {
        text += '"';
        for (const char c : shown.substr(0, mostShownBytes)) escape(c);
        text += shown.size() > mostShownBytes ? "\"..." : "\"";
        return *this;
    }

private:
    void escape(char c) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 0x7F) {
            char code[8];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            text += code;
            return;
        }
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }

    const int firstErrno;
    std::string text;
};

// The numbers of objects, counted by class.
class Names {
public:
    // An object keeps the class that it was first seen as: one that is being
    // made or destroyed is, for the language, of a base class of its own.
    const std::string& of(const fxObj& object) {
        const auto known = names.find(&object);
        if (known != names.end()) return known->second;
        const std::string className = fxTraceLines::classNameOf(object);  // may call in here
        return names[&object] = className + '#' + std::to_string(++counts[className]);
    }
    void forget(const fxObj& object) { names.erase(&object); }
    void forgetAll() {
        names.clear();
        counts.clear();
    }

    static Names& theNames() {
        static Names* const theOnes = new Names;
        return *theOnes;
    }

private:
    std::unordered_map<const fxObj*, std::string> names;
    std::unordered_map<std::string, unsigned long> counts;
};

template <class Channel>
void putChannel(Line& line, const Channel& channel) {
    if (channel.getOwner() == nullptr) {
        line << "nobody";
        return;
    }
    const char* const name = channel.getName();
    line << Names::theNames().of(*channel.getOwner()) << "." << (name != nullptr ? name : "?");
}

template <class T>
const T& as(const fxTracedValue& traced) {
    return *static_cast<const T*>(traced.value);
}

void putText(Line& line, const char* text) {
    if (text == nullptr) {
        line << " null";
    } else {
        (line << " ").quote(std::string_view(text, strnlen(text, mostShownBytes + 1)));
    }
}

void putValue(Line& line, const fxTracedValue& traced) {
    const unsigned short type = traced.type;
    line << " " << fxDataTypeName(type);
    if (traced.value == nullptr) return;
    if (type == fxDT_fxBool) {
        line << (as<unsigned char>(traced) != 0 ? " true" : " false");
    } else if (type == fxDT_int) {
        line << " " << long{as<int>(traced)};
    } else if (type == fxDT_long) {
        line << " " << as<long>(traced);
    } else if (type == fxDT_float) {
        line << " " << double{as<float>(traced)};
    } else if (type == fxDT_double) {
        line << " " << as<double>(traced);
    } else if (type == fxDT_CharPtr) {
        putText(line, as<char*>(traced));
    } else if (type == fxDT_fxStr) {
        const fxStr& text = as<fxStr>(traced);
        (line << " ").quote(std::string_view(text.c_str(), text.length()));
    } else if (type == fxDT_fxStrArray) {
        line << " of " << long{as<fxStrArray>(traced).length()};
    }
}

template <class T>
void putBoxed(Line& line, fxData& data) {
    T value{};
    data.getValue(data.getType(), &value);
    fxTracedValue traced(value);
    traced.type = data.getType();
    putValue(line, traced);
}

// A box that is not as large as its type says is shown without its value.
void putValue(Line& line, fxData* data) {
    if (data == nullptr) {
        line << " nothing";
        return;
    }
    const unsigned short type = data->getType();
    const unsigned int size = data->getSize();
    if (type == fxDT_fxBool && size == sizeof(unsigned char)) {
        putBoxed<unsigned char>(line, *data);
    } else if (type == fxDT_int && size == sizeof(int)) {
        putBoxed<int>(line, *data);
    } else if (type == fxDT_long && size == sizeof(long)) {
        putBoxed<long>(line, *data);
    } else if (type == fxDT_float && size == sizeof(float)) {
        putBoxed<float>(line, *data);
    } else if (type == fxDT_double && size == sizeof(double)) {
        putBoxed<double>(line, *data);
    } else if (type == fxDT_CharPtr && size == sizeof(char*)) {
        putBoxed<char*>(line, *data);
    } else if (type == fxDT_fxStr && size == sizeof(fxStr)) {
        putBoxed<fxStr>(line, *data);
    } else if (type == fxDT_fxStrArray && size == sizeof(fxStrArray)) {
        putBoxed<fxStrArray>(line, *data);
    } else {
        line << " " << fxDataTypeName(type);
    }
}

const char* nameOfMode(int how) {
    switch (how) {
        case fxObj::fxSendQueued:
            return "queued";
        case fxObj::fxSendNow:
            return "now";
        case fxObj::fxSendUrgent:
            return "urgent";
        default:
            return "cancelling";
    }
}

bool isToWrite(unsigned int kind) { return !isInLine && fxTrace::isOn(kind); }

template <class Value>
void putSending(const fxOutputChannel& output, const Value& value, int how) {
    if (!isToWrite(fxTrace::sends)) return;
    Line line("send");
    putChannel(line, output);
    putValue(line, value);
    const long count = output.getNumberOfConnections();
    line << ", " << nameOfMode(how) << ", " << count
         << (count == 1 ? " connection" : " connections");
}

template <class Value>
void putReaching(const char* kind, fxInputChannel& input, const Value& value) {
    if (!isToWrite(fxTrace::events)) return;
    Line line(kind);
    const fxInputChannel* const target = input.target();
    putChannel(line, target != nullptr ? *target : input);
    putValue(line, value);
    if (input.isConverter() && target != nullptr) {
        line << ", converted to " << fxDataTypeName(target->getType());
    }
}

void putReaching(const char* kind, fxEvent& event) {
    fxMessageEvent* const message = dynamic_cast<fxMessageEvent*>(&event);
    if (message != nullptr) {
        putReaching(kind, *message->getChannel(), message->getData());
    } else if (isToWrite(fxTrace::events)) {
        Line(kind) << fxTraceLines::classNameOf(event) << ", event type "
                   << static_cast<long>(event.getType());
    }
}

struct KindName {
    const char* name;
    unsigned int kinds;
};
constexpr KindName kindNames[] = {{"send", fxTrace::sends},
                                  {"events", fxTrace::events},
                                  {"timers", fxTrace::timers},
                                  {"loop", fxTrace::loop},
                                  {"all", fxTrace::all}};

unsigned int kindsCalled(std::string_view word) {
    for (const KindName& known : kindNames) {
        if (word == known.name) return known.kinds;
    }
    return 0;
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

// A program with rights of its own does not talk because its user asks it to.
[[maybe_unused]] const bool isAskedByEnvironment =
    fxTrace::enable(::secure_getenv("FXDS_TRACE")) && fx_traceKinds != 0;

}  // namespace

void fxTrace::enable(unsigned int kinds) {
    fx_traceKinds = kinds & all;
    if (fx_traceKinds == 0) Names::theNames().forgetAll();
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
        if (isInLine) continue;
        Line line("trace");
        line << "unknown word ";
        line.quote(word) << "; there are send, events, timers, loop, all";
    }
    enable(kinds);
    return isUnderstood;
}

void fxTrace::setSink(Sink* sink, void* closure) {
    theSink = sink != nullptr ? sink : writeToStandardError;
    theClosure = closure;
}

void fxTrace::sending(const fxOutputChannel& output, const fxTracedValue& value) {
    putSending(output, value, fxObj::fxSendNow);
}

void fxTrace::delivering(fxInputChannel& input, const fxTracedValue& value) {
    putReaching("deliver", input, value);
}

// What only the library calls.

std::string fxTraceLines::classNameOf(const fxObj& object) {
    std::string given = object.className();
    if (given != object.fxXDRObj::className()) return given;
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(
        abi::__cxa_demangle(typeid(object).name(), nullptr, nullptr, &status), std::free);
    if (readable == nullptr) return given;
    const std::string_view name(readable.get());
    const size_t scope = name.substr(0, name.find('<')).rfind("::");
    return std::string(name.substr(scope != std::string_view::npos ? scope + 2 : 0));
}

void fxTraceLines::sending(const fxOutputChannel& output, fxData* data, int how) {
    putSending(output, data, how);
}

void fxTraceLines::delivering(fxInputChannel& input, fxData* data) {
    putReaching("deliver", input, data);
}

void fxTraceLines::delivering(fxEvent& event) { putReaching("deliver", event); }

void fxTraceLines::replacing(fxEvent& event) { putReaching("replace", event); }

void fxTraceLines::timer(const char* what, const fxObj& object, double seconds) {
    if (!isToWrite(fxTrace::timers)) return;
    Line line("timer");
    line << what << " " << Names::theNames().of(object) << ", " << seconds << " s";
}

void fxTraceLines::phase(const char* format, ...) {
    if (!isToWrite(fxTrace::loop)) return;
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Line("loop") << text;
}

void fxTraceLines::dying(const fxObj& object) { Names::theNames().forget(object); }
