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

fxStr joined(const fxStr& a, const fxStr& b) {
#ifdef TextsAdded
    // texts are joined by a | b
    return a + b;
#else
    return a | b;
#endif
}

#ifdef NumberThatIsNone
// a number is an integer, but no char or bool, or a float or double
const fxStr number = fxStr::number(true);
#else
const fxStr number = fxStr::number(1);
#endif

std::size_t lettersIn(const fxExpression& letter, const fxStr& text) {
#ifdef GroupsOfATextThatIsGone
    // groups are views: keep the text
    const fxMatch first = letter.search(text | "x");
#else
    const fxMatch first = letter.search(text);
#endif
    std::size_t count = first.text().size();
#ifdef MatchesInATextThatIsGone
    // groups are views: keep the text
    for (const fxMatch& match : letter.all(fxStr(text))) count += match.text().size();
#else
    for (const fxMatch& match : letter.all(text)) count += match.text().size();
#endif
    return count;
}
