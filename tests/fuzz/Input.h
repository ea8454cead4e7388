// What the fuzz targets share: the input as a source of decisions.
#ifndef FXDS_TESTS_FUZZ_INPUT_H
#define FXDS_TESTS_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// What each target defines: runs one input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Hands out the bytes of an input one decision after the other. When they are
/// used up, every number is 0 and every text empty.
class FuzzInput {
public:
    /// The bytes are borrowed.
    FuzzInput(const uint8_t* bytes, size_t size) : next(bytes), left(size) {}

    bool isEmpty() const { return left == 0; }

    uint8_t byte() {
        if (left == 0) return 0;
        --left;
        return *next++;
    }

    /// A number in [0, most]. Requires: most <= 65535.
    unsigned int upTo(size_t most) {
        const unsigned int low = byte();
        const unsigned int high = most > 255 ? byte() : 0;
        return (low + high * 256) % (static_cast<unsigned int>(most) + 1);
    }

    /// Some of the bytes, `most` at the most.
    std::string text(size_t most) {
        std::string result(upTo(most), '\0');
        for (char& c : result) c = static_cast<char>(byte());
        return result;
    }

    /// All the bytes that are left.
    std::string rest() {
        std::string result(reinterpret_cast<const char*>(next), left);
        left = 0;
        return result;
    }

private:
    const uint8_t* next;
    size_t left;
};

/// Ends the run, and so reports the input, when a claim does not hold.
#define FUZZ_REQUIRE(claim)                                                                 \
    do {                                                                                    \
        if (!(claim)) {                                                                     \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #claim); \
            std::abort();                                                                   \
        }                                                                                   \
    } while (false)

#endif
