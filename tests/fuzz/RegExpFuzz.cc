// Regular expressions: compile, match and substitute. An input is a pattern, a
// subject and a template with zero bytes between them. RegExpTest compares what matches
// with the obvious matcher.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "fxds/RegExp.h"
#include "tests/fuzz/Input.h"

namespace {

struct Free {
    void operator()(fxregexp* compiled) const { std::free(compiled); }
};
using Compiled = std::unique_ptr<fxregexp, Free>;

std::string part(std::string& rest) {
    const std::string result = rest.substr(0, rest.find('\0'));
    rest.erase(0, result.size() + 1);
    return result;
}

// Positions lie in the subject, and are there after a match only.
void requirePositions(const fxregexp& compiled, const std::string& subject, bool isMatch) {
    const char* const begin = subject.c_str();
    const char* const end = begin + subject.size();
    FUZZ_REQUIRE(isMatch == (compiled.startp[0] != nullptr));
    for (int group = 0; group < 10; ++group) {
        const char* const first = compiled.startp[group];
        const char* const last = compiled.endp[group];
        FUZZ_REQUIRE((first != nullptr) == (last != nullptr));
        if (first == nullptr) continue;
        FUZZ_REQUIRE(isMatch && begin <= first && first <= last && last <= end);
    }
}

// Any size yields a part of the whole expansion.
void requireExpansion(const fxregexp& compiled, const std::string& text) {
    const long length = fxregsub(&compiled, text.c_str(), nullptr, 0);
    FUZZ_REQUIRE(length >= 0);
    const size_t size = static_cast<size_t>(length) + 1;
    const std::unique_ptr<char[]> whole(new char[size]), half(new char[size / 2 + 1]);
    fxregsub(&compiled, text.c_str(), whole.get());
    FUZZ_REQUIRE(std::strlen(whole.get()) == size - 1);
    FUZZ_REQUIRE(fxregsub(&compiled, text.c_str(), half.get(), size / 2 + 1) == length);
    FUZZ_REQUIRE(std::strncmp(whole.get(), half.get(), size / 2) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    std::string rest = FuzzInput(bytes, size).rest();
    const std::string pattern = part(rest);
    const std::string subject = part(rest);
    const Compiled compiled(fxregcomp(pattern.c_str()));
    const bool isMatch = fxregexec(compiled.get(), subject.c_str()) != 0;
    if (compiled == nullptr) return 0;
    requirePositions(*compiled, subject, isMatch);
    requireExpansion(*compiled, part(rest));
    if (!isMatch) return 0;
    // The same match is found from its own start on, and another behind it.
    const char* const first = compiled->startp[0];
    FUZZ_REQUIRE(fxregexec(compiled.get(), subject.c_str(), first) == 1);
    FUZZ_REQUIRE(compiled->startp[0] == first);
    if (*first == 0) return 0;
    const bool isAgain = fxregexec(compiled.get(), subject.c_str(), first + 1) != 0;
    FUZZ_REQUIRE(!isAgain || compiled->startp[0] > first);
    requirePositions(*compiled, subject, isAgain);
    return 0;
}
