#include "fxds/Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "fxds/Exec.h"
#include "fxds/SelectHandler.h"

// A descriptor of the process becomes readable at its end, whatever the program does with
// SIGCHLD. Its handler, the Exit, collects the zombie.
//
// Invariants:
// (1) fxProcess::exit is not null exactly while the process runs and is not detached. Then
//     exit->process is this object.
// (2) An Exit deletes itself once the process has ended. It outlives an fxProcess that is
//     detached or destroyed before.
// (3) The system does not give the pid to another process before the Exit's waitpid(),
//     unless SIGCHLD is ignored. A single process is therefore signalled through its
//     descriptor; for a group there is only the number.
// (4) After an error there is no process, and the piped streams exist with no descriptor.
//
// Of the functions here, only Exit::handleRead() runs receivers: those of the last lines.
// exited() is queued. So the constructor and end() run no code that could destroy the
// fxProcess.

namespace {

constexpr char exitedName[] = "exited";
constexpr int standardCount = 3;

int processDescriptor(pid_t pid) {
    const auto fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (fd < 0 || fxExec::canServe(fd)) return fd;
    close(fd);
    errno = EMFILE;
    return -1;
}

// Checks, before a process is started, whether it could be watched. Returns 0 or an error.
int watchError() {
    const int fd = processDescriptor(getpid());
    if (fd < 0) return errno;
    close(fd);
    return 0;
}

// A duplicate above the standard descriptors, which the child's are moved onto.
int aboveStandard(int fd) {
    if (fd < 0 || fd >= standardCount) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, standardCount);
    const int movesErrno = errno;
    close(fd);
    errno = movesErrno;
    return moved;
}

// A descriptor that is closed unless it is taken.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd_) : fd(fd_) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    void set(int newFd) { fd = newFd; }
    int get() const { return fd; }
    int take() { return std::exchange(fd, -1); }

private:
    int fd = -1;
};

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// Whether the system would use the whole command as given.
bool isFit(const fxCommand& command) {
    const auto isCut = [](const std::string& text) { return text.find('\0') != std::string::npos; };
    const auto areCut = [&](const std::vector<std::string>& texts) {
        return std::any_of(texts.begin(), texts.end(), isCut);
    };
    return !command.words.empty() && !areCut(command.words) && !areCut(command.environment) &&
           !isCut(command.directory) && command.input != fxCommand::joined &&
           command.output != fxCommand::joined;
}

std::string nameOf(const std::string& entry) { return entry.substr(0, entry.find('=')); }

std::vector<std::string> environmentWith(const std::vector<std::string>& changes) {
    std::vector<std::string> all;
    char* nothing = nullptr;
    char** entry = environ != nullptr ? environ : &nothing;  // see clearenv()
    for (; *entry != nullptr; ++entry) all.emplace_back(*entry);
    for (const std::string& change : changes) {
        const auto isNamesake = [&](const std::string& e) { return nameOf(e) == nameOf(change); };
        all.erase(std::remove_if(all.begin(), all.end(), isNamesake), all.end());
        if (change.find('=') != std::string::npos) all.push_back(change);
    }
    return all;
}

// The actions of the child before its program starts.
class Spawn {
public:
    Spawn() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    Spawn(const Spawn&) = delete;
    Spawn& operator=(const Spawn&) = delete;
    ~Spawn() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }

    void stream(int fd, fxCommand::Stream kind, int childEnd) {
        if (kind == fxCommand::piped) posix_spawn_file_actions_adddup2(&actions, childEnd, fd);
        if (kind == fxCommand::joined) {
            posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, fd);
        }
        if (kind == fxCommand::none) {
            posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
        }
    }

    // Returns an error number, or 0 and sets `pid`.
    int start(const fxCommand& command, pid_t& pid) {
        std::vector<std::string> words = command.words;
        std::vector<std::string> environment = environmentWith(command.environment);
        if (!command.directory.empty()) {
            posix_spawn_file_actions_addchdir_np(&actions, command.directory.c_str());
        }
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (command.ownGroup) flags |= POSIX_SPAWN_SETPGROUP;
        sigset_t none;
        sigset_t usual;
        sigemptyset(&none);
        sigemptyset(&usual);
        sigaddset(&usual, SIGPIPE);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &usual);
        posix_spawnattr_setflags(&attributes, flags);
        return posix_spawnp(&pid, words[0].c_str(), &actions, &attributes, pointersTo(words).data(),
                            pointersTo(environment).data());
    }

private:
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

// Both ends of the pipes.
struct fxProcess::Pipes {
    // Makes the pipe, if the stream is one. Returns false on failure.
    bool open(int stream, fxCommand::Stream kind) {
        if (kind != fxCommand::piped) return true;
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return false;
        const bool isInput = stream == STDIN_FILENO;
        childs[stream].set(aboveStandard(ends[isInput ? 0 : 1]));
        ours[stream].set(aboveStandard(ends[isInput ? 1 : 0]));
        if (ours[stream].get() < 0 || childs[stream].get() < 0) return false;
        errno = EMFILE;
        return fxExec::canServe(ours[stream].get());
    }

