// Counted objects, fatal errors, type records and properties.
#include <algorithm>

#include "tests/support/Dataflow.h"
#include "tests/support/Surroundings.h"

namespace {

template <class Object, class Field>
long offsetIn(const Object& object, const Field& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&object);
}

TEST(Object, CopiesStartUnheld) {
    const fxRef<fxRCObj> object = fxMake<fxRCObj>(), other = object;
    const fxRef<fxRCObj> copy = fxMake<fxRCObj>(*object);
    EXPECT_EQ(copy->refCount, 1u);
    *copy = *object;
    EXPECT_EQ(copy->refCount, 1u);
    EXPECT_EQ(object->refCount, 2u);
}

TEST(Object, FatalErrorsPrintOneLineAndAbort) {
    EXPECT_EXIT(fxFatal("code %d", 5), testing::KilledBySignal(SIGABRT), "^code 5\n$");
    fxObj plain;
    EXPECT_DEATH(plain.compare(&plain), "^fxXDRObj: Sub class must define method \"compare\"\n$");
    EXPECT_DEATH(for (;;) fxProperty::allocNewTag(""), "all 65535 tags are taken\n$");
}

struct Target : Counted {
    explicit Target(int& deaths_) : deaths(deaths_) {}
    ~Target() override {
        const RPtr<Counted> hold(this);  // and lets go: it has ended already
        ++deaths;
    }
    int& deaths;
};

TEST(Object, CountedPointersShareTheirTarget) {
    int deaths = 0;
    {
        RPtr<Target> a = new Target(deaths);
        RPtr<Target> b = a;
        RPtr<Target> c(std::move(a));
        EXPECT_EQ(b->count, 2);
        EXPECT_FALSE(a);
        const RPtr<Target>& same = b;
        b = same;
        c = RPtr<Target>();
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);
    { RPtr_base uncounted(new Target(deaths)); }  // from 0 to -1
    EXPECT_EQ(deaths, 2);
}

TEST(TypeRecords, NamesLeadToTheLastRecord) {
    for (const auto& [name, type] : {std::pair("ARRAY", &fxBoolArray_type),
                                     {"DICT", &fxStrStrDictionary_type},
                                     {"SET", &fxStrSet_type},
                                     {"fxStr", &fxStr_type}}) {
        EXPECT_EQ(fxTypeObj::findType(name), type);
    }
    for (const char* abstractName : {"fxArray", "fxSet", "fxDictionary"}) {
        ASSERT_NE(fxTypeObj::findType(fxStr(abstractName)), nullptr) << abstractName;
        EXPECT_EQ(fxTypeObj::findType(abstractName)->newInstance, nullptr) << abstractName;
    }
    EXPECT_EQ(fxTypeObj::findType("no such type"), nullptr);

    fxVoidPtrDict* known = std::exchange(fxTypeObj::knownTypes, nullptr);
    EXPECT_EQ(fxTypeObj::findType("fxStr"), nullptr);
    fxTypeObj::knownTypes = known;

    static fxTypeObj shadow("fxStr", 2, nullptr, nullptr, nullptr);
    EXPECT_EQ(fxTypeObj::findType("fxStr"), &shadow);
    EXPECT_EQ(fxStr_type.version, 1u);
    fxTypeObj::registerType(&fxStr_type);
}

TEST(TypeRecords, MakeAndDestroyTheirClass) {
    for (fxTypeObj* type : {&fxXDRObj_type, &fxStrSet_type, &fxStrArray_type}) {
        auto* object = static_cast<fxXDRObj*>(type->newInstance(*type));
        EXPECT_EQ(object->getTypeObj(), type) << type->name;
        type->deleteInstance(object);
        type->deleteInstance(nullptr);
    }
}

// What is registered under its address has no copies.
template <class... Classes>
constexpr bool haveNoCopies = (... && !(std::is_copy_constructible_v<Classes> ||
                                        std::is_copy_assignable_v<Classes>));
static_assert(haveNoCopies<fxTypeObj, fxOrderedGlobal, fxGlobalOrder, fxConverter, fxInputChannel,
                           fxOutputChannel, fxProperty, fxData, fxIntData, fxEventQueue, fxTimer,
                           fxExec, fxWakeup>);

