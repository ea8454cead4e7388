// Misuses of dictionaries and sets; run.sh tells how the rows are read.
// clang-format off

struct PointsIntoItself {
    PointsIntoItself() : self(this) {}
    PointsIntoItself(const PointsIntoItself&) : self(this) {}
    PointsIntoItself* self;
};
struct alignas(64) Wide {};

void useTables(fxStrSet& names, [[maybe_unused]] fxTypedSet<const void*>& addresses,
               fxVoidPtrDict& pointers, fxTypedDictionary<fxStr, PointsIntoItself>& values,
               fxStrSetIter& name, fxVoidPtrDictIter& pointer, const fxTypedSet<fxStr>& others) {
    names |= others;
    names &= others;
    names -= others;
    name = names;
    pointer = pointers;
    values.take("name");
    // entries are removed by key
    MISUSE(EntryErased, pointers.erase("name");)
    // add() enters a key
    MISUSE(EntryInserted, names.insert("name");)
    // find(key) returns a pointer
    MISUSE(EntryAt, static_cast<void>(pointers.at("name"));)
    // |=, &= and -= need two sets of the same key type
    MISUSE(UnionOfUnlikeSets, names |= addresses;)
    MISUSE(IntersectionOfUnlikeSets, names &= addresses;)
    MISUSE(DifferenceOfUnlikeSets, names -= addresses;)
    // an iterator walks sets of its own key type only
    MISUSE(IteratorOverAnotherSet, name = addresses;)
    // an iterator walks dictionaries of its own key and value types only
    MISUSE(IteratorOverAnotherDictionary, pointer = values;)
    // cut() moves the value by its bytes, which its type does not bear: take() it
    MISUSE(CutOfWhatPointsIntoItself, values.cut("name");)
}

fxTypedSet<unsigned short> keys;
// keys of this type need hooks: specialise fxKeyHooks
MISUSE(KeysWithoutHooks, fxTypedSet<PointsIntoItself> hookless;)
// keys lie in malloc() memory, which is not aligned for this type
MISUSE(KeysThatNeedMoreAlignment, fxTypedSet<Wide> wide;)
// keys and values lie in malloc() memory, which is not aligned for this type
MISUSE(ValuesThatNeedMoreAlignment, fxTypedDictionary<fxStr, Wide> wider;)
