#include "fxds/RegExp.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "fxds/search/RegInternals.h"

// The interface of the engine: RegParser.cc turns a pattern into nodes,
// RegPlan.cc turns nodes into the steps of the matcher, and RegMatch.cc
// searches, with RegBacktracker.cc and RegInStep.cc for a match at one place.
//
// Invariants:
// (1) A compiled expression is one malloc() block, which the caller frees. regmust leads
//     into its own program.
// (2) startp and endp are views of the subject of the last search, all null unless it has
//     matched. fxregsub() reads through them, so the subject has to exist then.
// (3) Memory that runs out in the compilation is a message; searches allocate nothing.
// (4) An expression is changed by a search (positions, dead ends), so one expression serves
//     one search at a time.
//
// Bad patterns, null arguments and damaged programs are results. For a search, a program is
// damaged if the first byte is not the magic one or the rest is not that of the plan's
// copy.

using namespace fxRegProgram;

namespace {

// Sets the fields by which a search skips places without entering the matcher.
// A text that every match contains is used only when the expression starts with
// a repetition, because otherwise the first character selects well enough: the
// longest text of the chain, the last of several.
void findShortcuts(fxregexp* compiled, bool startsRepeated) {
    char* const code = reinterpret_cast<char*>(compiled) + offsetof(fxregexp, program);
    const Program program(code, compiled->programSize_);
    constexpr size_t branch = 1;
    if (program.opcode(program.next(branch)) != END) return;  // several alternatives
    const size_t first = program.following(branch);
    if (program.opcode(first) == EXACTLY) {
        compiled->regstart = *program.operand(first);
    } else if (program.opcode(first) == BOL) {
        compiled->reganch = 1;
    }
    if (!startsRepeated) return;
    for (size_t node = first; node != 0; node = program.next(node)) {
        if (program.opcode(node) != EXACTLY) continue;
        const int length = static_cast<int>(std::strlen(program.operand(node)));
        if (length < compiled->regmlen) continue;
        compiled->regmlen = length;
        compiled->regmust = code + (program.operand(node) - code);
    }
}

const char* compile(const char* pattern, fxregexp*& compiled, size_t& offset) {
    if (pattern == nullptr) return "NULL argument";
    try {
        std::vector<char> code;
        bool startsRepeated = false;
        const char* const why = parse(pattern, code, startsRepeated, offset);
        if (why != nullptr) return why;
        compiled = makeBlock(code);
        if (compiled == nullptr) return "out of space";
        findShortcuts(compiled, startsRepeated);
        return nullptr;
    } catch (const std::bad_alloc&) {
        return "out of space";
    }
}

bool hasMagic(const fxregexp* compiled) {
    return static_cast<unsigned char>(compiled->program[0]) == magic;
}

// The destination of an expansion: up to `size` bytes at `dest`; the rest is
// counted.
class Expansion {
public:
    Expansion(char* dest_, size_t size_) : dest(dest_), size(size_) {}

    void add(const char* text, size_t count) {
        if (length < size) std::memcpy(dest + length, text, std::min(count, size - length));
        length += count;
    }
    void add(char c) { add(&c, 1); }

    // Adds a group. A group that contains a terminator by now is filled up with
    // zeros from there on, and the result is false.
    bool addGroup(const char* begin, const char* end) {
        if (begin == nullptr || end == nullptr) return true;
        const size_t count = static_cast<size_t>(end - begin);
        const size_t present = strnlen(begin, count);
        add(begin, present);
        for (size_t i = present; i < count; ++i) add('\0');
        return present == count;
    }

    // Terminates the text. One that does not fit is cut to leave room.
    void terminate() {
        if (size != 0) dest[std::min(length, size - 1)] = 0;
    }

