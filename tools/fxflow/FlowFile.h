// The flow of a file, read as the command line requests.
#ifndef FXFLOW_FLOWFILE_H
#define FXFLOW_FLOWFILE_H

#include <sys/stat.h>

#include <string>
#include <vector>

#include "Options.h"
#include "flow/Text.h"
#include "fxds/Clock.h"
#include "fxds/Obj.h"

/// Reads the flow, with the settings of the command line.
fxFlowText readFlow(const std::string& path, const Options& options);

/// Loads the plug-ins of the command line. Returns whether all could be.
bool loadPlugins(const Options& options);

/// Writes the problems to standard error. Returns whether none is an error.
bool tellProblems(const std::vector<fxFlowProblem>& problems);

/// Sends on its output "changed" when one of some files has been written or replaced, and
/// then has stayed the same for a moment: a file is not read while it is written.
class FileWatch : public fxObj {
public:
    FileWatch();
    const char* className() const override { return "FileWatch"; }

    /// Records the present state of the files. To be called before they are read: a change
    /// while they are read is reported then.
    void mark();
    /// Sets the files to watch: new ones in their present state, the others as they were
    /// marked.
    void watch(const std::vector<std::string>& paths);

    const fxOutput<void> changed = addOutput<void>("changed");

private:
    // The attributes that change with a file.
    struct Stamp {
        dev_t device = 0;
        ino_t file = 0;
        off_t size = -1;  // of no file
        timespec written = {};
        timespec altered = {};
        bool operator==(const Stamp& other) const;
    };
    typedef std::vector<Stamp> Stamps;

    Stamps look() const;
    void compare();

    std::vector<std::string> files;
    Stamps told;  // at the latest "changed"
    Stamps seen;  // at the latest check
    fxRef<fxAlarm> looking;
};

#endif
