// Where the flows that run meet those who look into them: a folder of the user's own with
// a socket for each.
#ifndef FXFLOW_FLOWFOLDER_H
#define FXFLOW_FLOWFOLDER_H

#include <string>
#include <vector>

/// The folder `fxflow` in $XDG_RUNTIME_DIR, or `fxflow-UID` in /tmp where that is not set.
/// Only the user may enter it: a folder that is another's, that others may enter, or that
/// is a symbolic link, is not used.
///
/// A socket is called NAME.PID. It gets that name when it listens already, so that one
/// which refuses belongs to a flow that has died, and is removed. Other files stay as they
/// are.
class FlowFolder {
public:
    struct Flow {
        std::string name;
        long process;
        std::string file() const { return name + '.' + std::to_string(process); }
    };

    /// Opens the folder, and makes it when there is none. Where whyNot() gives a reason
    /// there is none to use.
    FlowFolder();
    FlowFolder(const FlowFolder&) = delete;
    FlowFolder& operator=(const FlowFolder&) = delete;
    ~FlowFolder();

    const std::string& whyNot() const { return reason; }  ///< Empty for a folder to use.

    std::vector<Flow> flows() const;  ///< Those that run, by name.
    /// A socket that listens under a name (the next ones: others get it too), or -1.
    int listen(const std::string& name);
    /// A connection to a flow, or -1.
    int connect(const Flow& flow) const;
    /// Removes the socket that listen() made.
    void leave();

    /// What is left of a text as the name of a flow.
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
