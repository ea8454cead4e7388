#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "flow/run/Network.h"

// A plug-in describes its elements while it is loaded. Its file is identified by its inode,
// so that another path to it loads nothing, and by its path: of a file that has replaced it
// the system would not load anything.

namespace {

typedef std::pair<dev_t, ino_t> Identity;

struct Plugins {
    std::set<Identity> files;
    std::set<std::string> paths;
    std::map<std::string, std::string> refused;  // the reasons, by path
};

Plugins& plugins() {
    static Plugins all;
    return all;
}

bool isFile(const std::string& path, struct stat& status) {
    if (path.find('\0') != std::string::npos) return errno = EINVAL, false;
    return stat(path.c_str(), &status) == 0;
}

// The path without links, or "" with errno.
std::string completed(const std::string& path) {
    char* const found = realpath(path.c_str(), nullptr);
    std::string complete = found != nullptr ? found : "";
    std::free(found);
    return complete;
}

// Loads the file. Returns the reason why not, or "".
std::string load(const std::string& path) {
    fxFlowDetail::Describing describing;
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* const why = dlerror();
        return why != nullptr ? why : "the system does not say why";
    }
    describing.isKept = describing.fault.empty() && !describing.entered.empty();
    if (describing.isKept) return "";
    dlclose(handle);
    // A file that the system keeps nevertheless describes nothing the next time.
    std::string& why = plugins().refused[path];
    if (!describing.fault.empty() || why.empty()) {
        why = describing.fault.empty() ? "it describes no element" : describing.fault;
    }
    return why;
}

}  // namespace

std::string fxLoadPlugin(const std::string& path) {
    struct stat status {};
    const std::string told = "cannot load " + path + ": ";
    if (!isFile(path, status)) return told + std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return told + "it is no file";
    if (fxPluginIsLoaded(path)) return "";
    const std::string complete = completed(path);  // prevents a search
    if (complete.empty()) return told + std::strerror(errno);
    const std::string why = load(complete);
    if (!why.empty()) return told + why;
    plugins().files.emplace(status.st_dev, status.st_ino);
    plugins().paths.insert(complete);
    return "";
}

bool fxPluginIsLoaded(const std::string& path) {
    struct stat status {};
    return isFile(path, status) && (plugins().files.count({status.st_dev, status.st_ino}) != 0 ||
                                    plugins().paths.count(completed(path)) != 0);
}
