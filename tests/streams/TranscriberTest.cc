// Streams over files, the header, and the registry of readers.
#include "fxds/Transcriber.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <random>
#include <thread>

#include "fxds/Globals.h"
#include "fxds/StdioStream.h"
#include "tests/support/RunProgram.h"
#include "tests/support/StreamKit.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

class Streams : public ::testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    ~Streams() override {
        fxTranscriber::resetToDefaultWriter();
        EXPECT_EQ(openDescriptors(), descriptors);
    }

    const int descriptors = openDescriptors();
    const TestDirectory directory;
    const std::string path = directory.path + "/stream";
};

/// Counts what is alive of it.
class CountedStream : public fxMemoryStream {
public:
    explicit CountedStream(size_t limitBytes = SIZE_MAX) : fxMemoryStream(limitBytes) { ++alive; }
    CountedStream(const CountedStream&) = delete;
    CountedStream& operator=(const CountedStream&) = delete;
    ~CountedStream() override { --alive; }
    static int alive;
};
int CountedStream::alive = 0;

fxTranscriber* noWriter(fxStream*) { return nullptr; }

std::atomic<int> signals = 0;
void countSignal(int) { ++signals; }

// Reads a descriptor to its end. Before each piece, interrupts `writer`.
std::string readInterrupting(int fd, pthread_t writer) {
    std::string all;
    char piece[1500];
    for (ssize_t n = 1; n > 0; all.append(piece, static_cast<size_t>(n))) {
        const int before = signals;
        pthread_kill(writer, SIGUSR1);
        while (signals == before) sched_yield();
        n = read(fd, piece, sizeof piece);
        if (n <= 0) break;
    }
    return all;
}

/// What a stream should hold, and where it is.
struct Model {
    bool reads, writes;
    bool appends = false;  // wherever it is
    size_t limit = SIZE_MAX;
    std::string bytes = {};
    size_t position = 0;

    bool put(const std::string& more) {
        if (!writes || (appends && more.size() > limit - bytes.size())) return false;
        if (!appends) bytes.resize(std::max(bytes.size(), position + more.size()));
        bytes.replace(appends ? bytes.size() : position, more.size(), more);
        if (!appends) position += more.size();
        return true;
    }
    bool get(std::string& all) {
        if (!reads || all.size() > bytes.size() - position) return false;
        all = bytes.substr(position, all.size());
        position += all.size();
        return true;
    }
};

template <class T>
bool put(fxStream& stream, bool (fxStream::*operation)(const T*, unsigned int),
         const std::string& bytes) {
    std::vector<T> items(bytes.size() / sizeof(T));
    std::memcpy(items.data(), bytes.data(), bytes.size());
    return (stream.*operation)(items.data(), static_cast<unsigned int>(items.size()));
}
template <class T>
bool get(fxStream& stream, bool (fxStream::*operation)(T*, unsigned int), std::string& bytes) {
    std::vector<T> items(bytes.size() / sizeof(T));
    std::memcpy(items.data(), bytes.data(), bytes.size());
    const bool isDone = (stream.*operation)(items.data(), static_cast<unsigned int>(items.size()));
    std::memcpy(bytes.data(), items.data(), bytes.size());
    return isDone;
}

