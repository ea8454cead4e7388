#include "fxds/Set.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fxds/containers/HashContainer.h"
#include "fxds/containers/HashXdr.h"

// The mechanism and its invariants are those of fxHashCore. This file adds the algebra. It
// walks by registered iterators, so an operand may be the set itself, and a hook that
// starts or ends a life may change either: a removal moves the iterators on that were at
// the entry and marks them, so that the next ++ does not pass over one.
//
// An entry is a block with the key and no value. As in a dictionary, constructors and the
// destructor reach no hook of a subclass.

typedef fxHashCore<fxSet> Core;

fxSet::fxSet(unsigned int keySize_, unsigned int nBuckets)
    : buckets(nBuckets != 0 ? nBuckets : Core::defaultChains), count(0), keySize(keySize_) {}

fxSet::fxSet(fxTypeObj& type) : fxXDRObj(type), count(0), keySize(0) {}

fxSet::fxSet(const fxSet& source)
    : fxXDRObj(source), buckets(source.buckets.length()), count(0), keySize(source.keySize) {
    Core::copyAll(*this, source);
}

// Copies may throw, and counters start anew.
// NOLINTNEXTLINE(performance-noexcept-move-constructor)
fxSet::fxSet(fxSet&& source) : buckets(source.buckets.length()), count(0), keySize(source.keySize) {
    Core::moveAll(*this, source);
}

fxSet::fxSet(const fxTmpSet& source) : fxSet(static_cast<const fxSet&>(source)) {}

// The entries end by the hooks of this set, and before the key size changes.
void fxSet::operator=(const fxSet& other) {
    if (this == &other) return;
    Core::clear(*this);
    keySize = other.keySize;
    Core::makeChains(*this, other.buckets.length());
    *this |= other;
}

fxSet::~fxSet() { Core::freeAll(*this); }

fxBool fxSet::xdr(fxTranscriber& transcriber) {
    return transcriber.xdr(fxXDRObj_type, this, this) && doxdr(transcriber);
}

fxTypeObj* fxSet::getTypeObj() const { return &fxSet_type; }

void fxSet::add(const void* key) { Core::add(*this, *this, key, nullptr); }

void* fxSet::find(const void* key) const {
    fxSetBucket* const node = Core::findQuickly(*this, key);
    return node != nullptr ? node->element : nullptr;
}

void fxSet::remove(const void* key) {
    fxSetBucket* const node = Core::find(*this, key);
    if (node != nullptr) Core::remove(*this, node);
}

void* fxSet::enterText(const fxStr& key) { return Core::enterText(*this, key); }

void* fxSet::enterAny(const void* key) { return Core::enter(*this, key); }

void* fxSet::enterNew(unsigned int tag, unsigned int chain) {
    return Core::enterNew(*this, tag, chain);
}

void* fxSet::findText(std::string_view text) const {
    fxSetBucket* const node = Core::findText(*this, text);
    return node != nullptr ? node->element : nullptr;
}

void fxSet::removeText(std::string_view text) {
    fxSetBucket* const node = Core::findText(*this, text);
    if (node != nullptr) Core::remove(*this, node);
}

// The hold keeps the key that is being copied if a hook removes it from `other`.
void fxSet::operator|=(const fxSet& other) {
    const Core::Hold hold(other);
    for (fxSetIter i(other.begin()); i.notDone(); ++i) add(i.getKey());
}

// A hook of `other` may remove the entry that is looked up there, which the hold keeps.
void fxSet::operator&=(const fxSet& other) {
    for (fxSetIter i(*this); i.notDone(); ++i) {
        const Core::Hold hold(*this);
        fxSetBucket* const node = i.node;
        if (!other.contains(node->element) && i.node == node) Core::remove(*this, node);
    }
}

// With itself as operand, the key lies in the entry that is removed.
void fxSet::operator-=(const fxSet& other) {
    for (fxSetIter i(other.begin()); i.notDone(); ++i) {
        const Core::Hold hold(other);
        remove(i.getKey());
    }
}

namespace {

[[noreturn]] void refuse(const char* operation) {
    std::printf(
        "Unimplemented operator overloading is called!  fxTmpSet operator%s(fxSet const &)\n",
        operation);
    std::fflush(stdout);  // abort() does not
    std::abort();
}

}  // namespace

fxTmpSet fxSet::operator|(const fxSet&) const { refuse("|"); }

fxTmpSet fxSet::operator&(const fxSet&) const { refuse("&"); }

fxTmpSet fxSet::operator-(const fxSet&) const { refuse("-"); }

fxSetIter fxSet::begin() const {
    return fxSetIter(const_cast<fxSet&>(*this));  // only registers itself
}

void fxSet::cleanup() { Core::clear(*this); }

void fxSet::addIter(fxSetIter* iter) { iters.append(iter); }

void fxSet::removeIter(fxSetIter* iter) { Core::unregister(*this, iter); }

void fxSet::invalidateIters(const fxSetBucket* node) const { Core::invalidate(*this, node); }

bool fxSet::doxdr(fxTranscriber& transcriber) {
    return fxHashXdr<fxSet>::transcribe(*this, transcriber);
}

fxBool fxSet::xdr(void* object, fxTranscriber& transcriber) {
    fxSet& self = *static_cast<fxSet*>(object);
    return transcriber.conclude(self.xdr(transcriber) != 0, self, object);
}

unsigned long fxSet::hashKey(const void* key) const { return fxHashWords(key, keySize); }

int fxSet::compareKeys(const void* a, const void* b) const { return std::memcmp(a, b, keySize); }

void fxSet::copyKey(const void* from, void* to) const { std::memcpy(to, from, keySize); }

void fxSet::destroyKey(void*) const {}

unsigned long fxSet::fingerprintKey(const void*, unsigned long hash) const { return hash; }

fxSet::Finder* fxSet::finder() const { return Core::findByHooks; }

template <class Key>
fxSet::Finder* fxSet::directFinder() {
    return Core::findDirectly<Key>;
}
template FX_API fxSet::Finder* fxSet::directFinder<fxStr>();
template FX_API fxSet::Finder* fxSet::directFinder<const void*>();

// Iterator.

fxSetIter::fxSetIter(fxSet& elements) { Core::attach(*this, elements); }

fxSetIter::fxSetIter(const fxSetIter& other) { Core::copy(*this, other); }

fxSetIter::~fxSetIter() { Core::detach(*this); }

void fxSetIter::operator=(fxSet& elements) {
    Core::detach(*this);
    Core::attach(*this, elements);
}

fxSetIter& fxSetIter::operator=(const fxSetIter& other) {
    if (this == &other) return *this;
    Core::detach(*this);
    Core::copy(*this, other);
    return *this;
}

fxSetIter& fxSetIter::operator++() {
    Core::step(*this);
    return *this;
}

// Temporary set.

// Not the copy constructor, which calls the source's hooks.
fxTmpSet::fxTmpSet(const fxSet& source) : fxSet(0U) { fxSet::operator=(source); }

fxTmpSet::~fxTmpSet() = default;

bool fxTmpSet::xdrKey(fxTranscriber&, void*) { return false; }
