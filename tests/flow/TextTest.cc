// The text of a flow: what is read, what is told, what is written.
#include "flow/Text.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "flow/Element.h"
#include "fxds/fxds.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

class Probe : public fxObj {
public:
    Probe() { ++made; }
    static int made;

    double per = 0;
    fxStr name;
};
int Probe::made = 0;

class FlowText : public testing::Test {
protected:
    static void SetUpTestSuite() {
        fxInitializeToolkit();
        fxConverter::createMoreConverters();
    }
};

std::string parts(const std::vector<fxFlowProblem>& problems) {
    std::string all;
    for (const fxFlowProblem& each : problems) all += each.line() + '\n';
    return all;
}

// "send a.in 5 x3", as steps are told apart.
std::string shown(const fxFlowText::Step& step) {
    static const char* const kinds[] = {"send", "pass", "expect", "expect last", "expect no"};
    std::string text = kinds[static_cast<int>(step.kind)];
    if (step.kind == fxFlowText::Step::Kind::pass)
        return text + ' ' + fxStr(step.seconds, "%g").c_str();
    text += ' ' + step.end.object.text + '.' + step.end.channel.text;
    if (step.hasValue) text += " [" + step.value.text + ']';
    return step.count == 1 ? text : text + " x" + std::to_string(step.count);
}

}  // namespace

FX_ELEMENT(Probe, "is there to be described") {
    element.property("per", &Probe::per, 1.0, "a number").range(0, 10);
    element.property("name", &Probe::name, "a text");
    element.input<fxStr>("text", "a text");
    element.input<double>("number", "a number");
    element.input<void>("hit", "no value");
    element.output<fxStr>("said", "a text");
    element.output<double>("level", "a number");
    element.output<fxStrArray>("groups", "texts");
}

TEST_F(FlowText, WhatIsReadIsWritten) {
    const struct {
        std::string text, written;
    } rows[] = {
        {"", ""},
        {"# nothing\n\n \t\\\n", ""},
        {"a=B", "a = B\n"},
        {"a = B x = 1 # y=2\r\nc=D\r\n", "a = B x=1\nc = D\n"},
        {"\xEF\xBB\xBF_a9 = B x=\"\" y=a.b/c:d%e-f+1 z=\"a b\"",
         "_a9 = B x=\"\" y=a.b/c:d%e-f+1 z=\"a b\"\n"},
        {"a = B \\  \r\n x=\"\\\"\\\\\\n\\t\\x00\\xfF#\xC3\xA9\xC2\x9B\"",
         "a = B x=\"\\\"\\\\\\n\\t\\x00\\xff#\xC3\xA9\\xc2\\x9b\"\n"},
        {std::string("a = B x=\"\0\1\"", 12), "a = B x=\"\\x00\\x01\"\n"},
        {"a=B x=1-2 y=\"->\"", "a = B x=1-2 y=\"->\"\n"},
        {"a.b->c.d", "a.b -> c.d\n"},
        {"a.b ->  # to\n\n  c.d (now),\n\n c.\"d e\"(newest) , \\\n c.d (queued)",
         "a.b -> c.d (now)\na.b -> c.\"d e\" (newest)\na.b -> c.d\n"},
        {"a.b -> c.d (urgent)\na = B", "a = B\n\na.b -> c.d (urgent)\n"},
        {"use=B\ninclude.a -> test.b\ntest = use use=use",
         "use = B\ntest = use use=use\n\ninclude.a -> test.b\n"},
        {"use /p/x.so\nuse ./y.so", "use \"/p/x.so\"\nuse \"/f/./y.so\"\n"},
    };
    for (const auto& row : rows) {
        const fxFlowText flow = fxFlowText::parse(row.text, "/f/flow");
        EXPECT_EQ(parts(flow.problems), "") << row.text;
        EXPECT_EQ(flow.write(), row.written) << row.text;
        EXPECT_EQ(fxFlowText::parse(row.written, "/f/flow").write(), row.written) << row.text;
    }
}

TEST_F(FlowText, StepsOfTests) {
    const std::string text =
        "test \"all of it\" {\n"
        "  send a.b\n send a.b 5\n send a.b 5 times\n send a.b x 5 times # twice\n"
        "  send a.b times\n send a.b \"5\"\n\n pass 1.5\n expect a.b\n expect a.b \"x y\"\n"
        "  expect last a.b \\\n 5\n expect no a.b\n expect last.b\n expect no.b no\n}\n"
        "test other {\n}";
    const fxFlowText flow = fxFlowText::parse(text, "t");
    EXPECT_EQ(parts(flow.problems), "");
    ASSERT_EQ(flow.tests.size(), 2U);
    EXPECT_EQ(flow.tests[0].name.text, "all of it");
    std::vector<std::string> steps;
    for (const auto& step : flow.tests[0].steps) steps.push_back(shown(step));
    const std::vector<std::string> expected = {
        "send a.b",         "send a.b [5]",        "send a.b x5",   "send a.b [x] x5",
        "send a.b [times]", "send a.b [5]",        "pass 1.5",      "expect a.b",
        "expect a.b [x y]", "expect last a.b [5]", "expect no a.b", "expect last.b",
        "expect no.b [no]"};
    EXPECT_EQ(steps, expected);
    EXPECT_EQ(flow.tests[0].steps[9].place.line, 12U);
}

