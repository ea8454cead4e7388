// Misuses of arrays; run.sh tells how the rows are read.

#ifdef OwningArrayOfWhatPointsIntoItself
// an array moves its elements by their bytes; see fxMovesAsBytes
typedef std::string Word;
#else
typedef fxStr Word;
#endif
class Words : public fxTypedArray<Words, Word, fxOwningArray<Word>> {};
unsigned int countWords() { return Words().length(); }

#ifdef ArrayWithoutHooks
// elements with constructors and destructors need hooks
class Names : public fxTypedArray<Names, fxStr> {};
#else
class Names : public fxTypedArray<Names, fxStr, fxOwningArray<fxStr>> {};
#endif
unsigned int countNames() { return Names().length(); }

extern fxTypeObj savedType;
#ifdef RecordedArrayThatOwns
// reads raw elements into raw memory
class Saved : public fxRecordedArray<Saved, fxStr, savedType, fxOwningArray<fxStr>> {};
#else
class Saved : public fxRecordedArray<Saved, int, savedType> {};
#endif
unsigned int countSaved() { return Saved().length(); }

#ifdef FractionsAsInts
// an array of whole numbers holds no fractions
const fxIntArray sizes{1.5, 2.5};
#else
const fxIntArray sizes{1, 2};
#endif
