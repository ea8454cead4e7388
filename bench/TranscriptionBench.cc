// Saving and loading through a file in memory-backed storage, against the
// least that could be written by hand for the same facts, against a writer and a
// loader of the same bytes for this one class (DirectGraph.h) and, where they are
// installed, against Boost.Serialization, cereal, and a map of numbers written by hand
// over Qt's QDataStream.
//
// The graphs: 100,000 nodes of a long, a double, a text of 12 characters and two
// pointers, shared and cyclic: a tree whose leaves point back to nodes on the way
// from the root, and a ring in which each node names the next and a random one.
// Rows in a fresh process count what memory costs that was never used before.
// The array: 10 million longs.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/DirectGraph.h"
#include "fxds/Globals.h"
#include "fxds/LongArray.h"
#include "fxds/StdioStream.h"
#include "fxds/Str.h"
#include "fxds/Xdr.h"

#ifdef FXDS_HAVE_BOOST_SERIALIZATION
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/array.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>
#endif
#ifdef FXDS_HAVE_CEREAL
#include <cereal/archives/binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/string.hpp>
#endif
#ifdef FXDS_HAVE_QT
#include <QByteArray>
#include <QDataStream>
#include <QFile>
#include <QHash>
#endif

namespace {

constexpr unsigned int nodeCount = 100000;
constexpr unsigned int longCount = 10000000;

std::string path() { return "/dev/shm/fxds-bench-" + std::to_string(getpid()); }

struct RemoveFile {
    ~RemoveFile() { unlink(path().c_str()); }
} removeFile;

const bool isInitialized = (fxInitializeToolkit(), true);

class Node : public fxXDRObj {
    FX_TRANSCRIBABLE(Node)
    long number = 0;
    double weight = 0;
    fxStr text;
    Node* left = nullptr;
    Node* right = nullptr;
};
FX_TRANSCRIBABLE_TYPE(Node, "Node", 1);
fxBool Node::xdr(fxTranscriber& t) {
    return fxXdrAll(t, number, weight, text) && fxXdrObject(t, left) && fxXdrObject(t, right);
}

/// The same for the others.
struct Plain {
    long number = 0;
    double weight = 0;
    std::string text;
    Plain* left = nullptr;
    Plain* right = nullptr;

#ifdef FXDS_HAVE_BOOST_SERIALIZATION
    template <class Archive>
    void serialize(Archive& archive, unsigned int) {
        archive& number& weight& text& left& right;
    }
#endif
};

/// Connects the nodes of [begin, end) as a tree that was built from its root
/// on, with every missing child replaced by a node on the way from the root. So
/// nodes are shared and cyclic, and yet near the root for recursive archives.
template <class T>
void connectTree(std::vector<T*>& nodes, unsigned int begin, unsigned int end, std::vector<T*>& way,
                 std::mt19937& rng) {
    T* const node = nodes[begin];
    char text[16];
    std::snprintf(text, sizeof text, "text %07u", begin);
    node->number = begin;
    node->weight = begin * 0.5;
    node->text = text;
    const unsigned int middle = begin + 1 + (end - begin - 1) / 2;
    way.push_back(node);
    const auto child = [&](unsigned int from, unsigned int to) {
        if (from == to) return way[rng() % way.size()];
        connectTree(nodes, from, to, way, rng);
        return nodes[from];
    };
    node->left = child(begin + 1, middle);
    node->right = child(middle, end);
    way.pop_back();
}

enum Shape { tree, ring };

template <class T>
void connect(std::vector<T*>& nodes, Shape shape) {
    std::mt19937 rng(1);
    std::vector<T*> way;
    connectTree(nodes, 0, nodeCount, way, rng);
    for (unsigned int i = 0; shape == ring && i < nodeCount; ++i) {
        nodes[i]->left = nodes[(i + 1) % nodeCount];
        nodes[i]->right = nodes[rng() % nodeCount];
    }
}

template <class T>
std::vector<T*> makeNodes() {
    std::vector<T*> nodes;
    for (unsigned int i = 0; i < nodeCount; ++i) nodes.push_back(new T);
    return nodes;
}

template <class T>
void deleteAll(const std::vector<T*>& nodes) {
    for (T* node : nodes) delete node;
}

template <class C>
void save(C* root) {
    unlink(path().c_str());
    fxStdioStream stream(path().c_str(), fxStream::fxStreamWrite, 0600);
    stream.take();
    {
        const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(&stream));
        if (writer == nullptr || !fxWriteObject(*writer, root)) std::abort();
    }
    if (!stream.close()) std::abort();
}

