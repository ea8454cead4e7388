// Saving and loading by one call: whatever is in a file, and whatever the system
// does, is an answer. What programs do with each other's files when a class has changed.
#include "fxds/Save.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <regex>
#include <stdexcept>

#include "fxds/Globals.h"
#include "fxds/XdrEvolution.h"
#include "tests/support/RichGraph.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"
#include "tests/support/Traced.h"

// What the library does to the disk, in its order, and which step of it fails.
namespace {
std::string steps;
char failingStep = 0;
int failure = EIO;  // EINTR: once, and what was interrupted is done

int step(char what) {
    steps += what;
    if (what != failingStep) return 0;
    if (failure == EINTR) failingStep = 0;
    errno = failure;
    return -1;
}
}  // namespace

extern "C" __attribute__((visibility("default"))) int fsync(int fd) {
    struct stat status = {};
    fstat(fd, &status);
    return step(S_ISDIR(status.st_mode) ? 'D' : 'F');
}

extern "C" __attribute__((visibility("default"))) int renameat(int folder, const char* from,
                                                               int other, const char* to) noexcept {
    const bool isNamed = std::string_view(from).substr(0, 8) == ".saving-";
    if (step(isNamed ? 'R' : 'r') == 0) return renameat2(folder, from, other, to, 0);
    if (errno == EINTR) renameat2(folder, from, other, to, 0), errno = EINTR;
    return -1;
}

namespace {

typedef fxStreamFault Fault;

/// Does in its xdr() what a test wants.
class Wilful : public Listed {
    FX_TRANSCRIBABLE(Wilful)
    enum Way { plain, refuses, throws, ignores };
    static inline std::function<void()> act;                   // while it is written
    static inline std::function<bool(fxTranscriber&)> fields;  // in place of its own
    fxBool xdrFail(fxTranscriber&, void*) override { return fields != nullptr; }
    int way = plain;
    fxStr text = "text";
    Listed* other = nullptr;
};
TRANSCRIBED(Wilful, 1, Listed) {
    if (fields) return fields(t);
    if (!fxXdr(t, way)) return 0;
    if (!t.isReading() && act) act();
    if (way == refuses) return t.refuse("its way");
    if (way == throws && t.isReading()) throw std::runtime_error("thrown");
    const auto rest = [&]() noexcept { return fxXdr(t, text) && fxXdrObject(t, other); };
    return rest() || way == ignores;
}

class Large : public Listed {
    FX_TRANSCRIBABLE(Large)
    Weightless cache;
};
TRANSCRIBED(Large, 1, Listed) { return t.isReading() || true; }

/// Says that it is longer than it is.
struct Vast : std::string {
    static size_t size() { return size_t{1} << 32U; }
};

class Save : public testing::Test {
protected:
    static void SetUpTestSuite() { fxInitializeToolkit(); }
    void SetUp() override {
        steps.clear();
        failingStep = 0;
    }
    void TearDown() override {
        Received::deleteAll();
        failingStep = 0;
    }

