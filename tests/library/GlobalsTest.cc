// Ordered start-up and shutdown, and the library's identification.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fxds/Connection.h"
#include "fxds/Converter.h"
#include "fxds/Debug.h"
#include "fxds/EventHandler.h"
#include "fxds/Exec.h"
#include "fxds/Globals.h"
#include "fxds/Sequencer.h"
#include "fxds/Str.h"
#include "fxds/Transcriber.h"

namespace {

std::vector<std::string> calls;

// First: nothing has started the library.
TEST(StartUp, IsHintedAtWhereItIsMissing) {
    if (fx_theConverters != nullptr) GTEST_SKIP() << "started already";
    fxObj source, target;
    source.addOutput<int>("out");
    target.addInput("in", [](const fxStr&) {});
    EXPECT_DEATH(source.connect("out", &target, "in"),
                 "^There are no converters yet: call fxInitializeToolkit\\(\\)\n"
                 "Can't convert from [0-9]+ to [0-9]+\n$");
    EXPECT_TRUE(fxConnect(source, "out", target, "in")
                    .whyNot()
                    .endsWith("; there are none before fxInitializeToolkit()"));
    testing::internal::CaptureStderr();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(fxTranscriber::getReader(nullptr), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "There are no readers yet: call fxInitializeToolkit()\n");
}

TEST(StartUp, RunsBothOrderingsOnceEachWay) {
    // In one process, since it happens but once: library first, application last.
    static fxOrderedGlobal outer([] { calls.push_back("init"); }, [] { calls.push_back("end"); },
                                 nullptr, 2);
    static fxOrderedGlobal again(
        [] {
            calls.push_back(fx_theExecutive != nullptr ? "after the library" : "too early");
            fxInitializeToolkit();  // from within: does nothing
        },
        [] { fxCleanupGlobalOrderings(); }, nullptr, 0);
    calls.clear();
    fxInitializeToolkit();
    fxInitializeToolkit();
    EXPECT_EQ(calls, (std::vector<std::string>{"init", "after the library"}));
    fxCleanupGlobalOrderings();
    fxCleanupGlobalOrderings();
    EXPECT_EQ(calls.back(), "end");
    EXPECT_EQ(calls.size(), 3u);
}

TEST(StartUp, OneSelectingPassSortsTheOrdering) {
    calls.clear();
    static fxOrderedGlobal *aNeeds[2], *bNeeds[2];
    static fxOrderedGlobal a([] { calls.push_back("A"); }, [] { calls.push_back("~A"); }, aNeeds,
                             2);
    static fxOrderedGlobal b([] { calls.push_back("B"); }, [] { calls.push_back("~B"); }, bNeeds,
                             0);
    static fxOrderedGlobal c([] { calls.push_back("C"); }, nullptr, nullptr, -1);
    fxGlobalOrder chain;
    chain.add(&a);
    chain.add(&b);
    chain.add(&c);
    aNeeds[0] = &c;
    bNeeds[0] = nullptr;
    static fxOrderedGlobal* cNeeds[] = {&b, nullptr};
    c.deps = cNeeds;
    chain.create();
    EXPECT_EQ(calls, (std::vector<std::string>{"C", "B", "A"}));
    calls.clear();
    chain.destroy();
    EXPECT_EQ(calls, (std::vector<std::string>{"~A", "~B"}));
    calls.clear();
    fxGlobalOrder cycle;
    aNeeds[0] = &b;
    bNeeds[0] = &a;
    cycle.add(&a);
    cycle.add(&b);
    cycle.create();
    EXPECT_EQ(calls, (std::vector<std::string>{"B", "A"}));
    EXPECT_TRUE(a.dependsOn(b));
    EXPECT_FALSE(a.dependsOn(c));
    EXPECT_EQ(fx_applicationGlobalOrder->globals.length(), 5u) << "any number but 1";
}

TEST(StartUp, MakesTheServicesOnceAndNumbersTheTypes) {
    fxInitializeToolkit();
    ASSERT_NE(fx_theExecutive, nullptr);
    EXPECT_EQ(fxDT_void, 0);
    EXPECT_EQ(fxDT_fxStrArray, 11);
    EXPECT_EQ(fxET_MessageEvent, 1u);
    EXPECT_EQ((*fx_nextDataType)(), 12u);
    EXPECT_EQ((*fx_nextEventType)(), 2u);
    EXPECT_NE(fx_theDebugger, nullptr);
    EXPECT_EQ(fx_toolkitGlobalOrder->globals[0], &fxOG_Init);
    EXPECT_EQ(fx_toolkitGlobalOrder->globals[1], &fxOG_Transcriber);
}

TEST(StartUp, IdentifiesTheLibrary) {
    char line[256];
    const int length = libostrelfxds_sprintf_verid(line);
    EXPECT_EQ(static_cast<size_t>(length), std::strlen(line));
    EXPECT_EQ(std::string(line).substr(0, 34), "libostrelfxds" + std::string(21, ' '));
    EXPECT_NE(std::string(line).find(" 64-bit\n"), std::string::npos);
    testing::internal::CaptureStdout();
    EXPECT_EQ(libostrelfxds_print_verid(), length);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line);
    const char** banner = libostrelfxds_copyright_array();
    for (int i = 0; i < 9; ++i) EXPECT_EQ(std::strlen(banner[i]), 73u);
    EXPECT_EQ(banner[9], nullptr);
}

}  // namespace