    Descriptor ours[standardCount];
    Descriptor childs[standardCount];
};

class fxProcess::Exit : public fxSelectHandler {
public:
    Exit(int fd_, pid_t pid_, bool hasGroup_, fxProcess* process_)
        : fxSelectHandler(fd_, 1), process(process_), pid(pid_), hasGroup(hasGroup_) {
        fxExec::theExecutive()->addSelectHandler(this);
    }
    const char* className() const override { return "fxProcess"; }

    // Passes on the remaining lines first. Their receivers may destroy the process or call
    // poll(), which may end everything here; or throw, and then the descriptor stays
    // readable.
    void handleRead() override {
        const Turn turn(turns);
        for (const auto pipe : {&fxProcess::outputPipe, &fxProcess::errorPipe}) {
            if (turn.isOver()) return;
            if (process != nullptr && process->*pipe != nullptr) (process->*pipe)->handleRead();
        }
        if (turn.isOver()) return;
        int state = 0;
        const pid_t waited = waitpid(pid, &state, WNOHANG);
        if (waited == 0 || (waited < 0 && errno == EINTR)) return;
        // The process is collected, so its Exit goes now, whatever happens in end().
        fxProcess* const told = process;
        delete this;
        if (told != nullptr) told->end(waited > 0 ? statusOf(state) : unknownStatus);
    }

    bool kill(int signal) {
        if (hasGroup) return ::kill(-pid, signal) == 0;
        return syscall(SYS_pidfd_send_signal, fd, signal, nullptr, 0) == 0;
    }

    fxProcess* process;  // null once it is detached or destroyed

private:
    struct Turn : fxWalk<Turn> {
        explicit Turn(fxWalks<Turn>& turns) : fxWalk(turns) {}
        bool isOver() const { return isOrphan(); }
    };

    static int statusOf(int state) {
        return WIFEXITED(state) ? WEXITSTATUS(state) : -WTERMSIG(state);
    }

    const pid_t pid;
    const bool hasGroup;
    fxWalks<Turn> turns;
};

fxCommand::fxCommand(std::string program, std::vector<std::string> arguments)
    : words(std::move(arguments)) {
    words.insert(words.begin(), std::move(program));
}

fxProcess::fxProcess(std::string program, std::vector<std::string> arguments)
    : fxProcess(fxCommand(std::move(program), std::move(arguments))) {}

// Everything that may fail without a process comes first: the check that it can be watched,
// the pipes, the descriptor limit. The child's ends of the pipes are closed at the end of
// the constructor, so that the readers see the end of the output when the process has
// ended.
fxProcess::fxProcess(const fxCommand& command) {
    addOutput(exitedName, fxDT_int);
    Pipes pipes;
    Spawn spawn;
    const fxCommand::Stream kinds[] = {command.input, command.output, command.errors};
    error = isFit(command) ? watchError() : EINVAL;
    for (int stream = 0; stream < standardCount && error == 0; ++stream) {
        if (!pipes.open(stream, kinds[stream])) error = errno;
        spawn.stream(stream, kinds[stream], pipes.childs[stream].get());
    }
    if (error == 0) error = spawn.start(command, pid);
    if (error == 0) error = watch(command.ownGroup);
    const auto ours = [&](int stream) { return error == 0 ? pipes.ours[stream].take() : -1; };
    if (command.input == fxCommand::piped) inputPipe = std::make_unique<fxLineWriter>(ours(0));
    if (command.output == fxCommand::piped) outputPipe = std::make_unique<fxLineReader>(ours(1));
    if (command.errors == fxCommand::piped) errorPipe = std::make_unique<fxLineReader>(ours(2));
}

// Returns 0, or an error number after the process is gone. If SIGCHLD is ignored, the
// system may have collected the process by now; a descriptor that is always ready then
// reports its end.
int fxProcess::watch(bool hasGroup) {
    int fd = processDescriptor(pid);
    const bool isGone = fd < 0 && errno == ESRCH;
    if (isGone) fd = eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK);
    if (isGone && fd < 0) return errno;
    if (fd < 0) {
        const int watchesErrno = errno;
        ::kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        pid = 0;
        return watchesErrno;
    }
    exit = new Exit(fd, pid, hasGroup && !isGone, this);
    return 0;
}

// The Exit stays in the loop and collects the killed process.
fxProcess::~fxProcess() {
    kill(SIGKILL);
    detach();
}

const char* fxProcess::className() const { return "fxProcess"; }

bool fxProcess::isRunning() const { return exit != nullptr; }

fxOutputView<int> fxProcess::exited() const { return getOutput<int>(exitedName); }

bool fxProcess::kill(int signal) { return exit != nullptr && exit->kill(signal); }

void fxProcess::detach() {
    if (exit != nullptr) exit->process = nullptr;
    exit = nullptr;
}

void fxProcess::end(int newStatus) {
    exit = nullptr;
    status = newStatus;
    exited().send(status);
}
