// The texts of flows beyond what texts.md shows of them; the standard elements: what they
// send, and what they do outside.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "flow/Flow.h"
#include "flow/Tester.h"
#include "fxds/Clock.h"
#include "fxds/Converter.h"
#include "fxds/EventHandler.h"
#include "fxds/Globals.h"
#include "tests/support/RunProgram.h"
#include "tests/support/RunningFlow.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

class Elements : public testing::Test {
protected:
    static void SetUpTestSuite() {
        fxInitializeToolkit();
        if (!fxConverter::hasMoreConverters) fxConverter::createMoreConverters();
    }
    const TestDirectory room;
};

}  // namespace

TEST_F(Elements, SendWhatTheyShould) {
    for (const char* name : {"tests/flow/elements.flow", "examples/flows/errors.flow"}) {
        fxFlowText text = fxFlowText::load(FXDS_SOURCE_DIR "/" + std::string(name));
        EXPECT_GT(text.tests.size(), 0U);
        for (const fxFlowTestResult& each : fxRunFlowTests(text)) EXPECT_EQ(each.line(), "");
    }
}

TEST_F(Elements, LinesGoOnWhereTheyWereSaved) {
    const std::string file = room.file("lines", "one\ntwo");
    RunningFlow run("l = Lines follow=yes from=end file=\"" + file + "\"");
    std::string seen;
    run.flow.watch("l", "line", &run.flow, [&](const std::string& line) { seen += line + '\n'; });
    const auto sees = [&](const char* wanted) {
        return run.runUntil([&] { return seen.find(wanted) != std::string::npos; });
    };
    std::ofstream(file, std::ios::app) << "\nthree\n";
    EXPECT_TRUE(sees("three"));
    EXPECT_EQ(seen, "\nthree\n");  // the first is the rest of the line "two"
    EXPECT_FALSE(run.flow.save(room.path + "/state"));
    std::ofstream(file, std::ios::app) << "four\n";
    EXPECT_FALSE(run.flow.load(room.path + "/state"));
    EXPECT_TRUE(sees("four"));
    EXPECT_EQ(seen, "\nthree\nfour\n");
}

TEST_F(Elements, AppendKeepsUpWithRotation) {
    const std::string file = room.path + "/log";
    RunningFlow run("a = Append file=\"" + file + "\"");
    EXPECT_EQ(run.flow.send("a", "line", "one"), "");
    fx_theEventHandler->drain();
    std::filesystem::rename(file, file + ".1");
    EXPECT_EQ(run.flow.send("a", "line", "two"), "");
    fx_theEventHandler->drain();
    EXPECT_EQ(contents(file + ".1") + contents(file), "one\ntwo\n");

    RunningFlow full("a = Append file=/dev/full");
    for (int i = 0; i < 3; ++i) full.flow.send("a", "line", "x");
    fx_theEventHandler->drain();
    EXPECT_EQ(full.complaints, "a: cannot write to /dev/full: No space left on device\n");

    // There is room for a part of the line, of which nothing stays.
    const rlimit little = {8, RLIM_INFINITY};
    rlimit usual = {};
    getrlimit(RLIMIT_FSIZE, &usual);
    setrlimit(RLIMIT_FSIZE, &little);
    run.flow.send("a", "line", "three");
    setrlimit(RLIMIT_FSIZE, &usual);
    run.flow.send("a", "line", "four");
    fx_theEventHandler->drain();
    EXPECT_EQ(contents(file), "two\nfour\n");
    EXPECT_EQ(run.complaints, "a: cannot write to " + file + ": No space left on device\n");

    const std::string pipe = room.path + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    RunningFlow lost("a = Append file=\"" + pipe + "\"");
    close(reader);
    lost.flow.send("a", "line", "x");
    fx_theEventHandler->drain();
    EXPECT_EQ(lost.complaints, "a: cannot write to " + pipe + ": Broken pipe\n");
}