    const TestDirectory directory;
    const std::string path = directory.path + "/it.fx";
};

TEST_F(Save, SentencesSayWhatIsWrong) {
    Wilful root;
    const std::string whole = saved(&root);
    root.way = Wilful::throws;
    const std::string thrown = saved(&root);
    const std::string cut = whole.substr(0, whole.size() - 1),
                      node = saved(std::make_unique<Node>().get());
    const std::string start = header() + records("t2:Wilful");
    // clang-format off
    const struct {
        std::string bytes;
        Fault::Kind kind;
        std::string text;
    } cases[] = {
        {whole, Fault::none, ""},
        {whole + "more", Fault::none, ""},
        {"", Fault::ended, "the data is not complete: something is missing after byte 0"},
        {cut, Fault::ended, "the data is not complete: something is missing after byte 82"},
        {"a letter", Fault::foreign, "the data is not a file of this kind"},
        {std::string(5000, 'x'), Fault::foreign, "the data is not a file of this kind"},
        {header(1), Fault::foreign, "the data is not a file of this kind"},
        {node, Fault::foreign, "the data is not a file of this kind: class Node"},
        {header() + records("P1"), Fault::damaged, "the data is damaged at byte 30"},
        // Whose number asks for more than its object has: nothing was cut off.
        {start + records("o1:2 o3:2"), Fault::damaged, "the data is damaged at byte 42"},
        {header() + records("t2:From\x1b[Hell"), Fault::unknownType, "the data is from a newer version of this program, or from another one: class From?[Hell"},
        {start + records("o1:2:2"), Fault::newer, "the data is from a newer version of this program: class Wilful, edition 2"},
        {start + records("o1:2:0"), Fault::older, "the data is from an older version of this program: class Wilful, edition 0"},
        {start + records("o1:2 1"), Fault::refused, "the data holds what this program cannot use: class Wilful, its way"},
        {thrown, Fault::refused, "the data holds what this program cannot use: class Wilful, thrown"},
    };
    // clang-format on
    for (const auto& c : cases) {
        const Fault fault = fxLoad<Wilful>(c.bytes.data(), c.bytes.size()).fault();
        EXPECT_EQ(fault.kind, c.kind) << c.text;
        EXPECT_EQ(fault.text(), c.text) << fault.reason;
        EXPECT_TRUE(Listed::all().size() == 1);
    }
}

TEST_F(Save, WhatCannotBeSavedSaysWhy) {
    Node own, *to = &own;
    auto node = std::make_unique<Node>();
    std::unique_ptr<Node> twin(node.get());
    fxRef<Node> ref = node.get();
    Deep deep;
    Deep* level = &deep;
    for (unsigned int i = 0; i < fxXdrNesting::most; ++i) level = &level->inner.emplace_back();
    double numbers[3] = {}, *block = numbers;
    unsigned int two = 2, three = 3, many = 0x10000000;
    long double huge = 1e4000L;
    std::vector<Weightless> empty(1024);
    std::map<int, Weightless> map;
    fxXdrDictionary<int, Weightless> table;
    map[0], table[0];
    auto value = std::make_unique<Weightless>();
    auto object = std::make_unique<Large>();
    std::string longText(300000, ' ');
    Vast vast;
    const char heavy[] = "too much memory for so few bytes";
    fxStrSet set(1U << 23);
    fxTranscriber* on = nullptr;
    const auto all = [&](auto&... fields) { return [&] { return fxXdrAll(*on, fields...); }; };
    const auto blocks = [&](unsigned int& n, unsigned int& m) {
        return [&] { return fxXdrSharedBlock(*on, block, n) && fxXdrSharedBlock(*on, block, m); };
    };
    const std::pair<const char*, std::function<bool()>> cases[] = {
        {"", all(node, empty)},
        {"", blocks(three, two)},
        {"an object that could not be read back",
         [&] { return fxXdrObject(*on, to) && all(own)(); }},
        {"an object with two owners", all(node, twin)},
        {"an object that has an owner and other holders", all(node, ref)},
        {"an object that has an owner and other holders", all(ref, ref, node)},
        {"values in values more than 500 deep", all(deep)},
        {"a block with two counts", blocks(two, three)},
        {"a block of 2 GB or more", [&] { return fxXdrBlock(*on, block, many); }},
        {"a long double beyond the range of a double", all(huge)},
        {"", all(empty, longText, empty)},
        {heavy, all(empty, empty)},
        {heavy, all(empty, map)},
        {heavy, all(empty, table)},
        {heavy, all(empty, value)},
        {heavy, all(empty, object)},
        {"more than 4294967295 elements", [&] { return fxXdrNumbers(*on, vast); }},
        {"tables with too many chains", all(set, set, set)},
    };
    const std::string guide = contents(FXDS_SOURCE_DIR "/docs/guide/saving.md");
    Wilful root;
    for (const auto& [reason, write] : cases) {
        Wilful::fields = [&on, write = write](fxTranscriber& t) { return on = &t, write(); };
        EXPECT_EQ(fxSave(path, root).reason, reason);
        EXPECT_NE(guide.find(reason), std::string::npos);
    }
    // Reading has the same limit: 1,023 elements, then five elements or entries.
    bool isRefused = false;
    for (const std::function<bool()>& read :
         {std::function<bool()>(all(empty, empty)), {all(empty, map)}}) {
        Wilful::fields = [&](fxTranscriber& t) {
            bool isDone = true;
            if (on = &t; t.isReading()) return isRefused = !read(), !isRefused;
            for (int word : {1023, 5, 0, 1, 2, 3, 4}) isDone = isDone && fxXdr(t, word);
            return isDone;
        };
        EXPECT_FALSE(fxSave(path, root));
        EXPECT_TRUE(fxLoad<Wilful>(path) && isRefused);  // xdrFail() forgives it
    }
    empty.resize(1024);
    // Each graph has as much.
    Wilful::fields = [&](fxTranscriber& t) { return fxXdr(t, empty); };
    HeldStream stream;
    fxBinaryWriter writer(stream);
    ASSERT_TRUE(fxWriteObject(writer, &root) && fxWriteObject(writer, &root));
    fxBinaryReader reader(stream, 0x1122, 0x33445566, "ieee");
    fxReadObject<Wilful>(reader), fxReadObject<Wilful>(reader);
    EXPECT_EQ(empty.size(), 1024U);
    Wilful::fields = nullptr;
    static_cast<void>(twin.release());
    static_cast<void>(ref.release());
}

TEST_F(Save, ClassesThatGoOnAfterAFaultDoNotHideIt) {
    for (const char* wrong : {"n", "#15", "B0:5"}) {
        const std::string bytes = header() + records("t2:Wilful o1:2 3 5 " + std::string(wrong));
        EXPECT_TRUE(fxLoad<Wilful>(bytes.data(), bytes.size()).fault());
        EXPECT_TRUE(Listed::all().empty());
    }
}

TEST_F(Save, PlaceNamesOffsetRecordAndClass) {
    const std::string wrong = header() + records("t2:Wilful o1:2 0 5 p9");
    const Fault fault = fxLoad<Wilful>(wrong.data(), wrong.size()).fault();
    EXPECT_EQ(fault.place(), "offset 72, pointer again, class Wilful");
    EXPECT_EQ(fault.reason, "format error");
    EXPECT_DEATH(loaded<Wilful>(wrong), "^fxds: stream at " + fault.place() + "\nformat error\n$");
    EXPECT_DEATH(loaded<Wilful>(header(1)), "^fxds: stream at offset 0, header\nfxBinaryReader: ");
    // Behind a graph, and a number that is read alone.
    const std::string before = records("t2:Wilful o1:2 0 5 B3:5 n c3:5 =text~ d 7");
    const HeldStream stream(header() + before + records("o4:2 0 5 p9"));
    Fault behind;
    const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(stream, behind));
    long number = 0;
    EXPECT_TRUE(fxReadObject<Wilful>(*reader) != nullptr && reader->xdr(&number, 1));
    EXPECT_EQ(fxReadObject<Wilful>(*reader), nullptr);
    EXPECT_EQ(behind.offset, header().size() + before.size() + records("o4:2 0 5").size());
}

