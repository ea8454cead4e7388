// Sockets are named through the descriptor of the folder (/proc/self/fd/N/...): the folder
// that was checked is the one that is used, and a long path fits into a socket's 108 bytes.
#include "FlowFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t longestName = 60;

// Calls `act` (bind or connect) with the address of a path. Returns false when it fails.
bool withAddress(const std::string& path, int socket, int (*act)(int, const sockaddr*, socklen_t)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return errno = ENAMETOOLONG, false;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return act(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

int newSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

}  // namespace

FlowFolder::FlowFolder() : reason(open()) {}

FlowFolder::~FlowFolder() {
    leave();
    if (folder >= 0) close(folder);
}

std::string FlowFolder::open() {
    const char* const given = std::getenv("XDG_RUNTIME_DIR");
    const std::string path = given != nullptr && *given == '/'
                                 ? std::string(given) + "/fxflow"
                                 : "/tmp/fxflow-" + std::to_string(geteuid());
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        return path + ": " + std::strerror(errno);
    }
    folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) return path + ": " + std::strerror(errno);
    struct stat status;
    const bool isKnown = fstat(folder, &status) == 0;
    if (isKnown && status.st_uid == geteuid() && (status.st_mode & 077) == 0) return "";
    close(folder);
    folder = -1;
    return path + " is not a folder that only its user may enter";
}

std::string FlowFolder::pathOf(const std::string& file) const {
    return "/proc/self/fd/" + std::to_string(folder) + '/' + file;
}

FlowFolder::State FlowFolder::stateOf(const Flow& flow) const {
    if (flow.name.empty()) {  // it began to listen, or died then
        const bool isAlive = kill(static_cast<pid_t>(flow.process), 0) == 0 || errno != ESRCH;
        return isAlive ? State::begins : State::died;
    }
    const int socket = connect(flow);
    if (socket >= 0) close(socket);
    if (socket >= 0 || errno == EAGAIN) return State::runs;
    return errno == ECONNREFUSED ? State::died : State::begins;
}

// Whether a flow of the user may have made it: a program may keep other files there.
bool FlowFolder::isOwnSocket(const std::string& file) const {
    struct stat status;
    return fstatat(folder, file.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISSOCK(status.st_mode) && status.st_uid == geteuid();
}

std::vector<FlowFolder::Flow> FlowFolder::flows() const {
    std::vector<Flow> found;
    DIR* const entries = folder >= 0 ? opendir(pathOf(".").c_str()) : nullptr;
    if (entries == nullptr) return found;
    while (const dirent* entry = readdir(entries)) {
        const std::string file = entry->d_name;
        const size_t dot = file.rfind('.');
        if (dot == std::string::npos) continue;
        const Flow flow = {file.substr(0, dot), std::atol(file.c_str() + dot + 1)};
        if (flow.process <= 0 || flow.file() != file || !isOwnSocket(file)) continue;
        const State state = stateOf(flow);
        if (state == State::runs) found.push_back(flow);
        if (state == State::died) unlinkat(folder, file.c_str(), 0);
    }
    closedir(entries);
    std::sort(found.begin(), found.end(), [](const Flow& a, const Flow& b) {
        return a.name != b.name ? a.name < b.name : a.process < b.process;
    });
    return found;
}

int FlowFolder::listen(const std::string& name) {
    const Flow flow = {name, getpid()};
    const std::string quiet = '.' + std::to_string(flow.process);
    const int made = newSocket();
    if (made < 0) return -1;
    // A flow of the same process number may have died and left both names.
    if (isOwnSocket(quiet)) unlinkat(folder, quiet.c_str(), 0);
    if (isOwnSocket(flow.file()) && stateOf(flow) == State::died) {
        unlinkat(folder, flow.file().c_str(), 0);
    }
    const mode_t mask = umask(0177);
    const bool isBound = withAddress(pathOf(quiet), made, bind);
    umask(mask);
    // Not rename(), which would replace the socket of a flow that has the same process
    // number in another container.
    constexpr int mostWaiting = 64;
    const bool isNamed = isBound && ::listen(made, mostWaiting) == 0 &&
                         linkat(folder, quiet.c_str(), folder, flow.file().c_str(), 0) == 0;
    const int error = errno;
    if (isBound) unlinkat(folder, quiet.c_str(), 0);
    if (isNamed) {
        own = flow.file();
        return made;
    }
    close(made);
    errno = error;
    return -1;
}

int FlowFolder::connect(const Flow& flow) const {
    const int made = newSocket();
    if (made < 0) return -1;
    if (withAddress(pathOf(flow.file()), made, ::connect) && isOwnPeer(made)) return made;
    const int error = errno;
    close(made);
    errno = error;
    return -1;
}

void FlowFolder::leave() {
    if (!own.empty()) unlinkat(folder, own.c_str(), 0);
    own.clear();
}

std::string FlowFolder::nameFrom(const std::string& text) {
    std::string name = text.substr(0, longestName);
    for (char& c : name) {
        const bool isPlain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                             (c >= 'a' && c <= 'z') || c == '_' || c == '-' || c == '.';
        if (!isPlain) c = '_';
    }
    if (name.empty() || name[0] == '.') name = "flow" + name;
    return name;
}

bool isOwnPeer(int socket) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    const bool isKnown = getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    if (isKnown && (peer.uid == geteuid() || peer.uid == 0)) return true;
    errno = EACCES;
    return false;
}