TEST(TypeRecords, LayoutsAreFixed) {
    EXPECT_TRUE(sizeof(fxRCObj) == 16 && sizeof(fxXDRObj) == 16 && sizeof(fxObj) == 24);
    EXPECT_TRUE(sizeof(fxProperty) == 40 && sizeof(fxSeqRange) == 8);
    EXPECT_TRUE(offsetof(fxTypeObj, version) == 8 && offsetof(fxTypeObj, newInstance) == 16 &&
                offsetof(fxTypeObj, deleteInstance) == 24 && offsetof(fxTypeObj, xdr) == 32);
    EXPECT_TRUE(offsetof(fxOrderedGlobal, cleanup) == 8 && offsetof(fxOrderedGlobal, deps) == 16);
    const fxInputChannel input(fxDT_void, nullptr, nullptr, 0);
    EXPECT_TRUE(offsetIn(input, input.closure) == 0 && offsetIn(input, input.function) == 8);
    EXPECT_TRUE(offsetIn(input, input.pending) == 24 && offsetIn(input, input.refCount) == 32);
}

class Properties : public Dataflow {
protected:
    static unsigned short tag(int offset) {
        static const unsigned short first = [] {
            const unsigned short tag0 = fxProperty::allocNewTag("test property");
            for (int i = 1; i < 10; ++i) fxProperty::allocNewTag("test property");
            return tag0;
        }();
        return static_cast<unsigned short>(first + offset);
    }
};

TEST_F(Properties, TagsAreHandedOutOnceAndFoundByTheirFirstName) {
    { const Node withTables; }
    const unsigned short first = fxProperty::allocNewTag("twice");
    EXPECT_EQ(fxProperty::allocNewTag("twice"), first + 1);
    EXPECT_EQ(fxProperty::findTag("twice"), first);
    EXPECT_EQ(fxProperty::findTag("never allocated"), 65535);
    EXPECT_EQ((*fx_propertyNames)[first + 1u], "twice");

    fxStrArray* names = std::exchange(fx_propertyNames, nullptr);
    EXPECT_EQ(fxProperty::findTag("twice"), 65535);
    const unsigned short next = fxProperty::allocNewTag("after");  // makes a table of its own
    EXPECT_EQ(next, first + 2);
    EXPECT_EQ(fx_propertyNames->length(), next + 1u);
    EXPECT_EQ(fxProperty::findTag("inputs"), 65535);
    const unsigned short inputs = fxProperty::allocNewTag("inputs");
    for (int i = 0; i < 20; ++i) fxProperty::allocNewTag("more");
    EXPECT_EQ(fxProperty::findTag("inputs"), inputs);
    Node node;  // the tables of channels keep their tags and enter their names there
    for (const char* name : {"inputs", "outputs"}) {
        const unsigned short tag = fxProperty::findTag(name);
        EXPECT_LT(tag, inputs);
        ASSERT_NE(node.findProperty(tag), nullptr);
        EXPECT_STREQ(node.findProperty(tag)->getName(), name);
    }
    fxProperty::destroyPropertyNames();
    EXPECT_EQ(fx_propertyNames, nullptr);
    fx_propertyNames = names;

    // Names are looked for where a hint says; the table is public and may be written.
    for (int i = 0; i < 100; ++i) fxProperty::allocNewTag(("n" + std::to_string(i)).c_str());
    const unsigned short tag = fxProperty::findTag("n50");
    EXPECT_EQ((*fx_propertyNames)[tag], "n50");
    std::swap((*fx_propertyNames)[tag], (*fx_propertyNames)[first]);
    EXPECT_EQ(fxProperty::findTag("n50"), first);
    EXPECT_EQ(fxProperty::findTag("n50"), first) << "the hint has changed";
    EXPECT_EQ(fxProperty::findTag("twice"), first + 1);
    (*fx_propertyNames)[first] = "none before";
    EXPECT_EQ(fxProperty::findTag("n50"), 65535);
    EXPECT_EQ(fxProperty::findTag("n99"), tag + 49);
}

TEST_F(Properties, SettingWhatIsSetChangesNothing) {
    fxObj holder;
    unsigned int index = 77;
    EXPECT_EQ(holder.findProperty("no such name", &index), nullptr);
    EXPECT_TRUE(index == 0 && holder.getProperty(0) == nullptr);
    auto* property = new fxProperty(tag(1), new Node);
    holder.setProperty(property);
    holder.setProperty(property);
    EXPECT_EQ(property->refCount, 1u);
    property->setAsObjPtr(property->getAsObjPtr());
    EXPECT_EQ(Node::alive, 1);
    EXPECT_EQ(holder.removeProperty(tag(2))->removeAllProperties(), &holder);
}

