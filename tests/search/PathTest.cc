#include <dirent.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <utility>
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
    const std::string endless = "~" + std::string(100000, 'u') + "/x";
    const passwd* const root = getpwnam("root");
    const std::string roots = root != nullptr ? root->pw_dir : "~root";
    for (const char* value : {"/h", static_cast<const char*>(nullptr)}) {
        value != nullptr ? setenv("HOME", value, 1) : unsetenv("HOME");
        const std::string home = value != nullptr ? value : "";
        const std::string cases[][2] = {{"~/x", home + "/x"},
                                        {"~", home},
                                        {"x/~", "x/~"},
                                        {"~nosuchuser/x", "~nosuchuser/x"},
                                        {endless, endless},
                                        {"~root", roots},
                                        {"~root/a/b", roots + "/a/b"}};
        for (const auto& c : cases) EXPECT_EQ(taken(pathexpandtilde(c[0].c_str())), c[1]);
    }
    EXPECT_EQ(pathexpandtilde(nullptr), nullptr);
}

TEST(PathFunctions, LinksAreReadAndCut) {
    const TestDirectory directory;
    const std::string link = directory.link("link", "some/where");
    const struct {
        const char* path;
        int size;
        const char* text;
    } cases[] = {{link.c_str(), 100, "some/where"}, {link.c_str(), 10, "some/where"},
                 {link.c_str(), 4, "some"},         {link.c_str(), 0, "null"},
                 {link.c_str(), -1, "null"},        {directory.path.c_str(), 100, "null"},
                 {"/no/such/file", 100, "null"},    {nullptr, 100, "null"}};
    for (const auto& c : cases) EXPECT_EQ(taken(symbolicLinkExtendedName(c.path, c.size)), c.text);
}

TEST(PathFunctions, VariablesAreExpanded) {
    const std::pair<const char*, const char*> variables[] = {
        {"HOME", "/h"}, {"HOM", "<HOM>"}, {"A", "<A>"}, {"EMPTY", ""}};
    for (const auto& [name, value] : variables) setenv(name, value, 1);
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
    setenv("LONGER", endless.c_str(), 1);
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
        itself.split(&itself, &leaf);
        itsLeaf.split(&directory, &itsLeaf);
        twice.split(&twice, &twice);
        for (const fxPath& each : {directory, itself, path.directory()}) EXPECT_EQ(each, c[1]);
        for (const fxPath& each : {leaf, itsLeaf, twice, path.leaf()}) EXPECT_EQ(each, c[2]);
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
