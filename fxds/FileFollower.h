// A file that grows, and may be replaced, read line by line.
#ifndef FXDS_FILEFOLLOWER_H
#define FXDS_FILEFOLLOWER_H

#include <chrono>
#include <string>

#include "fxds/Clock.h"
#include "fxds/Lines.h"
#include "fxds/Obj.h"
#include "fxds/detail/FilePath.h"
#include "fxds/detail/Owned.h"

/// A position in a file, from which another process can continue when it is saved. It does
/// not contain the file system, whose number may change when the machine restarts.
struct fxFilePlace {
    unsigned long file = 0;    ///< The number of the file (its inode); 0: of none yet.
    unsigned long offset = 0;  ///< In bytes, behind the last line that was sent.
};

/// Sends each line of the file at a path, present and future ones, as an fxStr on the
/// output "line", at once, from within poll(). The file need not exist yet. One that takes
/// its place is read from its start, after all of the old one, and so is one that has
/// become shorter. An unfinished line waits for its rest while its file stays. Only regular
/// files are opened.
///
/// Sends an int on the output "error", at once, when an interval has passed and the file
/// cannot be opened: the errno, such as ENOENT for one that is missing or EISDIR for a
/// folder. It tries again at each interval, and sends when the number has changed; 0 means
/// that the file is open.
///
///     fxFileFollower log("/var/log/messages");
///     fxConnect(log.line(), this, [this](const fxStr& line) { take(line); });
///
/// It checks for changes at intervals. A file that was cut and has grown beyond its old
/// length in between is read on from there. A receiver may destroy the follower.
class FX_API fxFileFollower : public fxObj {
public:
    /// Begins at `from` if the file is still the same and not shorter, and otherwise at its
    /// start. `path` is a text of any kind; a relative one belongs to the working folder of
    /// now. Requires: interval > 0.
    explicit fxFileFollower(const fxDetail::FilePath& path, fxFilePlace from = fxFilePlace(),
                            fxAlarm::Span interval = std::chrono::milliseconds(100));
    fxFileFollower(const fxFileFollower&) = delete;
    fxFileFollower& operator=(const fxFileFollower&) = delete;
    ~fxFileFollower() override;

    const char* className() const override;

    ///@{
    /// The outputs "line" and "error", looked up by their names. Without an output of that
    /// name and type, values are dropped.
    fxOutputView<fxStr> line() const;
    fxOutputView<int> error() const;
    ///@}
    bool isOpen() const { return reader != nullptr; }  ///< Whether there is a file.
    /// Why there is none: the errno of the last attempt to open it. 0 while it is open.
    int getError() const { return lastError; }
    fxFilePlace getPlace() const;  ///< While a line is sent, behind that line.

private:
    void open(fxFilePlace from);
    void tryAgain(fxFilePlace from);
    void look();

    const std::string path;
    fxFilePlace begin;                     // of what the reader reads
    fxDetail::Owned<fxLineReader> reader;  // null where there is no file
    int lastError = 0;                     // what getError() returns
    int sentError = 0;                     // what "error" has sent last
    bool hasFailed = false;                // whether a read has
    bool isLeaving = false;                // whether the reader finishes a file that was replaced
    fxRef<fxAlarm> looking;
};

#endif
