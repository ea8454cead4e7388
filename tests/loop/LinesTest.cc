// Texts that come and go line by line: readers, writers, followed files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/Outside.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

// Feeds a reader in pieces, while receivers pause and throw, and compares with the
// text cut into lines.
TEST_F(Outside, ReaderAgreesWithTheText) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 60; ++round) {
        const size_t limit = rng() % 3 == 0 ? 20000 : rng() % 7;
        const size_t longest = rng() % 4 == 0 ? 40000 : 12;
        std::string text;
        Log expected;
        unsigned long cuts = 0;
        for (auto lines = rng() % 30; lines > 0; --lines) {
            std::string line(rng() % longest, static_cast<char>(rng() % 2 ? 'x' : '\0'));
            text += line + "\n";
            cuts += line.size() > limit;
            expected.push_back(line.substr(0, limit));
        }
        if (rng() % 2 == 0) {
            text += "rest";
            cuts += limit < 4;
            expected.push_back(std::string("rest").substr(0, limit));
        }
        expected.push_back("[0]");
        Pipe pipe;
        std::thread feeder([&, seed = rng()] {
            std::mt19937 sizes(static_cast<unsigned int>(seed));
            for (size_t at = 0; at < text.size();) {
                const size_t size = std::min<size_t>(text.size() - at, 1 + sizes() % 9000);
                at += static_cast<size_t>(write(pipe.ends[1], text.data() + at, size));
            }
            close(pipe.ends[1]);
        });
        log.clear();
        fxLineReader reader(pipe.ends[0], limit);
        bool isCalled = false;
        fxConnect(reader.line(), [&](const std::string& line) {
            EXPECT_FALSE(reader.isPaused() || isCalled);
            log.push_back(line);
            const auto kind = rng() % 8;
            isCalled = true;
            if (kind == 0) reader.pause();
            if (kind < 2) turn();
            isCalled = false;
            if (kind < 3) throw Thrown();
        });
        fxConnect(reader.end(), [this](int error) { noteEnd(error); });
        until([&] {
            if (reader.isPaused()) reader.resume();
            return hasEnded();
        });
        feeder.join();
        turn();
        EXPECT_EQ(log, expected);
        EXPECT_EQ(reader.getCutCount(), cuts);
        EXPECT_TRUE(reader.isAtEnd());
        if (HasFailure()) return;
    }
}

TEST_F(Outside, ReadersEndInTheirReceivers) {
    for (const char* at : {"one", "two", "[0]"}) {
        Pipe pipe;
        ASSERT_EQ(write(pipe.ends[1], "one\ntwo", 7), 7);
        close(pipe.ends[1]);
        log.clear();
        auto reader = std::make_unique<fxLineReader>(pipe.ends[0]);
        fxPostQueue idle;
        note(*reader);
        const auto destroy = [&] {
            if (log.back() == at) reader.reset();
        };
        fxConnect(reader->line(), [&](const fxStr&) { destroy(); });
        fxConnect(reader->end(), [&](int) { destroy(); });
        until([&] { return reader == nullptr; });
        turn();
        EXPECT_EQ(log.back(), at);
    }
}

TEST_F(Outside, WhatCannotBeReadEndsWithItsError) {
    const int folder = open("/", O_RDONLY | O_CLOEXEC), closed = 900;
    for (const auto& [fd, error] : {std::pair(folder, EISDIR), {closed, EBADF}}) {
        fxLineReader reader(fd);
        note(reader);
        reader.handleRead();
        EXPECT_EQ(log.back(), "[" + std::to_string(error) + "]");
        reader.resume();
        reader.handleRead();
    }
    EXPECT_EQ(log.size(), 2U);
    fxLineReader none(-1);
    EXPECT_FALSE(none.isValid() || fxLineWriter(none).isValid());
    none.handleRead();
}

