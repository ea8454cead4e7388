// What all typed arrays share: typed members over fxArray, written once.
#ifndef FXDS_TYPEDARRAY_H
#define FXDS_TYPEDARRAY_H

#include <cstring>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "fxds/Array.h"
#include "fxds/Transcriber.h"
#include "fxds/detail/Recorded.h"

/// An array of T. A class of this family is its own template argument:
///
///     class fxIntRow : public fxTypedArray<fxIntRow, int> {
///     public:
///         using fxTypedArray::fxTypedArray;
///     };
///
/// `Hooks` supplies the element hooks: fxArray (elements are their bytes, new
/// ones are unspecified), fxZeroFilledArray, or fxOwningArray<T>. Copies are
/// deep and take the source's capacity; moves leave the source empty.
/// Capacity, invalidation and preconditions are told in fxArray.
template <class Self, class T, class Hooks = fxArray>
class FX_API fxTypedArray : public Hooks {
    static_assert(sizeof(T) <= 0xFFFF);

public:
    fxTypedArray() : Hooks(itemBytes, 0U) {}  ///< Empty; owns no block.
    /// Holds `count` default elements: unspecified ones in an array of numbers.
    explicit fxTypedArray(unsigned int count) : Hooks(itemBytes, count) {
        if (count != 0) Hooks::createElements(this->data, this->lengthBytes);
    }
    fxTypedArray(const fxTypedArray& source) : Hooks(itemBytes, 0U) { this->copyFrom(source); }
    fxTypedArray(fxTypedArray&& source) noexcept = default;
    /// Adopts `block`, malloc() memory with `byteCount` bytes of elements.
    /// Requires: givenBytes is sizeof(T).
    fxTypedArray(unsigned int givenBytes, unsigned int byteCount, void* block)
        : Hooks(givenBytes, byteCount, block) {
        FX_ASSERT(givenBytes == itemBytes);
    }
    /// Empty, for xdr() to fill.
    explicit fxTypedArray(fxTypeObj& type) : Hooks(type) { this->elementSize = itemBytes; }
    ~fxTypedArray() override { this->destroy(); }

    fxTypedArray& operator=(const fxTypedArray& source) = default;
    fxTypedArray& operator=(fxTypedArray&& source) noexcept = default;

    unsigned int length() const { return this->lengthBytes / itemBytes; }  ///< In elements.

    /// Requires: index < length().
    T& operator[](unsigned int index) {
        FX_ASSERT(index < length());
        return begin()[index];
    }
    const T& operator[](unsigned int index) const {
        FX_ASSERT(index < length());
        return begin()[index];
    }

    T* begin() { return reinterpret_cast<T*>(this->data); }
    T* end() { return begin() + length(); }
    const T* begin() const { return reinterpret_cast<const T*>(this->data); }
    const T* end() const { return begin() + length(); }

    /// Copies `item`, which may lie in this array, to the end. For growth see
    /// fxArray.
    void append(const T& item) {
        if constexpr (std::is_trivially_copyable_v<T>) {
            if (this->lengthBytes != this->maxBytes && !this->ownsElements) {
                std::memcpy(this->data + this->lengthBytes, &item, itemBytes);
                this->lengthBytes += itemBytes;
                return;
            }
        }
        fxArray::append(static_cast<const void*>(&item));
    }
    /// Copies all elements of `other` to the end.
    void append(const Self& other) { fxArray::append(static_cast<const fxArray&>(other)); }
    /// Copies `item` in before `index`.
    void insert(const T& item, unsigned int index) {
        fxArray::insert(static_cast<const void*>(&item), index);
    }
    /// Copies all elements of `other` in before `index`.
    void insert(const Self& other, unsigned int index) {
        fxArray::insert(static_cast<const fxArray&>(other), index);
    }

    /// The first index from `start` on whose element equals `item`, byte for
    /// byte unless the class says otherwise; or notFound.
    unsigned int find(const T& item, unsigned int start = 0) const {
        return fxArray::find(&item, start);
    }