TEST_F(Properties, KindsKeepAndReleaseTheirValues) {
    EXPECT_EQ(fxProperty(0, "text").getType(), fxDT_fxStr);
    EXPECT_STREQ(fxDataTypeName(500), "type 500") << "one of the application's";
    fxProperty truth(0, true);
    EXPECT_TRUE(truth.getType() == fxDT_fxBool && truth.getAsLong() == 1) << "the rest is zero";
    truth.setAsBool(0);
    EXPECT_EQ(truth.getAsLong(), 0);
    fxProperty number(0, 5);
    number.setAsLong(-7);
    number.cleanup();
    EXPECT_TRUE(number.getType() == fxDT_long && number.getAsLong() == -7) << "nothing to release";
    fxProperty real(0, 2.5);
    EXPECT_EQ(real.getAsDouble(), 2.5);
    real.setAsDouble(-0.5);
    EXPECT_EQ(real.getAsDouble(), -0.5);
    fxProperty string(0, fxStr("s"));
    EXPECT_EQ(string.getAsStr(), "s");
    for (const char* text : {"longer", "anew"}) {
        string.setAsStr(text);
        EXPECT_EQ(string.getAsStr(), text);
        string.cleanup();
    }
    fxProperty text(0, fxCopyCharPtr("one"), 1);
    text.setAsCharPtr(text.getAsCharPtr(), 1);
    text.setAsCharPtr(fxCopyCharPtr("two"), 1);
    text.setAsCharPtr("borrowed", 0);
    text.cleanup();
    EXPECT_STREQ(text.getAsCharPtr(), "borrowed");

    int destroyed = 0;
    fxProperty opaque(0, &destroyed, [](void* p) { ++*static_cast<int*>(p); });
    opaque.setAsVoidPtr(&destroyed, opaque.getDestructor());
    EXPECT_EQ(destroyed, 1);
    opaque.cleanup();
    opaque.cleanup();
    EXPECT_EQ(destroyed, 2);

    auto* data = new CountedData(3);
    fxProperty boxed(0, data);
    EXPECT_EQ(boxed.getType(), fxDT_int);
    boxed.setAsData(data);
    EXPECT_EQ(data->count, 1u);
    boxed.setAsData(new CountedData(4));
    EXPECT_EQ(CountedData::alive, 1);
}

TEST_F(Properties, CyclesAndCallbacksDestroyEverythingOnce) {
    auto* a = new Node;
    auto* b = new Node;
    a->setProperty(new fxProperty(tag(0), b));
    b->setProperty(new fxProperty(tag(0), a));
    a->setProperty(new fxProperty(tag(1), a));
    a->feed(*b);
    b->feed(*a);
    delete a;
    EXPECT_EQ(Node::alive, 0);

    // A destructor that sets the property anew while the object dies.
    static int calls;
    calls = 0;
    auto* host = new fxObj;
    fxProperty::Destructor* again = [](void* p) {
        auto* object = static_cast<fxObj*>(p);
        EXPECT_EQ(object->findProperty(tag(3)), nullptr) << "all left before one was released";
        ++calls;
        object->setProperty(new fxProperty(tag(2), p, [](void*) { ++calls; }));
    };
    host->setProperty(new fxProperty(tag(2), host, again));
    host->setProperty(new fxProperty(tag(3), 1));
    delete host;
    EXPECT_EQ(calls, 2);
}

// One object more in a chain of objects that hold one another by properties and references.
struct Link : fxObj {
    explicit Link(const fxRef<Link>& next_) {
        if (next_ != nullptr && links.size() % 2 == 0) setProperty(new fxProperty(0, next_));
        if (links.size() % 2 != 0) next = next_;
        links.push_back(this);
    }
    ~Link() override {
        deepest = std::max(deepest, ++depth);
        isInOrder = isInOrder && links.back() == this;
        links.pop_back();
        if (frame != 0) static_cast<volatile char*>(__builtin_alloca(frame))[0] = '\0';
        removeAllProperties();  // as ~fxObj() does, inside this destructor
        next = nullptr;
        --depth;
    }
    fxRef<Link> next;
    static inline bool isInOrder = true;
    static inline int depth = 0, deepest = 0;
    static inline size_t frame = 0;  // what the end of each takes of the stack besides
    static inline std::vector<fxObj*> links;
};

TEST_F(Properties, ChainsOfAnyLengthEndOnAShortStack) {
#ifdef __SANITIZE_ADDRESS__
    constexpr size_t stackBytes = 1024 * 1024;  // frames that are watched are larger
#else
    constexpr size_t stackBytes = 256 * 1024;
#endif
    for (Link::frame = 0; Link::frame < 50000; Link::frame += 40000) {
        onStackOf(stackBytes + 10 * Link::frame, [] {
            fxRef<Link> chain;
            for (int i = 0; i < 1000000; ++i) chain = fxMake<Link>(chain);
            Link::deepest = 0;
            chain = nullptr;
            EXPECT_TRUE(Link::isInOrder && Link::links.empty());
            EXPECT_EQ(Link::deepest == 128, Link::frame == 0);
        });
    }
}

}  // namespace
