// Lines of text from and to descriptors, without ever blocking the loop.
#ifndef FXDS_LINES_H
#define FXDS_LINES_H

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "fxds/SelectHandler.h"
#include "fxds/Str.h"
#include "fxds/detail/Walk.h"

/// Reads a descriptor and sends each line, an fxStr without its newline, on the output
/// "line", and then on "end" an int: 0 at the end of the input, else the errno of the read
/// that failed. Bytes are passed on unchanged, zero bytes and carriage returns included.
/// Text behind the last newline is a line too.
///
/// Lines are sent at once, from within poll(). A receiver may do anything, pause and
/// destroy the reader included; after that it sends nothing. When a receiver throws,
/// the next turn goes on with the line after. Each line waits until the receivers of
/// the one before have returned: a poll() that one of them calls does not serve this
/// reader.
///
/// The reader registers itself with fx_theExecutive. It does not change the flags of the
/// descriptor, since other processes may share them, and reads only when the system reports
/// input. So it never blocks, as long as nothing else reads the same input.
///
/// Memory: what one turn reads, 64 KB at most, and one unfinished line.
class FX_API fxLineReader : public fxSelectHandler {
public:
    static constexpr size_t usualLimit = size_t{1} << 20;  ///< Of the length of a line.

    /// `fd` is adopted. Bytes of a line beyond `limit` are dropped. isValid() is false for
    /// a descriptor that the executive cannot serve; it is closed then, and "end" is sent from
    /// the event queue: EBADF for a negative one, such as the -1 of an open() that failed,
    /// EMFILE for one that is too high.
    explicit fxLineReader(int fd, size_t limit = usualLimit);
    ~fxLineReader() override;

    const char* className() const override;

    bool isValid() const { return fd >= 0; }  ///< Whether there is a descriptor.
    ///@{
    /// The outputs "line" and "end", looked up by their names. Without an output of that
    /// name and type, values are dropped.
    fxOutputView<fxStr> line() const;
    fxOutputView<int> end() const;
    ///@}
    bool isPaused() const { return paused; }            ///< See pause().
    bool isAtEnd() const { return state == ended; }     ///< Whether "end" has been sent.
    unsigned long getCutCount() const { return cuts; }  ///< Lines that were too long, so far.
    /// Bytes of the input up to the end of the last line that was sent, its newline included.
    unsigned long getPassed() const { return passed; }

    /// Declares that the input is a file that may grow: "end" then means only that there is
    /// no more for now, an unfinished line waits for its rest, and resume() reads on. When
    /// it has ceased to grow, resume() sends the unfinished line.
    void setGrowing(bool isGrowing) { growing = isGrowing; }
    /// Sends nothing, and reads nothing, until resume(): the process at the other end
    /// of a pipe or socket then has to wait when that is full.
    void pause();
    /// Resumes sending in the next turn or later; also reads a growing file beyond its former end.
    void resume();

    /// Reads the available bytes, at most 64 KB, and sends their lines.
    void handleRead() override;

private:
    struct Delivery;
    class Continuation;
    enum State { reading, ending, ended };

    bool deliver();
    void readMore();
    bool takeLine(fxStr& text);
    void continueLater();
    void updateWishes();

    const size_t limit;
    std::string buffer;  // the bytes read; those before `start` have been sent
    size_t start = 0;
    size_t searched = 0;    // bytes from `start` that are no newline
    bool skipping = false;  // whether the next bytes belong to a line that was cut
    bool paused = false;
    bool growing = false;
    State state = reading;
    int error = 0;  // what "end" sends
    unsigned long cuts = 0;
    unsigned long passed = 0;
    Continuation* continuation = nullptr;
    fxWalks<Delivery> deliveries;
};

/// Writes given bytes to a descriptor, as fast as the other end takes them. Sends on the
/// output "drained" when there is room again after isFull(), and on "end" an int: 0 when
/// all is written after finish(), else the errno of the write that failed, such as EPIPE
/// when nothing reads any more. Both are queued.
///
/// Nothing is written before the loop turns, or flush() is called; bytes given in one turn
/// are written together. SIGPIPE does not reach the program from here, neither for sockets
/// nor for pipes. The flags of the descriptor are not changed: the writer writes only when
/// the system reports room, and never more at once than a blocking pipe with room takes
/// without blocking. A terminal whose output is stopped may block it.
class FX_API fxLineWriter : public fxSelectHandler {
public:
    static constexpr size_t usualHigh = size_t{1} << 18;  ///< Bytes that make it full.
    static constexpr size_t usualLow = size_t{1} << 16;   ///< Bytes at which it has drained.

    ///@{
    /// `fd` is adopted; with a reader, the writer takes the other direction of its
    /// socket or terminal. isValid() is false without a descriptor that the executive
    /// can serve; an `fd` that it cannot is closed. Requires: low < high.
    explicit fxLineWriter(int fd, size_t high = usualHigh, size_t low = usualLow);
    explicit fxLineWriter(const fxLineReader& reader, size_t high = usualHigh,
                          size_t low = usualLow);
    ///@}
    /// Bytes not written yet are lost; see finish().
    ~fxLineWriter() override;

    const char* className() const override;

    bool isValid() const { return fd >= 0; }  ///< Whether there is a descriptor; not after "end".
    ///@{
    /// The outputs "drained" and "end", looked up by their names. Without an output of that
    /// name and type, values are dropped.
    fxOutputView<void> drained() const;
    fxOutputView<int> end() const;
    ///@}
    size_t getPending() const { return buffer.size() - start; }  ///< Bytes not yet written.
    bool isFull() const { return full; }                         ///< Whether to wait for "drained".
    int getError() const { return error; }  ///< The errno of the failure; 0: none.

    ///@{
    /// Takes the bytes, or the line and a newline. Returns false, and takes nothing, after
    /// finish(), a failure, or without a descriptor. Bytes are taken even when the writer
    /// is full: a program without another limit checks isFull().
    bool write(std::string_view bytes);
    bool writeLine(std::string_view line);
    ///@}
    /// Writes as much as there is room for now. Returns whether nothing is left.
    bool flush();
    /// Accepts nothing more, and closes the descriptor when all is written; the reader at
    /// the other end of a socket or pipe then finds the end.
    void finish();

    void handleRead() override;   ///< Never called.
    void handleWrite() override;  ///< Calls flush().

private:
    void close(int withError);
    ssize_t writeSome(const char* bytes, size_t count);

    std::string buffer;  // the bytes before `start` have been written
    size_t start = 0;
    const size_t high;
    const size_t low;
    bool full = false;
    bool finishing = false;
    bool socket = false;
    int error = 0;
};

#endif