// Each is read alone, and leaves what follows.
TEST_F(Save, MessagesAreIndependent) {
    HeldStream stream;
    fxStream& shared = *static_cast<fxStream*>(stream);
    for (const char* text : {"one", "two"}) {
        const auto message = std::make_unique<Node>();
        message->text = text;
        EXPECT_FALSE(fxSave(shared, message.get()));
    }
    EXPECT_STREQ(fxLoad<Node>(shared)->text, "one");
    const fxLoaded<const Node> second = fxLoad<const Node>(shared);
    EXPECT_TRUE(second->refCount == 1 && second->text == "two");
    const Fault end = fxLoad<Node>(shared).fault();
    EXPECT_TRUE(end.kind == Fault::ended && end.offset == 0);
}

TEST_F(Save, TracingShowsTheRecords) {
    Node node;
    node.text = "x";
    node.left = &node;
    HeldStream stream;
    const std::string written =
        traced("streams", [&] { EXPECT_FALSE(fxSave(*static_cast<fxStream*>(stream), node)); });
    EXPECT_EQ(written,
              "fxds stream  write offset 30, type #2, class Node\n"
              "fxds stream  write offset 40, object #1, class Node\n"
              "fxds stream  write offset 70, block #3, class Node\n"
              "fxds stream  write offset 79, pointer again #1, class Node\n"
              "fxds stream  write offset 84, null, class Node\n"
              "fxds stream  write offset 85, bytes #3\n");
    EXPECT_EQ(traced("streams", [&] { delete loaded<Node>(stream->view()); }),
              std::regex_replace(written, std::regex("write"), "read"));
}