// Elements of each type, written and read in any order, up to the end of what is there,
// which is final.
void agree(fxStream& stream, Model& model, std::mt19937& rng, int steps, size_t most) {
    EXPECT_TRUE(stream.isReading() == model.reads && stream.isWriting() == model.writes);
    static const size_t sizes[] = {1, 2, 4, 8, 4, 8};
    for (bool isOver = false; steps > 0 && !isOver; --steps) {
        const size_t kind = rng() % 6;
        std::string bytes((1 + rng() % (rng() % 8 == 0 ? most : 20)) * sizes[kind], '?');
        if (model.writes && (!model.reads || rng() % 2 == 0)) {
            for (char& byte : bytes) byte = static_cast<char>(rng());
            const bool isPut = kind == 0   ? put(stream, &fxStream::putBytes, bytes)
                               : kind == 1 ? put(stream, &fxStream::putShorts, bytes)
                               : kind == 2 ? put(stream, &fxStream::putInts, bytes)
                               : kind == 3 ? put(stream, &fxStream::putLongs, bytes)
                               : kind == 4 ? put(stream, &fxStream::putFloats, bytes)
                                           : put(stream, &fxStream::putDoubles, bytes);
            ASSERT_EQ(isPut, model.put(bytes));
        } else {
            std::string expected = bytes;
            const bool isGot = kind == 0   ? get(stream, &fxStream::getBytes, bytes)
                               : kind == 1 ? get(stream, &fxStream::getShorts, bytes)
                               : kind == 2 ? get(stream, &fxStream::getInts, bytes)
                               : kind == 3 ? get(stream, &fxStream::getLongs, bytes)
                               : kind == 4 ? get(stream, &fxStream::getFloats, bytes)
                                           : get(stream, &fxStream::getDoubles, bytes);
            ASSERT_EQ(isGot, model.get(expected));
            isOver = !isGot && !model.appends;
            if (isOver) model.position = model.bytes.size();
            ASSERT_TRUE(isOver || bytes == expected);
        }
    }
    char byte = 'x';
    EXPECT_TRUE(model.writes || !(stream.putBytes(&byte, 1) || stream.putBytes(&byte, 0)));
    EXPECT_TRUE(model.reads || !(stream.getBytes(&byte, 1) || stream.getBytes(&byte, 0)));
}

}  // namespace

// However a file was opened, its bytes come in any pieces, shorter content leaves the old
// tail, and an offset that others share ends up behind what was taken.
TEST_F(Streams, FilesAgreeWithModel) {
    std::mt19937 rng(testSeed());
    std::string bytes;
    for (int round = 0; round < 90; ++round) {
        const auto type = static_cast<fxStream::fxStreamType>(round % 3);
        const bool reads = type != fxStream::fxStreamWrite, writes = type != fxStream::fxStreamRead;
        const int fd = open(path.c_str(),
                            (reads && writes ? O_RDWR
                             : reads         ? O_RDONLY
                                             : O_WRONLY) |
                                O_CREAT | O_CLOEXEC,
                            0600);
        const int shared = dup(fd), way = round / 3 % 3;
        std::unique_ptr<fxStdioStream> stream(
            way == 0   ? new fxStdioStream(path.c_str(), type, 0600)
            : way == 1 ? new fxStdioStream(fd, type)
                       : new fxStdioStream(fdopen(fd, reads && writes ? "r+"
                                                      : reads         ? "r"
                                                                      : "w"),
                                           type));
        ASSERT_FALSE(stream->hasError());
        ASSERT_EQ(stream->getType(), type);
        Model model = {reads, writes};
        model.bytes = bytes;
        agree(*stream, model, rng, 40, round % 10 == 0 ? 20000 : 500);
        EXPECT_TRUE(stream->flush());
        ASSERT_TRUE(contents(path) == model.bytes) << round;
        EXPECT_TRUE(stream->close());
        char byte = 0;
        EXPECT_FALSE(stream->close() || stream->flush() || stream->putBytes(&byte, 1));
        EXPECT_EQ(lseek(shared, 0, SEEK_CUR), way != 0 ? static_cast<off_t>(model.position) : 0);
        if (way == 0) close(fd);
        close(shared);
        bytes = model.bytes;
    }
}

