// Misuses of objects and channels; run.sh tells how the rows are read.

class Gauge : public fxObj {
public:
    Gauge() {
        addInput<&Gauge::setLevel>("level");
        addInput<&Gauge::setText>("text");
        addInput<&Gauge::setTruth>("truth");
        addInput<&Gauge::pulse>("pulse");
    }

#ifdef ReceiverThatReturns
    // a receiver is a member function that returns void and takes nothing or one of: void bool int
    int answer(int) { return 1; }
    fxInputChannel* answers() { return addInput<&Gauge::answer>("answer"); }
#endif
#ifdef ReceiverOfAnUnknownType
    // a receiver is a member function that returns void and takes nothing or one of: void bool int
    void setSize(unsigned) {}
    fxInputChannel* sizes() { return addInput<&Gauge::setSize>("size"); }
#endif
#ifdef ReceiverThatEmptiesTheBox
    // a receiver is a member function that returns void and takes nothing or one of: void bool int
    void take(fxStr&&) {}
    fxInputChannel* takes() { return addInput<&Gauge::take>("take"); }
#endif
#ifdef ReceiverThatChangesItsCopy
    // a receiver is a member function that returns void and takes nothing or one of: void bool int
    void change(int&) {}
    fxInputChannel* changes() { return addInput<&Gauge::change>("change"); }
#endif
#ifdef ReceiverOfTwo
    // a receiver is a member function that returns void and takes nothing or one of: void bool int
    void setBoth(int, int) {}
    fxInputChannel* both() { return addInput<&Gauge::setBoth>("both"); }
#endif
#ifdef ReceiverThatIsNoFunction
    // a receiver is a member function that returns void and takes nothing or one of: void bool int
    int value = 0;
    fxInputChannel* values() { return addInput<&Gauge::value>("value"); }
#endif

#ifdef OutputOfAnUnknownType
    // an output carries one of: void bool int
    fxOutput<unsigned> size;
#endif
#ifdef OutputOfAnotherType
    // this output has another type
    fxOutput<float> part{addOutput<int>("part")};
#endif

    void sendAll(const fxStr& string, short small, char letter, float part) {
        level.send(small);
        level.send(letter);
        level.send(true);
        level.send({3});
        real.send(1);
        real.send(part);
        truth.send(true);
        truth.send(fxBool(1));
        text.send("text");
        texts.send(string);
        texts.send("string");
        pulses.send();
#ifdef FractionSentAsInt
        // not every value of this type is one of the output's
        level.send(0.5);
#endif
#ifdef WiderIntegerSent
        // not every value of this type is one of the output's
        level.send(1L << 40);
#endif
#ifdef UnsignedSentAsInt
        // not every value of this type is one of the output's
        level.send(4000000000u);
#endif
#ifdef IntSentAsTruth
        // not every value of this type is one of the output's
        truth.send(256);
#endif
#ifdef TextSentAsTruth
        // not every value of this type is one of the output's
        truth.send("false");
#endif
#ifdef PointerSentAsTruth
        // not every value of this type is one of the output's
        truth.send(this);
#endif
#ifdef TextSentAsInt
        // not every value of this type is one of the output's
        level.send("5");
#endif
#ifdef LongSentAsDouble
        // not every value of this type is one of the output's
        real.send(1L);
#endif
    }

private:
    void setLevel(const int&) {}
    void setText(const char*) noexcept {}
    void setTruth(bool) const {}
    void pulse() const noexcept {}

    fxOutput<int> level{addOutput<int>("level")};
    fxOutput<bool> truth{addOutput<bool>("truth")};
    fxOutput<double> real{addOutput<double>("real")};
    const fxOutput<const char*> text{addOutput<const char*>("text")};
    fxOutput<fxStr> texts = addOutput<fxStr>("texts");
    fxOutput<void> pulses;
};

#ifdef ObjectWithAnOutputCopied
// an fxOutput sends for one object: copies of objects carry no channels
Gauge copyOf(const Gauge& gauge) { return gauge; }
#endif
#ifdef ObjectWithAnOutputMoved
// an fxOutput sends for one object: copies of objects carry no channels
Gauge movedFrom(Gauge& gauge) { return std::move(gauge); }
#endif

class Mixin {
public:
    void hear(int) {}
};
class Mixed : public fxObj, public Mixin {
public:
    void listen() {
#ifdef ReceiverOfAMixin
        // a receiver's class derives from fxObj, once and not virtually
        addInput<&Mixed::hear>("in");
#endif
    }
};
class Shared : public virtual fxObj {
public:
    void hear(int) {}
    void listen() {
#ifdef ReceiverOfAVirtualBase
        // a receiver's class derives from fxObj, once and not virtually
        addInput<&Shared::hear>("in");
#endif
    }
};

inline float half(int value) { return 0.5f * static_cast<float>(value); }
inline fxStr quoted(const fxStr& text) { return text; }
inline unsigned size(int) { return 0; }
inline int sum(int, int) { return 0; }
inline void convert() {
    fxConverter::add<half>();
    fxConverter::add<quoted>();
#ifdef ConversionToAnUnknownType
    // a conversion is a function that takes and returns one of: void bool int
    fxConverter::add<size>();
#endif
#ifdef ConversionOfTwo
    // a conversion is a function that takes and returns one of: void bool int
    fxConverter::add<sum>();
#endif
#ifdef ConversionWithState
    // a conversion has no state: it is called as long as there are connections
    int offset = 1;
    fxConverter::add([offset](int value) { return static_cast<long>(value) + offset; });
#endif
}

inline void join(fxOutputView<double> output, [[maybe_unused]] fxRef<fxObj> object) {
    fxConnect(output, [](double) {});
#ifdef ReceiverThatCuts
    // not every value of the output is one of the receiver's
    fxConnect(output, [](int) {});
#endif
#ifdef ReceiverOfSomethingElse
    // the receiver cannot be called with a value of the output's type
    fxConnect(output, [](fxStr&) {});
#endif
#ifdef CallableOfAnUnknownType
    // a receiver takes nothing or one of: void bool int
    object->addInput("in", [](unsigned) {});
#endif
#ifdef PropertyReadAsPointer
    // a property is read as a number, a truth, an fxStr, a std::string, a pointer to an object
    fxGetProperty(*object, "name", "none");
#endif
#ifdef ReferenceDeleted
    // delete
    delete object;
#endif
}
