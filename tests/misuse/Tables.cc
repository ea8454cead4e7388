// Misuses of dictionaries and sets; run.sh tells how the rows are read.

struct PointsIntoItself {
    PointsIntoItself() : self(this) {}
    PointsIntoItself(const PointsIntoItself&) : self(this) {}
    PointsIntoItself* self;
};
struct alignas(64) Wide {};

void useTables(fxStrSet& names, fxTypedSet<const void*>& addresses, fxVoidPtrDict& pointers,
               fxTypedDictionary<fxStr, PointsIntoItself>& values, fxStrSetIter& name,
               fxVoidPtrDictIter& pointer, const fxTypedSet<fxStr>& others) {
#ifdef UnionOfUnlikeSets
    // |=, &= and -= need two sets of the same key type
    names |= addresses;
#else
    names |= others;
#endif
#ifdef IntersectionOfUnlikeSets
    // |=, &= and -= need two sets of the same key type
    names &= addresses;
#else
    names &= others;
#endif
#ifdef DifferenceOfUnlikeSets
    // |=, &= and -= need two sets of the same key type
    names -= addresses;
#else
    names -= others;
    static_cast<void>(addresses);
#endif
#ifdef IteratorOverAnotherSet
    // an iterator walks sets of its own key type only
    name = addresses;
#else
    name = names;
#endif
#ifdef IteratorOverAnotherDictionary
    // an iterator walks dictionaries of its own key and value types only
    pointer = values;
#else
    pointer = pointers;
#endif
#ifdef CutOfWhatPointsIntoItself
    // cut() moves the value by its bytes, which its type does not bear: take() it
    values.cut("name");
#else
    values.take("name");
#endif
}

#ifdef KeysWithoutHooks
// keys of this type need hooks: specialise fxKeyHooks
fxTypedSet<PointsIntoItself> hookless;
#else
fxTypedSet<unsigned short> hookless;
#endif
#ifdef KeysThatNeedMoreAlignment
// keys lie in malloc() memory, which is not aligned for this type
fxTypedSet<Wide> wide;
#endif
#ifdef ValuesThatNeedMoreAlignment
// keys and values lie in malloc() memory, which is not aligned for this type
fxTypedDictionary<fxStr, Wide> wider;
#endif
