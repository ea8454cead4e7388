// Saving and loading through a file in memory-backed storage, against the
// least that could be written by hand for the same facts, against a writer and a
// loader of the same bytes for this one class (DirectGraph.h) and, where it is
// installed, against Boost.Serialization's binary archive.
//
// The graphs: 100,000 nodes of a long, a double, a text of 12 characters and two
// pointers, shared and cyclic: a tree whose leaves point back to nodes on the way
// from the root, and a ring in which each node names the next and a random one.
// Rows in a fresh process count what memory costs that was never used before.
// The array: 10 million longs.

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include <cstdio>
#include <fstream>
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

#ifdef FXDS_BENCH_BOOST
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/array.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>
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
    unsigned int index = 0;

#ifdef FXDS_BENCH_BOOST
    template <class Archive>
    void serialize(Archive& archive, unsigned int) {
        archive& number& weight& text& left& right;
    }
#endif
};

/// Connects the nodes of [begin, end) as a tree that was built from its root
/// on, with every missing child replaced by a node on the way from the root. So
/// nodes are shared and cyclic, and yet near the root for those who recurse.
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

// The least: the nodes one after the other, pointers as indices.

void saveByHand(const std::vector<Plain*>& nodes) {
    FILE* file = std::fopen(path().c_str(), "w");
    const unsigned int count = nodeCount;
    std::fwrite(&count, sizeof count, 1, file);
    for (const Plain* node : nodes) {
        const unsigned int length = static_cast<unsigned int>(node->text.size());
        std::fwrite(&node->number, sizeof(long), 1, file);
        std::fwrite(&node->weight, sizeof(double), 1, file);
        std::fwrite(&length, sizeof length, 1, file);
        std::fwrite(node->text.data(), length, 1, file);
        std::fwrite(&node->left->index, sizeof(unsigned int), 1, file);
        std::fwrite(&node->right->index, sizeof(unsigned int), 1, file);
    }
    std::fclose(file);
}

std::vector<Plain*> loadByHand() {
    FILE* file = std::fopen(path().c_str(), "r");
    unsigned int count = 0;
    bool isGood = std::fread(&count, sizeof count, 1, file) == 1;
    std::vector<Plain*> nodes;
    for (unsigned int i = 0; i < count; ++i) nodes.push_back(new Plain);
    for (Plain* node : nodes) {
        unsigned int length = 0;
        unsigned int left = 0;
        unsigned int right = 0;
        isGood &= std::fread(&node->number, sizeof(long), 1, file) == 1;
        isGood &= std::fread(&node->weight, sizeof(double), 1, file) == 1;
        isGood &= std::fread(&length, sizeof length, 1, file) == 1;
        node->text.resize(length);
        isGood &= std::fread(node->text.data(), length, 1, file) == 1;
        isGood &= std::fread(&left, sizeof left, 1, file) == 1;
        isGood &= std::fread(&right, sizeof right, 1, file) == 1;
        node->left = nodes[left];
        node->right = nodes[right];
    }
    std::fclose(file);
    if (!isGood) std::abort();
    return nodes;
}

template <class T>
void deleteAll(const std::vector<T*>& nodes) {
    for (T* node : nodes) delete node;
}

