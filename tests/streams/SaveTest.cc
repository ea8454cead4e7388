// Saving and loading by one call: whatever is in a file, and whatever the system
// does, is an answer.
#include "fxds/Save.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <stdexcept>

#include "fxds/Globals.h"
#include "fxds/Ref.h"
#include "fxds/Trace.h"
#include "fxds/XdrTables.h"
#include "tests/support/RichGraph.h"
#include "tests/support/RunProgram.h"
#include "tests/support/Surroundings.h"

// What the library does to the disk, in its order, and which step of it fails.
namespace {
std::string steps;
char failingStep = 0;

int step(char what) {
    steps += what;
    if (what != failingStep) return 0;
    errno = EIO;
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
    return step('R') != 0 ? -1 : renameat2(folder, from, other, to, 0);
}

namespace {

typedef fxStreamFault Fault;

/// Fields that a Rich has none of, and one.
class Extra : public Listed {
    FX_TRANSCRIBABLE(Extra)
    ~Extra() override { std::free(own); }

    // First those that own others of the list.
    static void deleteAll() {
        for (bool isAny = true; isAny;) {
            isAny = false;
            for (Listed* each : all()) {
                isAny = dynamic_cast<Extra*>(each) != nullptr;
                if (isAny) delete each;
                if (isAny) break;
            }
        }
        Received::deleteAll();
    }