    /// Moves a run out of this array into a new one.
    Self cut(unsigned int start, unsigned int count) {
        return adopt(count, this->raw_cut(start, count));
    }
    /// A copy of a run. Requires, here and below: it lies in the array.
    Self extract(unsigned int start, unsigned int count) const {
        return adopt(count, this->raw_extract(start, count));
    }
    /// The first `count` elements, copied.
    Self head(unsigned int count) const { return adopt(count, this->raw_head(count)); }
    /// The last `count` elements, copied.
    Self tail(unsigned int count) const { return adopt(count, this->raw_tail(count)); }

    /// The name of the family: "ARRAY" for all of them.
    const char* className() const override { return "ARRAY"; }

protected:
    static constexpr unsigned short itemBytes = sizeof(T);  ///< Bytes of one element.

private:
    static Self adopt(unsigned int count, void* block) {
        return Self(itemBytes, count * itemBytes, block);
    }
};

/// A typed array that can be transcribed: its type record is `record`, and its
/// elements travel through the transcriber's operation for T. A failed xdr()
/// leaves the array empty.
template <class Self, class T, fxTypeObj& record, class Hooks = fxArray>
class FX_API fxRecordedArray : public fxRecorded<Self, fxTypedArray<Self, T, Hooks>, record> {
    typedef fxRecorded<Self, fxTypedArray<Self, T, Hooks>, record> Recorded;

public:
    using Recorded::Recorded;

    using Recorded::xdr;

    /// Writes the elements, or replaces them with those read.
    fxBool xdr(fxTranscriber& transcriber) override {
        unsigned int byteCount = 0;
        return this->xdrSizes(transcriber, byteCount) &&
               this->xdrElements(transcriber, byteCount, xdrInPlace);
    }

protected:
    /// One run of elements, on its way through xdrElements().
    static bool xdrInPlace(fxTranscriber& transcriber, void* at, unsigned int count) {
        return transcriber.xdr(static_cast<T*>(at), count);
    }
};

/// Hooks for elements with constructors and destructors. A T must survive
/// being moved as bytes (it holds no pointer into itself).
template <class T>
class FX_API fxOwningArray : public fxArray {
public:
    /// As fxArray, with hooks for the elements.
    fxOwningArray(unsigned short itemBytes, unsigned int count) : fxArray(itemBytes, count) {
        own();
    }
    /// Adopts `block`, likewise.
    fxOwningArray(unsigned int itemBytes, unsigned int byteCount, void* block)
        : fxArray(itemBytes, byteCount, block) {
        own();
    }
    explicit fxOwningArray(fxTypeObj& type) : fxArray(type) { own(); }
    fxOwningArray(fxOwningArray&&) noexcept = default;
    fxOwningArray& operator=(const fxOwningArray&) = default;
    fxOwningArray& operator=(fxOwningArray&&) noexcept = default;

    void createElements(void* at, unsigned int byteCount) override {
        T* const elements = static_cast<T*>(at);
        if (elements == nullptr) return;
        for (unsigned int i = 0; i < countOf(byteCount); ++i) new (elements + i) T();
    }
    void destroyElements(void* at, unsigned int byteCount) override {
        T* const elements = static_cast<T*>(at);
        for (unsigned int i = 0; i < countOf(byteCount); ++i) elements[i].~T();
    }
    /// Goes backwards when the copies lie above the originals, so that none is
    /// overwritten before it is read.
    void copyElements(const void* from, void* to, unsigned int byteCount) const override {
        const T* const originals = static_cast<const T*>(from);
        T* const copies = static_cast<T*>(to);
        const unsigned int count = countOf(byteCount);
        if (std::less<>()(from, to)) {
            for (unsigned int i = count; i-- > 0;) new (copies + i) T(originals[i]);
        } else {
            for (unsigned int i = 0; i < count; ++i) new (copies + i) T(originals[i]);
        }
    }

private:
    static constexpr unsigned int countOf(unsigned int byteCount) {
        return byteCount / static_cast<unsigned int>(sizeof(T));
    }
    void own() { this->ownsElements = true; }
};

#endif
