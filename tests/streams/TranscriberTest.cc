// Streams over files and memory, what they do when the system fails them, and the registry
// of readers.
#include "fxds/Transcriber.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <functional>
#include <random>

#include "fxds/fxds.h"
#include "tests/support/RunProgram.h"
#include "tests/support/StreamKit.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

const fxStream::fxStreamType out = fxStream::fxStreamWrite;

int made(const std::string& path, fxStream::fxStreamType type) {
    static const int flags[] = {O_RDONLY, O_WRONLY, O_RDWR};
    return open(path.c_str(), flags[type] | O_CREAT | O_CLOEXEC, 0600);
}
/// By its path, of its descriptor, or of a FILE with a buffer of some size.
std::unique_ptr<fxStdioStream> opened(const std::string& path, int fd, fxStream::fxStreamType type,
                                      size_t way) {
    if (way == 1) return std::make_unique<fxStdioStream>(fd, type);
    static const char* const modes[] = {"r", "w", "r+"};
    FILE* const file = fdopen(fd, modes[type]);
    std::setvbuf(file, nullptr, way == 2 ? _IONBF : _IOFBF, way * way);
    if (way != 0) return std::make_unique<fxStdioStream>(file, type);
    std::fclose(file);
    return std::make_unique<fxStdioStream>(path.c_str(), type, 0600);
}

class Streams : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        fxInitializeToolkit();
        signal(SIGXFSZ, SIG_IGN);
    }
    ~Streams() override {
        fxTranscriber::resetToDefaultWriter();
        EXPECT_EQ(openDescriptors(), descriptors);
    }

    const int descriptors = openDescriptors();
    const TestDirectory directory;
    const std::string path = directory.path + "/stream";
};

// A FILE whose system calls do what a list says, one entry after the other: how many
// bytes they take before an interruption, or an error, as a negative number.
struct Script {
    std::vector<int> outcomes;  // then all
    std::string bytes = {};
    size_t calls = 0;

    static ssize_t write(void* cookie, const char* from, size_t count) {
        Script& self = *static_cast<Script*>(cookie);
        const int outcome =
            self.calls < self.outcomes.size() ? self.outcomes[self.calls++] : INT_MAX;
        errno = outcome < 0 ? -outcome : EINTR;
        count = outcome < 0 ? 0 : std::min(count, static_cast<size_t>(outcome));
        self.bytes.append(from, count);
        return static_cast<ssize_t>(count);
    }
};