    Node inner;
    std::map<std::string, std::vector<fxStr>> lists;
    std::unique_ptr<Node> only;
    char* own = nullptr;
    Rich* rich = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Extra, "Extra", 1, Listed);
fxBool Extra::xdr(fxTranscriber& t) {
    return fxXdrBase<Listed>(t, this) && fxXdrAll(t, inner, lists, only) && fxXdrString(t, own) &&
           fxXdrObject(t, rich);
}

/// Does in its xdr() what a test wants.
class Wilful : public Listed {
    FX_TRANSCRIBABLE(Wilful)
    enum Way { plain, refuses, throws, ignores, swallows };
    static inline std::function<void()> act;  // while it is written
    int way = plain;
    fxStr text = "text";
    Listed* other = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Wilful, "Wilful", 1, Listed);
fxBool Wilful::xdr(fxTranscriber& t) {
    if (!fxXdr(t, way)) return 0;
    if (!t.isReading() && act) act();
    if (way == refuses) return t.refuse("its way");
    if (way == throws && t.isReading()) throw std::runtime_error("thrown");
    const auto rest = [&]() noexcept { return fxXdr(t, text) && fxXdrObject(t, other); };
    return rest() || way == ignores || way == swallows;
}

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

template <class C>
std::string textOf(const std::string& bytes) {
    return fxLoad<C>(bytes.data(), bytes.size()).fault().text();
}

std::string bytesOfExtra() {
    const std::string rich = richStream();
    const std::unique_ptr<Rich> part(loaded<Rich>(rich));
    Extra extra;
    extra.inner.text = "inner";
    extra.lists["a"] = {"b", "", "cc"};
    extra.only = std::make_unique<Node>();
    extra.only->left = extra.only.get();
    extra.own = strdup("own");
    extra.rich = part.get();
    return saved(&extra);
}

// Loading an Extra leaves nothing behind but what it gives.
void expectAnswer(const std::string& bytes, size_t at) {
    StingyStream stream(bytes, at % 3 * 100);
    fxLoaded<Extra> extra = fxLoad<Extra>(stream);
    const Fault& fault = extra.fault();
    EXPECT_NE(static_cast<bool>(extra), static_cast<bool>(fault)) << at;
    if (extra) {
        if (extra->rich != nullptr) sumOf(*extra->rich);
        extra.release();
    } else {
        ASSERT_TRUE(Listed::all().empty()) << at;
        EXPECT_LE(fault.offset, bytes.size()) << at;
        EXPECT_FALSE(fault.text().empty()) << at;
        EXPECT_TRUE(fault.kind == Fault::ended || fault.kind == Fault::foreign ||
                    isDocumentedMessage(fault.reason) || fault.kind == Fault::refused)
            << at << ": " << fault.reason;
    }
    Extra::deleteAll();
}

TEST_F(Save, EveryCutIsAnAnswer) {
    const std::string bytes = bytesOfExtra();
    Received::deleteAll();
    expectAnswer(bytes, bytes.size());
    for (size_t n = 0; n < bytes.size(); ++n) {
        expectAnswer(bytes.substr(0, n), n);
        const Fault fault = fxLoad<Extra>(bytes.data(), n).fault();
        ASSERT_EQ(fault.kind, Fault::ended) << n << ": " << fault.text();
    }
}

TEST_F(Save, EveryFlippedByteIsAnAnswer) {
    const std::string bytes = bytesOfExtra();
    Received::deleteAll();
    for (size_t i = 0; i < bytes.size(); ++i) {
        for (const unsigned int flip : {0x01U, 0x06U, 0x08U, 0x80U, 0xFFU}) {
            std::string flipped = bytes;
            flipped[i] = static_cast<char>(static_cast<unsigned char>(flipped[i]) ^ flip);
            expectAnswer(flipped, i);
        }
    }
}

TEST_F(Save, SentencesSayWhatIsWrong) {
    Wilful root;
    const std::string whole = saved(&root);
    const std::string type = typeRecord(2, "Wilful");
    root.way = Wilful::throws;
    const std::string thrown = saved(&root);
    const struct {
        std::string bytes;
        Fault::Kind kind;
        std::string text;
    } cases[] = {
        {whole, Fault::none, ""},
        {"", Fault::ended, "the data is not complete: something is missing after byte 0"},
        {whole.substr(0, whole.size() - 1), Fault::ended,
         "the data is not complete: something is missing after byte 82"},
        {"a letter", Fault::foreign, "the data is not a file of this kind"},
        {std::string(5000, 'x'), Fault::foreign, "the data is not a file of this kind"},
        {header(1), Fault::foreign, "the data is not a file of this kind"},
        {saved(std::make_unique<Node>().get()), Fault::foreign,
         "the data is not a file of this kind: class Node"},
        {header() + record(11, word(1)), Fault::damaged, "the data is damaged at byte 30"},
        {header() + typeRecord(2, "From\x1b[Hell"), Fault::unknownType,
         "the data is from a newer version of this program, or from another one: "
         "class From?[Hell"},
        {header() + type + objectRecord(1, 2, "", 2), Fault::newer,
         "the data is from a newer version of this program: class Wilful, edition 2"},
        {header() + type + objectRecord(1, 2, "", 0), Fault::older,
         "the data is from an older version of this program: class Wilful, edition 0"},
        {header() + type + objectRecord(1, 2, long8(Wilful::refuses)), Fault::refused,
         "the data holds what this program cannot use: class Wilful, its way"},
        {thrown, Fault::refused,
         "the data holds what this program cannot use: class Wilful, thrown"},
    };
    for (const auto& c : cases) {
        const Fault fault = fxLoad<Wilful>(c.bytes.data(), c.bytes.size()).fault();
        EXPECT_EQ(fault.kind, c.kind) << c.text;
        EXPECT_EQ(fault.text(), c.text) << fault.reason;
        EXPECT_TRUE(Listed::all().size() == 1);
    }
}

TEST_F(Save, ClassesThatGoOnAfterAFaultDoNotHideIt) {
    for (const int way : {Wilful::ignores, Wilful::swallows}) {
        const std::string object =
            header() + typeRecord(2, "Wilful") + objectRecord(1, 2, long8(way) + long8(5));
        for (const std::string& wrong : {record(1), record(15), record(3, word(0) + word(5))}) {
            const std::string bytes = object + wrong;
            EXPECT_NE(textOf<Wilful>(bytes), "");
            EXPECT_TRUE(Listed::all().empty());
        }
    }
}

TEST_F(Save, PlaceNamesOffsetRecordAndClass) {
    const std::string bytes =
        header() + typeRecord(2, "Wilful") + objectRecord(1, 2, long8(0) + long8(5));
    const std::string wrong = bytes + record(12, word(9));
    const Fault fault = fxLoad<Wilful>(wrong.data(), wrong.size()).fault();
    EXPECT_EQ(fault.place(),
              "offset " + std::to_string(bytes.size()) + ", pointer again, class Wilful");
    EXPECT_EQ(fault.reason, "format error");
    EXPECT_DEATH(loaded<Wilful>(wrong), "^fxds: stream at " + fault.place() + "\nformat error\n$");
    EXPECT_DEATH(loaded<Wilful>(header(1)), "^fxds: stream at offset 0, header\nfxBinaryReader: ");
}

TEST_F(Save, TracingShowsTheRecords) {
    std::string traced;
    const auto note = [](void* text, const char* line, size_t) {
        *static_cast<std::string*>(text) += std::string(line) + '\n';
    };
    Node node;
    node.text = "x";
    node.left = &node;
    fxTrace::setSink(note, &traced);
    fxTrace::enable("streams");
    HeldStream stream;
    EXPECT_FALSE(fxSave(*static_cast<fxStream*>(stream), &node));
    const std::string written = std::exchange(traced, "");
    delete loaded<Node>(*static_cast<fxStream*>(stream));
    fxTrace::enable(0U);
    fxTrace::setSink(nullptr, nullptr);
    EXPECT_EQ(written,
              "fxds stream  write offset 30, type #2, class Node\n"
              "fxds stream  write offset 40, object #1, class Node\n"
              "fxds stream  write offset 70, block #3, class Node\n"
              "fxds stream  write offset 79, pointer again #1, class Node\n"
              "fxds stream  write offset 84, null, class Node\n"
              "fxds stream  write offset 85, bytes #3\n");
    EXPECT_EQ(traced, std::regex_replace(written, std::regex("write"), "read"));
}

// Two messages on one stream, of which the second names what was in the first.
TEST_F(Save, MessagesAreIndependent) {
    HeldStream stream;
    for (const char* text : {"one", "two"}) {
        const auto message = std::make_unique<Node>();
        message->text = text;
        EXPECT_FALSE(fxSave(*static_cast<fxStream*>(stream), message.get()));
    }
    for (const char* text : {"one", "two"}) {
        const fxLoaded<Node> message = fxLoad<Node>(*static_cast<fxStream*>(stream));
        ASSERT_TRUE(message);
        EXPECT_STREQ(message->text, text);
    }
    EXPECT_EQ(fxLoad<Node>(*static_cast<fxStream*>(stream)).fault().kind, Fault::ended);
    EXPECT_TRUE(Listed::all().empty());
}

TEST_F(Save, AFileIsReplacedAsAWhole) {
    Node root;
    ASSERT_FALSE(fxSave(path.c_str(), &root));
    EXPECT_EQ(steps, "FRD") << "file, rename, folder";
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const std::string link = directory.link("link", "it.fx");
    root.text = "changed";
    ASSERT_FALSE(fxSave(link.c_str(), &root));
    struct stat status = {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0640});
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_STREQ(fxLoad<Node>(link.c_str())->text, "changed");
    const std::string farther = directory.link("farther", "new.fx");
    ASSERT_FALSE(fxSave(farther.c_str(), &root));
    EXPECT_EQ(contents(directory.path + "/new.fx"), contents(path));

