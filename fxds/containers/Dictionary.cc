#include "fxds/Dictionary.h"

#include <cstring>

#include "fxds/containers/HashContainer.h"
#include "fxds/containers/HashXdr.h"

// The mechanism and its invariants are those of fxHashCore. This file adds the parts of a
// dictionary: values, merging, and the choice of hooks.
//
// (1) An entry is a block of keySize + valueSize bytes: the key, its padding, and the value
//     at keySize. Where keys are fxStr, the text of a short one may lie behind the block.
// (2) `count` is the number of entries, except behind cleanup(), which leaves it as it was;
//     extra.linked is always right.
// (3) Constructors and the destructor of this class reach no hook of a subclass. So copying
//     uses the hooks of the source, and a subclass calls cleanup() in its own destructor;
//     what is left then is freed without ending keys and values.
//
// The arguments of add() and of the assignment may lie in the table that changes. What is
// removed meanwhile stays whole until the operation has ended (fxHashCore::Hold).

typedef fxHashCore<fxDictionary> Core;

static_assert(sizeof(fxDictIter) == 24);

fxDictionary::fxDictionary(unsigned int keySize_, unsigned int valueSize_, unsigned int nBuckets)
    : count(0),
      keySize(keySize_),
      valueSize(valueSize_),
      buckets(nBuckets != 0 ? nBuckets : Core::defaultChains) {}

fxDictionary::fxDictionary(fxTypeObj& type) : fxXDRObj(type), count(0), keySize(0), valueSize(0) {}

fxDictionary::fxDictionary(const fxDictionary* other)
    : count(0),
      keySize(other->keySize),
      valueSize(other->valueSize),
      buckets(other->buckets.length()) {
    extra.paddedKeyBytes = other->extra.paddedKeyBytes;
    extra.keyPadding = other->extra.keyPadding;
}

// The delegate makes an empty dictionary, so the entries are copied into a complete object.
// NOLINTNEXTLINE(bugprone-copy-constructor-init): the base has no fields
fxDictionary::fxDictionary(const fxDictionary& source) : fxDictionary(&source) {
    Core::copyAll(*this, source);
}

// Copies may throw, and counters start anew.
// NOLINTNEXTLINE(performance-noexcept-move-constructor)
fxDictionary::fxDictionary(fxDictionary&& source) : fxDictionary(&source) {
    Core::moveAll(*this, source);
}

// The hooks that copy may remove entries from `other`. The iterator is moved on then, and
// the hold keeps the key and value that are being copied. An entry that is losing its value
// has none to copy.
void fxDictionary::operator=(const fxDictionary& other) {
    if (this == &other) return;
    Core::Hold hold(other);
    for (fxDictIter i(other.begin()); i.notDone(); ++i) {
        if (Core::isEnding(i.node)) continue;
        hold.setValue(i.getValue());
        addInternal(i.getKey(), i.getValue());
    }
}

fxDictionary::~fxDictionary() { Core::freeAll(*this); }

fxBool fxDictionary::xdr(fxTranscriber& transcriber) {
    return transcriber.xdr(fxXDRObj_type, this, this) && doxdr(transcriber);
}

fxTypeObj* fxDictionary::getTypeObj() const { return &fxDictionary_type; }

void fxDictionary::addInternal(const void* key, const void* value) {
    Core::add(*this, *this, key, value);
}

void* fxDictionary::find(const void* key, void** bucketOut) const {
    fxDictBucket* const node = Core::findQuickly(*this, key);
    void* const value = node != nullptr ? found(node) : nullptr;
    if (bucketOut != nullptr) *bucketOut = value != nullptr ? node : nullptr;
    return value;
}

namespace {

// Makes the entry of the key, or returns the one that a hook has made
// meanwhile; `old`, unless null, is removed. Out of line, so that findCreate()
// finds quickly.
template <class MakeValue>
[[gnu::noinline]] fxDictBucket* make(fxDictionary& table, fxHashPlace& place, const void* key,
                                     fxDictBucket* old, MakeValue makeValue) {
    if (old != nullptr) Core::remove(table, old);
    fxDictBucket* node = nullptr;
    // insert() gives way to an entry of the key that a hook has made meanwhile; that one
    // may be gone again by the time it is searched for.
    while (node == nullptr) {
        node = Core::insert(table, table, place, key, false, makeValue);
        if (node == nullptr) node = Core::findToChange(table, table, key, place);
    }
    return node;
}

}  // namespace

