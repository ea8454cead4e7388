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
#include <cstdio>
#include <fstream>
#include <numeric>
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

}  // namespace

TEST_F(Streams, EveryElementTypeGoesThroughAFile) {
    const char bytes[] = "ab";
    const short shorts[] = {1, -2};
    const int ints[] = {3, -4};
    const long longs[] = {5, -6};
    const float floats[] = {7.5F, -8};
    const double doubles[] = {9.5, -10};
    {
        fxStdioStream out(path.c_str(), fxStream::fxStreamWrite, 0600);
        EXPECT_FALSE(out.hasError() || out.isReading());
        EXPECT_TRUE(out.isWriting());
        EXPECT_EQ(out.getType(), 1);
        EXPECT_TRUE(out.putBytes(bytes, 1) && out.putBytes(bytes, 2) && out.putShorts(shorts, 2) &&
                    out.putInts(ints, 2) && out.putLongs(longs, 2) && out.putFloats(floats, 2) &&
                    out.putDoubles(doubles, 2));
        EXPECT_TRUE(out.flush());
        EXPECT_EQ(contents(path).size(), 3U + 2 * (2 + 4 + 8 + 4 + 8));
        EXPECT_TRUE(out.close());
        EXPECT_FALSE(out.close() || out.flush() || out.putBytes(bytes, 1));
    }
    fxStdioStream in(path.c_str(), fxStream::fxStreamRead, 0);
    char b[3];
    short s[2];
    int i[2];
    long l[2];
    float f[2];
    double d[2];
    ASSERT_TRUE(in.getBytes(b, 1) && in.getBytes(b + 1, 2) && in.getShorts(s, 2) &&
                in.getInts(i, 2) && in.getLongs(l, 2) && in.getFloats(f, 2) && in.getDoubles(d, 2));
    EXPECT_EQ(std::string(b, 3), "aab");
    EXPECT_TRUE(s[1] == -2 && i[1] == -4 && l[1] == -6 && f[1] == -8 && d[0] == 9.5);
    EXPECT_FALSE(in.getBytes(b, 1) || in.getBytes(b, 2));
    EXPECT_FALSE(in.atEOF());
    EXPECT_TRUE(in.flush());
}

TEST_F(Streams, WrongDirectionIsAFalseResult) {
    char byte = 'x';
    fxStdioStream out(path.c_str(), fxStream::fxStreamWrite, 0600);
    EXPECT_FALSE(out.getBytes(&byte, 1) || out.getBytes(&byte, 0));
    fxStdioStream in(path.c_str(), fxStream::fxStreamRead, 0600);
    EXPECT_FALSE(in.putBytes(&byte, 1));

    out.take();
    EXPECT_EQ(fxTranscriber::getReader(&out), nullptr);
    long number = 0;
    fxBinaryReader reader(&out, 0x1122, 0x33445566, "ieee");
    EXPECT_FALSE(reader.xdr(&number, 1));
    EXPECT_EQ(reader.readObject(fxStr_type), nullptr);
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

TEST_F(Streams, ShorterContentLeavesTheOldTail) {
    for (const char* text : {"longer", "ab"}) {
        fxStdioStream out(path.c_str(), fxStream::fxStreamWrite, 0600);
        EXPECT_TRUE(out.putBytes(text, static_cast<unsigned int>(strlen(text))));
    }
    EXPECT_EQ(contents(path), "abnger");
}

TEST_F(Streams, ReadWriteStreamTurnsBetweenReadingAndWriting) {
    { fxStdioStream(path.c_str(), fxStream::fxStreamWrite, 0600).putBytes("abcdef", 6); }
    {
        fxStdioStream both(path.c_str(), fxStream::fxStreamReadWrite, 0600);
        char byte = 0;
        EXPECT_TRUE(both.isReading() && both.isWriting());
        EXPECT_TRUE(both.getBytes(&byte, 1) && both.putBytes("XY", 2) && both.getBytes(&byte, 1));
        EXPECT_EQ(byte, 'd');
    }
    EXPECT_EQ(contents(path), "aXYdef");
}

TEST_F(Streams, InterruptedWritesLoseNothing) {
    struct sigaction counting = {};
    struct sigaction before = {};
    counting.sa_handler = countSignal;
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &before), 0);
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
                std::string bytes(size, 'a');
                std::iota(bytes.begin(), bytes.end(), static_cast<char>(i));
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

