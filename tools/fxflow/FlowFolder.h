// The meeting point of running flows and the programs that look into them: a folder of the
// user's own with a socket for each flow.
#ifndef FXFLOW_FLOWFOLDER_H
#define FXFLOW_FLOWFOLDER_H

#include <string>
#include <vector>

/// The folder `fxflow` in $XDG_RUNTIME_DIR, or `fxflow-UID` in /tmp where that is not set.
/// Only the user may enter it: a folder that is another's, that others may enter, or that
/// is a symbolic link, is not used.
///
/// A socket is named NAME.PID. It gets that name when it listens already, so that one which
/// refuses belongs to a dead flow, and is removed. Other files are not changed.
class FlowFolder {
public:
    struct Flow {
        std::string name;
        long process;
        std::string file() const { return name + '.' + std::to_string(process); }
    };

    /// Opens the folder, or makes it. If whyNot() gives a reason, it cannot be used.
    FlowFolder();
    FlowFolder(const FlowFolder&) = delete;
    FlowFolder& operator=(const FlowFolder&) = delete;
    ~FlowFolder();

    const std::string& whyNot() const { return reason; }  ///< Empty if the folder can be used.

    std::vector<Flow> flows() const;  ///< The running ones, by name.
    /// A socket that listens under a name (the next ones: others get it too), or -1.
    int listen(const std::string& name);
    /// A connection to a flow, or -1.
    int connect(const Flow& flow) const;
    /// Removes the socket that listen() made.
    void leave();

    /// The text without characters that the name of a flow may not have.
    static std::string nameFrom(const std::string& text);

private:
    enum class State { begins, runs, died };

    std::string open();
    bool isOwnSocket(const std::string& file) const;
    State stateOf(const Flow& flow) const;
    std::string pathOf(const std::string& file) const;

    int folder = -1;
    std::string reason;
    std::string own;  // the file of our socket
};

/// Whether the process at the other end of a socket is the user's own, or the system's.
bool isOwnPeer(int socket);

#endif
