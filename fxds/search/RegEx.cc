#include "fxds/RegEx.h"

#include <climits>
#include <cstdlib>
#include <cstring>

// A search runs the engine and reads the ends of group 0 out of the compiled
// expression. Failures are reported as numbers that no position has.

namespace {
constexpr int notFound = -1;
constexpr int notValid = -2;
}  // namespace

fxRegEx::fxRegEx(const char* pattern) : compiled(fxregcomp(pattern)) {}

fxRegEx::fxRegEx(const fxStr& pattern) : fxRegEx(pattern.c_str()) {}

fxRegEx::~fxRegEx() { std::free(compiled); }

int fxRegEx::findBuffer(const char* buf, unsigned int len) const {
    int start;
    int end;
    fxRegEx::bracketBuffer(buf, len, start, end);
    return start;
}

int fxRegEx::findEndBuffer(const char* buf, unsigned int len) const {
    int start;
    int end;
    fxRegEx::bracketBuffer(buf, len, start, end);
    return end;
}

void fxRegEx::bracketBuffer(const char* buf, unsigned int, int& start, int& end) const {
    end = 0;
    start = compiled == nullptr ? notValid : notFound;
    if (fxregexec(compiled, buf) == 0 || compiled->endp[0] - buf > INT_MAX) return;
    start = static_cast<int>(compiled->startp[0] - buf);
    end = static_cast<int>(compiled->endp[0] - buf);
}

const fxregexp* fxRegEx::search(const char* buf, const char* from) const {
    return fxregexec(compiled, buf, from) != 0 ? compiled : nullptr;
}

const fxregexp* fxRegEx::searchNext(const char* buf, const char* from) const {
    return fxregnext(compiled, buf, from) != 0 ? compiled : nullptr;
}

bool fxIsRegEx(const char* s) { return s[std::strcspn(s, ".+*^$(){}[]")] != 0; }