TEST_F(Save, AFileIsReplacedAsAWhole) {
    Node root;
    ASSERT_TRUE(!fxSave(path, &root) && steps == "FRD") << "file, rename, folder";
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const uid_t owner = chown(path.c_str(), 7, 7) == 0 ? 7 : geteuid();
    const std::string link = directory.link("link", "it.fx");
    const std::string first = contents(path), other = directory.path + "/other";
    std::filesystem::create_hard_link(path, other);
    root.text = "changed";
    ASSERT_FALSE(fxSave(link.c_str(), &root));
    EXPECT_EQ(contents(other), first);
    struct stat status = {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_TRUE(status.st_mode == (S_IFREG | 0640) && status.st_uid == owner);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_STREQ(fxLoad<Node>(link.c_str())->text, "changed");
    ASSERT_FALSE(fxSave(directory.link("farther", "new.fx"), &root));
    EXPECT_EQ(contents(directory.path + "/new.fx"), contents(path));
    // A file gets a long block in large pieces, wherever it begins, and what is beside it.
    std::string letters;
    for (int i = 0; i < 300001; ++i) letters += static_cast<char>('a' + i * 7 % 25);
    for (size_t i = 0; i < 600; i += 50) {
        const fxStr written[] = {letters, letters.substr(0, 259700), letters.substr(0, i)};
        fxStr texts[] = {written[0], written[1], written[2]};
        Wilful::fields = [&](fxTranscriber& t) noexcept {
            return fxXdr(t, texts[0]) && fxXdr(t, texts[1]) && fxXdr(t, texts[2]);
        };
        Wilful lengthy;
        ASSERT_FALSE(fxSave(path, &lengthy));
        for (fxStr& text : texts) text = "";
        ASSERT_TRUE(fxLoad<Wilful>(path) && std::equal(texts, texts + 3, written)) << i;
    }
    Wilful::fields = nullptr;
    ASSERT_FALSE(fxSave(path, &root));

    // Whatever fails, the file is as it was, and nothing else is left. Only the folder is
    // synced when the new one is in place.
    const std::string now = contents(path);
    for (const char failing : {'F', 'R', 'D'}) {
        failingStep = failing;
        Node another;
        EXPECT_EQ(fxSave(path, &another).text(), path + ": " + std::strerror(EIO));
        EXPECT_EQ(contents(path) == now, failing != 'D');
    }
    failure = EINTR;
    for (const auto& [interrupted, all] : {std::pair('F', "FFRD"), {'R', "FRRD"}, {'D', "FRDD"}}) {
        steps.clear();
        failingStep = interrupted;
        EXPECT_TRUE(!fxSave(path, &root) && steps == all);
    }
    failure = EIO;
    Wilful wilful;
    Wilful::act = [] { throw 1; };
    EXPECT_THROW(static_cast<void>(fxSave(path, &wilful)), int);
    Wilful::act = nullptr;
    wilful.way = Wilful::refuses;
    EXPECT_EQ(fxSave(path, &wilful).text(), path + " cannot be saved: class Wilful, its way");
    const int before = openDescriptors();
    signal(SIGXFSZ, SIG_DFL);
    root.text = fxStr(std::string(100000, 'x').c_str());
    limit(RLIMIT_FSIZE, 0);
    EXPECT_EQ(fxSave(path.c_str(), &root).text(), path + ": " + std::strerror(EFBIG));
    limit(RLIMIT_FSIZE);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(contents(path), now);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path), {}), 5);
}

TEST_F(Save, OnlyFilesAreReplacedAndRead) {
    Node root;
    const std::string fifo = directory.path + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string loop = directory.link("loop", "loop");
    const struct {
        std::string path;
        int saving, loading;
    } cases[] = {{directory.path, EISDIR, EISDIR},
                 {fifo, EINVAL, EINVAL},
                 {loop, ELOOP, ELOOP},
                 {directory.path + "/no/file", ENOENT, ENOENT},
                 {path + "/", ENOENT, ENOENT},
                 {"", ENOENT, ENOENT}};
    const int opened = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_NE(inotify_add_watch(opened, fifo.c_str(), IN_OPEN), -1);
    for (const auto& c : cases) {
        EXPECT_EQ(fxSave(c.path.c_str(), &root).error, c.saving) << c.path;
        const Fault fault = fxLoad<Node>(c.path.c_str()).fault();
        const std::string shown = c.path.empty() ? "''" : c.path;
        const char* const why = c.path == fifo ? "not a regular file" : std::strerror(c.loading);
        EXPECT_EQ(fault.text(), shown + ": " + why);
    }
    char event[sizeof(inotify_event)];
    EXPECT_EQ(read(opened, event, sizeof event), -1) << "a writer of the FIFO would go on";
    close(opened);
    EXPECT_EQ(fxSave(path.c_str(), static_cast<Node*>(nullptr)).text(),
              path + " cannot be saved, there is no object");
}

