#include "fxds/dataflow/TraceLines.h"

#include <cxxabi.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <typeinfo>
#include <unordered_map>

#include "fxds/Data.h"
#include "fxds/Event.h"
#include "fxds/Obj.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/detail/Suggestion.h"

// Each function here is called before the event that it traces, while all objects named in
// the line still exist. A line is put together in full and then written at once.
//
// Invariants:
// (1) `isInLine` is set exactly while a Line exists. className(), boxed values and the sink
//     run code of the program, which may send; no line begins then, so a line contains no
//     other, and the sink is not entered twice.
// (2) A Line restores errno, so that tracing does not change what a program finds there.
// (3) A name belongs to an object from its first line or holder until dying() or
//     forgetNames(). While nothing is traced, objects end without dying(); so the names are
//     forgotten when the last kind is switched off, and an address does not pass its name
//     on.
//
// Tracing works before main() and after the last destructor: its state is made when it is
// first needed, and never freed.

namespace {

constexpr size_t mostShownBytes = 60;

bool isInLine = false;

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
        fxTraceLines::write(text);
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
    // An object keeps the class under which it was first seen: an object under construction
    // or destruction is, for the language, of a base class of its class.
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
        static Names* const instance = new Names;  // never freed
        return *instance;
    }

private:
    std::unordered_map<const fxObj*, std::string> names;
    std::unordered_map<std::string, unsigned long> counts;
};

template <class Channel>
void putChannel(Line& line, const Channel& channel) {
    if (channel.getOwner() == nullptr) {
        line << "(no object)";
        return;
    }
    const char* const name = channel.getName();
    line << Names::theNames().of(*channel.getOwner()) << "." << (name != nullptr ? name : "?");
}

// The value behind the name of a kind. A kind without a function here does not compile.
void put(Line& line, const unsigned char& truth) { line << (truth != 0 ? " true" : " false"); }
void put(Line& line, const int& number) { line << " " << long{number}; }
void put(Line& line, const long& number) { line << " " << number; }
void put(Line& line, const float& number) { line << " " << double{number}; }
void put(Line& line, const double& number) { line << " " << number; }
void put(Line& line, const char* const& text) {
    if (text == nullptr) {
        line << " null";
    } else {
        (line << " ").quote(std::string_view(text, strnlen(text, mostShownBytes + 1)));
    }
}
void put(Line& line, const fxStr& text) {
    (line << " ").quote(std::string_view(text.c_str(), text.length()));
}
void put(Line& line, const fxStrArray& texts) { line << " of " << long{texts.length()}; }

// Calls `show(T*)` for the C++ type of the data type, if it is a type of the library that
// has values.
template <class Show>
void withType(unsigned short type, Show show) {
    const auto showIf = [&](unsigned short number, auto* none) {
        if constexpr (!std::is_same_v<decltype(none), void*>) {
            if (type == number) show(none);
        }
    };
#define FX_SENT(number, name, Value, Passed, Box) showIf(number, static_cast<Value*>(nullptr));
#define FX_HELD(...)
    FX_DATA_TYPES(FX_SENT, FX_HELD)
#undef FX_HELD
#undef FX_SENT
}

void putValue(Line& line, const fxDetail::TracedValue& traced) {
    line << " " << fxDataTypeName(traced.type);
    if (traced.value == nullptr) return;
    withType(traced.type, [&](auto* type) {
        put(line, *static_cast<const std::remove_pointer_t<decltype(type)>*>(traced.value));
    });
}

// A box of another size than its type has is shown without its value.
void putValue(Line& line, fxData* data) {
    if (data == nullptr) {
        line << " nothing";
        return;
    }
    const unsigned short type = data->getType();
    line << " " << fxDataTypeName(type);
    withType(type, [&](auto* none) {
        std::remove_pointer_t<decltype(none)> value{};
        if (data->getSize() != sizeof value) return;
        data->getValue(type, &value);
        put(line, value);
    });
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

}  // namespace

void fxDetail::traceSending(const fxOutputChannel& output, const TracedValue& value) {
    putSending(output, value, fxObj::fxSendNow);
}

void fxDetail::traceDelivering(fxInputChannel& input, const TracedValue& value) {
    putReaching("deliver", input, value);
}

std::string fxTraceLines::nameOf(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    if (readable == nullptr) return type.name();
    const std::string_view name(readable.get());
    const size_t scope = name.substr(0, name.find('<')).rfind("::");
    return std::string(name.substr(scope != std::string_view::npos ? scope + 2 : 0));
}

std::string fxTraceLines::classNameOf(const fxObj& object) {
    std::string given = object.className();
    return given == object.fxXDRObj::className() ? nameOf(typeid(object)) : given;
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

void fxTraceLines::record(const std::string& text) {
    if (isToWrite(fxTrace::streams)) Line("stream") << text;
}

void fxTraceLines::unknownWord(std::string_view word, std::string_view known) {
    if (isInLine) return;
    Line line("trace");
    line << "unknown word ";
    line.quote(word) << "; there are " << known;
}

void fxTraceLines::connecting(const fxOutputChannel& output, const fxInputChannel& input) {
    if (!isToWrite(fxTrace::connects)) return;
    const std::string why = fxDetail::unlikeTypes(output.getType(), input.getType());
    Line line("connect");
    putChannel(line, output);
    line << " (" << fxDataTypeName(output.getType()) << ") -> ";
    putChannel(line, input);
    line << " (" << fxDataTypeName(input.getType()) << ")";
    if (!why.empty()) line << ": " << why;
}

void fxTraceLines::notConnecting(std::string_view why) {
    if (isToWrite(fxTrace::connects)) Line("connect") << why;
}

void fxTraceLines::holding(const fxObj& object) {
    if (isToWrite(fxTrace::held)) Names::theNames().of(object);
}

void fxTraceLines::dying(const fxObj& object, unsigned long holders) {
    if (holders != 0 && isToWrite(fxTrace::held)) {
        Line line("held");
        line << Names::theNames().of(object) << ", deleted with " << static_cast<long>(holders)
             << (holders == 1 ? " holder" : " holders");
    }
    Names::theNames().forget(object);
}

void fxTraceLines::forgetNames() { Names::theNames().forgetAll(); }
