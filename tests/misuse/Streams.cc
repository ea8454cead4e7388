// Misuses of saving and reading; run.sh tells how the rows are read.

class Shape : public fxXDRObj {
    FX_TRANSCRIBABLE(Shape)
};
FX_TRANSCRIBABLE_TYPE(Shape, "Shape", 1, fxXDRObj);

class Circle : public Shape {
#ifdef RecordOfTheBase
    // FX_TRANSCRIBABLE is missing
#else
    FX_TRANSCRIBABLE(Circle)
#endif
};
const fxTypeObj& circleType() { return fxXdrTypeOf<Circle>::record(); }

class Mixed : public fxXDRObj {
    FX_TRANSCRIBABLE(Mixed)
};
#ifdef BasesThatAreNone
// these must be bases of the class
FX_TRANSCRIBABLE_TYPE(Mixed, "Mixed", 1, fxXDRObj, Shape);
#else
FX_TRANSCRIBABLE_TYPE(Mixed, "Mixed", 1, fxXDRObj);
#endif

inline bool transcribe(fxTranscriber& t) {
#ifdef TableThatCannotTravel
    // how its elements travel is not known: take fxXdrDictionary or fxXdrSet
    fxTypedDictionary<fxStr, long> counts;
#else
    fxXdrDictionary<fxStr, long> counts;
#endif
    return fxXdr(t, counts);
}