// Paths are texts of any kind. Only where there is no file an object is made.
TEST_F(Save, PathsAreTexts) {
    const auto node = std::make_unique<Node>();
    node->number = 7;
    ASSERT_FALSE(fxSave(fxStr(path), node.get()));
    EXPECT_TRUE(fxLoad<Node>(path + "?").fault().isMissing());
    EXPECT_EQ(fxLoadOrMake<Node>(std::filesystem::path(path + "?"))->number, 0);
    EXPECT_EQ(fxLoadOrMake<Node>(fxStr(path))->number, 7);
    EXPECT_EQ(fxLoadOrMake<Node>(path + '\0').fault().error, EINVAL);
    EXPECT_EQ(fxSave(path + '\0', node.get()).text(), path + "?: no path has a zero byte");
}

// What an xdr(), or another program, does to folders and files while it is saved.
TEST_F(Save, WhatMovesMeanwhileIsFollowed) {
    const std::string folder = directory.path + "/folder", moved = directory.path + "/moved";
    const auto filesIn = [](const std::string& path_) {
        return std::distance(std::filesystem::directory_iterator(path_), {});
    };
    std::filesystem::create_directory(folder);
    Wilful root;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    Wilful::act = [] { std::filesystem::current_path("/"); };
    EXPECT_FALSE(fxSave("it.fx", &root));
    std::filesystem::current_path(before);
    Wilful::act = [&] { std::filesystem::rename(folder, moved); };
    EXPECT_FALSE(fxSave((folder + "/other.fx").c_str(), &root));
    EXPECT_EQ(filesIn(moved), 2);
    EXPECT_EQ(contents(moved + "/it.fx"), contents(moved + "/other.fx"));
    // What is no file any more is not replaced.
    const std::string target = moved + "/it.fx";
    Wilful::act = [&] {
        std::filesystem::remove(target);
        mkfifo(target.c_str(), 0600);
    };
    EXPECT_EQ(fxSave(target.c_str(), &root).error, EINVAL);
    EXPECT_TRUE(std::filesystem::is_fifo(target));
    std::filesystem::remove(target);
    Wilful::act = [&] { std::filesystem::create_symlink("other.fx", target); };
    EXPECT_EQ(fxSave(target.c_str(), &root).error, ELOOP);
    EXPECT_TRUE(std::filesystem::is_symlink(target));
    Wilful::act = nullptr;
    EXPECT_EQ(filesIn(moved), 2);
}

// However it ends. Until then bytes wait to be written.
TEST_F(Save, AForkedProcessLeavesTheFilesAlone) {
    Wilful root;
    const std::string whole = saved(&root);
    const pid_t saving = getpid();
    for (const bool returns : {false, true}) {
        int end = -1;
        Wilful::act = [&] {
            sigset_t blocked;
            pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
            EXPECT_EQ(sigismember(&blocked, SIGXFSZ), 0);
            const pid_t child = fork();
            if (child != 0) end = statusOf(child);
            if (child == 0 && !returns) _exit(std::fflush(nullptr) + ECANCELED);  // as exit() does
        };
        const Fault fault = fxSave(path, &root);
        if (getpid() != saving) _exit(fault.error);
        EXPECT_TRUE(!fault && end == ECANCELED);
        EXPECT_EQ(contents(path), whole);
    }
    // Its own process ends.
    Wilful::act = [] { _exit(0); };
    EXPECT_EXIT(static_cast<void>(fxSave(path, &root)), testing::ExitedWithCode(0), "");
    EXPECT_EQ(contents(path), whole);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path), {}), 2);
    Wilful::act = nullptr;
}

