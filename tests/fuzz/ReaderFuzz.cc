// The binary reader on any bytes. The first byte of the input chooses what is
// read; the rest is the stream. All graphs of the stream are read, and looked
// at in full. Every contradiction is an answer: nothing is fatal.
#include "tests/fuzz/Input.h"
#include "tests/support/FatalCatcher.h"
#include "tests/support/RichGraph.h"

#include "fxds/Globals.h"

namespace {

template <class C>
bool readOne(fxTranscriber& reader) {
    C* const root = fxReadObject<C>(reader);
    if constexpr (std::is_same_v<C, Rich>) {
        if (root != nullptr) readAllOf(*root);
    } else if constexpr (!std::is_base_of_v<Listed, C>) {
        delete root;
    }
    return root != nullptr;
}

/// Reads graphs that each go before the next one comes.
bool readEverything(fxTranscriber& reader) {
    Everything* const root = fxReadObject<Everything>(reader);
    if (root == nullptr) return false;
    FUZZ_REQUIRE(root->told == 1 || (Everything::makesDo && root->told == 0));  // if it failed
    FUZZ_REQUIRE(root->toldTooOften() <= 0);
    FUZZ_REQUIRE(root->reference == nullptr || root->reference->refCount != 0);
    readAllOf(*root);
    if (!Everything::makesDo) Received::deleteAll();
    reader.reset();  // destroys what an object that failed has left over
    Received::deleteAll();
    return true;
}

bool (*const readers[])(fxTranscriber& reader) = {
    readOne<Rich>,       readOne<Node>,       readEverything,    readOne<fxStr>,
    readOne<fxIntArray>, readOne<fxStrArray>, readOne<fxStrSet>, readOne<fxStrStrDictionary>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const unsigned int choice = input.byte();
    Everything::makesDo = choice / 8 % 2 != 0;
    const std::string message = fatalMessage([&] {
        if (fxTypeObj::knownTypes == nullptr) return;
        static const bool isInitialized = (fxInitializeToolkit(), true);
        static_cast<void>(isInitialized);
        const std::string bytes = input.rest();
        StingyStream stream(bytes, choice / 8 * size_t{16});
        fxStreamFault fault;
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(&stream, fault));
        while (reader != nullptr &&
               (choice < 240 ? readers[choice % 8] : readOne<Cabinet>)(*reader))
            continue;
    });
    Received::deleteAll();
    if (!message.empty()) {
        std::fprintf(stderr, "fatal: %s\n", message.c_str());
        __builtin_trap();
    }
    return 0;
}