template <class C>
C* load(const char* from) {
    const std::unique_ptr<fxTranscriber> reader(
        fxTranscriber::getReader(new fxStdioStream(from, fxStream::fxStreamRead, 0)));
    C* const root = reader != nullptr && isInitialized ? fxReadObject<C>(*reader) : nullptr;
    if (root == nullptr) std::abort();
    return root;
}

// The ways. Each has the class of its nodes, saves the graph whose first node is the root,
// and loads it as its nodes or as its root alone.

struct Library {
    typedef Node Item;
    static void save(const std::vector<Node*>& nodes) { ::save(nodes[0]); }
    static std::vector<Node*> load(const char* from) { return {::load<Node>(from)}; }
};

struct Directly {
    typedef Node Item;
    static void save(const std::vector<Node*>& nodes) {
        FILE* const file = std::fopen(path().c_str(), "w");
        const bool isGood = DirectWriter<Node>(file).write(nodes[0]);
        if (std::fclose(file) != 0 || !isGood) std::abort();
    }
    static std::vector<Node*> load(const char* from) {
        Node* const root = DirectLoader<Node>(from).load();
        if (root == nullptr) std::abort();
        return {root};
    }
};

// The least: the nodes one after the other, pointers as indices.
struct ByHand {
    typedef Plain Item;

    static void save(const std::vector<Plain*>& nodes) {
        FILE* file = std::fopen(path().c_str(), "w");
        const unsigned int count = nodeCount;
        std::fwrite(&count, sizeof count, 1, file);
        for (const Plain* node : nodes) {
            const unsigned int length = static_cast<unsigned int>(node->text.size());
            std::fwrite(&node->number, sizeof(long), 1, file);
            std::fwrite(&node->weight, sizeof(double), 1, file);
            std::fwrite(&length, sizeof length, 1, file);
            std::fwrite(node->text.data(), length, 1, file);
            for (const Plain* next : {node->left, node->right}) {
                const unsigned int index = static_cast<unsigned int>(next->number);
                std::fwrite(&index, sizeof index, 1, file);
            }
        }
        std::fclose(file);
    }
    static std::vector<Plain*> load(const char* from) {
        FILE* file = std::fopen(from, "r");
        unsigned int count = 0;
        bool isGood = std::fread(&count, sizeof count, 1, file) == 1;
        std::vector<Plain*> nodes;
        for (unsigned int i = 0; i < count; ++i) nodes.push_back(new Plain);
        for (Plain* node : nodes) {
            unsigned int length = 0;
            unsigned int next[2] = {};
            isGood &= std::fread(&node->number, sizeof(long), 1, file) == 1;
            isGood &= std::fread(&node->weight, sizeof(double), 1, file) == 1;
            isGood &= std::fread(&length, sizeof length, 1, file) == 1;
            node->text.resize(length);
            isGood &= std::fread(node->text.data(), length, 1, file) == 1;
            isGood &= std::fread(next, sizeof next, 1, file) == 1;
            node->left = nodes[next[0]];
            node->right = nodes[next[1]];
        }
        std::fclose(file);
        if (!isGood) std::abort();
        return nodes;
    }
};

#ifdef FXDS_HAVE_BOOST_SERIALIZATION
struct WithBoost {
    typedef Plain Item;
    static void save(const std::vector<Plain*>& nodes) {
        std::ofstream out(path(), std::ios::binary);
        boost::archive::binary_oarchive archive(out);
        const Plain* const root = nodes[0];
        archive << root;
    }
    static std::vector<Plain*> load(const char* from) {
        Plain* root = nullptr;
        std::ifstream in(from, std::ios::binary);
        boost::archive::binary_iarchive archive(in);
        archive >> root;
        return {root};
    }
};
#endif