    // Whatever fails, the file is as it was, and nothing else is left.
    const std::string now = contents(path);
    for (const char failing : {'F', 'R'}) {
        failingStep = failing;
        Node other;
        const Fault fault = fxSave(path.c_str(), &other);
        EXPECT_EQ(fault.text(), path + ": " + std::strerror(EIO));
        EXPECT_EQ(contents(path), now);
    }
    failingStep = 0;
    Wilful wilful;
    wilful.way = Wilful::refuses;
    EXPECT_EQ(fxSave(path.c_str(), &wilful).text(),
              path + " cannot be saved: class Wilful, its way");
    wilful.way = Wilful::plain;
    class Unknown : public Listed {
    } unknown;
    wilful.other = &unknown;
    EXPECT_EQ(fxSave(path.c_str(), &wilful).text(),
              path + " cannot be saved: class Wilful, an object that could not be read back");
    {
        const int before = openDescriptors();
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit = {}, small = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        small.rlim_max = limit.rlim_max;
        root.text = fxStr(std::string(100000, 'x').c_str());
        setrlimit(RLIMIT_FSIZE, &small);
        EXPECT_EQ(fxSave(path.c_str(), &root).text(), path + ": " + std::strerror(EFBIG));
        setrlimit(RLIMIT_FSIZE, &limit);
        signal(SIGXFSZ, SIG_DFL);
        EXPECT_EQ(openDescriptors(), before);
    }
    EXPECT_EQ(contents(path), now);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path), {}), 4);
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
        EXPECT_EQ(fault.text(), shown + ": " + std::strerror(c.loading));
    }
    char event[sizeof(inotify_event)];
    EXPECT_EQ(read(opened, event, sizeof event), -1) << "a writer of the FIFO would go on";
    close(opened);
    EXPECT_EQ(fxSave(path.c_str(), static_cast<Node*>(nullptr)).text(),
              path + " cannot be saved, there is no object");
}

class Tables : public fxXDRObj {
    FX_TRANSCRIBABLE(Tables)

    fxXdrDictionary<fxStr, std::map<int, std::string>> values;
    fxXdrSet<fxStr> keys;
};
FX_TRANSCRIBABLE_TYPE(Tables, "Tables", 1);

fxBool Tables::xdr(fxTranscriber& t) { return fxXdrAll(t, values, keys); }

