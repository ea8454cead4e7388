// Child processes: started with pipes, ended with a message.
#ifndef FXDS_PROCESS_H
#define FXDS_PROCESS_H

#include <sys/types.h>

#include <climits>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "fxds/Lines.h"
#include "fxds/Obj.h"
#include "fxds/detail/Owned.h"

/// A command: the program, its arguments, environment and streams.
struct FX_API fxCommand {
    /// The target of a standard stream of the child.
    enum Stream {
        inherited,  ///< That of this process.
        none,       ///< /dev/null.
        piped,      ///< One end of a pipe; see the process's input() and so on.
        joined      ///< For `errors`: the same as `output`.
    };

    fxCommand() = default;
    ///@{
    /// Implicit: `fxProcess sort({"sort", "-u"})`.
    fxCommand(std::initializer_list<const char*> words_) : words(words_.begin(), words_.end()) {}
    fxCommand(std::vector<std::string> words_) : words(std::move(words_)) {}
    ///@}
    fxCommand(std::string program, std::vector<std::string> arguments);  ///< A program's words.

    /// The program and its arguments. A program without a slash is searched for in our
    /// PATH.
    std::vector<std::string> words;
    /// "NAME=value" entries, added to ours or replacing those of the same names; one
    /// without "=" removes ours.
    std::vector<std::string> environment;
    std::string directory;      ///< To start in; "" is ours.
    Stream input = inherited;   ///< Its standard input.
    Stream output = inherited;  ///< Its standard output.
    Stream errors = inherited;  ///< Its standard error.
    /// Whether it leads a process group of its own; kill() then reaches all of the
    /// group, so the children of the child too.
    bool ownGroup = false;
};

/// A child process. Sends on the output "exited" an int when it has ended: its exit status,
/// the negative number of the signal that ended it, or unknownStatus when the program has
/// ignored SIGCHLD or waited for all children itself. Sends nothing when the child could
/// not be started; getError() has the reason. The message is queued. Lines that the process
/// itself has written to pipes are sent before, unless the reader is paused, a receiver of
/// a line is polling or a pipe holds more than 64 KB. Its own children may write later:
/// they may keep a pipe open for any time, which delays the reader's "end".
///
///     fxProcess make({"make", "-k"});
///     fxConnect(make.exited(), [](int status) { report(status); });
///
/// Lines come from a stream that is piped:
///
///     fxCommand list{"ls", "-l"};
///     list.output = fxCommand::piped;
///     fxProcess ls(list);
///     fxConnect(ls.output()->line(), [](const fxStr& line) { show(line); });
///
/// The child gets the standard streams and those descriptors that are not marked
/// close-on-exec, as all of the library's are. Its signal mask is empty, and SIGPIPE
/// ends it even where we ignore it. It is waited for by a handler in fx_theExecutive,
/// so it stays a zombie while no loop runs.
class FX_API fxProcess : public fxObj {
public:
    static constexpr int unknownStatus = INT_MIN;  ///< See above.

    /// Starts the process. When that fails isRunning() is false and getError() is
    /// the errno, such as ENOENT for a program or a directory that does not exist, or EINVAL
    /// for texts with zero bytes in them, no words, and streams that are joined to
    /// nothing.
    explicit fxProcess(const fxCommand& command);
    /// The same: `fxProcess sort("sort", {"-u"})`.
    fxProcess(std::string program, std::vector<std::string> arguments);
    fxProcess(const fxProcess&) = delete;
    fxProcess& operator=(const fxProcess&) = delete;
    /// Ends a process that is still running by SIGKILL, and its group if it has its
    /// own; see detach(). Closes our ends of its pipes. The loop reaps the child.
    ~fxProcess() override;

    const char* className() const override;

    bool isRunning() const;                   ///< Until "exited" is queued, or detach().
    int getError() const { return error; }    ///< The errno of a failed start; 0: none.
    pid_t getPid() const { return pid; }      ///< 0 when it could not be started.
    int getStatus() const { return status; }  ///< As "exited" sends it; before, unknownStatus.
    /// The output "exited", looked up by its name. Without an output of that name and type,
    /// values are dropped.
    fxOutputView<int> exited() const;

    ///@{
    /// Our ends of the pipes; null for a stream that is not piped. Views, as long as the
    /// process object. Those of a process that could not be started are not valid; readers
    /// send "end" then. A program that reads its input to the end does not end before
    /// input()->finish().
    fxLineWriter* input() const { return inputPipe.get(); }
    fxLineReader* output() const { return outputPipe.get(); }
    fxLineReader* errors() const { return errorPipe.get(); }
    ///@}

    /// Sends the signal. False when the process is not running, or the system
    /// refuses.
    bool kill(int signal = 15);
    /// Keeps the process running when this object is destroyed. From now on isRunning() is
    /// false and "exited" is not sent; the loop still reaps the process when it ends.
    void detach();

private:
    class Exit;
    struct Pipes;

    int watch(bool hasGroup);
    void end(int newStatus);

    fxDetail::Owned<fxLineWriter> inputPipe;
    fxDetail::Owned<fxLineReader> outputPipe;
    fxDetail::Owned<fxLineReader> errorPipe;
    Exit* exit = nullptr;  // null when it is not running
    pid_t pid = 0;
    int error = 0;
    int status = unknownStatus;
};

#endif