// One problem for one fault, with its place; what stands beside it is read.
TEST_F(FlowText, FaultsAreToldOnce) {
    const struct {
        const char *text, *told;
    } rows[] = {
        {"1a = B", "1:1: error: expected the name of an object, not \"1a\""},
        {"a = 1b x", "1:5: error: expected the name of a class, not \"1b\""},
        {"a = B x", "1:8: error: expected \"=\" behind \"x\", not the end of the text"},
        {"a = B x=\n", "1:9: error: expected a value, not the end of the line"},
        {"a = B x=\"y\n", "1:9: error: these quotes are not closed"},
        {"a = B x=\"\\d|\" |",
         "1:10: error: in quotes a backslash begins \\\" \\\\ \\n \\t or \\xHH; one of its own is "
         "\\\\"},
        {"a = B x=y|z&", "1:10: error: values with \"|\" in them are written in quotes"},
        {"a = B x=\xC3\xA9", "1:9: error: values with \"\xC3\xA9\" in them are written in quotes"},
        {"a = B x=\"y\"z", "1:12: error: expected a blank, not \"z\""},
        {"a = B {", "1:7: error: expected a property, not \"{\""},
        {"a", "1:2: error: expected \"=\" or \"->\" behind \"a\", not the end of the text"},
        {"a.b", "1:4: error: expected \"->\", not the end of the text"},
        {"a.b -> c.d -> e.f", "1:12: error: expected \",\" or the end of the line, not \"->\""},
        {"a -> b.c", "1:1: error: expected OBJECT.CHANNEL, not \"a\""},
        {"a .b -> c.d",
         "1:1: error: expected OBJECT.CHANNEL without blanks around the dot, not \"a .b\""},
        {"a.b -> c. d",
         "1:8: error: expected OBJECT.CHANNEL without blanks around the dot, not \"c. d\""},
        {"a.b -> c.d.e",
         "1:10: error: expected a channel behind \"c.\"; those of other characters than letters, "
         "digits and _ are in quotes"},
        {"a.b -> c.d (nwest)",
         "1:13: error: there is no delivery \"nwest\"; did you mean \"newest\"?"},
        {"a.b -> c.d (now", "1:16: error: expected \")\", not the end of the text"},
        {"inclde \"x\" {\n junk | junk\n}",
         "1:1: error: there is no statement \"inclde\"; did you mean \"include\"?"},
        {"lost {\n junk",
         "1:6: error: expected \"=\" or \"->\" behind \"lost\", not \"{\"\nf:2:6: error: expected "
         "\"=\" or \"->\" behind \"junk\", not the end of the text"},
        {"tst x {\n junk", "1:1: error: there is no statement \"tst\"; did you mean \"test\"?"},
        {"include nothing/at/all",
         "1:9: error: \"nothing/at/all\" cannot be read: No such file or directory"},
        {"test {\n}",
         "1:6: error: expected the name of a test, not \"{\"\nf:2:1: error: expected a statement, "
         "not \"}\""},
        {"test x {\n send\n pass x\n pass -1\n send a.b 0 times\n send a.b 5 5\n expect last a.b\n "
         "jump\n}",
         "2:6: error: expected OBJECT.CHANNEL, not the end of the line\n"
         "f:3:7: error: expected a number of seconds from 0 to 1e9, not \"x\"\n"
         "f:4:7: error: expected a number of seconds from 0 to 1e9, not \"-1\"\n"
         "f:5:11: error: expected a count up to 1000000, not \"0\"\n"
         "f:6:13: error: expected COUNT times, not \"5\"\n"
         "f:7:17: error: expected a value, not the end of the line\n"
         "f:8:2: error: expected send, pass, expect or \"}\", not \"jump\""},
        {"test x {\n send a.b\n", "1:6: error: the test \"x\" has no end: \"}\""},
        {"test x {\n send a.b", "1:6: error: the test \"x\" has no end: \"}\""},
    };
    for (const auto& row : rows) {
        const std::string text = row.text;
        const fxFlowText flow = fxFlowText::parse(text, "f");
        EXPECT_EQ(parts(flow.problems), std::string("f:") + row.told + '\n') << text;
        const fxFlowText longer = fxFlowText::parse(text + "\ngood = Count", "f");
        EXPECT_NE(longer.find("good"), nullptr) << text;
    }
}

