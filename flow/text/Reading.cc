#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "flow/text/Parser.h"
#include "fxds/base/OpenFile.h"

// Texts are read in the order of their includes, each whole before it is parsed. Limits
// bound the work that a few bytes of text can request: files that include others twice,
// each of them again, would be read for ever.

bool fxFlowReading::hasRoom(const fxFlowPlace& place) {
    if (++parts == mostParts + 1) problems.add(place, "a flow has up to 1000000 parts");
    return parts <= mostParts;
}

std::string fxFlowReading::beside(const std::string& file, const std::string& path) {
    const size_t slash = file.rfind('/');
    if (slash == std::string::npos || path.empty() || path[0] == '/') return path;
    return file.substr(0, slash + 1) + path;
}

std::string fxFlowReading::complete(const std::string& path) {
    if (!path.empty() && path[0] == '/') return path;
    if (folder.empty()) {
        std::error_code fault;
        folder = std::filesystem::current_path(fault).string() + '/';
    }
    return folder + path;
}

void fxFlowReading::readText(std::string_view text, const std::string& name) {
    if (std::find(flow.files.begin(), flow.files.end(), name) == flow.files.end()) {
        flow.files.push_back(name);
    }
    fxFlowParser(*this, text, name).read();
    if (isOver()) flow.isWhole = false;
}

void fxFlowReading::readFile(const std::string& path, const fxFlowText::Word* from) {
    std::string text;
    const size_t depth = chain.size();
    const std::string why = contents(path, text);
    if (!why.empty()) flow.isWhole = false;
    if (why.empty()) {
        readText(text, path);
    } else if (from != nullptr) {
        problems.add(from->place, fxFlowShown(path) + ' ' + why);
    } else {
        problems.add({path, 0, 0}, why);
    }
    chain.resize(depth);
}

// On success the file is the last of the chain.
std::string fxFlowReading::contents(const std::string& path, std::string& text) {
    if (chain.size() >= deepest) return "is included more than 32 deep";
    if (++reads > mostFiles) return "is one file too many: a flow has up to 1000";
    const int fd = fxOpenFile(path);
    if (fd < 0) return "cannot be read: " + fxFileError(path, errno);
    std::string why;
    struct stat status;
    if (fstat(fd, &status) != 0) {
        why = std::string("cannot be read: ") + std::strerror(errno);
    } else if (const Identity file(status.st_dev, status.st_ino);
               std::find(chain.begin(), chain.end(), file) != chain.end()) {
        why = "includes itself";
    } else {
        chain.push_back(file);
        why = readAll(fd, text);
    }
    close(fd);
    return why;
}

std::string fxFlowReading::readAll(int fd, std::string& text) {
    constexpr size_t step = 1U << 16U;
    for (;;) {
        const size_t size = text.size();
        text.resize(size + step);
        const ssize_t got = read(fd, text.data() + size, step);
        text.resize(size + static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (got == 0) return "";
        if (got < 0 && errno != EINTR) {
            return std::string("cannot be read: ") + std::strerror(errno);
        }
        if (text.size() > mostBytes) return "has more than 16 MB";
        bytes += static_cast<size_t>(std::max<ssize_t>(got, 0));
        if (bytes > mostBytesInAll) return "is too much: a flow has up to 64 MB of text";
    }
}