#ifdef FXDS_HAVE_CEREAL
// It follows no plain pointers. A node holds itself until it is dropped.
struct Shared : std::enable_shared_from_this<Shared> {
    struct Link : std::shared_ptr<Shared> {
        Link& operator=(Shared* to) {
            std::shared_ptr<Shared>::operator=(to->shared_from_this());
            return *this;
        }
        operator Shared*() const { return get(); }
    };

    long number = 0;
    double weight = 0;
    std::string text;
    Link left;
    Link right;
    std::shared_ptr<Shared> self;

    template <class Archive>
    void serialize(Archive& archive) {
        archive(number, weight, text, static_cast<std::shared_ptr<Shared>&>(left),
                static_cast<std::shared_ptr<Shared>&>(right));
    }
};

template <>
std::vector<Shared*> makeNodes() {
    std::vector<Shared*> nodes;
    for (unsigned int i = 0; i < nodeCount; ++i) {
        const auto made = std::make_shared<Shared>();
        made->self = made;
        nodes.push_back(made.get());
    }
    return nodes;
}
void deleteAll(const std::vector<Shared*>& nodes) {
    std::vector<std::shared_ptr<Shared>> all;
    for (Shared* node : nodes) all.push_back(node->shared_from_this());
    for (Shared* node : nodes) {
        node->left.reset();
        node->right.reset();
        node->self.reset();
    }
}

struct WithCereal {
    typedef Shared Item;
    static void save(const std::vector<Shared*>& nodes) {
        std::ofstream out(path(), std::ios::binary);
        cereal::BinaryOutputArchive archive(out);
        archive(nodes[0]->self);
    }
    static std::vector<Shared*> load(const char* from) {
        std::shared_ptr<Shared> root;
        std::ifstream in(from, std::ios::binary);
        cereal::BinaryInputArchive archive(in);
        archive(root);
        root->self = root;
        return {root.get()};
    }
};
#endif

#ifdef FXDS_HAVE_QT
struct QtNode {
    qint64 number = 0;
    double weight = 0;
    QByteArray text;
    QtNode* left = nullptr;
    QtNode* right = nullptr;
};

// Numbers in the order in which nodes are met, which is the order of the nodes in the file.
struct WithQt {
    typedef QtNode Item;
    static void save(const std::vector<QtNode*>& nodes) {
        QFile file(QString::fromStdString(path()));
        if (!file.open(QIODevice::WriteOnly)) std::abort();
        QDataStream out(&file);
        QHash<const QtNode*, quint32> numbers;
        std::vector<const QtNode*> order;
        const auto numberOf = [&](const QtNode* node) {
            const auto found = numbers.constFind(node);
            if (found != numbers.constEnd()) return *found;
            const auto number = static_cast<quint32>(order.size());
            numbers.insert(node, number);
            order.push_back(node);
            return number;
        };
        numberOf(nodes[0]);
        for (size_t i = 0; i < order.size(); ++i) {
            const QtNode& node = *order[i];
            out << node.number << node.weight << node.text << numberOf(node.left)
                << numberOf(node.right);
        }
        if (out.status() != QDataStream::Ok) std::abort();
    }
    static std::vector<QtNode*> load(const char* from) {
        QFile file(QString::fromUtf8(from));
        if (!file.open(QIODevice::ReadOnly)) std::abort();
        QDataStream in(&file);
        std::vector<QtNode*> nodes = {new QtNode};
        const auto nodeOf = [&](quint32 number) {
            if (number > nodes.size()) std::abort();
            if (number == nodes.size()) nodes.push_back(new QtNode);
            return nodes[number];
        };
        for (size_t i = 0; i < nodes.size(); ++i) {
            QtNode& node = *nodes[i];
            quint32 left = 0;
            quint32 right = 0;
            in >> node.number >> node.weight >> node.text >> left >> right;
            node.left = nodeOf(left);
            node.right = nodeOf(right);
        }
        if (in.status() != QDataStream::Ok) std::abort();
        return nodes;
    }
};
#endif

