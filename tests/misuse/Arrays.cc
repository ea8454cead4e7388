// Misuses of arrays; run.sh tells how the rows are read.
// clang-format off

class Names : public fxTypedArray<Names, fxStr, fxOwningArray<fxStr>> {};
extern fxTypeObj savedType;
class Saved : public fxRecordedArray<Saved, int, savedType> {};
unsigned int count() { return Names().length() + Saved().length(); }

// an array moves its elements by their bytes; see fxMovesAsBytes
MISUSE(OwningArrayOfWhatPointsIntoItself,
    class Words : public fxTypedArray<Words, std::string, fxOwningArray<std::string>> {} words;)
// elements with constructors and destructors need hooks
MISUSE(ArrayWithoutHooks, class Bare : public fxTypedArray<Bare, fxStr> {} bare;)
// reads raw elements into raw memory
MISUSE(RecordedArrayThatOwns,
    class Owner : public fxRecordedArray<Owner, fxStr, savedType, fxOwningArray<fxStr>> {} owner;)
// an array of whole numbers holds no fractions
MISUSE(FractionsAsInts, const fxIntArray sizes{1.5, 2.5};)
// an index is asked for, not tried
MISUSE(ArrayAt, int first(const fxIntArray& a) { return a.at(0); })
// elements are removed by index
MISUSE(ArrayEraseByIndex, void shorten(fxIntArray& a) { a.erase(0); })
