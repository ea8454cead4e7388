#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Lines.h"

// A line is taken out of the buffer before it is sent, and the reader's position is in its
// members, so a receiver may call any function of the reader, or destroy it. A Delivery on
// the stack records whether it still exists.
//
// Invariants, between any two calls:
// (1) If the buffer contains whole lines, or `state` is ending, then the reader is paused,
//     is delivering, or has a continuation.
// (2) wantRead is set exactly when the reader is neither paused nor at the end; during a
//     delivery, only until a nested poll() has found something to read.
// (3) There is at most one Delivery.

namespace {

constexpr char lineName[] = "line";
constexpr char endName[] = "end";
constexpr size_t chunkBytes = size_t{1} << 16;
constexpr size_t keptBytes = 4096;  // capacity that an empty buffer keeps

}  // namespace

// Delivers the rest of the buffer from the queue. Code that empties the queue may delete
// it.
class fxLineReader::Continuation : public fxEvent {
public:
    explicit Continuation(fxLineReader* reader_) : fxEvent(fxET_Unknown), reader(reader_) {}
    ~Continuation() override {
        if (reader != nullptr) reader->continuation = nullptr;
    }
    void deliver() override {
        fxLineReader* const called = std::exchange(reader, nullptr);
        called->continuation = nullptr;
        called->deliver();
    }

private:
    fxLineReader* reader;
};

// One call of deliver(). If a receiver throws, the remaining lines need a continuation,
// because the descriptor may never be ready again.
struct fxLineReader::Delivery : fxWalk<Delivery> {
    explicit Delivery(fxLineReader& reader_) : fxWalk(reader_.deliveries), reader(reader_) {}
    ~Delivery() {
        if (isOrphan()) return;
        reader.updateWishes();
        if (!isDone) reader.continueLater();
    }
    bool goesOn() const { return !isOrphan() && !reader.paused; }

    fxLineReader& reader;
    bool isDone = false;
};

fxLineReader::fxLineReader(int fd_, size_t limit_) : fxSelectHandler(fd_, 1), limit(limit_) {
    addOutput(lineName, fxDT_fxStr);
    addOutput(endName, fxDT_int);
    if (serve()) return;
    error = fd_ < 0 ? EBADF : EMFILE;
    state = ending;
    continueLater();
}

fxLineReader::~fxLineReader() { delete continuation; }

const char* fxLineReader::className() const { return "fxLineReader"; }

fxOutputView<fxStr> fxLineReader::line() const { return getOutput<fxStr>(lineName); }

fxOutputView<int> fxLineReader::end() const { return getOutput<int>(endName); }

void fxLineReader::pause() {
    paused = true;
    updateWishes();
}

void fxLineReader::resume() {
    paused = false;
    if (state == ended && error == 0 && (growing || start < buffer.size())) state = reading;
    updateWishes();
    continueLater();
}

// First sends the lines that a throwing receiver left in the buffer.
void fxLineReader::handleRead() {
    if (!deliveries.isEmpty()) return setWishes(false, false);
    if (paused || state == ended) return;
    if (continuation != nullptr && !deliver()) return;
    if (state == reading) readMore();
    deliver();
}

// EINTR and EAGAIN do not end the input.
void fxLineReader::readMore() {
    pollfd asked = {fd, POLLIN, 0};
    if (poll(&asked, 1, 0) == 0) return;
    const std::unique_ptr<char[]> chunk(new char[chunkBytes]);
    const ssize_t count = read(fd, chunk.get(), chunkBytes);
    if (count > 0) {
        buffer.append(chunk.get(), static_cast<size_t>(count));
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        error = count == 0 ? 0 : errno;
        state = ending;
    }
    updateWishes();
}

// Returns whether everything was sent, and the reader exists and is not paused.
bool fxLineReader::deliver() {
    if (!deliveries.isEmpty()) return false;
    Delivery delivery(*this);
    while (delivery.goesOn()) {
        fxStr text;
        if (takeLine(text)) {
            line().send(text, fxSendNow);
        } else if (state == ending) {
            state = ended;
            end().send(error, fxSendNow);
        } else {
            break;
        }
    }
    delivery.isDone = true;
    if (!delivery.goesOn()) return false;
    delete std::exchange(continuation, nullptr);
    return true;
}

// Takes the next line. The last one needs no newline.
bool fxLineReader::takeLine(fxStr& text) {
    while (start < buffer.size()) {
        const char* const begin = buffer.data() + start;
        const size_t size = buffer.size() - start;
        const void* const newline = std::memchr(begin + searched, '\n', size - searched);
        const bool isLast = newline == nullptr && state == ending && !(growing && error == 0);
        size_t length = size;
        size_t taken = size;
        if (newline != nullptr) {
            length = static_cast<size_t>(static_cast<const char*>(newline) - begin);
            taken = length + 1;
        } else if (!isLast && !skipping && size <= limit) {
            searched = size;
            break;
        }
        const bool isRest = std::exchange(skipping, newline == nullptr && !isLast);
        if (!isRest) text = fxStr(std::string_view(begin, std::min(length, limit)));
        if (!isRest && length > limit) ++cuts;
        start += taken;
        passed += taken;
        searched = 0;
        if (!isRest) return true;
    }
    buffer.erase(0, start);
    start = 0;
    if (buffer.empty() && buffer.capacity() > keptBytes) buffer = std::string();
    return false;
}

void fxLineReader::continueLater() {
    if (continuation != nullptr || (start == buffer.size() && state != ending)) return;
    if (fx_theEventHandler == nullptr) fx_theEventHandler = new fxEventHandler;
    continuation = new Continuation(this);
    fx_theEventHandler->postEvent(continuation);
}

void fxLineReader::updateWishes() {
    const bool wanted = !paused && state == reading;
    if (wanted != (wantRead != 0)) setWishes(wanted, false);
}
