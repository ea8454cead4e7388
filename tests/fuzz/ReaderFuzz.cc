// The binary reader on any bytes. The first byte of the input chooses what is
// read; the rest is the stream. All graphs of the stream are read, and looked
// at in full.
#include "tests/fuzz/Input.h"
#include "tests/support/FatalCatcher.h"
#include "tests/support/RichGraph.h"

#include "fxds/Globals.h"

/// A virtual base whose containers would free what they have if it were read
/// again, and the classes that share it.
class Words : public fxXDRObj {
    FX_TRANSCRIBABLE(Words)
    fxStrStrDictionary dictionary;
    fxStrSet set;
};
FX_TRANSCRIBABLE_TYPE(Words, "Words", 1);
fxBool Words::xdr(fxTranscriber& t) { return fxXdrAll(t, dictionary, set); }

class Left : public virtual Words {
    FX_TRANSCRIBABLE(Left)
};
FX_TRANSCRIBABLE_TYPE(Left, "Left", 1, Words);
fxBool Left::xdr(fxTranscriber& t) { return fxXdrBase<Words>(t, this); }

class Right : public virtual Words {
    FX_TRANSCRIBABLE(Right)
};
FX_TRANSCRIBABLE_TYPE(Right, "Right", 1, Words);
fxBool Right::xdr(fxTranscriber& t) { return fxXdrBase<Words>(t, this); }

class Both : public Left, public Right {
    FX_TRANSCRIBABLE(Both)
};
FX_TRANSCRIBABLE_TYPE(Both, "Both", 1, Left, Right);
fxBool Both::xdr(fxTranscriber& t) { return fxXdrBase<Left>(t, this) && fxXdrBase<Right>(t, this); }

/// Counted references, to an object with such parts too, beside one embedded.
/// Makes do with what it got before a failure.
class Crate : public Listed {
    FX_TRANSCRIBABLE(Crate)
    Both inside;
    fxRef<Crate> other;
    fxRef<const Words> words;
    fxStr label;
    bool isTold = false;

    fxBool xdrFail(fxTranscriber&, void*) override { return 1; }
    void xdrSuccess(fxTranscriber& t) override {
        if (std::exchange(isTold, t.isReading())) __builtin_trap();  // told twice
        if (other != nullptr && other->refCount == 0) __builtin_trap();
    }
    static void forgetAll() {
        for (Listed* object : Listed::all()) {
            if (Crate* crate = dynamic_cast<Crate*>(object))
                static_cast<void>(crate->other.release());
        }
    }
};
FX_TRANSCRIBABLE_TYPE(Crate, "Crate", 1, Listed);
fxBool Crate::xdr(fxTranscriber& t) {
    return fxXdrBase<Listed>(t, this) && fxXdrAll(t, inside, other, words, label);
}

namespace {

/// Reads graphs that each go before the next one comes.
bool readCrate(fxTranscriber& reader) {
    Crate* const root = fxReadObject<Crate>(reader);
    if (root == nullptr) return false;
    root->take();
    root->release();
    reader.reset();
    return true;
}

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

bool readChosen(fxTranscriber& reader, unsigned int choice) {
    switch (choice % 8) {
        case 0:
            return readOne<Rich>(reader);
        case 1:
            return readOne<Node>(reader);
        case 2:
            return readCrate(reader);
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
    Crate::forgetAll();  // what holds itself in a circle
    Received::deleteAll();
    if (!message.empty() && !isDocumentedMessage(message)) {
        std::fprintf(stderr, "not a documented message: %s\n", message.c_str());
        __builtin_trap();
    }
    return 0;
}
