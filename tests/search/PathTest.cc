#include <dirent.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "fxds/Path.h"
#include "fxds/PathFunctions.h"
#include "fxds/SearchList.h"
#include "tests/support/Surroundings.h"

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
        fxPath directory("before"), leaf("before");
        EXPECT_EQ(path.split(&directory, &leaf), 1);
        EXPECT_EQ(directory, c[1]) << c[0];
        EXPECT_EQ(leaf, c[2]) << c[0];
        EXPECT_EQ(path.directory(), directory);
        EXPECT_EQ(path.leaf(), leaf);
    }
}

TEST(Path, SplitsIntoItself) {
    fxPath path = fxStr("a/b"), other;
    path.split(&path, &other);
    EXPECT_EQ(path, "a");
    EXPECT_EQ(other, "b");
    path = "c/d";
    path.split(&other, &path);
    EXPECT_EQ(other, "c");
    EXPECT_EQ(path, "d");
    path = "e/f";
    path.split(&path, &path);
    EXPECT_EQ(path, "f");
}

std::vector<std::string> namesOf(const fxSearchList& list) {
    std::vector<std::string> names;
    for (const fxStr& name : list) names.emplace_back(name.c_str());
    return names;
}

using Names = std::vector<std::string>;

TEST(SearchList, ListsWhatMatchesInFull) {
    const TestDirectory one, two;
    const Names found = {one.file("ab"), two.file("ab")};
    one.file("xab");
    two.file("b");
    const std::string both = one.path + ":" + two.path;
    EXPECT_EQ(namesOf(fxSearchList(both.c_str(), "a.*")), found);
    // Empty names and missing directories are passed over, runs of colons too.
    const std::string sparse = ":/no/such:" + one.path + ":::" + two.path + ":";
    EXPECT_EQ(namesOf(fxSearchList(sparse.c_str(), "ab")), found);
    // The first match that a search finds decides.
    EXPECT_EQ(namesOf(fxSearchList(both.c_str(), "a|ab")), Names());
    EXPECT_EQ(namesOf(fxSearchList(both.c_str(), "(ab")), Names());
    EXPECT_EQ(namesOf(fxSearchList(nullptr, nullptr)), Names());
}

TEST(SearchList, KeepsTheOrderOfTheDirectory) {
    const TestDirectory directory;
    for (const char* name : {"c", "a", "b", ".hidden"}) directory.file(name);
    Names expected;
    DIR* const entries = opendir(directory.path.c_str());
    while (const dirent* entry = readdir(entries)) {
        expected.push_back(directory.path + "/" + entry->d_name);
    }
    closedir(entries);
    EXPECT_EQ(expected.size(), 6U);  // with . and ..
    EXPECT_EQ(namesOf(fxSearchList(directory.path.c_str(), ".*")), expected);
}

TEST(SearchList, IsComputedWhenTextsChange) {
    const TestDirectory directory;
    const std::string a = directory.file("a");
    fxSearchList list("", "a");
    EXPECT_TRUE(list.isEmpty());
    list.searchList(directory.path.c_str());
    EXPECT_EQ(namesOf(list), Names({a}));
    EXPECT_EQ(list.searchList(), directory.path);
    list.regexp("b");
    EXPECT_TRUE(list.isEmpty());
    const std::string b = directory.file("b");
    list.regexp("b");  // nothing new: not read again
    EXPECT_TRUE(list.isEmpty());
    list.recalc();
    EXPECT_EQ(namesOf(list), Names({b}));
    list.searchCriteria(directory.path.c_str(), "[a]");
    EXPECT_EQ(namesOf(list), Names({a}));
    EXPECT_STREQ(list.regexp(), "[a]");
    // Its own texts, exchanged.
    list.searchCriteria(list.regexp(), list.searchList());
    EXPECT_STREQ(list.searchList(), "[a]");
    EXPECT_EQ(list.regexp(), directory.path);
    list.searchList(nullptr);
    EXPECT_TRUE(list.isEmpty());
}

TEST(SearchList, CopiesAreIndependent) {
    const TestDirectory directory;
    directory.file("a");
    fxSearchList list(directory.path.c_str(), "a");
    fxSearchList copy(list);
    list.regexp("none");
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(copy.length(), 1U);
    list = copy;
    EXPECT_EQ(list.length(), 1U);
    EXPECT_STREQ(list.regexp(), "a");
}

}  // namespace