void* fxDictionary::findCreate(const void* key) {
    if (buckets.isEmpty()) Core::makeChains(*this, Core::defaultChains);
    fxHashPlace place;
    fxDictBucket* node = Core::find(*this, *this, key, place);
    if (node == nullptr || Core::isEnding(node)) {
        const auto makeValue = [this](void* at) { createValue(at); };
        node = make(*this, place, key, node, makeValue);
    }
    return Core::valueOf(*this, node);
}

void fxDictionary::remove(const void* key) {
    fxDictBucket* const node = Core::find(*this, key);
    if (node != nullptr) Core::remove(*this, node);
}

void* fxDictionary::enterText(const fxStr& key) { return Core::enterText(*this, key); }

void* fxDictionary::enterAny(const void* key) { return Core::enter(*this, key); }

void* fxDictionary::enterNew(unsigned int tag, unsigned int chain) {
    return Core::enterNew(*this, tag, chain);
}

void* fxDictionary::findText(std::string_view text) const {
    fxDictBucket* const node = Core::findText(*this, text);
    return node != nullptr ? found(node) : nullptr;
}

void fxDictionary::removeText(std::string_view text) {
    fxDictBucket* const node = Core::findText(*this, text);
    if (node != nullptr) Core::remove(*this, node);
}

void* fxDictionary::cut(const void* key) { return Core::cut(*this, key); }

fxDictIter fxDictionary::begin() const {
    return fxDictIter(const_cast<fxDictionary&>(*this));  // only registers itself
}

// Each removal counts down; the sum is added again, so that size() stays.
void fxDictionary::cleanup() { count += Core::clear(*this); }

void fxDictionary::addIter(fxDictIter* iter) { iters.append(iter); }

void fxDictionary::removeIter(fxDictIter* iter) { Core::unregister(*this, iter); }

void fxDictionary::invalidateIters(const fxDictBucket* node) const {
    Core::invalidate(*this, node);
}

bool fxDictionary::doxdr(fxTranscriber& transcriber) {
    return fxHashXdr<fxDictionary>::transcribe(*this, transcriber);
}

fxBool fxDictionary::xdr(void* object, fxTranscriber& transcriber) {
    fxDictionary& self = *static_cast<fxDictionary*>(object);
    return transcriber.conclude(self.xdr(transcriber) != 0, self, object);
}

unsigned long fxDictionary::hashKey(const void* key) const {
    return fxHashWords(key, Core::keyBytes(*this));
}

void fxDictionary::alignValues(unsigned int alignment) {
    const unsigned int keyBytes = keySize;
    keySize = (keySize + alignment - 1) / alignment * alignment;
    extra.paddedKeyBytes = keySize;
    extra.keyPadding = static_cast<unsigned char>(keySize - keyBytes);
}

void fxDictionary::destroyKey(void*) const {}

void fxDictionary::destroyValue(void*) const {}

unsigned long fxDictionary::fingerprintKey(const void*, unsigned long hash) const { return hash; }

fxDictionary::Finder* fxDictionary::finder() const { return Core::findByHooks; }

template <class Key>
fxDictionary::Finder* fxDictionary::directFinder() {
    return Core::findDirectly<Key>;
}
template FX_API fxDictionary::Finder* fxDictionary::directFinder<fxStr>();
template FX_API fxDictionary::Finder* fxDictionary::directFinder<const void*>();

// Iterator.

fxDictIter::fxDictIter(fxDictionary& dictionary) { Core::attach(*this, dictionary); }

fxDictIter::fxDictIter(const fxDictIter& other) { Core::copy(*this, other); }

fxDictIter::~fxDictIter() { Core::detach(*this); }

void fxDictIter::operator=(fxDictionary& dictionary) {
    Core::detach(*this);
    Core::attach(*this, dictionary);
}

fxDictIter& fxDictIter::operator=(const fxDictIter& other) {
    if (this == &other) return *this;
    Core::detach(*this);
    Core::copy(*this, other);
    return *this;
}

void* fxDictIter::getValue() const {
    const bool isThere = node != nullptr && !moved && !Core::isEnding(node);
    return isThere ? Core::valueOf(*dict, node) : nullptr;
}

fxDictIter& fxDictIter::operator++() {
    Core::step(*this);
    return *this;
}
