// Saving and loading through a file in memory-backed storage, against the
// least that could be written by hand for the same facts and, where it is
// installed, against Boost.Serialization's binary archive.
//
// The graph: 100,000 nodes of a long, a double, a text of 12 characters and two
// pointers, shared and cyclic. The array: 10 million longs.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

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

template <class T>
void connect(std::vector<T*>& nodes) {
    std::mt19937 rng(1);
    std::vector<T*> way;
    connectTree(nodes, 0, nodeCount, way, rng);
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

std::vector<Plain*> plainNodes() {
    std::vector<Plain*> nodes = makeNodes<Plain>();
    for (unsigned int i = 0; i < nodeCount; ++i) nodes[i]->index = i;
    connect(nodes);
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
C* load() {
    const std::unique_ptr<fxTranscriber> reader(
        fxTranscriber::getReader(new fxStdioStream(path().c_str(), fxStream::fxStreamRead, 0)));
    C* const root = reader != nullptr && isInitialized ? fxReadObject<C>(*reader) : nullptr;
    if (root == nullptr) std::abort();
    return root;
}

/// The nodes of a graph that was read, found by their numbers.
std::vector<Node*> nodesOf(Node* root) {
    std::vector<Node*> nodes(nodeCount);
    std::vector<Node*> walk = {root};
    while (!walk.empty()) {
        Node* node = walk.back();
        walk.pop_back();
        if (nodes[static_cast<size_t>(node->number)] != nullptr) continue;
        nodes[static_cast<size_t>(node->number)] = node;
        walk.push_back(node->left);
        walk.push_back(node->right);
    }
    return nodes;
}

void SaveGraph(benchmark::State& state) {
    std::vector<Node*> nodes = makeNodes<Node>();
    connect(nodes);
    for (auto _ : state) save(nodes[0]);
    deleteAll(nodes);
}
void SaveGraphByHand(benchmark::State& state) {
    const std::vector<Plain*> nodes = plainNodes();
    for (auto _ : state) {
        unlink(path().c_str());
        saveByHand(nodes);
    }
    deleteAll(nodes);
}
void LoadGraph(benchmark::State& state) {
    std::vector<Node*> nodes = makeNodes<Node>();
    connect(nodes);
    save(nodes[0]);
    deleteAll(nodes);
    for (auto _ : state) {
        Node* root = load<Node>();
        state.PauseTiming();
        deleteAll(nodesOf(root));
        state.ResumeTiming();
    }
}
void LoadGraphByHand(benchmark::State& state) {
    std::vector<Plain*> nodes = plainNodes();
    saveByHand(nodes);
    deleteAll(nodes);
    for (auto _ : state) {
        nodes = loadByHand();
        state.PauseTiming();
        deleteAll(nodes);
        state.ResumeTiming();
    }
}
BENCHMARK(SaveGraphByHand)->Unit(benchmark::kMillisecond);
BENCHMARK(SaveGraph)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadGraphByHand)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadGraph)->Unit(benchmark::kMillisecond);

#ifdef FXDS_BENCH_BOOST
void saveWithBoost(const Plain* root) {
    std::ofstream out(path(), std::ios::binary);
    boost::archive::binary_oarchive archive(out);
    archive << root;
}

void SaveGraphWithBoost(benchmark::State& state) {
    const std::vector<Plain*> nodes = plainNodes();
    for (auto _ : state) {
        unlink(path().c_str());
        saveWithBoost(nodes[0]);
    }
    deleteAll(nodes);
}
void LoadGraphWithBoost(benchmark::State& state) {
    std::vector<Plain*> nodes = plainNodes();
    saveWithBoost(nodes[0]);
    deleteAll(nodes);
    for (auto _ : state) {
        Plain* root = nullptr;
        {
            std::ifstream in(path(), std::ios::binary);
            boost::archive::binary_iarchive archive(in);
            archive >> root;
        }
        state.PauseTiming();
        std::vector<Plain*> found(nodeCount);
        std::vector<Plain*> walk = {root};
        while (!walk.empty()) {
            Plain* node = walk.back();
            walk.pop_back();
            Plain*& place = found[static_cast<size_t>(node->number)];
            if (place != nullptr) continue;
            place = node;
            walk.push_back(node->left);
            walk.push_back(node->right);
        }
        deleteAll(found);
        state.ResumeTiming();
    }
}
BENCHMARK(SaveGraphWithBoost)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadGraphWithBoost)->Unit(benchmark::kMillisecond);
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