// What is refused changes nothing, wherever the buffer ends.
TEST_F(Streams, MemoryAgreesWithModel) {
    std::mt19937 rng(testSeed());
    for (const size_t limit : {size_t{0}, size_t{7}, size_t{300}, size_t{5000}, SIZE_MAX}) {
        fxMemoryStream stream(limit);
        Model model = {true, true, true, limit};
        for (int step = 0; step < 200; ++step) {
            agree(stream, model, rng, 10, 64);
            const size_t n = rng() % 200;
            if (rng() % 2 == 0) {
                ASSERT_EQ(stream.setPosition(n), n <= model.bytes.size());
                if (n <= model.bytes.size()) model.position = n;
            } else {  // bytes of its own, which move while they are written
                const std::string own = model.bytes.substr(0, n);
                ASSERT_EQ(stream.putBytes(stream.bytes(), static_cast<unsigned int>(own.size())),
                          model.put(own));
            }
            ASSERT_EQ(stream.view(), model.bytes);
            ASSERT_EQ(stream.getPosition(), model.position);
            ASSERT_EQ(stream.atEOF(), model.position == model.bytes.size());
        }
        size_t count = 0;
        char* const given = stream.give(count);
        EXPECT_EQ(std::string_view(given, count), model.bytes);
        std::free(given);
        EXPECT_TRUE(stream.length() == 0 && stream.atEOF() && !stream.hasError());
        EXPECT_TRUE(stream.give(count) == nullptr && count == 0);
    }
}

TEST_F(Streams, InterruptedWritesLoseNothing) {
    struct sigaction counting = {};
    struct sigaction before = {};
    counting.sa_handler = countSignal;
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &before), 0);
    std::mt19937 random(1);
    for (bool adopting : {false, true}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        fcntl(ends[1], F_SETPIPE_SZ, 4096);
        std::string got;
        const pthread_t writer = pthread_self();
        std::thread reader([&] { got = readInterrupting(ends[0], writer); });

        std::string sent;
        {
            const fxStream::fxStreamType out = fxStream::fxStreamWrite;
            fxStdioStream stream =
                adopting ? fxStdioStream(fdopen(ends[1], "w"), out) : fxStdioStream(ends[1], out);
            for (unsigned int i = 0; i < 600; ++i) {
                // Some need more room than the pipe has.
                const unsigned int size = i % 50 == 0 ? 20000 : 1 + 37 * i % 500;
                std::string bytes(size, 'a');  // without a period, which a page might fit
                for (char& byte : bytes) byte = static_cast<char>(random());
                sent += bytes;
                EXPECT_TRUE(stream.putBytes(bytes.data(), size));
            }
            EXPECT_TRUE(stream.flush());
            EXPECT_TRUE(stream.close());
        }
        reader.join();
        close(ends[0]);
        EXPECT_TRUE(got == sent) << got.size() << " of " << sent.size();
    }
    sigaction(SIGUSR1, &before, nullptr);
}

// Nothing is read beyond what was asked for: the pipe would block.
TEST_F(Streams, GraphsComeThroughAPipeOneByOne) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::unique_ptr<fxTranscriber> writer(
        fxTranscriber::getWriter(new fxStdioStream(ends[1], fxStream::fxStreamWrite)));
    std::unique_ptr<fxTranscriber> reader;
    for (int i = 0; i < 3; ++i) {
        Node node;
        node.left = &node;  // ends in a reference
        writer->reset();
        ASSERT_TRUE(fxWriteObject(*writer, &node));
        if (i == 0) {
            reader.reset(
                fxTranscriber::getReader(new fxStdioStream(ends[0], fxStream::fxStreamRead)));
        }
        const std::unique_ptr<Node> read(fxReadObject<Node>(*reader));
        ASSERT_TRUE(read != nullptr && read->left == read.get());
    }
}

