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

/// How far a file has been read; to be saved, and gone on from in another process. It does
/// not name the file's system, whose number may be another after a restart of the machine.
struct fxFilePlace {
    unsigned long file = 0;    ///< The number of the file (its inode); 0: of none yet.
    unsigned long offset = 0;  ///< In bytes, behind the last line that was sent.
};

/// Sends each line of the file at a path, those that are there and those that come, as
/// an fxStr on the output "line", at once, from within poll(). A file that is not there
/// yet may come; one that has taken its place is read from its start, after all of the
/// old one, and so is one that has become shorter. An unfinished line waits for its rest
/// as long as its file stays. What is no regular file is not opened.
///
///     fxFileFollower log("/var/log/messages");
///     fxConnect(log.line(), this, [this](const fxStr& line) { take(line); });
///
/// It looks for changes in intervals. A file that has been cut and has grown beyond its
/// old length in between is read on from there. A receiver may destroy the follower.
class FX_API fxFileFollower : public fxObj {
public:
    /// Begins at `from`, where the file is still that one and not shorter, and otherwise
    /// at its start. `path` is a text of any kind; one that begins with no slash is that of
    /// the working folder now, which may change later. Requires: interval > 0.
    explicit fxFileFollower(const fxDetail::FilePath& path, fxFilePlace from = fxFilePlace(),
                            fxAlarm::Span interval = std::chrono::milliseconds(100));
    fxFileFollower(const fxFileFollower&) = delete;
    fxFileFollower& operator=(const fxFileFollower&) = delete;
    ~fxFileFollower() override;

    const char* className() const override;

    /// The output "line", which is looked up by its name. Where there is none of that
    /// name and type, what is sent goes nowhere.
    fxOutputView<fxStr> line();
    bool isOpen() const { return reader != nullptr; }  ///< Whether there is a file.
    fxFilePlace getPlace() const;                      ///< While a line is sent, behind that line.

private:
    void open(fxFilePlace from);
    void look();

    const std::string path;
    fxFilePlace begin;                     // of what the reader reads
    fxDetail::Owned<fxLineReader> reader;  // null where there is no file
    bool hasFailed = false;                // whether reading has
    bool isLeaving = false;                // whether the reader finishes a file that was replaced
    fxRef<fxAlarm> looking;
};

#endif