// However a file was opened, its bytes come in any pieces, its end is final, and
// an offset that others share ends up behind what was taken.
TEST_F(Streams, DescriptorsAndFilesAreAdopted) {
    std::mt19937 rng(testSeed());
    std::string all(300000, '?');
    for (char& byte : all) byte = static_cast<char>(rng());
    {
        fxStdioStream made(open(path.c_str(), O_RDWR | O_CREAT, 0600), fxStream::fxStreamReadWrite);
        EXPECT_TRUE(made.putBytes(all.data(), static_cast<unsigned int>(all.size())));
    }
    for (const bool fromFile : {false, true}) {
        for (const unsigned int most : {9U, 5000U, 150000U}) {
            const int fd = open(path.c_str(), O_RDONLY);
            const int shared = dup(fd);
            const fxStream::fxStreamType in = fxStream::fxStreamRead;
            fxStdioStream stream =
                fromFile ? fxStdioStream(fdopen(fd, "r"), in) : fxStdioStream(fd, in);
            size_t taken = 0;
            for (int i = 0; i < 1000 && taken + most < all.size(); ++i) {
                std::string got(rng() % most, '?');
                ASSERT_TRUE(stream.getBytes(got.data(), static_cast<unsigned int>(got.size())));
                ASSERT_TRUE(got == all.substr(taken, got.size()));
                taken += got.size();
            }
            EXPECT_TRUE(stream.close());
            EXPECT_EQ(lseek(shared, 0, SEEK_CUR), static_cast<off_t>(taken));
            close(shared);
        }
        fxStdioStream whole =
            fromFile ? fxStdioStream(std::fopen(path.c_str(), "r"), fxStream::fxStreamRead)
                     : fxStdioStream(path.c_str(), fxStream::fxStreamRead, 0);
        std::string got(all.size() + 1, '?');
        EXPECT_FALSE(whole.getBytes(got.data(), static_cast<unsigned int>(got.size())));
        std::ofstream(path, std::ios::app) << "more";
        EXPECT_FALSE(whole.getBytes(got.data(), 1));
        all += "more";
    }
}

// Against a string: what is refused changes nothing, wherever the buffer ends.
TEST_F(Streams, MemoryHoldsWhatIsWrittenUpToItsLimit) {
    std::mt19937 rng(testSeed());
    for (const size_t limit : {size_t{0}, size_t{7}, size_t{300}, size_t{5000}, SIZE_MAX}) {
        fxMemoryStream stream(limit);
        std::string model;
        size_t taken = 0;
        for (int step = 0; step < 2000; ++step) {
            const size_t n = rng() % 64;
            switch (rng() % 16) {
                case 0:
                    ASSERT_EQ(stream.setPosition(n), n <= model.size());
                    taken = n <= model.size() ? n : taken;
                    break;
                case 1:
                    stream.rewind();
                    taken = 0;
                    break;
                case 2: {  // bytes of its own, which move while they are written
                    const size_t own = std::min(n, model.size());
                    const bool fits = own <= limit - model.size();
                    ASSERT_EQ(stream.putBytes(stream.bytes(), static_cast<unsigned int>(own)),
                              fits);
                    if (fits) model += model.substr(0, own);
                    break;
                }
                case 3: {
                    const long numbers[] = {static_cast<long>(rng()), step};
                    const bool fits = sizeof numbers <= limit - model.size();
                    ASSERT_EQ(stream.putLongs(numbers, 2), fits);
                    if (fits) model.append(reinterpret_cast<const char*>(numbers), sizeof numbers);
                    break;
                }
                default: {
                    std::string got(n, '?');
                    const bool isThere = n <= model.size() - taken;
                    ASSERT_EQ(stream.getBytes(got.data(), static_cast<unsigned int>(n)), isThere);
                    ASSERT_EQ(got, isThere ? model.substr(taken, n) : std::string(n, '?'));
                    taken += isThere ? n : 0;
                }
            }
            ASSERT_EQ(stream.view(), model);
            ASSERT_EQ(stream.getPosition(), taken);
            ASSERT_EQ(stream.atEOF(), taken == model.size());
        }
        size_t count = 0;
        char* const given = stream.give(count);
        EXPECT_EQ(std::string_view(given, count), model);
        std::free(given);
        EXPECT_TRUE(stream.length() == 0 && stream.atEOF() && !stream.hasError());
        EXPECT_TRUE(stream.give(count) == nullptr && count == 0);
    }
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

TEST_F(Streams, EmptyOrTruncatedHeaderMakesNoReader) {
    for (size_t n = 0; n < header().size(); ++n) {
        HeldStream stream(header().substr(0, n));
        EXPECT_EQ(fxTranscriber::getReader(stream), nullptr) << n;
        EXPECT_EQ(stream->refCount, 1U);  // still the caller's
    }
    HeldStream whole(header());
    const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(whole));
    ASSERT_NE(reader, nullptr);
    EXPECT_STREQ(reader->className(), "fxBinaryReader");
    EXPECT_TRUE(reader->isReading());
    EXPECT_EQ(fxTranscriber::getReader(nullptr), nullptr);
    EXPECT_EQ(fxTranscriber::getWriter(nullptr), nullptr);
}