/// What a stream should hold, and where it is.
struct Model {
    bool reads, writes;
    bool appends = false;  // wherever it is
    size_t limit = SIZE_MAX;
    std::string bytes = {};
    size_t position = 0;
    bool tells = true;  // how many bytes are to come

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

/// Calls act() with a number of the kind's type and the operations for it.
template <class Act>
bool withKind(size_t kind, Act act) {
    return kind == 0   ? act(char(), &fxStream::putBytes, &fxStream::getBytes)
           : kind == 1 ? act(short(), &fxStream::putShorts, &fxStream::getShorts)
           : kind == 2 ? act(int(), &fxStream::putInts, &fxStream::getInts)
           : kind == 3 ? act(long(), &fxStream::putLongs, &fxStream::getLongs)
           : kind == 4 ? act(float(), &fxStream::putFloats, &fxStream::getFloats)
                       : act(double(), &fxStream::putDoubles, &fxStream::getDoubles);
}

// Elements of each type, written and read in any order, up to the end of what is there,
// which is final.
void agree(fxStream& stream, Model& model, std::mt19937& rng, int steps, size_t most) {
    EXPECT_TRUE(stream.isReading() == model.reads && stream.isWriting() == model.writes);
    for (bool isOver = false; steps > 0 && !isOver; --steps) {
        const size_t count = 1 + rng() % (rng() % 8 == 0 ? most : 20);
        const bool isPut = model.writes && (!model.reads || rng() % 2 == 0);
        std::string bytes, expected;
        const bool isDone = withKind(rng() % 6, [&](auto item, auto put, auto get) {
            std::vector<decltype(item)> items(count);
            bytes.assign(count * sizeof item, '?');
            for (char& byte : bytes) byte = static_cast<char>(rng());
            expected = bytes;
            std::memcpy(items.data(), bytes.data(), bytes.size());
            const auto n = static_cast<unsigned int>(count);
            const bool isOk =
                isPut ? (stream.*put)(items.data(), n) : (stream.*get)(items.data(), n);
            std::memcpy(bytes.data(), items.data(), bytes.size());
            return isOk;
        });
        ASSERT_EQ(isDone, isPut ? model.put(expected) : model.get(expected));
        isOver = !isPut && !isDone && !model.appends;
        if (isOver) model.position = model.bytes.size();
        ASSERT_TRUE(isOver || bytes == expected);
        ASSERT_EQ(stream.bytesToCome(), model.tells ? model.bytes.size() - model.position : 0);
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
    for (unsigned int round = 0; round < 90; ++round) {
        const auto type = static_cast<fxStream::fxStreamType>(round % 3);
        const bool reads = type != fxStream::fxStreamWrite, writes = type != fxStream::fxStreamRead;
        const int fd = made(path, type), shared = dup(fd);
        const size_t way = rng() % 6;
        const std::unique_ptr<fxStdioStream> stream = opened(path, fd, type, way);
        ASSERT_FALSE(stream->hasError());
        ASSERT_EQ(stream->getType(), type);
        Model model = {reads, writes};
        model.bytes = bytes;
        model.tells = !writes && way < 2;
        agree(*stream, model, rng, 40, round % 10 == 0 ? 20000 : 500);
        EXPECT_TRUE(stream->flush());
        ASSERT_TRUE(contents(path) == model.bytes) << round;
        EXPECT_TRUE(stream->close());
        char byte = 0;
        EXPECT_FALSE(stream->close() || stream->flush() || stream->putBytes(&byte, 1));
        EXPECT_EQ(lseek(shared, 0, SEEK_CUR), way != 0 ? static_cast<off_t>(model.position) : 0);
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

// Pieces of many sizes, flushed now and then, against a limit anywhere.
TEST_F(Streams, WhatWasReportedAsFlushedIsOnTheDisk) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 60; ++round) {
        unlink(path.c_str());
        const std::unique_ptr<fxStdioStream> stream = opened(path, made(path, out), out, rng() % 6);
        std::string sent;
        size_t safe = 0;
        limit(RLIMIT_FSIZE, rng() % 300000);
        while (sent.size() < 200000) {
            const size_t size = 1 + rng() % (rng() % 8 == 0 ? 90000 : 900);
            const std::string piece(size, static_cast<char>(rng()));
            sent += piece;
            stream->putBytes(piece.data(), static_cast<unsigned int>(size));
            if (rng() % 16 == 0 && stream->flush()) safe = sent.size();
        }
        const bool isSaved = stream->close();
        limit(RLIMIT_FSIZE);
        if (isSaved) safe = sent.size();
        const std::string there = contents(path);
        EXPECT_GE(there.size(), safe);
        EXPECT_TRUE(sent.compare(0, safe, there, 0, safe) == 0) << "round " << round;
    }
}

// Nor does it lose anything, however much was taken before it.
TEST_F(Streams, AnInterruptionDoesNotHideALoss) {
    const struct {
        std::vector<int> outcomes;
        bool arrives;
    } cases[] = {
        {{1, 1, 1}, true},
        {{-EINTR, 1, -EINTR, -EINTR, 3, -EINTR, 2}, true},
        {{-ENOSPC}, false},
        {{-ENOSPC, -EINTR}, false},
        {{-EINTR, -EIO, 1, -EINTR}, false},
        {{1, -EINTR, -EPIPE, -EINTR}, false},
    };
    for (const auto& one : cases) {
        for (const unsigned int size : {1U, 10U, 20000U}) {
            Script script{one.outcomes};
            FILE* file = fopencookie(&script, "w", {nullptr, Script::write, nullptr, nullptr});
            std::setvbuf(file, nullptr, _IONBF, 0);
            fxStdioStream stream(file, out);
            bool isPut = true;
            std::string sent;
            for (int i = 0; i < 4; ++i) {
                std::string piece;  // of bytes that tell where they belong
                while (piece.size() < size) piece += static_cast<char>(sent.size() + piece.size());
                isPut = stream.putBytes(piece.data(), size) && isPut;
                sent += piece;
            }
            EXPECT_EQ(stream.flush(), one.arrives);
            EXPECT_TRUE(one.arrives || !stream.putBytes("x", 1)) << "after a gap";
            EXPECT_EQ(stream.close(), one.arrives);
            EXPECT_TRUE(!one.arrives || isPut);
            EXPECT_EQ(script.bytes == sent, one.arrives);
        }
    }
}

TEST_F(Streams, ASocketIsOneStreamForBothDirections) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    fxStdioStream one(ends[0], fxStream::fxStreamReadWrite);
    fxStdioStream other(ends[1], fxStream::fxStreamReadWrite);
    for (int i = 0; i < 6; ++i) {
        int sent = i, got = -1;
        EXPECT_TRUE((i % 2 == 0 ? one : other).putInts(&sent, 1));
        EXPECT_TRUE((i % 2 == 0 ? other : one).getInts(&got, 1) && got == sent);
    }
}

// What is written is at once in a pipe, which would not wait. Nothing is read beyond what
// was asked for. Each graph goes before the next one comes, and when both sides forget it, the
// next one takes no memory that it did not.
TEST_F(Streams, GraphsComeThroughAPipeOneByOne) {
    for (const bool isAdopted : {false, true}) {
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
        const std::unique_ptr<fxTranscriber> writer(
            fxTranscriber::getWriter(isAdopted ? new fxStdioStream(fdopen(ends[1], "w"), out)
                                               : new fxStdioStream(ends[1], out)));
        const std::unique_ptr<fxTranscriber> reader(
            fxTranscriber::getReader(new fxStdioStream(ends[0], fxStream::fxStreamRead)));
        size_t held = SIZE_MAX;
        for (int i = 10000; i < 12000; ++i) {
            auto node = std::make_unique<Node>();
            node->text = std::to_string(i);
            node->left = node.get();  // ends in a reference
            ASSERT_TRUE(fxWriteObject(*writer, node.get()));
            node.reset();
            node.reset(fxReadObject<Node>(*reader));
            ASSERT_TRUE(node != nullptr && node->left == node.get());
            ASSERT_EQ(node->text, std::to_string(i));
            writer->forgetObjects(), reader->forgetObjects();
            node.reset();
            if (i == 10100) held = mallinfo2().uordblks + 4096;
            ASSERT_LE(mallinfo2().uordblks, held) << i;
        }
    }
}

TEST_F(Streams, AFailedWaitLeavesItsErrno) {
    static int error;
    const auto note = [] { error = errno; };
    const fxReadNotifier file(made(path, out));
    fx_theExecutive->addPostSelectFunc(note);
    fx_theExecutive->poll(-1);
    EXPECT_EQ(error, EINVAL);
    fx_theExecutive->removePostSelectFunc(note);
}

TEST_F(Streams, MissingFileIsAnErrorToReadAndMadeToWrite) {
    const fxStream::fxStreamType in = fxStream::fxStreamRead;
    fxStdioStream missing(path.c_str(), in, 0600), nowhere("/no/such/directory/file", out, 0600);
    fxStdioStream noFile(static_cast<FILE*>(nullptr), in), badDescriptor(-1, in);
    for (fxStream* each : {&missing, &nowhere, &noFile, &badDescriptor})
        EXPECT_TRUE(each->hasError());
    char byte = 0;
    EXPECT_FALSE(missing.getBytes(&byte, 1) || missing.flush() || missing.close());

    const mode_t before = umask(0);
    for (const fxStream::fxStreamType type : {out, fxStream::fxStreamReadWrite}) {
        EXPECT_FALSE(fxStdioStream(path.c_str(), type, 0640).hasError());
        struct stat status;
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0640U);
        unlink(path.c_str());
    }
    umask(before);
}

