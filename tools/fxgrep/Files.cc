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

// Appends one directory of --path with its abbreviations expanded; returns false when a
// variable in it is not set. The slash makes a name at the end of the text expand.
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

void searchPath(Crew& crew, const Options& options) {
    const fxStr path(options.path);
    fxStr directories;
    for (unsigned int at = 0; at < path.length();) {
        const fxStr directory = path.token(at, ':');
        if (directory.isEmpty() || appendExpanded(directory, directories)) continue;
        crew.reportTrouble(directory.c_str(), "a variable is not set");
    }
    for (unsigned int at = 0; at < directories.length();) {
        const fxStr directory = directories.token(at, ':');
        DIR* const entries = directory.isEmpty() ? nullptr : opendir(directory);
        if (entries != nullptr) {
            closedir(entries);
        } else if (!directory.isEmpty()) {
            crew.reportTrouble(directory.c_str(), std::strerror(errno));
        }
    }
    for (const fxStr& file : fxSearchList(directories, options.name)) {
        crew.search(file.c_str(), Grep::found);
    }
}

bool isOneOf(const std::vector<std::string>& globs, const char* name) {
    return std::any_of(globs.begin(), globs.end(), [name](const std::string& glob) {
        return fnmatch(glob.c_str(), name, 0) == 0;
    });
}

// An entry of a folder: its name, and its type, if the folder has it.
struct Entry {
    std::string name;
    unsigned char type;  // DT_REG, ...
};

// Sorted by the bytes of their names. Returns false, with the reason in errno, when the
// folder cannot be read.
bool readFolder(const std::string& path, std::vector<Entry>& entries) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
    if (folder == nullptr) return false;
    errno = 0;
    while (const dirent* const entry = readdir(folder.get())) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") entries.push_back({std::move(name), entry->d_type});
    }
    const int error = errno;
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    errno = error;
    return error == 0;
}

// Symbolic links are not followed, so no folder is visited twice.
unsigned char typeOf(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return DT_UNKNOWN;
    return S_ISREG(status.st_mode) ? DT_REG : S_ISDIR(status.st_mode) ? DT_DIR : DT_LNK;
}

// The user named `top`, so it is searched even if it is a link.
void searchFolder(Crew& crew, const Options& options, const std::string& top) {
    std::vector<Entry> waiting = {{top, DT_DIR}};
    while (!waiting.empty() && !crew.isDone()) {
        Entry file = std::move(waiting.back());
        waiting.pop_back();
        const std::string& path = file.name;
        if (file.type == DT_UNKNOWN) file.type = typeOf(path);
        if (file.type == DT_UNKNOWN) crew.reportTrouble(path, std::strerror(errno));
        if (file.type == DT_REG) {
            const char* const slash = std::strrchr(path.c_str(), '/');
            const char* const base = slash != nullptr ? slash + 1 : path.c_str();
            if (!options.includes.empty() && !isOneOf(options.includes, base)) continue;
            crew.search(path, options.takesAll ? Grep::found : Grep::foundText);
        }
        if (file.type != DT_DIR) continue;
        std::vector<Entry> entries;
        if (!readFolder(path.empty() ? "." : path, entries)) {
            crew.reportTrouble(path.empty() ? "." : path, std::strerror(errno));
        }
        const std::string prefix = path.empty() || path.back() == '/' ? path : path + '/';
        for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
            if (!options.takesAll && entry->name == ".git") continue;
            if (isOneOf(options.excludes, entry->name.c_str())) continue;
            waiting.push_back({prefix + entry->name, entry->type});
        }
    }
}

bool isFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

void searchFiles(Crew& crew, const Options& options) {
    if (options.path != nullptr) searchPath(crew, options);
    if (options.path == nullptr && options.files.empty()) {
        if (options.isRecursive) {
            searchFolder(crew, options, "");
        } else {
            crew.search("-", Grep::named);
        }
    }
    for (const std::string& file : options.files) {
        if (crew.isDone()) return;
        if (options.isRecursive && isFolder(file)) {
            searchFolder(crew, options, file);
        } else {
            crew.search(file, Grep::named);
        }
    }
}

bool areSeveral(const Options& options) {
    if (options.path != nullptr || options.isRecursive) {
        return std::find(options.files.begin(), options.files.end(), "-") == options.files.end();
    }
    return options.files.size() > 1 &&
           std::none_of(options.files.begin(), options.files.end(), [](const std::string& file) {
               struct stat status;
               return stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode);
           });
}
