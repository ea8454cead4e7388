#include "fxds/PathFunctions.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

// Results are built in std::string, so that no length is a limit, and returned in a
// separate block. Results of getenv() and getpwnam() are copied at once.

namespace {

// A malloc() block of at least `leastBytes` with the text; null when memory runs out.
char* blockOf(std::string_view text, size_t leastBytes = 0) {
    char* const block = static_cast<char*>(std::malloc(std::max(text.size() + 1, leastBytes)));
    if (block == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(block, text.data(), text.size());
    block[text.size()] = 0;
    return block;
}

// `path` without the slashes at its end.
std::string_view withoutSlashes(std::string_view path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}

}  // namespace

char* pathbasename(const char* path) {
    if (path == nullptr) return nullptr;
    const std::string_view trimmed = withoutSlashes(path);
    return blockOf(trimmed.substr(trimmed.rfind('/') + 1));
}

char* pathdirname(const char* path) {
    FX_ASSERT(path != nullptr);
    const std::string_view trimmed = withoutSlashes(path);
    const size_t slash = trimmed.rfind('/');
    if (slash == std::string_view::npos) return blockOf(*path == '/' ? "/" : ".");
    return blockOf(withoutSlashes(trimmed.substr(0, slash)));
}

char* pathexpandtilde(const char* path) {
    if (path == nullptr) return nullptr;
    if (*path != '~') return blockOf(path);
    const char* const rest = path + std::strcspn(path, "/");
    const std::string user(path + 1, rest);
    const char* home;
    if (user.empty()) {
        home = std::getenv("HOME");
        if (home == nullptr) home = "";
    } else {
        const passwd* const entry = getpwnam(user.c_str());
        home = entry != nullptr ? entry->pw_dir : nullptr;
    }
    return home != nullptr ? blockOf(std::string(home) + rest) : blockOf(path);
}

char* symbolicLinkExtendedName(const char* path, int size) {
    if (path == nullptr || size <= 0) return nullptr;
    const size_t room = static_cast<size_t>(size);
    char* const block = static_cast<char*>(std::malloc(room + 1));
    if (block == nullptr) return nullptr;
    const ssize_t count = readlink(path, block, room);
    if (count <= 0) {
        std::free(block);
        return nullptr;
    }
    block[count] = 0;
    return block;
}

// NOLINTNEXTLINE(readability-non-const-parameter): the signature is settled
char* environmentVariableExtendedName(char* str, int size) {
    if (str == nullptr) return nullptr;
    const std::string_view text = str;
    std::string result;
    size_t literal = 0;  // start of the text to copy
    size_t dollar = text.find('$');
    while (dollar != std::string_view::npos) {
        result += text.substr(literal, dollar - literal);
        // The name ends before the last character of the text at the latest.
        const size_t start = dollar + 1;
        size_t end = start;
        while (end + 1 < text.size() && text[end] != ' ' && text[end] != '/') ++end;
        const char* const value = std::getenv(std::string(text.substr(start, end - start)).c_str());
        if (value == nullptr) return nullptr;
        result += value;
        literal = end;
        dollar = text.find('$', end + 1);  // the end of a name does not start another one
    }
    result += text.substr(std::min(literal, text.size()));
    return blockOf(result, static_cast<size_t>(std::max(size, 0)));
}
