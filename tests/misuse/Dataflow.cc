// Misuses of objects and channels; run.sh tells how the rows are read.
// clang-format off

class Gauge : public fxObj {
public:
    Gauge() {
        addInput<&Gauge::setLevel>("level");
        addInput<&Gauge::setText>("text");
        addInput<&Gauge::setTruth>("truth");
        addInput<&Gauge::pulse>("pulse");
        // a receiver is a member function that returns void and takes nothing or one of: void bool int
        MISUSE(ReceiverThatReturns, addInput<&Gauge::answer>("in");)
        MISUSE(ReceiverOfAnUnknownType, addInput<&Gauge::setSize>("in");)
        MISUSE(ReceiverThatEmptiesTheBox, addInput<&Gauge::take>("in");)
        MISUSE(ReceiverThatChangesItsCopy, addInput<&Gauge::change>("in");)
        MISUSE(ReceiverOfTwo, addInput<&Gauge::setBoth>("in");)
        MISUSE(ReceiverThatIsNoFunction, addInput<&Gauge::value>("in");)
        // float double char* fxStr fxStrArray, const char*, std::string, std::string_view, or a type of FX_CHANNEL_VALUE
        MISUSE(ReceiverOfAPointer, addInput<&Gauge::point>("in");)
        // write addInput<&Class::function>(name)
        MISUSE(ReceiverAsAnArgument, addInput("in", &Gauge::setLevel);)
    }
    int answer(int) { return 1; }
    void setSize(unsigned) {}
    void take(fxStr&&) {}
    void change(int&) {}
    void setBoth(int, int) {}
    void point(const int*) {}
    int value = 0;

    // an output carries one of: void bool int
    MISUSE(OutputOfAnUnknownType, fxOutput<unsigned> size;)
    // this output has another type
    MISUSE(OutputOfAnotherType, fxOutput<float> part{addOutput<int>("part")};)

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
        // not every value of this type is one of the output's
        MISUSE(FractionSentAsInt, level.send(0.5);)
        MISUSE(WiderIntegerSent, level.send(1L << 40);)
        MISUSE(UnsignedSentAsInt, level.send(4000000000u);)
        MISUSE(IntSentAsTruth, truth.send(256);)
        MISUSE(TextSentAsTruth, truth.send("false");)
        MISUSE(PointerSentAsTruth, truth.send(this);)
        MISUSE(TextSentAsInt, level.send("5");)
        MISUSE(LongSentAsDouble, real.send(1L);)
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

// an fxOutput sends for one object: copies of objects carry no channels
MISUSE(ObjectWithAnOutputCopied, Gauge copyOf(const Gauge& gauge) { return gauge; })
MISUSE(ObjectWithAnOutputMoved, Gauge movedFrom(Gauge& gauge) { return std::move(gauge); })

class Mixin {
public:
    void hear(int) {}
};
class Mixed : public fxObj, public Mixin {
public:
    // a receiver's class derives from fxObj, once and not virtually
    MISUSE(ReceiverOfAMixin, void listen() { addInput<&Mixed::hear>("in"); })
};
class Shared : public virtual fxObj {
public:
    void hear(int) {}
    MISUSE(ReceiverOfAVirtualBase, void listen() { addInput<&Shared::hear>("in"); })
};

inline float half(int value) { return 0.5f * static_cast<float>(value); }
inline fxStr quoted(const fxStr& text) { return text; }
inline unsigned size(int) { return 0; }
inline int sum(int, int) { return 0; }

inline void join(fxOutputView<double> output, [[maybe_unused]] fxRef<fxObj> object,
                 [[maybe_unused]] int offset, [[maybe_unused]] Mixin* mixin) {
    fxConverter::add<half>();
    fxConverter::add<quoted>();
    // a conversion is a function that takes and returns one of: void bool int
    MISUSE(ConversionToAnUnknownType, fxConverter::add<size>();)
    MISUSE(ConversionOfTwo, fxConverter::add<sum>();)
    // a conversion has no state: it is called as long as there are connections
    MISUSE(ConversionWithState, fxConverter::add([offset](int n) { return long{n} + offset; });)

    fxConnect(output, [](double) {});
    // not every value of the output is one of the receiver's
    MISUSE(ReceiverThatCuts, fxConnect(output, [](int) {});)
    // the receiver cannot be called with a value of the output's type
    MISUSE(ReceiverOfSomethingElse, fxConnect(output, [](fxStr&) {});)
    fxConnect(output, object, "in");
    fxConnect(output, *object, fxStr("in"));
    // the member function is one of another class than the target's
    MISUSE(MemberOfAnotherClass, fxConnect(output, object.get(), &Mixin::hear);)
    // a receiver takes nothing or one value
    MISUSE(MemberOfTwo, fxConnect(output, static_cast<Gauge*>(object.get()), &Gauge::setBoth);)
    // the target is an fxObj
    MISUSE(TargetThatIsNoObject, fxConnect(output, mixin, &Mixin::hear);)
    // a receiver takes nothing or one of: void bool int
    MISUSE(CallableOfAnUnknownType, object->addInput("in", [](unsigned) {});)
    MISUSE(CallableOfTwo, object->addInput("in", [](int, int) {});)
    // a property is read as a number, a boolean, an fxStr, a std::string, a pointer to an object
    MISUSE(PropertyReadAsPointer, fxGetProperty(*object, "name", "none");)
    // delete
    MISUSE(ReferenceDeleted, delete object;)
}