std::vector<Plain*> plainNodes(Shape shape) {
    std::vector<Plain*> nodes = makeNodes<Plain>();
    for (unsigned int i = 0; i < nodeCount; ++i) nodes[i]->index = i;
    connect(nodes, shape);
    return nodes;
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
C* load(const std::string& from = path()) {
    const std::unique_ptr<fxTranscriber> reader(
        fxTranscriber::getReader(new fxStdioStream(from.c_str(), fxStream::fxStreamRead, 0)));
    C* const root = reader != nullptr && isInitialized ? fxReadObject<C>(*reader) : nullptr;
    if (root == nullptr) std::abort();
    return root;
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

void saveDirectly(const Node* root) {
    FILE* const file = std::fopen(path().c_str(), "w");
    const bool isGood = DirectWriter<Node>(file).write(root);
    if (std::fclose(file) != 0 || !isGood) std::abort();
}
Node* loadDirectly(const std::string& from = path()) {
    Node* const root = DirectLoader<Node>(from.c_str()).load();
    if (root == nullptr) std::abort();
    return root;
}

#ifdef FXDS_BENCH_BOOST
// It recurses along the ring.
void onDeepStack(void* (*run)(void*), void* argument) {
    pthread_attr_t attributes;
    pthread_t thread;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size_t{1} << 30U);
    if (pthread_create(&thread, &attributes, run, argument) != 0) std::abort();
    pthread_join(thread, nullptr);
}
void saveWithBoost(const Plain* root) {
    std::ofstream out(path(), std::ios::binary);
    boost::archive::binary_oarchive archive(out);
    archive << root;
}
Plain* loadWithBoost() {
    Plain* root = nullptr;
    std::ifstream in(path(), std::ios::binary);
    boost::archive::binary_iarchive archive(in);
    archive >> root;
    return root;
}
#endif

template <class T>
std::vector<T*> connectedNodes(Shape shape) {
    if constexpr (std::is_same_v<T, Plain>) {
        return plainNodes(shape);
    } else {
        std::vector<T*> nodes = makeNodes<T>();
        connect(nodes, shape);
        return nodes;
    }
}

/// The ways of saving a graph of T. `save(nodes)`.
template <class T, class Save>
void saveGraph(benchmark::State& state, Shape shape, Save save) {
    std::vector<T*> nodes = connectedNodes<T>(shape);
    for (auto _ : state) {
        unlink(path().c_str());
        save(nodes);
    }
    deleteAll(nodes);
}
/// The ways of loading one, from what `save(nodes)` saves.
template <class T, class Save, class Load>
void loadGraph(benchmark::State& state, Shape shape, Save save, Load load) {
    std::vector<T*> nodes = connectedNodes<T>(shape);
    save(nodes);
    deleteAll(nodes);
    for (auto _ : state) {
        nodes = load();
        state.PauseTiming();
        if (nodes.size() == 1) nodes = nodesOf(nodes[0]);
        deleteAll(nodes);
        state.ResumeTiming();
    }
}

const auto saveNodes = [](const std::vector<Node*>& nodes) { save(nodes[0]); };
const auto loadNodes = [] { return std::vector<Node*>{load<Node>()}; };
const auto saveNodesDirectly = [](const std::vector<Node*>& nodes) { saveDirectly(nodes[0]); };
const auto loadNodesDirectly = [] { return std::vector<Node*>{loadDirectly()}; };

void SaveGraph(benchmark::State& state, Shape shape) { saveGraph<Node>(state, shape, saveNodes); }
void SaveGraphDirectly(benchmark::State& state, Shape shape) {
    saveGraph<Node>(state, shape, saveNodesDirectly);
}
void SaveGraphByHand(benchmark::State& state, Shape shape) {
    saveGraph<Plain>(state, shape, saveByHand);
}
void LoadGraph(benchmark::State& state, Shape shape) {
    loadGraph<Node>(state, shape, saveNodes, loadNodes);
}
void LoadGraphDirectly(benchmark::State& state, Shape shape) {
    loadGraph<Node>(state, shape, saveNodes, loadNodesDirectly);
}
void LoadGraphByHand(benchmark::State& state, Shape shape) {
    loadGraph<Plain>(state, shape, saveByHand, loadByHand);
}

// Loads the graph in a process of its own and returns the time that took.
void loadFresh(benchmark::State& state, Shape shape, const char* how) {
    std::vector<Node*> nodes = makeNodes<Node>();
    connect(nodes, shape);
    save(nodes[0]);
    deleteAll(nodes);
    const std::string file = path();
    for (auto _ : state) {
        int ends[2];
        if (pipe(ends) != 0) std::abort();
        const pid_t child = fork();
        if (child == 0) {
            dup2(ends[1], STDOUT_FILENO);
            execl("/proc/self/exe", "fresh", "--load", how, file.c_str(), nullptr);
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
void LoadGraphFresh(benchmark::State& state, Shape shape) { loadFresh(state, shape, "library"); }
void LoadGraphFreshDirectly(benchmark::State& state, Shape shape) {
    loadFresh(state, shape, "directly");
}

#define BOTH(function, unit)                                                \
    void function##Ring(benchmark::State& state) { function(state, ring); } \
    void function##Tree(benchmark::State& state) { function(state, tree); } \
    BENCHMARK(function##Tree)->Name(#function)->unit;                       \
    BENCHMARK(function##Ring)->unit
BOTH(SaveGraphByHand, Unit(benchmark::kMillisecond));
BOTH(SaveGraphDirectly, Unit(benchmark::kMillisecond));
BOTH(SaveGraph, Unit(benchmark::kMillisecond));
BOTH(LoadGraphByHand, Unit(benchmark::kMillisecond));
BOTH(LoadGraphDirectly, Unit(benchmark::kMillisecond));
BOTH(LoadGraph, Unit(benchmark::kMillisecond));
BOTH(LoadGraphFreshDirectly, Unit(benchmark::kMillisecond)->UseManualTime());
BOTH(LoadGraphFresh, Unit(benchmark::kMillisecond)->UseManualTime());

#ifdef FXDS_BENCH_BOOST
void SaveGraphWithBoost(benchmark::State& state, Shape shape) {
    saveGraph<Plain>(state, shape, [](std::vector<Plain*>& nodes) {
        onDeepStack(
            [](void* root) -> void* {
                saveWithBoost(static_cast<const Plain*>(root));
                return nullptr;
            },
            nodes[0]);
    });
}
void LoadGraphWithBoost(benchmark::State& state, Shape shape) {
    loadGraph<Plain>(
        state, shape,
        [](std::vector<Plain*>& nodes) {
            onDeepStack(
                [](void* root) -> void* {
                    saveWithBoost(static_cast<const Plain*>(root));
                    return nullptr;
                },
                nodes[0]);
        },
        [] {
            std::vector<Plain*> root(1);
            onDeepStack(
                [](void* place) -> void* {
                    *static_cast<Plain**>(place) = loadWithBoost();
                    return nullptr;
                },
                root.data());
            return root;
        });
}
BOTH(SaveGraphWithBoost, Unit(benchmark::kMillisecond)->MeasureProcessCPUTime());
BOTH(LoadGraphWithBoost, Unit(benchmark::kMillisecond)->MeasureProcessCPUTime());
#endif

fxLongArray someLongs() {
    fxLongArray array(longCount);
    for (unsigned int i = 0; i < longCount; ++i) array[i] = i;
    return array;
}

void SaveLongs(benchmark::State& state) {
    fxLongArray array = someLongs();
    for (auto _ : state) save(&array);
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
void SaveLongsByHand(benchmark::State& state) {
    const fxLongArray array = someLongs();
    for (auto _ : state) {
        unlink(path().c_str());
        FILE* file = std::fopen(path().c_str(), "w");
        if (std::fwrite(array.begin(), sizeof(long), longCount, file) != longCount) std::abort();
        std::fclose(file);
    }
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
void LoadLongs(benchmark::State& state) {
    {
        fxLongArray array = someLongs();
        save(&array);
    }
    for (auto _ : state) delete load<fxLongArray>();
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
void LoadLongsByHand(benchmark::State& state) {
    {
        const fxLongArray array = someLongs();
        FILE* file = std::fopen(path().c_str(), "w");
        std::fwrite(array.begin(), sizeof(long), longCount, file);
        std::fclose(file);
    }
    for (auto _ : state) {
        FILE* file = std::fopen(path().c_str(), "r");
        long* const block = static_cast<long*>(std::malloc(longCount * sizeof(long)));
        if (std::fread(block, sizeof(long), longCount, file) != longCount) std::abort();
        benchmark::DoNotOptimize(block);
        std::free(block);
        std::fclose(file);
    }
    state.SetBytesProcessed(state.iterations() * longCount * static_cast<long>(sizeof(long)));
}
BENCHMARK(SaveLongsByHand)->Unit(benchmark::kMillisecond);
BENCHMARK(SaveLongs)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadLongsByHand)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadLongs)->Unit(benchmark::kMillisecond);

}  // namespace

// As benchmark_main, but for the programs that loadFresh() starts.
int main(int count, char** arguments) {
    if (count == 4 && std::strcmp(arguments[1], "--load") == 0) {
        const bool isDirect = std::strcmp(arguments[2], "directly") == 0;
        const auto start = std::chrono::steady_clock::now();
        const Node* const root = isDirect ? loadDirectly(arguments[3]) : load<Node>(arguments[3]);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        const double seconds = root != nullptr ? taken.count() : 0;
        return write(STDOUT_FILENO, &seconds, sizeof seconds) == sizeof seconds ? 0 : 1;
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