TEST_F(Outside, GrowingFilesAreReadOn) {
    TestDirectory directory;
    const std::string path = directory.file("log", "one\n");
    fxLineReader reader(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    reader.setGrowing(true);
    note(reader);
    until([&] { return hasEnded(); });
    std::ofstream(path, std::ios::app) << "two\nthree";
    turn();
    reader.resume();
    until([&] { return log.size() > 2 && hasEnded(); });
    reader.setGrowing(false);
    reader.resume();
    until([&] { return log.size() > 4 && hasEnded(); });
    EXPECT_EQ(log, (Log{"one", "[0]", "two", "[0]", "three", "[0]"}));
}

TEST_F(Outside, FollowersBeginAgainOnlyWhereAFileWasCut) {
    TestDirectory directory;
    const std::string path = directory.file("log", "one\ntw");
    const auto write = [&](const char* text, std::ios::openmode mode) {
        std::ofstream(path, mode) << text;
    };
    const std::chrono::milliseconds soon(1);
    const auto folder = std::filesystem::current_path();
    std::filesystem::current_path(std::filesystem::path(path).parent_path());
    fxFileFollower follower("log", fxFilePlace(), soon);
    std::filesystem::current_path(folder);
    fxConnect(follower.line(), [&](const std::string& line) {
        log.push_back(line);
        if (line == "one") write("", std::ios::trunc);
        if (line == "tw") write("the first\nthe second\n", std::ios::app);
    });
    until([&] { return !log.empty() && log.back() == "the second"; });
    EXPECT_EQ(log, (Log{"one", "tw", "the first", "the second"}));

    std::ifstream limits("/proc/self/limits");
    Log expected;
    for (std::string line; std::getline(limits, line);) expected.push_back(line);
    log.clear();
    fxFileFollower shown("/proc/self/limits", fxFilePlace(), soon);
    fxConnect(shown.line(), [this](const std::string& line) { log.push_back(line); });
    int ticks = 0;
    const fxRef<fxAlarm> ticking = fxEvery(soon, [&] { ++ticks; });
    until([&] { return ticks > 20; });
    ticking->stop();
    EXPECT_EQ(log, expected);
}

TEST_F(Outside, WriterKeepsEveryByteAndBlocksNowhere) {
    for (const bool isSocket : {false, true}) {
        Pipe pipe;
        if (isSocket) {
            close(pipe.ends[0]);
            close(pipe.ends[1]);
            ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pipe.ends), 0);
        }
        fxLineWriter writer(pipe.ends[1], 300000, 1000);
        int drained = 0;
        fxConnect(writer.drained(), [&] { ++drained; });
        fxConnect(writer.end(), [this](int error) { noteEnd(error); });
        std::string expected;
        for (int i = 0; !writer.isFull(); ++i) {
            const std::string line(static_cast<size_t>(i % 1000), 'x');
            EXPECT_TRUE(writer.writeLine(line));
            expected += line + "\n";
        }
        while (writer.getPending() > 0) {
            const size_t before = writer.getPending();
            turn();
            if (writer.getPending() == before) break;
        }
        EXPECT_TRUE(writer.getPending() > 0 && drained == 0) << "the other end takes all";
        writer.finish();
        EXPECT_FALSE(writer.write("more"));
        std::string received;
        std::thread other([&] { received = readAll(pipe.ends[0]); });
        until([&] { return hasEnded(); });
        other.join();
        close(pipe.ends[0]);
        EXPECT_TRUE(received == expected);
        EXPECT_EQ(drained, 1);
        EXPECT_EQ(log.back(), "[0]");
        log.clear();
    }
}

TEST_F(Outside, WriterTellsWhenNothingReads) {
    for (const int domain : {0, AF_UNIX}) {
        Pipe pipe;
        if (domain != 0) {
            close(pipe.ends[0]);
            close(pipe.ends[1]);
            ASSERT_EQ(socketpair(domain, SOCK_STREAM, 0, pipe.ends), 0);
        }
        close(pipe.ends[0]);
        auto writer = std::make_unique<fxLineWriter>(pipe.ends[1]);
        fxConnect(writer->end(), [&](int error) {
            noteEnd(error);
            writer.reset();
        });
        writer->writeLine("x");
        EXPECT_FALSE(writer->flush());
        EXPECT_EQ(writer->getError(), EPIPE);
        EXPECT_FALSE(writer->isValid() || writer->writeLine("y"));
        turn();
        EXPECT_EQ(writer, nullptr);
    }
    EXPECT_EQ(log, (Log{"[32]", "[32]"}));
}