TEST_F(Streams, MemoryIsReadFromBytesThatAreGiven) {
    std::mt19937 rng(testSeed());
    Model model = {true, false, true, 0, path};
    fxMemoryStream given(path.data(), path.size()), missing(nullptr, 5);
    size_t count = 1;
    EXPECT_TRUE(given.getType() == fxStream::fxStreamRead && !given.hasError());
    agree(given, model, rng, 100, 20);
    EXPECT_TRUE(given.give(count) == nullptr && given.bytes() == path.data() && count == 0);
    EXPECT_EQ(given.getPosition(), model.position);
    EXPECT_TRUE(given.setPosition(path.size()) && given.atEOF());
    EXPECT_TRUE(missing.hasError() && missing.atEOF());
    given.reset();
    EXPECT_TRUE(given.atEOF() && given.length() == 0 && given.bytes() == nullptr);
}

TEST_F(Streams, ReadersAndWritersAreMadeByTheRegistry) {
    HeldStream stream, whole(header()), full("", 3);
    fxTranscriber::changeDefaultWriter([](fxStream*) -> fxTranscriber* { return nullptr; });
    EXPECT_EQ(fxTranscriber::getWriter(stream), nullptr);
    fxTranscriber::changeDefaultWriter(nullptr);
    EXPECT_EQ(fxTranscriber::getWriter(stream), nullptr);
    fxTranscriber::resetToDefaultWriter();
    std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
    EXPECT_STREQ(writer->className(), "fxBinaryWriter");
    std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(whole));
    EXPECT_STREQ(reader->className(), "fxBinaryReader");
    EXPECT_TRUE(reader->isReading() && !writer->isReading());
    whole.set("");
    EXPECT_EQ(fxTranscriber::getReader(whole), nullptr);
    EXPECT_EQ(fxTranscriber::getReader(nullptr), nullptr);
    EXPECT_EQ(fxTranscriber::getWriter(nullptr), nullptr);
    EXPECT_EQ(fxTranscriber::getWriter(full), nullptr);
    // Each holds its stream.
    EXPECT_TRUE(stream->refCount == 2 && whole->refCount == 2 && full->refCount == 1);
    writer.reset(), reader.reset();
    EXPECT_TRUE(stream->refCount == 1 && whole->refCount == 1);
    fxMemoryStream local;
    EXPECT_DEATH(delete fxTranscriber::getWriter(&local), "take\\(\\) it first|not malloc");
}

