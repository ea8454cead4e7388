#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "flow/Flow.h"

// A plug-in describes its elements while it is loaded. Its file is identified by its inode,
// so that another path to it loads nothing.

namespace {

typedef std::pair<dev_t, ino_t> Identity;

std::set<Identity>& loaded() {
    static std::set<Identity> all;
    return all;
}

bool isFile(const std::string& path, struct stat& status) {
    if (path.find('\0') != std::string::npos) return errno = EINVAL, false;
    return stat(path.c_str(), &status) == 0;
}

}  // namespace

std::string fxLoadPlugin(const std::string& path) {
    struct stat status {};
    const std::string told = "cannot load " + path + ": ";
    if (!isFile(path, status)) return told + std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return told + "it is no file";
    const Identity identity(status.st_dev, status.st_ino);
    if (loaded().count(identity) != 0) return "";
    char* const complete = realpath(path.c_str(), nullptr);  // prevents a search
    if (complete == nullptr) return told + std::strerror(errno);
    const size_t before = fxElementKind::all().size();
    const std::vector<std::string>& twice = fxElementKind::duplicates();
    const size_t twiceBefore = twice.size();
    void* const handle = dlopen(complete, RTLD_NOW | RTLD_LOCAL);
    std::free(complete);
    if (handle == nullptr) {
        const char* const why = dlerror();
        return told + (why != nullptr ? why : "the system does not say why");
    }
    if (twice.size() != twiceBefore) {
        const std::string name = twice[twiceBefore];
        dlclose(handle);
        return told + "there is a " + name + " already";
    }
    if (fxElementKind::all().size() == before) {
        dlclose(handle);
        return told + "it describes no element";
    }
    loaded().insert(identity);
    return "";
}

bool fxPluginIsLoaded(const std::string& path) {
    struct stat status {};
    return isFile(path, status) && loaded().count({status.st_dev, status.st_ino}) != 0;
}
