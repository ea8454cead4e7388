// The binary reader on any bytes. The first byte of the input chooses what is
// read; the rest is the stream. All graphs of the stream are read, and looked
// at in full.
#include "tests/fuzz/Input.h"
#include "tests/support/FatalCatcher.h"
#include "tests/support/RichGraph.h"

#include "fxds/Globals.h"

namespace {

template <class C>
bool readOne(fxTranscriber& reader) {
    C* const root = fxReadObject<C>(reader);
    if constexpr (std::is_same_v<C, Rich>) {
        if (root != nullptr) sumOf(*root);
    } else if constexpr (!std::is_base_of_v<Listed, C>) {
        delete root;
    }
    return root != nullptr;
}

bool readChosen(fxTranscriber& reader, unsigned int choice) {
    switch (choice % 8) {
        case 0:
            return readOne<Rich>(reader);
        case 1:
            return readOne<Node>(reader);
        case 2:
            return readOne<Listed>(reader);
        case 3:
            return readOne<fxStr>(reader);
        case 4:
            return readOne<fxIntArray>(reader);
        case 5:
            return readOne<fxStrArray>(reader);
        case 6:
            return readOne<fxStrSet>(reader);
        default:
            return readOne<fxStrStrDictionary>(reader);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const unsigned int choice = input.byte();
    const std::string message = fatalMessage([&] {
        if (fxTypeObj::knownTypes == nullptr) return;
        static const bool isInitialized = (fxInitializeToolkit(), true);
        static_cast<void>(isInitialized);
        const std::string bytes = input.rest();
        StingyStream stream(bytes, choice / 8 * size_t{16});
        const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(&stream));
        if (reader == nullptr) return;
        while (readChosen(*reader, choice)) continue;
    });
    Received::deleteAll();
    if (!message.empty() && !isDocumentedMessage(message)) {
        std::fprintf(stderr, "not a documented message: %s\n", message.c_str());
        __builtin_trap();
    }
    return 0;
}