TEST_F(Save, TablesTravelWithWhatTheyHold) {
    const fxRef<Tables> tables = fxMake<Tables>();
    const auto name = [](int i) { return fxStr(i, "a key that is long enough %d"); };
    for (int i = 0; i < 100; ++i) {
        tables->values[name(i)][i] = std::to_string(i);
        tables->keys.add(name(i));
    }
    ASSERT_FALSE(fxSave(path.c_str(), tables));
    const std::string bytes = contents(path);
    for (size_t cut = 0; cut < bytes.size(); cut += 97) {
        EXPECT_FALSE(fxLoad<Tables>(bytes.data(), cut));
    }
    const fxLoaded<Tables> loaded = fxLoad<Tables>(path.c_str());
    ASSERT_TRUE(loaded) << loaded.fault().text();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(loaded->values[name(i)][i], std::to_string(i));
        EXPECT_TRUE(loaded->keys.contains(name(i)));
    }

    // Paths are texts of any kind. Only where there is no file an object is made.
    EXPECT_TRUE(fxLoad<Tables>(path + "?").fault().isMissing());
    EXPECT_TRUE(fxLoadOrMake<Tables>(std::filesystem::path(path + "?"))->values.empty());
    EXPECT_EQ(fxLoadOrMake<Tables>(fxStr(path))->values.size(), 100U);
    EXPECT_EQ(fxLoadOrMake<Tables>(path + '\0').fault().error, EINVAL);
    EXPECT_EQ(fxSave(path + '\0', loaded.get()).error, EINVAL);
}

/// Does with its containers what a test wants, right after they were read.
class Collector : public Listed {
    FX_TRANSCRIBABLE(Collector)
    fxBool xdrFail(fxTranscriber&, void*) override { return 1; }
    static inline bool (*act)(Collector& self) = nullptr;
    static inline int local = 0;  // what is read into a variable, 1 or 2

    fxStr text = "text";
    std::vector<fxStr> texts{"a", "b"};
    fxStrArray array;
    fxXdrDictionary<fxStr, fxStr> table;
    std::vector<std::vector<fxStr>> rows{{"a"}, {"b"}};
    std::map<std::string, std::optional<fxStr>> map{{"a", "b"}, {"c", "d"}};
    std::unique_ptr<std::pair<long, fxStr>> own{new std::pair<long, fxStr>(1, "own")};
    std::vector<Listed*> objects{this};
    fxVoidPtrArray nodes;
};
FX_TRANSCRIBABLE_TYPE(Collector, "Collector", 1, Listed);
fxBool Collector::xdr(fxTranscriber& t) {
    fxStr copy;
    std::vector<fxStr> copies;
    return fxXdr(t, local == 1 ? copy : text) && fxXdr(t, local == 2 ? copies : texts) &&
           fxXdrAll(t, array, table, rows, map, own) && fxXdrObjects(t, objects) &&
           fxXdrObjects<Node>(t, nodes) && (!t.isReading() || act == nullptr || act(*this));
}

TEST_F(Save, ContainersThatChangeBeforeTheyAreWholeAreRefused) {
    typedef Collector C;
    Node node;
    Collector written;
    written.array = {"a", "bb"};
    written.table["a"] = "b";
    written.nodes.append(&node);
    const std::string bytes = saved(&written);
    const auto reasonWith = [&](bool (*act)(C&)) {
        C::act = act;
        fxLoaded<C> read = fxLoad<C>(bytes.data(), bytes.size());
        if (read) delete static_cast<Node*>(read->nodes[0]);
        return read.fault().reason;
    };
    EXPECT_EQ(reasonWith(nullptr), "");
    bool (*const acts[])(C&) = {
        [](C& c) { return c.array.append("new"), true; },
        [](C& c) { return c.array.remove(0), true; },
        [](C& c) {
            return c.array = fxStrArray{"1", "2"}, true;
        },
        [](C& c) { return c.table.cleanup(), true; },
        [](C& c) { return c.table["new"] = "entry", true; },
        [](C& c) { return c.rows.clear(), true; },
        [](C& c) { return c.rows.resize(100), true; },
        [](C& c) { return c.rows[1].push_back("new"), true; },
        [](C& c) { return c.map.erase("a") == 1; },
        [](C& c) { return c.map["c"].reset(), true; },
        [](C& c) { return c.own.reset(), true; },
        [](C& c) { return c.objects.push_back(nullptr), true; },
        [](C& c) { return c.nodes.append(nullptr), true; },
    };
    for (const auto& act : acts) {
        EXPECT_EQ(reasonWith(act), "a container was changed in xdr() after it was read");
    }
#ifndef __SANITIZE_ADDRESS__  // which has local variables elsewhere, and tells of them itself
    for (C::local = 1; C::local < 3; ++C::local) {
        EXPECT_EQ(reasonWith(nullptr), "a local variable of xdr() waits for what it leads to");
    }
    C::local = 0;
#endif
    // One that makes do with what it got before has no elements without any content.
    C::act = [](C& c) { return c.own.reset(), false; };
    const fxLoaded<C> read = fxLoad<C>(bytes.data(), bytes.size());
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->array.isEmpty() && read->table.isEmpty() && read->objects.empty() &&
                read->nodes.isEmpty() && read->rows.size() == 2 && read->rows[1].empty());
    C::act = nullptr;
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

}  // namespace