TEST_F(FlowText, SizeIsBounded) {
    std::string text;
    for (int i = 0; i < 1'000'010; ++i) text += "use x\n";
    EXPECT_EQ(parts(fxFlowText::parse(text, "f").problems),
              "f:1000001:5: error: a flow has up to 1000000 parts\n");
    text.clear();
    for (int i = 0; i < 2000; ++i) text += "1\n";
    const fxFlowText flow = fxFlowText::parse(text, "f");
    EXPECT_EQ(flow.problems.size(), 1000U);
    EXPECT_EQ(flow.problems.back().text, "there are more problems than can be told");
    EXPECT_FALSE(flow.isWhole);
}

TEST_F(FlowText, CheckLooksEverythingUp) {
    const struct {
        const char *text, *told;
    } rows[] = {
        {"", ""},
        {"b = Probe name=y per=3\nb.said -> a.text, a.hit\nb.level -> b.number (newest)", ""},
        {"b = Prob\nb.x -> a.text, b.y",
         "f:3:5: error: there is no class \"Prob\"; did you mean \"Probe\"?\n"},
        {"b = Probe", "f:3:5: error: Probe needs the property \"name\"\n"},
        {"b = Probe nme=x",
         "f:3:11: error: Probe has no property \"nme\"; did you mean \"name\"?\n"},
        {"b = Probe x=1", "f:3:11: error: Probe has no property \"x\"; it has \"per\", \"name\"\n"},
        {"a = Probe name=y", "f:3:1: error: \"a\" is an object already, in line 2\n"},
        {"b = Probe name=x name=y", "f:3:18: error: b.name is given twice\n"},
        {"b = Probe name=x per=11", "f:3:22: error: b.per: \"11\" is above 10\n"},
        {"b = Probe name=x per=\"\\x1b[31m\"",
         "f:3:22: error: b.per: \"\\x1b[31m\" is not a number\n"},
        {"a.said -> other.text, c.hit",
         "f:3:11: error: there is no object \"other\"; there are \"a\"\n"
         "f:3:23: error: there is no object \"c\"; did you mean \"a\"?\n"},
        {"c = Probe name=\na.said -> c.text",
         "f:3:16: error: expected a value, not the end of the line\n"},
        {"include \"gone\"\na.said -> c.text",
         "f:3:9: error: \"/f/gone\" cannot be read: No such file or directory\n"},
        {"use \"gone.so\"\nb = Gone",
         "f:3:5: error: a check loads no plug-in but those of the command line; add --plugin "
         "/f/gone.so\n"},
        {"a.sad -> a.txt",
         "f:3:3: error: Probe has no output \"sad\"; did you mean \"said\"?\n"
         "f:3:12: error: Probe has no input \"txt\"; did you mean \"text\"?\n"},
        {"a.quite -> a.\"\"",
         "f:3:3: error: Probe has no output \"quite\"; it has \"said\", \"level\", \"groups\"\n"
         "f:3:14: error: Probe has no input \"\"; it has \"text\", \"number\", \"hit\"\n"},
        {"a.text -> a.said",
         "f:3:3: error: \"text\" is an input of Probe, not an output\n"
         "f:3:13: error: \"said\" is an output of Probe, not an input\n"},
        {"a.groups -> a.number",
         "f:3:13: error: a.groups -> a.number: no converter leads from fxStrArray to double\n"},
        {"a.said -> a.text\na.said -> a.text (now)",
         "f:4:11: error: a.said -> a.text is connected already, in line 3\n"
         "f:4:11: warning: a -> a is a circle of immediate connections; this one is queued\n"},
        {"test x {\n send a.hit 3\n expect a.sai\n pass 1\n expect b.x\n send a.text 3\n}",
         "f:4:13: error: a.hit has no value\n"
         "f:5:11: error: Probe has no output or input \"sai\"; did you mean \"said\"?\n"
         "f:7:9: error: there is no object \"b\"; did you mean \"a\"?\n"},
    };
    const int made = Probe::made;
    for (const auto& row : rows) {
        fxFlowText flow = fxFlowText::parse(std::string("\na = Probe name=x\n") + row.text, "/f/f");
        for (int checks = 0; checks < 2; ++checks) {
            const bool isFine = flow.check();
            std::string told;
            for (fxFlowProblem each : flow.problems) {
                if (each.place.file.name() == "/f/f") each.place.file = "f";
                told += each.line() + '\n';
            }
            EXPECT_EQ(told, row.told) << row.text;
            EXPECT_EQ(isFine, told.find("error:") == std::string::npos) << row.text;
        }
    }
    EXPECT_EQ(Probe::made, made) << "a check makes no objects";
}