TEST_F(Streams, UnknownHeadersAreFatal) {
    HeldStream nobody(std::string("Nobody\0ieee\0", 12) + std::string(10, 'x'));
    EXPECT_DEATH(fxTranscriber::getReader(nobody), "Unknown transcriber type \"Nobody\"");
    const auto make = [](short shortMark, long longMark, const char* format) {
        HeldStream stream;
        fxBinaryReader reader(stream, shortMark, longMark, format);
    };
    // The long mark is printed for both.
    EXPECT_DEATH(make(0x1133, 0x33445566, "ieee"), "unknown short ordering 33445566");
    EXPECT_DEATH(make(0x1122, 0x12, "ieee"), "unknown long ordering 12");
    EXPECT_DEATH(make(0x1122, 0x6655443300000000, "ieee"), "unknown long ordering 0");
    EXPECT_DEATH(make(0x1122, 0x33445566, "vax"), "unsupported floating point format vax");
    EXPECT_DEATH(make(0x1122, 0x33445566, "ieee754"), "floating point format ieee754");
    HeldStream stream;
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    EXPECT_DEATH(fxBinaryReader_floatsVAX(reader, nullptr, 0), "floatsVAX: not implemented");
    EXPECT_DEATH(fxBinaryReader_doublesVAX(reader, nullptr, 0), "floatsVAX: not implemented");
    EXPECT_DEATH(reader.writeObject(nullptr, nullptr),
                 "tried to invoke fxBinaryReader::writeObject");
}

TEST_F(Streams, WriterFactoryCanBeChangedAndRestored) {
    HeldStream stream;
    fxTranscriber::changeDefaultWriter(noWriter);
    EXPECT_EQ(fxTranscriber::getWriter(stream), nullptr);
    fxTranscriber::changeDefaultWriter(nullptr);
    EXPECT_EQ(fxTranscriber::getWriter(stream), nullptr);
    fxTranscriber::resetToDefaultWriter();
    const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
    ASSERT_NE(writer, nullptr);
    EXPECT_STREQ(writer->className(), "fxBinaryWriter");
    EXPECT_FALSE(writer->isReading());
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

TEST_F(Streams, IntOperationsTouchNothingBesideTheInts) {
    HeldStream stream;
    fxBinaryWriter writer(stream);
    int out[] = {1, -2, 3};
    unsigned int one = 4000000000U;
    ASSERT_TRUE(writer.xdr(out, 3) && writer.xdr(&one, 1) && writer.flush());
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    const std::unique_ptr<int[]> in(new int[3]);  // watched by the sanitizer
    const std::unique_ptr<unsigned int> single(new unsigned int);
    ASSERT_TRUE(reader.xdr(in.get(), 3) && reader.xdr(single.get(), 1));
    EXPECT_TRUE(std::equal(out, out + 3, in.get()));
    EXPECT_EQ(*single, one);
}
