#include "Files.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fxds/PathFunctions.h"
#include "fxds/SearchList.h"

namespace {

// One directory of --path with its abbreviations expanded; false when a variable
// in it is not set. The slash lets a name be expanded that ends the text.
bool appendExpanded(const fxStr& directory, fxStr& list) {
    char* const home = pathexpandtilde(directory);
    std::string text = home;
    std::free(home);
    text += '/';
    char* const expanded = environmentVariableExtendedName(text.data(), 0);
    if (expanded == nullptr) return false;
    fxStr result(expanded);
    std::free(expanded);
    while (result.length() > 1 && result[result.length() - 1] == '/') {
        result.remove(result.length() - 1);
    }
    if (!list.isEmpty()) list.append(':');
    if (!result.isEmpty()) list.append(result, result.length());
    return true;
}

void searchPath(Grep& grep, const Options& options) {
    const fxStr path(options.path);
    fxStr directories;
    for (unsigned int at = 0; at < path.length();) {
        const fxStr directory = path.token(at, ':');
        if (directory.isEmpty() || appendExpanded(directory, directories)) continue;
        grep.reportTrouble(directory, "a variable is not set");
    }
    for (unsigned int at = 0; at < directories.length();) {
        const fxStr directory = directories.token(at, ':');
        DIR* const entries = directory.isEmpty() ? nullptr : opendir(directory);
        if (entries != nullptr) {
            closedir(entries);
        } else if (!directory.isEmpty()) {
            grep.reportTrouble(directory, std::strerror(errno));
        }
    }
    for (const fxStr& file : fxSearchList(directories, options.name)) grep.searchFound(file, true);
}

bool isOneOf(const std::vector<std::string>& globs, const char* name) {
    return std::any_of(globs.begin(), globs.end(), [name](const std::string& glob) {
        return fnmatch(glob.c_str(), name, 0) == 0;
    });
}

// The names in a folder, in the order of their bytes.
bool readFolder(const std::string& path, std::vector<std::string>& names) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
    if (folder == nullptr) return false;
    while (const dirent* const entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return true;
}

// Symbolic links are not followed, so no folder is met twice.
void searchFolder(Grep& grep, const Options& options, const std::string& top) {
    std::vector<std::string> waiting = {top};
    while (!waiting.empty() && !grep.isDone()) {
        const std::string path = std::move(waiting.back());
        waiting.pop_back();
        struct stat status;
        if (lstat(path.empty() ? "." : path.c_str(), &status) != 0) {
            grep.reportTrouble(path.c_str(), std::strerror(errno));
            continue;
        }
        const char* const slash = std::strrchr(path.c_str(), '/');
        const char* const base = slash != nullptr ? slash + 1 : path.c_str();
        const bool isIncluded = options.includes.empty() || isOneOf(options.includes, base);
        if (S_ISREG(status.st_mode) && isIncluded) grep.searchFound(path.c_str(), options.takesAll);
        const bool isTop = path == top;
        if (!S_ISDIR(status.st_mode) && !(isTop && S_ISLNK(status.st_mode))) continue;
        std::vector<std::string> names;
        if (!readFolder(path.empty() ? "." : path, names)) {
            grep.reportTrouble(path.c_str(), std::strerror(errno));
        }
        const std::string prefix = path.empty() || path.back() == '/' ? path : path + '/';
        for (auto name = names.rbegin(); name != names.rend(); ++name) {
            if (!options.takesAll && *name == ".git") continue;
            if (isOneOf(options.excludes, name->c_str())) continue;
            waiting.push_back(prefix + *name);
        }
    }
}

bool isFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

void searchFiles(Grep& grep, const Options& options) {
    if (options.path != nullptr) searchPath(grep, options);
    if (options.path == nullptr && options.files.empty()) {
        if (options.isRecursive) {
            searchFolder(grep, options, "");
        } else {
            grep.searchNamed("-");
        }
    }
    for (const std::string& file : options.files) {
        if (grep.isDone()) return;
        if (options.isRecursive && isFolder(file)) {
            searchFolder(grep, options, file);
        } else {
            grep.searchNamed(file.c_str());
        }
    }
}