// Two classes may stand for one of two programs: they have one name in streams.
// NOLINTBEGIN(bugprone-macro-parentheses): the parameters are classes and fields
#define CLASS(Class, name, version, Base, fields, body) \
    class Class : public Base {                         \
        FX_TRANSCRIBABLE(Class)                         \
        fields                                          \
    };                                                  \
    FX_TRANSCRIBABLE_TYPE(Class, name, version);        \
    fxBool Class::xdr(fxTranscriber& t) { body }
#define CLASS_OF_TWO(Class, First, Second, body)             \
    class Class : public First, public Second {              \
        FX_TRANSCRIBABLE(Class)                              \
        long last = 6;                                       \
    };                                                       \
    FX_TRANSCRIBABLE_TYPE(Class, "Based", 1, First, Second); \
    fxBool Class::xdr(fxTranscriber& t) { body }
// NOLINTEND(bugprone-macro-parentheses)

#define EDITION(newest)   \
    int edition = newest; \
    if (!fxXdrEdition(t, this, edition)) return false;

// clang-format off
CLASS(Plain, "Plain", 1, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
CLASS(Added, "Plain", 1, fxXDRObj, long value = 5; fxStr text = "none";, EDITION(2) return fxXdr(t, value) && (edition < 2 || fxXdr(t, text));)
CLASS(Bare, "Bare", 1, fxXDRObj, long value = 5;, return fxXdr(t, value);)
CLASS(BareInserted, "Bare", 1, fxXDRObj, long inserted = 3; long value = 5;, return fxXdrAll(t, inserted, value);)
CLASS(Raised, "Plain", 2, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
CLASS(Retyped, "Plain", 1, fxXDRObj, double value = 5; long whole = 0;,
      EDITION(2) if (edition < 2 && fxXdr(t, whole)) value = static_cast<double>(whole); return edition < 2 || fxXdr(t, value);)
CLASS(Renamed, "New name", 1, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
FX_TRANSCRIBABLE_ALIAS(Renamed, "Plain", 1);
FX_TRANSCRIBABLE_ALIAS(Renamed, "Older name", 1);

CLASS(Full, "Full", 1, fxXDRObj,
      long value = 5; fxStr text = "a text"; std::vector<std::string> words{"a"}; Node* object = nullptr; char* string = nullptr; double* block = nullptr; unsigned int count = 0; long last = 6;,
      EDITION(1) return fxXdrAll(t, value, text, words) && fxXdrObject(t, object) && fxXdrString(t, string) && fxXdrBlock(t, block, count) && fxXdr(t, last);)
bool skips(fxTranscriber& t) {
    return fxXdrSkipped<fxStr>(t) && fxXdrSkipped<std::vector<std::string>>(t) && fxXdrSkippedObject<Node>(t) && fxXdrSkippedString<char>(t) && fxXdrSkippedBlock<double>(t);
}
CLASS(Less, "Full", 1, fxXDRObj, long value = 5; long last = 6;, EDITION(1) return fxXdr(t, value) && skips(t) && fxXdr(t, last);)
CLASS(Lessened, "Full", 1, fxXDRObj, long value = 5; long last = 6;, EDITION(2) return fxXdr(t, value) && (edition > 1 || skips(t)) && fxXdr(t, last);)

CLASS(Item, "Item", 1, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
CLASS(Tag, "Tag", 1, fxXDRObj, long tag = 7;, EDITION(1) return fxXdr(t, tag);)
CLASS(Based, "Based", 1, Item, long last = 6;, EDITION(1) return fxXdrBase<Item>(t, this) && fxXdr(t, last);)
CLASS_OF_TWO(Behind, Item, Tag, EDITION(2) return fxXdrBase<Item>(t, this) && (edition < 2 || fxXdrBase<Tag>(t, this)) && fxXdr(t, last);)
CLASS_OF_TWO(Front, Tag, Item,
             EDITION(2) return (edition < 2 ? fxXdrFirstBase<Item>(t, this) : fxXdrBase<Tag>(t, this) && fxXdrBase<Item>(t, this)) && fxXdr(t, last);)
CLASS(VirtualItem, "Item", 1, virtual fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
CLASS(VirtualTag, "Tag", 1, virtual fxXDRObj, long tag = 7;, EDITION(1) return fxXdr(t, tag);)
CLASS_OF_TWO(Virtual, VirtualTag, VirtualItem,
             EDITION(2) return (edition < 2 ? fxXdrFirstBase<VirtualItem>(t, this) : fxXdrBase<VirtualTag>(t, this) && fxXdrBase<VirtualItem>(t, this)) && fxXdr(t, last);)
CLASS(Between, "Between", 1, Item, long between = 8;, EDITION(1) return fxXdrBase<Item>(t, this) && fxXdr(t, between);)
CLASS(Above, "Based", 1, Between, long last = 6;,
      EDITION(2) return (edition < 2 ? fxXdrFirstBase<Item>(t, this) : fxXdrBase<Between>(t, this)) && fxXdr(t, last);)
CLASS(Single, "Based", 1, Item, long last = 6;,
      EDITION(3) return (edition == 2 ? fxXdrSkipped<Tag>(t) && fxXdrBaseBehind<Item>(t, this) : fxXdrBase<Item>(t, this)) && fxXdr(t, last);)
// clang-format on

template <class C, class = void>
constexpr bool hasLast = false;
template <class C>
constexpr bool hasLast<C, std::void_t<decltype(C::last)>> = true;

// What loading a C comes to.
template <class C>
std::string outcomeOf(const std::string& bytes) {
    const fxLoaded<C> read = fxLoad<C>(bytes.data(), bytes.size());
    const Fault::Kind kind = read.fault().kind;
    bool isWhole = read && read->value == 50;
    if constexpr (hasLast<C>) isWhole = isWhole && read->last == 60;
    return kind == Fault::none          ? (isWhole ? "reads" : "misreads")
           : kind == Fault::newer       ? "is from a newer version"
           : kind == Fault::older       ? "is from an older version"
           : kind == Fault::unknownType ? "has an unknown class"
                                        : "is damaged";
}

template <class From>
std::string written() {
    Node node;
    char text[] = "string";
    double numbers[] = {1, 2};
    From object;
    object.value = 50;
    if constexpr (hasLast<From>) object.last = 60;
    if constexpr (std::is_same_v<From, Full>) {
        object.object = &node, object.string = text;
        object.block = numbers, object.count = 2;
    }
    return saved(&object);
}

template <class Before, class After>
std::string row(const char* change) {
    return std::string("| ") + change + " | " + outcomeOf<After>(written<Before>()) + " | " +
           outcomeOf<Before>(written<After>()) + " |\n";
}

// The bytes as a program has them that does not know the class.
std::string unknown(std::string bytes, const char* name) {
    ++bytes[bytes.find(name)];
    return bytes;
}

// The table of docs/guide/saving.md, each row with the classes before and after.
TEST_F(Save, OfClassesThatChangeIsAsTheGuideSays) {
    const std::string table =
        "| Change | New program, old file | Old program, new file |\n|---|---|---|\n" +
        row<Plain, Added>("a field is added at the end, in a new edition") +
        row<Full, Less>("a field is removed, and `fxXdrSkipped()` takes its place") +
        row<Full, Lessened>("a field is removed, and is skipped in what is of an older edition") +
        row<Plain, Retyped>("a field gets another type, in a new edition") +
        "| the class gets another name, and an alias | " + outcomeOf<Renamed>(written<Plain>()) +
        " | " + outcomeOf<Plain>(unknown(written<Renamed>(), "New name")) + " |\n" +
        row<Based, Behind>("a base is added behind the others, in a new edition") +
        row<Based, Front>("a base is added in front, in a new edition, with `fxXdrFirstBase()`") +
        row<Based, Virtual>("the same, and the bases now derive virtually from `fxXDRObj`") +
        row<Based, Above>(
            "a class is inserted between it and its base, in a new edition, with "
            "`fxXdrFirstBase()`") +
        row<Front, Single>(
            "the base in front is removed, in a new edition, with `fxXdrBaseBehind()`") +
        row<Plain, Raised>("the version in `FX_TRANSCRIBABLE_TYPE` is raised") +
        row<Bare, BareInserted>("a number is inserted in a class without editions");
    EXPECT_NE(contents(FXDS_SOURCE_DIR "/docs/guide/saving.md").find(table), std::string::npos)
        << table;
    EXPECT_TRUE(Listed::all().empty()) << "what was skipped is left";
    EXPECT_EQ(outcomeOf<Plain>(header() + records("t2:Plain o1:2 0 50")),
              "is from an older version");
}

}  // namespace