#ifndef __SANITIZE_ADDRESS__

// How many instructions of the machine one message takes when few, and when many, came before
// it. Another process goes through them, step by step between its stops.
TEST_F(Streams, GraphsCostAsMuchHoweverManyCameBefore) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(0);
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        fxTranscriber* const writer = fxTranscriber::getWriter(new fxStdioStream(ends[1], out));
        fxTranscriber* const reader =
            fxTranscriber::getReader(new fxStdioStream(ends[0], fxStream::fxStreamRead));
        fxStr text("text");
        for (int i = 0; i < 20000; ++i) {
            if (i == 100 || i == 101 || i == 19999) raise(SIGSTOP);
            fxWriteObject(*writer, &text);
            delete fxReadObject<fxStr>(*reader);
            writer->forgetObjects(), reader->forgetObjects();
        }
        _exit(0);
    }
    std::vector<size_t> steps;
    for (int state = 0; waitpid(child, &state, 0) == child && WIFSTOPPED(state);) {
        if (WSTOPSIG(state) == SIGSTOP) steps.push_back(0);
        const bool counts = steps.size() % 2 != 0;
        if (counts) ++steps.back();
        if (steps.size() > 2 && steps[2] > 2 * steps[0]) kill(child, SIGKILL);
        ptrace(counts ? PTRACE_SINGLESTEP : PTRACE_CONT, child, nullptr, nullptr);
    }
    if (steps.empty()) GTEST_SKIP() << "this machine forbids tracing";
    ASSERT_EQ(steps.size(), 3U);
    EXPECT_LE(steps[2], 2 * steps[0]);
}

TEST_F(Streams, RunningOutOfMemoryIsFatalAndSaysForHowMuch) {
    // clang-format off
    const std::function<void()> greedy[] = {
        [] { fxLongArray().setMaxLength(100000000); },
        [] { fxStr("x").resize(1U << 30); },
        [] { fxVoidPtrDict dictionary(200000000); },
        [] { for (fxStackBuffer buffer;;) buffer.put("0123456789", 10); },
        [] { for (fxStr text("0123456789");;) text.append(text); },
    };
    // clang-format on
    for (const auto& action : greedy) {
        EXPECT_DEATH(limitMemory(size_t{64} << 20); action();, "out of memory for [0-9]+ bytes");
    }
}

#endif
