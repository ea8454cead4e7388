// Misuses of saving and reading; run.sh tells how the rows are read.
// clang-format off

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
struct Plain { int field; };

inline bool transcribe(fxTranscriber& t, fxXdrDictionary<fxStr, long>& counts,
                       [[maybe_unused]] Shape* shape) {
    // FX_TRANSCRIBABLE is missing
    MISUSE(RecordOfTheBase, fxXdrTypeOf<Circle>::record();)
    MISUSE(RootWithoutARecord, static_cast<void>(fxLoad<Plain>("file"));)
    // how its elements travel is not known: take fxXdrDictionary or fxXdrSet
    MISUSE(TableThatCannotTravel, fxTypedDictionary<fxStr, long> bare; fxXdr(t, bare);)
    // fields of this type need an fxXdr() beside the type
    MISUSE(FieldOfAnUnknownType, std::vector<Plain> plain; fxXdr(t, plain);)
    // a pointer to an object travels by fxXdrObject()
    MISUSE(PointerAsField, fxXdr(t, shape);)
    // a field is read too, so it is no constant
    MISUSE(ConstantAsField, const long count = 1; fxXdr(t, count);)
    return fxXdr(t, counts);
}
