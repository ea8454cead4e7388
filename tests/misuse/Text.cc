// Misuses of strings; run.sh tells how the rows are read.

#ifdef CharacterAsText
// write fxStr(&c, 1)
const fxStr letter('a');
#else
const fxStr letter("a");
#endif

#ifdef TruthAsText
// fxStr(n) is n zero bytes
const fxStr truth(true);
#else
const fxStr truth(true ? "yes" : "no");
#endif

#ifdef FractionAsText
// fxStr(x, "%g")
const fxStr fraction(3.14);
#else
const fxStr fraction(3.14, nullptr);
#endif

// Counts of every other integer type.
const fxStr counts[] = {fxStr(1), fxStr(1U), fxStr(1L), fxStr(short{1}), fxStr(1ULL), fxStr(L'\1')};

bool isNamed(const fxStr& name) {
#ifdef StringAsTruth
    // always true: ask isEmpty()
    return name ? true : false;
#else
    return !name.isEmpty() && *name != '\0' && name != nullptr;
#endif
}