template <class T>
std::vector<T*> connectedNodes(Shape shape) {
    std::vector<T*> nodes = makeNodes<T>();
    connect(nodes, shape);
    return nodes;
}

/// The nodes of a graph that was read, found by their numbers.
template <class T>
std::vector<T*> nodesOf(T* root) {
    std::vector<T*> nodes(nodeCount);
    std::vector<T*> walk = {root};
    while (!walk.empty()) {
        T* const node = walk.back();
        walk.pop_back();
        if (std::exchange(nodes[static_cast<size_t>(node->number)], node) != nullptr) continue;
        walk.push_back(node->left);
        walk.push_back(node->right);
    }
    return nodes;
}

template <class Way>
void saveGraph(benchmark::State& state, Shape shape) {
    const auto nodes = connectedNodes<typename Way::Item>(shape);
    for (auto _ : state) {
        unlink(path().c_str());
        Way::save(nodes);
    }
    deleteAll(nodes);
}

template <class Way>
void saveOnce(Shape shape) {
    const auto nodes = connectedNodes<typename Way::Item>(shape);
    Way::save(nodes);
    deleteAll(nodes);
}

// malloc() joins the small blocks that were freed when the next large one is asked for. That is
// a cost of destroying a graph, which is not measured, and not of loading the next one.
void settleHeap() {
    void* const large = std::malloc(size_t{1} << 16U);
    benchmark::DoNotOptimize(large);
    std::free(large);
}

// The heap gives memory of this size back, and each load takes fresh pages, unless it is
// told to keep all: then the memory is warm. What other rows left in it goes first.
class Heap {
public:
    explicit Heap(bool isWarm_) : isWarm(isWarm_) {
        malloc_trim(0);
        mallopt(M_MMAP_MAX, isWarm ? 0 : 65536);
        mallopt(M_TRIM_THRESHOLD, isWarm ? INT_MAX : 128 * 1024);
    }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;

    /// Gives back what lies between other blocks, too, from where it would be warm.
    void settle(benchmark::State& state) const {
        if (isWarm) return;
        state.PauseTiming();
        malloc_trim(0);
        state.ResumeTiming();
    }

private:
    const bool isWarm;
};

template <class Way>
void loadGraph(benchmark::State& state, Shape shape) {
    const Heap heap(true);  // or its state would depend on the rows that ran before
    saveOnce<Way>(shape);
    const std::string file = path();
    for (auto _ : state) {
        auto nodes = Way::load(file.c_str());
        state.PauseTiming();
        if (nodes.size() == 1) nodes = nodesOf(nodes[0]);
        deleteAll(nodes);
        settleHeap();
        state.ResumeTiming();
    }
}

// The ways by their names, for the programs that loadFresh() starts: each returns the
// seconds of processor time that loading takes.
std::map<std::string, double (*)(const char* file)> freshLoads;

template <class Way>
double secondsOfLoad(const char* file) {
    const std::clock_t start = std::clock();
    const auto nodes = Way::load(file);
    const std::clock_t taken = std::clock() - start;
    return nodes.empty() ? 0 : static_cast<double>(taken) / CLOCKS_PER_SEC;
}

// Loads the graph in a process of its own.
template <class Way>
void loadFresh(benchmark::State& state, Shape shape, const std::string& name) {
    saveOnce<Way>(shape);
    const std::string file = path();
    for (auto _ : state) {
        int ends[2];
        if (pipe(ends) != 0) std::abort();
        const pid_t child = fork();
        if (child == 0) {
            dup2(ends[1], STDOUT_FILENO);
            execl("/proc/self/exe", "fresh", "--load", name.c_str(), file.c_str(), nullptr);
            _exit(1);
        }
        close(ends[1]);
        double seconds = 0;
        if (read(ends[0], &seconds, sizeof seconds) != sizeof seconds) std::abort();
        state.SetIterationTime(seconds);
        close(ends[0]);
        waitpid(child, nullptr, 0);
    }
}

template <class Run>
benchmark::internal::Benchmark* enter(const std::string& row, Run run) {
    return benchmark::RegisterBenchmark(row.c_str(), run)->Unit(benchmark::kMillisecond);
}