TEST_F(Streams, MissingFileIsAnErrorToReadAndMadeToWrite) {
    fxStdioStream missing(path.c_str(), fxStream::fxStreamRead, 0600);
    char byte = 0;
    EXPECT_TRUE(missing.hasError());
    EXPECT_FALSE(missing.getBytes(&byte, 1) || missing.flush() || missing.close());

    const mode_t before = umask(0);
    for (fxStream::fxStreamType type : {fxStream::fxStreamWrite, fxStream::fxStreamReadWrite}) {
        {
            fxStdioStream made(path.c_str(), type, 0640);
            EXPECT_FALSE(made.hasError());
        }
        struct stat status;
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0640U);
        unlink(path.c_str());
    }
    umask(before);
    fxStdioStream nowhere("/no/such/directory/file", fxStream::fxStreamWrite, 0600);
    EXPECT_TRUE(nowhere.hasError());
    fxStdioStream noFile(static_cast<FILE*>(nullptr), fxStream::fxStreamRead);
    EXPECT_TRUE(noFile.hasError());
    fxStdioStream badDescriptor(-1, fxStream::fxStreamRead);
    EXPECT_TRUE(badDescriptor.hasError());
}

TEST_F(Streams, MemoryIsReadFromBytesThatAreGiven) {
    const std::string bytes = "abc";
    fxMemoryStream given(bytes.data(), bytes.size());
    char got[4] = "";
    size_t count = 1;
    EXPECT_TRUE(given.isReading() && !given.isWriting() && !given.hasError());
    EXPECT_EQ(given.getType(), fxStream::fxStreamRead);
    EXPECT_FALSE(given.putBytes("x", 1) || given.putBytes("x", 0));
    EXPECT_EQ(given.give(count), nullptr);
    EXPECT_TRUE(given.bytes() == bytes.data() && count == 0);
    EXPECT_TRUE(given.getBytes(got, 3) && given.atEOF());
    EXPECT_FALSE(given.getBytes(got, 1));
    given.reset();
    EXPECT_TRUE(given.atEOF() && given.length() == 0 && given.bytes() == nullptr);
    fxMemoryStream missing(nullptr, 5);
    EXPECT_TRUE(missing.hasError() && missing.atEOF() && !missing.getBytes(got, 1));
}

TEST_F(Streams, ReadersAndWritersAreMadeByTheRegistry) {
    HeldStream stream, whole(header());
    fxTranscriber::changeDefaultWriter(noWriter);
    EXPECT_EQ(fxTranscriber::getWriter(stream), nullptr);
    fxTranscriber::changeDefaultWriter(nullptr);
    EXPECT_EQ(fxTranscriber::getWriter(stream), nullptr);
    fxTranscriber::resetToDefaultWriter();
    const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
    EXPECT_STREQ(writer->className(), "fxBinaryWriter");
    const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(whole));
    EXPECT_STREQ(reader->className(), "fxBinaryReader");
    EXPECT_TRUE(reader->isReading() && !writer->isReading());
    whole.set("");
    EXPECT_EQ(fxTranscriber::getReader(whole), nullptr);
    EXPECT_EQ(whole->refCount, 2U);  // the caller's, and the other reader's
    EXPECT_EQ(fxTranscriber::getReader(nullptr), nullptr);
    EXPECT_EQ(fxTranscriber::getWriter(nullptr), nullptr);
}

TEST_F(Streams, TranscriberHoldsItsStream) {
    delete fxTranscriber::getWriter(new CountedStream);
    EXPECT_EQ(CountedStream::alive, 0);

    EXPECT_EQ(fxTranscriber::getWriter(new CountedStream(3)), nullptr);  // which lets go of it
    EXPECT_EQ(CountedStream::alive, 0);

    fxMemoryStream local;
    EXPECT_DEATH(delete fxTranscriber::getWriter(&local), "take\\(\\) it first|not malloc");
    CountedStream* held = new CountedStream;
    held->take();
    delete fxTranscriber::getWriter(held);
    EXPECT_EQ(CountedStream::alive, 1);
    delete fxTranscriber::getReader(held);
    EXPECT_EQ(CountedStream::alive, 1);
    held->release();
    EXPECT_EQ(CountedStream::alive, 0);
}