TEST_F(FlowText, SettingsOfTheCommandLine) {
    fxFlowText flow = fxFlowText::parse("a = Probe name=x per=3", "f");
    flow.set("a", "name", "y z");
    flow.set("a", "per", "no");
    flow.set("a", "pre", "1");
    flow.set("ab", "per", "1");
    EXPECT_EQ(flow.write(), "a = Probe name=\"y z\" per=no pre=1\n");
    flow.check();
    EXPECT_EQ(parts(flow.problems),
              "error: there is no object \"ab\"; did you mean \"a\"?\n"
              "error: a.per: \"no\" is not a number\n"
              "error: a.pre: Probe has no property \"pre\"; did you mean \"per\"?\n");
}

TEST_F(FlowText, ObjectsThatSayTheSame) {
    const auto object = [](const char* text) { return fxFlowText::parse(text, "f").objects[0]; };
    EXPECT_EQ(object("a = B x=1 y=2"), object("\n\na  = B  y=\"2\" x=1"));
    for (const char* other :
         {"a = B x=1", "a = B x=1 y=3", "a = C x=1 y=2", "b = B x=1 y=2", "a = B x=1 y=2 z=3"}) {
        EXPECT_FALSE(object("a = B x=1 y=2") == object(other)) << other;
    }
}

TEST_F(FlowText, FilesIncludeOthersBesideThem) {
    const TestDirectory folder;
    const auto told = [&](const std::string& path) {
        const fxFlowText flow = fxFlowText::load(path);
        std::string text = parts(flow.problems);
        for (size_t at; (at = text.find(folder.path + '/')) != std::string::npos;) {
            text.erase(at, folder.path.size() + 1);
        }
        return text;
    };
    (void)folder.directory("sub");
    folder.file("sub/deep", "deep = A\nuse \"p.so\"\ninclude \"deeper\"");
    folder.file("sub/deeper", "deeper = A");
    const fxFlowText flow =
        fxFlowText::load(folder.file("flow", "include \"sub/deep\"\na = B\ninclude sub/deeper\n"));
    EXPECT_EQ(flow.write(),
              "use \"" + folder.path + "/sub/p.so\"\ndeep = A\ndeeper = A\na = B\ndeeper = A\n");
    EXPECT_EQ(flow.files,
              (std::vector<std::string>{folder.path + "/flow", folder.path + "/sub/deep",
                                        folder.path + "/sub/deeper"}));
    EXPECT_EQ(flow.objects[1].name.place.file.name(), folder.path + "/sub/deeper");
    EXPECT_TRUE(flow.isWhole);

    folder.file("ring", "include \"other\"");
    folder.file("other", "include \"link\"\na = B");
    (void)folder.link("link", "ring");
    EXPECT_EQ(told(folder.path + "/ring"), "other:1:9: error: \"link\" includes itself\n");
    ASSERT_EQ(mkfifo((folder.path + "/fifo").c_str(), 0600), 0);
    folder.file("big", std::string((16U << 20U) + 1, '#'));
    folder.file("large", std::string(16U << 20U, '#'));
    const std::string line = "include large\n";
    EXPECT_EQ(told(folder.file("most", line + line + line + line)),
              "most:4:9: error: \"large\" is too much: a flow has up to 64 MB of text\n");
    EXPECT_EQ(
        told(folder.file("all", "include sub\ninclude fifo\ninclude \"a\\x00b\"\ninclude big")),
        "all:1:9: error: \"sub\" cannot be read: Is a directory\n"
        "all:2:9: error: \"fifo\" cannot be read: Invalid argument\n"
        "all:3:9: error: \"a\\x00b\" cannot be read: Invalid argument\n"
        "all:4:9: error: \"big\" has more than 16 MB\n");
    EXPECT_EQ(told(folder.path + "/gone"),
              "gone: error: cannot be read: No such file or directory\n");
    for (int i = 0; i < 40; ++i) {
        folder.file("d" + std::to_string(i), "include \"d" + std::to_string(i + 1) + '"');
        folder.file("t" + std::to_string(i), ("include \"t" + std::to_string(i + 1) + "\"\n") +
                                                 "include \"t" + std::to_string(i + 1) + '"');
    }
    EXPECT_EQ(told(folder.path + "/d0"), "d31:1:9: error: \"d32\" is included more than 32 deep\n");
    EXPECT_NE(told(folder.path + "/t0").find("is one file too many: a flow has up to 1000"),
              std::string::npos);
}

// Random graphs: without the connections that close circles there is none left, and where
// there was none, none is found.
TEST_F(FlowText, NoImmediateCircleIsLeft) {
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
