// Boxed values, converters and typed channels.
#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>

#include "tests/support/Dataflow.h"

namespace {

template <class Passed>
struct Held {
    std::remove_reference_t<Passed> value{};
    int calls = 0;
    static void receive(void* self, Passed v) {
        static_cast<Held*>(self)->value = v;
        ++static_cast<Held*>(self)->calls;
    }
    void (*function())() { return reinterpret_cast<void (*)()>(&receive); }
};

class Values : public Dataflow {};

template <class T>
bool same(const T& a, const T& b) {
    return a == b;
}
bool same(const fxStrArray& a, const fxStrArray& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

// A text is adopted by the box.
template <class T>
void expectBox(const T& value, const char* name) {
    typename fxChannelType<T>::Box box(value);
    EXPECT_EQ(box.getType(), fxChannelType<T>::type());
    EXPECT_EQ(box.getSize(), sizeof(T));
    EXPECT_STREQ(box.dataName(), name);
    EXPECT_EQ(box.count, 0u);
    T copy{};
    box.getValue(fxDT_void, &copy);
    EXPECT_TRUE(same(copy, value));
    Held<typename fxChannelType<T>::Passed> held;
    box.deliverTo(held.function(), &held);
    EXPECT_TRUE(same(held.value, value));
}

// More aligned than the library's storage of small objects.
template <class Base>
struct alignas(128) Aligned : Base {
    using Base::Base;
};

template <class Small, class... Arguments>
void expectAligned(Arguments... arguments) {
    for (int i = 0; i < 3; ++i) {
        auto* aligned = new Aligned<Small>(arguments()...);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(aligned) % 128, 0u);
        delete aligned;
        delete new Small(arguments()...);
    }
    alignas(Small) char place[sizeof(Small)];
    auto* placed = new (place) Small(arguments()...);
    EXPECT_EQ(static_cast<void*>(placed), place);
    placed->~Small();
}

TEST_F(Values, BoxesHoldAndDeliverTheirKind) {
    expectBox<unsigned char>(200, "TYPE");
    expectBox(INT_MIN, "TYPE");
    expectBox(LONG_MAX, "TYPE");
    expectBox(0.5f, "TYPE");
    expectBox(-1e300, "TYPE");
    expectBox<char*>(fxCopyCharPtr("taken over"), "char *");
    expectBox<char*>(fxCopyCharPtr(nullptr), "char *");
    expectBox(fxStr("string"), "fxStr");
    fxStrArray names;
    names.append("a");
    expectBox(names, "fxStrArray");
    EXPECT_EQ(fxVoidData().getSize(), 0u);
    EXPECT_STREQ(fxVoidData().dataName(), "void");
    expectAligned<fxIntData>([] { return 7; });
    static fxInputChannel input(fxDT_int, nullptr, nullptr, 0);
    input.take();
    expectAligned<fxMessageEvent>([] { return &input; },
                                  []() -> fxData* { return new CountedData(1); });
}

// Sends a value through the converter for two types and gives what arrives.
template <class From, class To>
To convert(From value) {
    unsigned short from = fxChannelType<std::remove_reference_t<From>>::type();
    unsigned short to = fxChannelType<std::remove_reference_t<To>>::type();
    Held<To> held;
    fxInputChannel input(to, &held, held.function(), 0);
    input.take();
    fxInputChannel* converter = fxConverter::findConverter(from, to);
    if (converter == nullptr) {
        ADD_FAILURE() << "no converter from " << from << " to " << to;
        return held.value;
    }
    EXPECT_TRUE(converter->isConverter());
    EXPECT_EQ(converter->closure, nullptr);
    converter->take();
    static_cast<fxConverter*>(converter)->splice(&input);
    converter->call<From>(value);
    EXPECT_EQ(held.calls, 1);
    converter->release();
    EXPECT_EQ(input.refCount, 1u);
    return held.value;
}

TEST_F(Values, NumbersConvert) {
    EXPECT_EQ((convert<unsigned char, int>(200)), 200);
    EXPECT_EQ((convert<unsigned char, float>(3)), 3.0f);
    EXPECT_EQ((convert<unsigned char, double>(255)), 255.0);
    EXPECT_EQ((convert<int, unsigned char>(256)), 0);
    EXPECT_EQ((convert<int, unsigned char>(257)), 1);
    EXPECT_EQ((convert<int, unsigned char>(-1)), 255);
    EXPECT_EQ((convert<int, float>(-7)), -7.0f);
    EXPECT_EQ((convert<float, unsigned char>(256.5f)), 0);
    EXPECT_EQ((convert<float, unsigned char>(257.9f)), 1);
    EXPECT_EQ((convert<float, double>(0.5f)), 0.5);
    EXPECT_EQ((convert<float, int>(-2.9f)), -2);
    EXPECT_EQ((convert<double, unsigned char>(NAN)), 0);
    EXPECT_EQ((convert<double, float>(1e300)), INFINITY);
    EXPECT_EQ((convert<double, int>(2147483647.9)), INT_MAX);
    for (double odd :
         std::vector<double>{2147483648.0, -2147483649.0, 1e300, -HUGE_VAL, std::nan("")}) {
        EXPECT_EQ((convert<double, int>(odd)), INT_MIN) << odd;
    }
}

// What arrives at an input for text when an output of the value's type sends it.
template <class T>
std::string arriving(const T& value) {
    fxObj source, end;
    std::string seen;
    end.addInput("text", [&seen](const char* text) { seen = text; });
    auto output = source.addOutput<T>("output");
    source.connect("output", &end, "text");
    output.send(value, fxObj::fxSendNow);
    return seen;
}

TEST_F(Values, TextConverts) {
    EXPECT_EQ(arriving(INT_MIN), "-2147483648");
    EXPECT_EQ(arriving(0.25f), "0.25");
    EXPECT_EQ(arriving(0.1), "0.1");
    EXPECT_EQ(arriving(fxStr("as it is")), "as it is");
    EXPECT_EQ(arriving<const char*>("unchanged"), "unchanged");
    EXPECT_EQ((convert<char*, int>(const_cast<char*>("12abc"))), 12);
    EXPECT_EQ((convert<char*, int>(const_cast<char*>("abc"))), 0);
    EXPECT_EQ((convert<char*, int>(nullptr)), 0);
    EXPECT_EQ((convert<char*, float>(const_cast<char*>("2.5e1"))), 25.0f);
}

float doubled(int value) { return static_cast<float>(value) * 2; }
fxStr twice(const fxStr& text) { return fxStr(text | text); }

TEST_F(Values, FreshCopiesAndMissingConverters) {
    fxInputChannel* a = fxConverter::findConverter(fxDT_int, fxDT_fxBool);
    fxInputChannel* b = fxConverter::findConverter(fxDT_int, fxDT_fxBool);
    EXPECT_NE(a, b);
    delete a;
    b->take();
    b->release();
    EXPECT_EQ(fxConverter::findConverter(fxDT_long, fxDT_int), nullptr);
    EXPECT_EQ(fxConverter::findConverter(fxDT_int, fxDT_double), nullptr);

    fxConverter* newest = fx_theConverters;
    {
        const std::unique_ptr<fxConverter> own(fxConverter::add<doubled>());
        EXPECT_EQ((convert<int, float>(4)), 8.0f) << "the newest shadows";
    }
    {
        const std::unique_ptr<fxConverter> own(fxConverter::add<twice>());
        Held<fxStr&> held;
        fxInputChannel input(fxDT_fxStr, &held, held.function(), 0);
        input.take();
        fxInputChannel* converter = fxConverter::findConverter(fxDT_fxStr, fxDT_fxStr);
        converter->take();
        static_cast<fxConverter*>(converter)->splice(&input);
        converter->call(fxStr("text"));
        converter->release();
        EXPECT_EQ(held.value, "texttext");
    }
    EXPECT_EQ(fx_theConverters, newest) << "a destroyed converter leaves the list";
    EXPECT_EQ((convert<int, float>(4)), 4.0f);
}

}  // namespace
