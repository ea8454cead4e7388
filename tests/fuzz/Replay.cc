// Runs a fuzz target over the files of a directory, without the fuzzer:
//   <Target>Replay DIRECTORY
// Every proper prefix of a short file is run too, for the places where an
// input breaks off.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/Input.h"

namespace {

constexpr size_t longestForPrefixes = 1024;

std::vector<char> contents(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Each input is a copy of exactly its size, so that ASan sees the end of it.
void run(const std::vector<char>& bytes, size_t size) {
    const std::vector<uint8_t> input(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    std::vector<std::filesystem::path> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) {
        if (entry.is_regular_file()) paths.push_back(entry.path());
    }
    if (error || paths.empty()) {
        std::fprintf(stderr, "%s: no inputs in %s\n", argv[0], argv[1]);
        return 1;
    }
    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths) {
        std::printf("%s\n", path.filename().c_str());
        std::fflush(stdout);
        const std::vector<char> bytes = contents(path);
        if (bytes.size() <= longestForPrefixes) {
            for (size_t size = 0; size < bytes.size(); ++size) run(bytes, size);
        }
        run(bytes, bytes.size());
    }
    return 0;
}
