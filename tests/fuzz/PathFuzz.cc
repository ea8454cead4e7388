// File names taken apart and expanded. An input is a path.
#include <cstdlib>
#include <cstring>
#include <string>

#include "fxds/Path.h"
#include "fxds/PathFunctions.h"
#include "tests/fuzz/Input.h"

namespace {

std::string taken(char* text) {
    FUZZ_REQUIRE(text != nullptr);
    const std::string result = text;
    std::free(text);
    return result;
}

// A path without the slashes that change nothing.
std::string plain(const std::string& path) {
    std::string result;
    for (const char c : path) {
        if (c != '/' || result.empty() || result.back() != '/') result += c;
    }
    while (!result.empty() && result.back() == '/') result.pop_back();
    return result;
}

// The expansion of variables, one character after the other. All variables are
// unset but V.
bool expandByHand(const std::string& text, std::string& result) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '$') {
            result += text[i];
            continue;
        }
        std::string name;
        size_t end = i + 1;
        while (end + 1 < text.size() && text[end] != ' ' && text[end] != '/') name += text[end++];
        if (name != "V") return false;
        result += "value";
        if (end < text.size()) result += text[end];
        i = end;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool isPrepared = clearenv() == 0 && setenv("V", "value", 1) == 0;
    FUZZ_REQUIRE(isPrepared);
    const std::string text = FuzzInput(bytes, size).rest().c_str();

    const std::string base = taken(pathbasename(text.c_str()));
    const std::string directory = taken(pathdirname(text.c_str()));
    FUZZ_REQUIRE(base.find('/') == std::string::npos);
    FUZZ_REQUIRE(plain(directory + "/" + base) == plain(text) || directory == ".");

    const fxPath path(text.c_str());
    fxPath dir, leaf;
    FUZZ_REQUIRE(path.split(&dir, &leaf) == 1);
    FUZZ_REQUIRE(leaf.view() == base || plain(text).empty());
    FUZZ_REQUIRE(dir.view().size() + leaf.view().size() <= text.size());

    // Without HOME a tilde is nothing; users are left alone, as looking them up
    // may ask the network.
    if (text.substr(0, 1) != "~" || text.size() == 1 || text[1] == '/') {
        const std::string home = taken(pathexpandtilde(text.c_str()));
        FUZZ_REQUIRE(home == (text.substr(0, 1) == "~" ? text.substr(1) : text));
    }
    std::string expected, source = text;
    char* const expanded = environmentVariableExtendedName(source.data(), 8);
    FUZZ_REQUIRE(expandByHand(text, expected) == (expanded != nullptr));
    if (expanded != nullptr) FUZZ_REQUIRE(taken(expanded) == expected);
    return 0;
}
