// What programs do with each other's files when a class has changed: the table
// of docs/guide/saving.md, each row with the classes before and after.
#include "fxds/XdrEvolution.h"

#include <gtest/gtest.h>

#include "fxds/Globals.h"
#include "fxds/Save.h"
#include "tests/support/RunProgram.h"
#include "tests/support/StreamKit.h"

namespace {

// Two classes may stand for one of two programs: they have one name in streams.
// NOLINTBEGIN(bugprone-macro-parentheses): the parameters are classes and fields
#define CLASS(Class, name, version, Base, fields, body) \
    class Class : public Base {                         \
        FX_TRANSCRIBABLE(Class)                         \
        fields                                          \
    };                                                  \
    FX_TRANSCRIBABLE_TYPE(Class, name, version);        \
    fxBool Class::xdr(fxTranscriber& t) { body }
#define CLASS_OF_TWO(Class, First, Second, body)             \
    class Class : public First, public Second {              \
        FX_TRANSCRIBABLE(Class)                              \
        long last = 6;                                       \
    };                                                       \
    FX_TRANSCRIBABLE_TYPE(Class, "Based", 1, First, Second); \
    fxBool Class::xdr(fxTranscriber& t) { body }
// NOLINTEND(bugprone-macro-parentheses)

#define EDITION(newest)   \
    int edition = newest; \
    if (!fxXdrEdition(t, this, edition)) return false;

CLASS(Plain, "Plain", 1, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
CLASS(Added, "Plain", 1, fxXDRObj, long value = 5; fxStr text = "none";
      , EDITION(2) return fxXdr(t, value) && (edition < 2 || fxXdr(t, text));)
CLASS(Bare, "Bare", 1, fxXDRObj, long value = 5;, return fxXdr(t, value);)
CLASS(BareInserted, "Bare", 1, fxXDRObj, long inserted = 3; long value = 5;
      , return fxXdrAll(t, inserted, value);)
CLASS(Raised, "Plain", 2, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
CLASS(Retyped, "Plain", 1, fxXDRObj, double value = 5; long whole = 0;
      , EDITION(2) if (edition < 2 && fxXdr(t, whole)) value = static_cast<double>(whole);
      return edition < 2 || fxXdr(t, value);)
CLASS(Renamed, "New name", 1, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
FX_TRANSCRIBABLE_ALIAS(Renamed, "Plain", 1);
FX_TRANSCRIBABLE_ALIAS(Renamed, "Older name", 1);

#define FIELDS_THAT_GO                      \
    long value = 5;                         \
    fxStr text = "a text";                  \
    std::vector<std::string> words = {"a"}; \
    Node* object = nullptr;                 \
    char* string = nullptr;                 \
    double* block = nullptr;                \
    unsigned int count = 0;                 \
    long last = 6;
CLASS(Full, "Full", 1, fxXDRObj, FIELDS_THAT_GO,
      EDITION(1) return fxXdrAll(t, value, text, words) && fxXdrObject(t, object) &&
          fxXdrString(t, string) && fxXdrBlock(t, block, count) && fxXdr(t, last);)
bool skips(fxTranscriber& t) {
    return fxXdrSkipped<fxStr>(t) && fxXdrSkipped<std::vector<std::string>>(t) &&
           fxXdrSkippedObject<Node>(t) && fxXdrSkippedString<char>(t) &&
           fxXdrSkippedBlock<double>(t);
}
CLASS(Less, "Full", 1, fxXDRObj, long value = 5; long last = 6;
      , EDITION(1) return fxXdr(t, value) && skips(t) && fxXdr(t, last);)
CLASS(Lessened, "Full", 1, fxXDRObj, long value = 5; long last = 6;
      , EDITION(2) return fxXdr(t, value) && (edition > 1 || skips(t)) && fxXdr(t, last);)

CLASS(Item, "Item", 1, fxXDRObj, long value = 5;, EDITION(1) return fxXdr(t, value);)
CLASS(Tag, "Tag", 1, fxXDRObj, long tag = 7;, EDITION(1) return fxXdr(t, tag);)
CLASS(Based, "Based", 1, Item, long last = 6;
      , EDITION(1) return fxXdrBase<Item>(t, this) && fxXdr(t, last);)
CLASS_OF_TWO(Behind, Item, Tag,
             EDITION(2) return fxXdrBase<Item>(t, this) &&
                 (edition < 2 || fxXdrBase<Tag>(t, this)) && fxXdr(t, last);)
CLASS_OF_TWO(Front, Tag, Item,
             EDITION(2) return (edition < 2
                                    ? fxXdrFirstBase<Item>(t, this)
                                    : fxXdrBase<Tag>(t, this) && fxXdrBase<Item>(t, this)) &&
                 fxXdr(t, last);)
CLASS(Single, "Based", 1, Item, long last = 6;
      , EDITION(3) return (edition == 2 ? fxXdrSkipped<Tag>(t) && fxXdrBaseBehind<Item>(t, this)
                                        : fxXdrBase<Item>(t, this)) &&
            fxXdr(t, last);)

template <class C, class = void>
constexpr bool hasLast = false;
template <class C>
constexpr bool hasLast<C, std::void_t<decltype(C::last)>> = true;

// What loading a C comes to.
template <class C>
std::string outcomeOf(const std::string& bytes) {
    const fxLoaded<C> read = fxLoad<C>(bytes.data(), bytes.size());
    switch (read.fault().kind) {
        case fxStreamFault::none:
            if constexpr (hasLast<C>) {
                EXPECT_EQ(read->last, 60);
            }
            return read->value == 50 ? "reads" : "misreads";
        case fxStreamFault::newer:
            return "is from a newer version";
        case fxStreamFault::older:
            return "is from an older version";
        case fxStreamFault::unknownType:
            return "has an unknown class";
        default:
            return "is damaged";
    }
}

template <class From>
std::string written() {
    From object;
    object.value = 50;
    if constexpr (hasLast<From>) object.last = 60;
    if constexpr (std::is_same_v<From, Full>) {
        static Node node;
        static char text[] = "string";
        static double numbers[] = {1, 2};
        object.object = &node, object.string = text;
        object.block = numbers, object.count = 2;
    }
    return saved(&object);
}

template <class Before, class After>
std::string row(const char* change) {
    return std::string("| ") + change + " | " + outcomeOf<After>(written<Before>()) + " | " +
           outcomeOf<Before>(written<After>()) + " |\n";
}

// The bytes as a program has them that does not know the class.
std::string unknown(std::string bytes, const char* name) {
    ++bytes[bytes.find(name)];
    return bytes;
}

}  // namespace

TEST(Evolution, IsAsTheGuideSays) {
    fxInitializeToolkit();
    const std::string table =
        "| Change | New program, old file | Old program, new file |\n|---|---|---|\n" +
        row<Plain, Added>("a field is added at the end, in a new edition") +
        row<Full, Less>("a field is removed, and `fxXdrSkipped()` takes its place") +
        row<Full, Lessened>("a field is removed, and is skipped in what is of an older edition") +
        row<Plain, Retyped>("a field gets another type, in a new edition") +
        "| the class gets another name, and an alias | " + outcomeOf<Renamed>(written<Plain>()) +
        " | " + outcomeOf<Plain>(unknown(written<Renamed>(), "New name")) + " |\n" +
        row<Based, Behind>("a base is added behind the others, in a new edition") +
        row<Based, Front>("a base is added in front, in a new edition, with `fxXdrFirstBase()`") +
        row<Front, Single>(
            "the base in front is removed, in a new edition, with `fxXdrBaseBehind()`") +
        row<Plain, Raised>("the version in `FX_TRANSCRIBABLE_TYPE` is raised") +
        row<Bare, BareInserted>("a number is inserted in a class without editions");
    EXPECT_NE(contents(FXDS_SOURCE_DIR "/docs/guide/saving.md").find(table), std::string::npos)
        << table;
    EXPECT_EQ(Listed::all().size(), 1U) << "what was skipped is left";
}
