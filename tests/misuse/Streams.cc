// Misuses of saving and reading; run.sh tells how the rows are read.
// clang-format off

#include <deque>
#include <filesystem>
#include <set>

class Shape : public fxXDRObj {
    FX_TRANSCRIBABLE(Shape)
};
FX_TRANSCRIBABLE_TYPE(Shape, "Shape", 1, fxXDRObj);
class Circle : public Shape {};
class Mixed : public fxXDRObj {
    FX_TRANSCRIBABLE(Mixed)
};
// these must be bases of the class
MISUSE(BasesThatAreNone, FX_TRANSCRIBABLE_TYPE(Mixed, "Mixed", 1, fxXDRObj, Shape);)
struct Label : fxXDRObj {};
struct Labelled : Shape, Label {};
// let them derive from fxXDRObj or fxRCObj virtually
MISUSE(TwoCounts, inline void hold(Labelled* shape) { fxRef<Labelled> held = shape; })
class Sharp : public Labelled {
    FX_TRANSCRIBABLE(Sharp)
};
// in place of a base that has several, name the bases of that
MISUSE(BaseWithTwoCounts, FX_TRANSCRIBABLE_TYPE(Sharp, "Sharp", 1, Labelled);)
struct Plain { int field; };

inline bool transcribe(fxTranscriber& t, fxXdrDictionary<fxStr, long>& counts,
                       [[maybe_unused]] Shape* shape) {
    // FX_TRANSCRIBABLE is missing
    MISUSE(RecordOfTheBase, fxXdrTypeOf<Circle>::record();)
    MISUSE(RootWithoutARecord, static_cast<void>(fxLoad<Plain>("file"));)
    MISUSE(EmbeddedWithoutAFunction, Label label; fxXdr(t, label);)
    // how its elements travel is not known: take fxXdrDictionary or fxXdrSet
    MISUSE(TableThatCannotTravel, fxTypedDictionary<fxStr, long> bare; fxXdr(t, bare);)
    // fields of this type need an fxXdr() beside the type
    MISUSE(FieldOfAnUnknownType, std::vector<Plain> plain; fxXdr(t, plain);)
    // a set travels as an fxXdrSet, or as a std::vector of its keys
    MISUSE(SetAsField, std::set<int> set; fxXdr(t, set);)
    // keys that may come twice travel as a std::vector of std::pair
    MISUSE(MultimapAsField, std::multimap<int, int> map; fxXdr(t, map);)
    // a sequence travels as a std::vector
    MISUSE(DequeAsField, std::deque<int> deque; fxXdr(t, deque);)
    // a view owns nothing that could be read
    MISUSE(ViewAsField, std::string_view view; fxXdr(t, view);)
    // an object with several holders travels by fxRef
    MISUSE(SharedPointerAsField, std::shared_ptr<Shape> shared; fxXdr(t, shared);)
    // a tuple or variant travels as a struct of its parts
    MISUSE(TupleAsField, std::tuple<int, int> tuple; fxXdr(t, tuple);)
    // a time travels as a number
    MISUSE(TimeAsField, std::chrono::seconds wait; fxXdr(t, wait);)
    // a path travels as its text
    MISUSE(PathAsField, std::filesystem::path path; fxXdr(t, path);)
    // a pointer to an object travels by fxXdrObject()
    MISUSE(PointerAsField, fxXdr(t, shape);)
    // a vector of such pointers by fxXdrObjects()
    MISUSE(PointersAsField, std::vector<Shape*> shapes; fxXdr(t, shapes);)
    // a text held by pointer travels by fxXdrString(), a block of numbers by fxXdrBlock()
    MISUSE(TextPointerAsField, char* text = nullptr; fxXdr(t, text);)
    // an array as a std::vector
    MISUSE(ArrayPointerAsField, std::unique_ptr<int[]> numbers; fxXdr(t, numbers);)
    // a field is read too, so it is no constant
    MISUSE(ConstantAsField, const long count = 1; fxXdr(t, count);)
    return fxXdr(t, counts);
}