template <class Way>
void add(const std::string& name) {
    freshLoads[name] = secondsOfLoad<Way>;
    for (const Shape shape : {tree, ring}) {
        const std::string row = name + (shape == ring ? "Ring" : "");
        enter("SaveGraph" + row, [=](benchmark::State& state) { saveGraph<Way>(state, shape); });
        enter("LoadGraph" + row, [=](benchmark::State& state) { loadGraph<Way>(state, shape); });
        enter("LoadGraphFresh" + row, [=](benchmark::State& state) {
            loadFresh<Way>(state, shape, name);
        })->UseManualTime();
    }
}

void addAll() {
    add<Library>("");
    add<Directly>("Directly");
    add<ByHand>("ByHand");
#ifdef FXDS_HAVE_BOOST_SERIALIZATION
    add<WithBoost>("WithBoost");
#endif
#ifdef FXDS_HAVE_CEREAL
    add<WithCereal>("WithCereal");
#endif
#ifdef FXDS_HAVE_QT
    add<WithQt>("WithQt");
#endif
}

fxLongArray someLongs() {
    fxLongArray array(longCount);
    for (unsigned int i = 0; i < longCount; ++i) array[i] = i;
    return array;
}

void saveLongs(benchmark::State& state) {
    fxLongArray array = someLongs();
    for (auto _ : state) save(&array);
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
void saveLongsByHand(benchmark::State& state) {
    const fxLongArray array = someLongs();
    for (auto _ : state) {
        unlink(path().c_str());
        FILE* file = std::fopen(path().c_str(), "w");
        if (std::fwrite(array.begin(), sizeof(long), longCount, file) != longCount) std::abort();
        std::fclose(file);
    }
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
void loadLongs(benchmark::State& state, bool isWarm) {
    const Heap heap(isWarm);
    {
        fxLongArray array = someLongs();
        save(&array);
    }
    for (auto _ : state) {
        heap.settle(state);
        delete load<fxLongArray>(path().c_str());
    }
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
void loadLongsByHand(benchmark::State& state, bool isWarm) {
    const Heap heap(isWarm);
    {
        const fxLongArray array = someLongs();
        FILE* file = std::fopen(path().c_str(), "w");
        std::fwrite(array.begin(), sizeof(long), longCount, file);
        std::fclose(file);
    }
    for (auto _ : state) {
        heap.settle(state);
        FILE* file = std::fopen(path().c_str(), "r");
        long* const block = static_cast<long*>(std::malloc(longCount * sizeof(long)));
        if (std::fread(block, sizeof(long), longCount, file) != longCount) std::abort();
        benchmark::DoNotOptimize(block);
        std::free(block);
        std::fclose(file);
    }
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
}  // namespace

// As benchmark_main, but for the programs that loadFresh() starts, and on a deep stack:
// Boost and cereal recurse along the ring.
int main(int count, char** arguments) {
    constexpr rlim_t deep = rlim_t{1} << 30U;
    rlimit limit;
    if (getrlimit(RLIMIT_STACK, &limit) != 0) return 1;
    if (limit.rlim_cur < deep) {
        limit.rlim_cur = deep;
        if (setrlimit(RLIMIT_STACK, &limit) == 0) execv("/proc/self/exe", arguments);
        std::perror("a stack of 1 GB");
        return 1;
    }
    addAll();
    enter("SaveLongsByHand", saveLongsByHand);
    enter("SaveLongs", saveLongs);
    for (const bool isWarm : {false, true}) {
        const std::string row = isWarm ? "LoadLongsWarm" : "LoadLongs";
        enter(row, [=](benchmark::State& state) { loadLongs(state, isWarm); });
        enter(row + "ByHand", [=](benchmark::State& state) { loadLongsByHand(state, isWarm); });
    }
    if (count == 4 && std::strcmp(arguments[1], "--load") == 0) {
        const double seconds = freshLoads.at(arguments[2])(arguments[3]);
        return write(STDOUT_FILENO, &seconds, sizeof seconds) == sizeof seconds ? 0 : 1;
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