// A flow that is saved, loaded, and given its text again after any step goes on as if
// nothing had happened.
TEST_F(Elements, SaveAllThatTheyRemember) {
    const fxFlowText text = fxFlowText::load(FXDS_SOURCE_DIR "/tests/flow/elements.flow");
    const auto play = [&](const fxFlowText::Test& test, size_t saveBefore) {
        std::map<std::string, std::string> seen;  // by output
        fxMadeUpTime time;
        fxFlow flow(fxFlow::Purpose::testing, time);
        EXPECT_TRUE(flow.apply(text).empty());
        for (const fxFlowText::Object& each : text.objects) {
            for (const fxElementChannel& output :
                 fxElementKind::find(each.className.text)->outputs) {
                std::string& values = seen[each.name.text + '.' + output.name];
                flow.watch(each.name.text, output.name, &flow,
                           [&values](const std::string& value) { values += value + '\n'; });
            }
        }
        for (size_t i = 0; i < test.steps.size(); ++i) {
            if (i == saveBefore) {
                std::vector<fxFlowProblem> problems;
                EXPECT_FALSE(flow.save(room.path + "/state"));
                EXPECT_FALSE(flow.load(room.path + "/state", text, problems));
            }
            const fxFlowText::Step& step = test.steps[i];
            const bool isSend = step.kind == fxFlowText::Step::Kind::send;
            for (unsigned long n = 0; isSend && n < step.count; ++n) {
                flow.send(step.end.object.text, step.end.channel.text, step.value.text);
            }
            const bool isPass = step.kind == fxFlowText::Step::Kind::pass;
            EXPECT_EQ(time.pass(fxFlowTime::seconds(isPass ? step.seconds : 0)), "");
        }
        seen.erase("tick.start");  // of each start
        return seen;
    };
    for (const fxFlowText::Test& test : text.tests) {
        const auto expected = play(test, test.steps.size());
        for (size_t i = 0; i < test.steps.size(); ++i) {
            EXPECT_EQ(play(test, i), expected) << test.name.text << ", before step " << i + 1;
        }
    }
}

TEST(FlowText, SizeIsBounded) {
    std::string text;
    for (int i = 0; i < 1'000'010; ++i) text += "use x\n";
    EXPECT_EQ(fxFlowText::parse(text, "f").problems.at(0).line(),
              "f:1000001:5: error: a flow has up to 1000000 parts");
    text.clear();
    for (int i = 0; i < 2000; ++i) text += "1\n";
    const fxFlowText flow = fxFlowText::parse(text, "f");
    EXPECT_EQ(flow.problems.size(), 1000U);
    EXPECT_EQ(flow.problems.back().text, "there are more problems than can be told");
    EXPECT_FALSE(flow.isWhole);
}

TEST(FlowText, ObjectsThatSayTheSame) {
    const auto object = [](const char* text) { return fxFlowText::parse(text, "f").objects[0]; };
    EXPECT_EQ(object("a = B x=1 y=2"), object("\n\na  = B  y=\"2\" x=1"));
    for (const char* other :
         {"a = B x=1", "a = B x=1 y=3", "a = C x=1 y=2", "b = B x=1 y=2", "a = B x=1 y=2 z=3"}) {
        EXPECT_FALSE(object("a = B x=1 y=2") == object(other)) << other;
    }
}

// Random graphs: without the connections that close circles there is none left, and where
// there was none, none is found.
TEST(FlowText, NoImmediateCircleIsLeft) {
    std::mt19937 random(testSeed());
    const auto rng = [&random] { return static_cast<unsigned int>(random()); };
    for (int round = 0; round < 300; ++round) {
        const unsigned int objects = 1 + rng() % 12;
        const bool isForward = rng() % 4 == 0;
        std::string text;
        for (unsigned int i = 0; i < objects; ++i) text += 'o' + std::to_string(i) + " = A\n";
        for (unsigned int count = rng() % 30; count > 0; --count) {
            const unsigned int from = rng() % objects;
            const unsigned int to = rng() % objects;
            if (isForward && from >= to) continue;
            text += 'o' + std::to_string(from) + ".x -> o" + std::to_string(to) + ".x" +
                    (rng() % 4 != 0 ? " (now)\n" : "\n");
        }
        fxFlowText flow = fxFlowText::parse(text, "f");
        const std::vector<size_t> closing = flow.closingConnections();
        EXPECT_TRUE(!isForward || closing.empty()) << text;
        for (const size_t each : closing) {
            EXPECT_EQ(flow.connections[each].delivery, fxFlowDelivery::now);
            flow.connections[each].delivery = fxFlowDelivery::queued;
        }
        std::vector<std::pair<std::string, std::string>> left;
        for (const auto& each : flow.connections) {
            if (each.delivery == fxFlowDelivery::now)
                left.emplace_back(each.from.object.text, each.to.object.text);
        }
        // What leads to an object from which nothing leads on is in no circle.
        for (size_t before = left.size() + 1; before != left.size();) {
            before = left.size();
            left.erase(std::remove_if(left.begin(), left.end(),
                                      [all = left](const auto& edge) {
                                          return std::none_of(all.begin(), all.end(),
                                                              [&](const auto& other) {
                                                                  return other.first == edge.second;
                                                              });
                                      }),
                       left.end());
        }
        EXPECT_TRUE(left.empty()) << text;
    }
}
