// Misuses of strings; run.sh tells how the rows are read.
// clang-format off

// Counts of every integer type but char and bool.
const fxStr counts[] = {fxStr(1), fxStr(1U), fxStr(1L), fxStr(short{1}), fxStr(1ULL), fxStr(L'\1')};

inline fxStr use(const fxStr& a, const fxStr& b) {
    fxStr text = a | b;
    text = 0;
    if (a.isEmpty() || *a == '\0' || a == nullptr) text += 'c';
    // write fxStr(&c, 1)
    MISUSE(CharacterAsText, fxStr letter('a');)
    MISUSE(CharacterAssigned, text = 'a';)
    // fxStr(n) is n zero bytes
    MISUSE(TruthAsText, fxStr truth(true);)
    // fxStr(x, "%g")
    MISUSE(FractionAsText, fxStr fraction(3.14);)
    // always true: ask isEmpty()
    MISUSE(StringAsTruth, if (a) return b;)
    // room is made by setMaxLength(n), when the text is not empty
    MISUSE(RoomByTheNameOfOthers, text.reserve(100);)
    // texts are joined by a | b
    MISUSE(TextsAdded, return a + b;)
    MISUSE(CharacterAdded, return a + 'b';)
    // a | fxStr::number(n), or a.c_str() + n
    MISUSE(NumberAdded, return a + 1;)
    MISUSE(NumberAddedTo, return 1 + (a | b);)
    // a number as text is fxStr::number(n)
    MISUSE(NumberJoined, return a | 0;)
    MISUSE(NumberJoinedOn, return a | b | 2.5;)
    MISUSE(NumberAppended, text += 65;)
    // a number is an integer, but no char or bool, or a float or double
    MISUSE(NumberThatIsNone, return fxStr::number(true);)
    return text | fxStr::number(1);
}

inline std::size_t lettersIn(const fxExpression& letter, const fxStr& text) {
    std::size_t count = letter.search(text).text().size();
    for (const fxMatch& match : letter.all(text)) count += match.text().size();
    // groups are views: keep the text
    MISUSE(GroupsOfATextThatIsGone, letter.search(text | "x");)
    MISUSE(MatchesInATextThatIsGone, letter.all(fxStr(text));)
    return count;
}
