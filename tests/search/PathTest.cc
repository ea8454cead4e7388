#include <dirent.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "fxds/Path.h"
#include "fxds/PathFunctions.h"
#include "fxds/SearchList.h"
#include "tests/support/RegExpModel.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TestSeed.h"

namespace {

// Frees a result; "null" when there is none.
std::string taken(char* text) {
    const std::string result = text != nullptr ? text : "null";
    std::free(text);
    return result;
}

std::string expanded(std::string text, int size = 0) {
    return taken(environmentVariableExtendedName(text.data(), size));
}

// Sets a variable, or unsets it for null, for as long as this lives.
class Variable {
public:
    Variable(const char* name_, const char* value) : name(name_) {
        const char* const old = std::getenv(name_);
        wasSet = old != nullptr;
        if (wasSet) before = old;
        value != nullptr ? setenv(name_, value, 1) : unsetenv(name_);
    }
    ~Variable() { wasSet ? setenv(name, before.c_str(), 1) : unsetenv(name); }

private:
    const char* name;
    bool wasSet;
    std::string before;
};

TEST(PathFunctions, BasenameAndDirname) {
    const struct {
        const char *path, *base, *directory;
    } cases[] = {{"a/b/c", "c", "a/b"}, {"a/b/", "b", "a"},     {"a//b//", "b", "a"},
                 {"a//b", "b", "a"},    {"a", "a", "."},        {"a/", "a", "."},
                 {"/", "", "/"},        {"///", "", "/"},       {"", "", "."},
                 {"/usr", "usr", ""},   {"//usr//", "usr", ""}, {"/a/b", "b", "/a"}};
    for (const auto& c : cases) {
        EXPECT_EQ(taken(pathbasename(c.path)), c.base) << c.path;
        EXPECT_EQ(taken(pathdirname(c.path)), c.directory) << c.path;
    }
    EXPECT_EQ(pathbasename(nullptr), nullptr);
}

TEST(PathFunctions, TildeIsAHomeDirectory) {
    const Variable home("HOME", "/h");
    EXPECT_EQ(taken(pathexpandtilde("~/x")), "/h/x");
    EXPECT_EQ(taken(pathexpandtilde("~")), "/h");
    EXPECT_EQ(taken(pathexpandtilde("x/~")), "x/~");
    EXPECT_EQ(taken(pathexpandtilde("~nosuchuser/x")), "~nosuchuser/x");
    const std::string endless = "~" + std::string(100000, 'u') + "/x";
    EXPECT_EQ(taken(pathexpandtilde(endless.c_str())), endless);
    EXPECT_EQ(pathexpandtilde(nullptr), nullptr);
    if (const passwd* const root = getpwnam("root")) {
        const std::string expected = root->pw_dir;
        EXPECT_EQ(taken(pathexpandtilde("~root")), expected);
        EXPECT_EQ(taken(pathexpandtilde("~root/a/b")), expected + "/a/b");
    }
    const Variable none("HOME", nullptr);
    EXPECT_EQ(taken(pathexpandtilde("~/x")), "/x");
    EXPECT_EQ(taken(pathexpandtilde("~")), "");
}

TEST(PathFunctions, LinksAreReadAndCut) {
    const TestDirectory directory;
    const std::string link = directory.link("link", "some/where");
    EXPECT_EQ(taken(symbolicLinkExtendedName(link.c_str(), 100)), "some/where");
    EXPECT_EQ(taken(symbolicLinkExtendedName(link.c_str(), 10)), "some/where");
    EXPECT_EQ(taken(symbolicLinkExtendedName(link.c_str(), 4)), "some");
    EXPECT_EQ(symbolicLinkExtendedName(link.c_str(), 0), nullptr);
    EXPECT_EQ(symbolicLinkExtendedName(link.c_str(), -1), nullptr);
    EXPECT_EQ(symbolicLinkExtendedName(directory.path.c_str(), 100), nullptr);
    EXPECT_EQ(symbolicLinkExtendedName("/no/such/file", 100), nullptr);
    EXPECT_EQ(symbolicLinkExtendedName(nullptr, 100), nullptr);
}

TEST(PathFunctions, VariablesAreExpanded) {
    const Variable home("HOME", "/h"), shorter("HOM", "<HOM>"), letter("A", "<A>"),
        none("UNSET", nullptr), empty("EMPTY", "");
    const char* const cases[][2] = {{"$HOME/x", "/h/x"},
                                    {"a $HOME b", "a /h b"},
                                    {"$HOME/$A/$HOME/", "/h/<A>//h/"},
                                    {"$EMPTY/", "/"},
                                    {"plain", "plain"},
                                    {"", ""},
                                    {"a $UNSET b", "null"},
                                    {"$HOME/$UNSET/", "null"},
                                    // The last character is never part of a name.
                                    {"$HOME", "<HOM>E"},
                                    {"$A$", "<A>$"},
                                    {"$", "null"},
                                    {"$A", "null"},
                                    {"$HOME/$", "null"},
                                    // Only blanks and slashes end a name.
                                    {"$A$A/", "null"},
                                    {"${HOME}/", "null"}};
    for (const auto& c : cases) EXPECT_EQ(expanded(c[0]), c[1]) << c[0];
    EXPECT_EQ(environmentVariableExtendedName(nullptr, 10), nullptr);
}

TEST(PathFunctions, ExpansionsHaveTheirOwnSize) {
    const std::string endless(100000, 'v');
    const Variable longer("LONGER", endless.c_str());
    EXPECT_EQ(expanded("$LONGER/$LONGER/", 1), endless + "/" + endless + "/");
    EXPECT_EQ(expanded("abc", -5), "abc");
    char text[] = "ab";
    char* const block = environmentVariableExtendedName(text, 100);
    std::fill_n(block, 100, 'x');  // `size` bytes are there for the caller
    std::free(block);
}

TEST(Path, SplitsIntoDirectoryAndLeaf) {
    const char* const cases[][3] = {{"/usr", "/", "usr"},
                                    {"abc", "", "abc"},
                                    {"a/b/", "a", "b"},
                                    {"", "", ""},
                                    {"a/b/c", "a/b", "c"}};
    for (const auto& c : cases) {
        const fxPath path(c[0]);
        fxPath directory("before"), leaf("before"), itself(path), itsLeaf(path), twice(path);
        EXPECT_EQ(path.split(&directory, &leaf), 1);
        EXPECT_EQ(directory, c[1]) << c[0];
        EXPECT_EQ(leaf, c[2]) << c[0];
        EXPECT_EQ(path.directory(), directory);
        EXPECT_EQ(path.leaf(), leaf);
        itself.split(&itself, &leaf);
        EXPECT_EQ(itself, c[1]);
        itsLeaf.split(&directory, &itsLeaf);
        EXPECT_EQ(itsLeaf, c[2]);
        twice.split(&twice, &twice);
        EXPECT_EQ(twice, c[2]);
    }
}

using Names = std::vector<std::string>;

Names namesOf(const fxSearchList& list) {
    Names names;
    for (const fxStr& name : list) names.emplace_back(name.c_str());
    return names;
}

// What a list should hold: the files, in the order of each directory, whose names the
// first match covers.
Names listed(const std::string& directories, const std::string& expression) {
    const RegExpModel model(expression);
    Names names;
    std::istringstream rest(directories);
    for (std::string directory; std::getline(rest, directory, ':');) {
        DIR* const entries = opendir(directory.c_str());
        if (entries == nullptr) continue;
        while (const dirent* entry = readdir(entries)) {
            const char *startp[10], *endp[10];
            if (!model.isValid() || !model.search(entry->d_name, startp, endp)) continue;
            if (startp[0] != entry->d_name || *endp[0] != 0) continue;
            names.push_back(directory + "/" + entry->d_name);
        }
        closedir(entries);
    }
    return names;
}

// Copies list alone, and directories are read when a text changes or when asked.
TEST(SearchList, AgreesWithModel) {
    const TestDirectory one, two;
    const std::string lists[] = {"", one.path, one.path + ":" + two.path,
                                 ":/no/such:" + two.path + "::" + one.path + ":"};
    const char* const expressions[] = {"a", ".*", "a.*", "a|ab", "(ab", "[^.]+", ""};
    std::mt19937 rng(testSeed());
    fxSearchList list(nullptr, nullptr);
    std::string directories, expression;
    Names expected;
    for (int step = 0; step < 3000 && !HasFailure(); ++step) {
        const std::string newList = lists[rng() % std::size(lists)];
        const std::string newExpression = expressions[rng() % std::size(expressions)];
        const std::string before[] = {directories, expression};
        const TestDirectory& directory = rng() % 2 == 0 ? one : two;
        switch (rng() % 7) {
            case 0:
                list.searchList((directories = newList).c_str());
                break;
            case 1:
                list.regexp((expression = newExpression).c_str());
                break;
            case 2:
                directories = newList;
                expression = newExpression;
                list.searchCriteria(newList.c_str(), newExpression.c_str());
                break;
            case 3:
                std::swap(directories, expression);
                list.searchCriteria(list.regexp(), list.searchList());
                break;
            case 4:
                std::remove(directory.file(std::string(1 + rng() % 2, "abx."[rng() % 3])).c_str());
                break;
            case 5:
                directory.file(std::string(1, "abx."[rng() % 3]) + "b");
                break;
            default: {
                fxSearchList copy(list);
                copy.searchCriteria(one.path.c_str(), ".");
                list.recalc();
                expected = listed(directories, expression);
            }
        }
        if (before[0] != directories || before[1] != expression) {
            expected = listed(directories, expression);
        }
        EXPECT_EQ(namesOf(list), expected) << directories << ' ' << expression;
        EXPECT_EQ(list.searchList(), directories);
        EXPECT_EQ(list.regexp(), expression);
    }
}

}  // namespace