    size_t length = 0;

private:
    char* const dest;
    const size_t size;
};

// The group that the reference at `text` names, or -1 if there is no reference.
int groupAt(const char* text) {
    if (*text == '&') return 0;
    return text[0] == '\\' && text[1] >= '0' && text[1] <= '9' ? text[1] - '0' : -1;
}

bool expand(const fxregexp* compiled, const char* text, Expansion& out) {
    while (*text != 0) {
        const int group = groupAt(text);
        if (group >= 0) {
            if (!out.addGroup(compiled->startp[group], compiled->endp[group])) return false;
            text += *text == '&' ? 1 : 2;
        } else {
            if (*text == '\\' && (text[1] == '\\' || text[1] == '&')) ++text;
            out.add(*text++);
        }
    }
    out.terminate();
    return true;
}

int execute(fxregexp* compiled, const char* subject, const char* from, const char** message,
            bool goesOn) {
    FX_ASSERT(message != nullptr);
    *message = nullptr;
    if (compiled == nullptr || subject == nullptr || from == nullptr) {
        fxregerror(*message = "NULL parameter");
        return 0;
    }
    std::fill_n(compiled->startp, groupCount, nullptr);
    std::fill_n(compiled->endp, groupCount, nullptr);
    const Plan* const plan = hasMagic(compiled) ? planOf(compiled) : nullptr;
    if (plan == nullptr) {
        fxregerror(*message = "corrupted program");
        return 0;
    }
    // Dead ends are known for the text of a subject. Only the caller can promise that the
    // text at the address is still the same.
    if (!goesOn) plan->room.known->subject = nullptr;
    // One pass over the subject may show that there is no match. A plan that searches for a
    // needed byte itself would only repeat it.
    if (compiled->regmust != nullptr && !plan->findsNeeded() &&
        std::strstr(from, compiled->regmust) == nullptr) {
        return 0;
    }
    size_t effort = 0;
    return search(*plan, subject, from, compiled->startp, compiled->endp, effort, Patience(),
                  goesOn)
               ? 1
               : 0;
}

}  // namespace

void fxregerror(const char*) {}

fxregexp* fxregcomp(const char* pattern) {
    const char* message;
    return fxregcomp(pattern, &message);
}

fxregexp* fxregcomp(const char* pattern, const char** message) {
    size_t offset;
    return fxregcomp(pattern, message, &offset);
}

fxregexp* fxregcomp(const char* pattern, const char** message, size_t* offset) {
    FX_ASSERT(message != nullptr && offset != nullptr);
    fxregexp* compiled = nullptr;
    *offset = 0;
    *message = compile(pattern, compiled, *offset);
    if (*message != nullptr) fxregerror(*message);
    return compiled;
}

int fxregexec(fxregexp* compiled, const char* subject) {
    return fxregexec(compiled, subject, subject);
}

int fxregexec(fxregexp* compiled, const char* subject, const char* from) {
    const char* message;
    return fxregexec(compiled, subject, from, &message);
}

int fxregexec(fxregexp* compiled, const char* subject, const char* from, const char** message) {
    return execute(compiled, subject, from, message, false);
}

int fxregnext(fxregexp* compiled, const char* subject, const char* from) {
    const char* message;
    return execute(compiled, subject, from, &message, true);
}

// `dest` must be large enough; nothing is truncated.
void fxregsub(const fxregexp* compiled, const char* text, char* dest) {
    if (dest == nullptr) {
        fxregerror("NULL parm to regsub");
        return;
    }
    fxregsub(compiled, text, dest, SIZE_MAX);
}

long fxregsub(const fxregexp* compiled, const char* text, char* dest, size_t size) {
    if (compiled == nullptr || text == nullptr || (dest == nullptr && size != 0)) {
        fxregerror("NULL parm to regsub");
        return -1;
    }
    if (!hasMagic(compiled)) {
        fxregerror("damaged regexp fed to regsub");
        return -1;
    }
    Expansion out(dest, size);
    if (!expand(compiled, text, out)) {
        fxregerror("damaged match string");
        return -1;
    }
    return static_cast<long>(out.length);
}
