// The typed members over fxArray that all typed arrays share.
#ifndef FXDS_TYPEDARRAY_H
#define FXDS_TYPEDARRAY_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "fxds/Array.h"
#include "fxds/Transcriber.h"
#include "fxds/detail/Allocate.h"
#include "fxds/detail/MovesAsBytes.h"
#include "fxds/detail/Recorded.h"

template <class T>
class fxOwningArray;

namespace fxDetail {

/// Whether Self's elements are copied, and whether they are destroyed, by the hooks of
/// fxArray, which treat them as bytes.
template <class Self, class = void>
inline constexpr bool copiesBytes = false;
template <class Self>
inline constexpr bool
    copiesBytes<Self, std::enable_if_t<std::is_same_v<decltype(&Self::copyElements),
                                                      decltype(&fxArray::copyElements)>>> = true;
template <class Self, class = void>
inline constexpr bool dropsBytes = false;
template <class Self>
inline constexpr bool
    dropsBytes<Self, std::enable_if_t<std::is_same_v<decltype(&Self::destroyElements),
                                                     decltype(&fxArray::destroyElements)>>> = true;

/// Whether Self's capacity grows as that of fxArray does.
template <class Self, class = void>
inline constexpr bool growsPlainly = false;
template <class Self>
inline constexpr bool growsPlainly<
    Self, std::enable_if_t<std::is_same_v<decltype(&Self::expand), decltype(&fxArray::expand)> &&
                           std::is_same_v<decltype(&Self::getmem), decltype(&fxArray::getmem)>>> =
    true;

/// Whether Self's elements are copied by the hook of fxOwningArray<T>, which calls their
/// copy constructor.
template <class Self, class T, class = void>
inline constexpr bool copiesObjects = false;
template <class Self, class T>
inline constexpr bool
    copiesObjects<Self, T,
                  std::enable_if_t<std::is_same_v<decltype(&Self::copyElements),
                                                  decltype(&fxOwningArray<T>::copyElements)>>> =
        true;

/// For a type that is an iterator of an array of T.
template <class T, class Place>
using IfPlace = std::enable_if_t<std::is_same_v<Place, T*> || std::is_same_v<Place, const T*>, int>;

template <class T, class U>
inline constexpr bool cutsFractions = std::is_integral_v<T>&& std::is_floating_point_v<U>;

/// One item between the braces of an array, of whatever becomes a T by itself.
template <class T>
class ArrayItem {
    template <class U>
    static constexpr bool isWhole =
        std::is_integral_v<U> && !std::is_same_v<U, bool> && !std::is_same_v<U, char>;

public:
    template <class U, class Plain = std::decay_t<U>,
              std::enable_if_t<std::is_convertible_v<U, T> && !cutsFractions<T, Plain>, int> = 0>
    ArrayItem(U&& item)
        : value(static_cast<T>(std::forward<U>(item))), isCount(isWhole<Plain>), count(0) {
        if constexpr (isWhole<Plain>) count = static_cast<unsigned long>(item);
    }

    template <class U, std::enable_if_t<cutsFractions<T, U>, int> = 0>
    ArrayItem(U) = delete;  // an array of whole numbers holds no fractions

    const T value;
    const bool isCount;  ///< Alone between braces, it is a number of elements.
    unsigned long count;
};

/// Plain structs are given in braces of their own.
template <class T>
using ArrayItems =
    std::initializer_list<std::conditional_t<std::is_aggregate_v<T>, T, ArrayItem<T>>>;

}  // namespace fxDetail

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
/// For capacity, invalidation and preconditions see fxArray.
template <class Self, class T, class Hooks = fxArray>
class FX_API fxTypedArray : public Hooks {
    static_assert(sizeof(T) <= 0xFFFF);
    static_assert(alignof(T) <= alignof(std::max_align_t), "the block is malloc() memory");

public:
    typedef T value_type;             ///< For the standard's algorithms and adapters.
    typedef T* iterator;              ///< Likewise.
    typedef const T* const_iterator;  ///< Likewise.

    /// Empty; owns no block.
    fxTypedArray() : Hooks(itemBytes, 0U) { checkHooks(); }
    /// Holds `count` default elements: unspecified ones in an array of numbers.
    explicit fxTypedArray(unsigned int count) : Hooks(itemBytes, count) {
        checkHooks();
        if (count != 0) Hooks::createElements(this->data, this->lengthBytes);
    }
    /// Holds the items, as in fxIntArray{4, 8, 0}. A single whole number is no
    /// item: fxIntArray{4} holds four elements, as fxIntArray(4) does.
    fxTypedArray(fxDetail::ArrayItems<T> items) : fxTypedArray() { addItems(items); }
    fxTypedArray(const fxTypedArray& source) : Hooks(itemBytes, 0U) { this->copyFrom(source); }
    fxTypedArray(fxTypedArray&& source) noexcept = default;
    /// Adopts `block`, malloc() memory with `byteCount` bytes of elements.
    /// Requires: givenBytes is sizeof(T).
    fxTypedArray(unsigned int givenBytes, unsigned int byteCount, void* block)
        : Hooks(givenBytes, byteCount, block) {
        checkHooks();
        FX_ASSERT(givenBytes == itemBytes);
    }
    /// Empty, for xdr() to fill.
    explicit fxTypedArray(fxTypeObj& type) : Hooks(type) {
        checkHooks();
        this->elementSize = itemBytes;
    }
    ~fxTypedArray() override { this->destroy(); }

    /// An array of just these items: of(4) has one element, where braces would make
    /// four.
    template <class... Items>
    static Self of(Items&&... items) {
        Self made;
        (made.append(itemOf(std::forward<Items>(items))), ...);
        return made;
    }

    fxTypedArray& operator=(const fxTypedArray& source) = default;
    fxTypedArray& operator=(fxTypedArray&& source) noexcept = default;

    unsigned int length() const { return this->lengthBytes / itemBytes; }  ///< In elements.
    unsigned int size() const { return length(); }  ///< The same, for std::size().
    bool empty() const { return this->isEmpty(); }  ///< As isEmpty(), for std::empty().

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
        if constexpr (std::is_trivially_copyable_v<T> && fxDetail::copiesBytes<Self>) {
            // Without a branch for the capacity, and with one store of each field, the fields
            // of an array that is filled in a loop stay in registers.
            unsigned int used = this->lengthBytes;
            unsigned int most = this->maxBytes;
            if constexpr (fxDetail::growsPlainly<Self>) {
                most = used == most ? used + 4U * itemBytes : most;
            }
            const bool fits = fxDetail::growsPlainly<Self> ? this->hasBlockFor(most) : used != most;
            if (__builtin_expect(hasOwnHooks() && fits, true)) {
                put(item, used);
                used += itemBytes;
            } else {
                appendByHooks(item);
                used = this->lengthBytes;
                most = this->maxBytes;
            }
            this->lengthBytes = used;
            this->maxBytes = most;
        } else {
            appendByHooks(item);
        }
    }
    /// Moves `item`, which may lie in this array, to the end: as emplace().
    void append(T&& item) {
        if constexpr (std::is_trivially_copyable_v<T>) {
            append(static_cast<const T&>(item));
        } else {
            emplace(std::move(item));
        }
    }
    /// As append(), for std::back_inserter().
    void push_back(const T& item) { self().append(item); }
    T& front() { return (*this)[0]; }                        ///< Requires: not isEmpty().
    const T& front() const { return (*this)[0]; }            ///< Requires: not isEmpty().
    T& back() { return (*this)[length() - 1]; }              ///< Requires: not isEmpty().
    const T& back() const { return (*this)[length() - 1]; }  ///< Requires: not isEmpty().
    /// Destroys the last element, if there is one. takeLast() returns it.
    void pop_back() {
        if (!this->isEmpty()) this->remove(length() - 1);
    }
    /// The last element, from which ++ leads to the first.
    std::reverse_iterator<T*> rbegin() { return std::reverse_iterator<T*>(end()); }
    std::reverse_iterator<T*> rend() { return std::reverse_iterator<T*>(begin()); }  ///< Its end.
    /// The same for a constant array.
    std::reverse_iterator<const T*> rbegin() const {
        return std::reverse_iterator<const T*>(end());
    }
    /// The same for a constant array.
    std::reverse_iterator<const T*> rend() const {
        return std::reverse_iterator<const T*>(begin());
    }
    // clang-format off
    template <class Index>
    T& at(Index) const = delete;  // an index is asked for, not tried: test it against length(), then use []
    template <class Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    void erase(Index, unsigned int = 1) = delete;  // elements are removed by index with remove(index, count)
    // clang-format on
    /// Appends an element that is made of `arguments`, which may lie in this array.
    /// It is made in place, or copied in by copyElements() where a class overrides
    /// that. Returns the element, good until the array grows.
    template <class... Arguments>
    T& emplace(Arguments&&... arguments) {
        if constexpr (std::is_trivially_copyable_v<T> || !fxDetail::copiesObjects<Self, T>) {
            self().append(static_cast<const T&>(T(std::forward<Arguments>(arguments)...)));
        } else if (!hasOwnHooks()) {
            const T item(std::forward<Arguments>(arguments)...);
            append(item);
        } else {
            Apart apart(std::forward<Arguments>(arguments)...);
            if (this->lengthBytes == this->maxBytes) this->expand();
            std::memcpy(this->data + this->lengthBytes, apart.bytes, itemBytes);
            this->lengthBytes += itemBytes;
            apart.isMoved = true;
        }
        return begin()[length() - 1];
    }
    /// As emplace(), by the name of the standard's vectors.
    template <class... Arguments>
    T& emplace_back(Arguments&&... arguments) {
        return emplace(std::forward<Arguments>(arguments)...);
    }
    unsigned int capacity() const { return this->getMaxLength(); }  ///< The same as getMaxLength().
    /// Makes the capacity at least `count` elements.
    void reserve(unsigned int count) {
        if (count > capacity()) this->setMaxLength(count);
    }
    const T* cbegin() const { return begin(); }  ///< As begin() of a constant array.
    const T* cend() const { return end(); }      ///< As end() of a constant array.
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
    ///@{
    /// Puts an item, or those of a range, in before `place`; they may lie in this array.
    /// Returns the place of the first new one, or `place`. Requires: it is of this array.
    template <class Place, class Item, fxDetail::IfPlace<T, Place> = 0,
              std::enable_if_t<std::is_convertible_v<Item&&, T>, int> = 0>
    T* insert(Place place, Item&& item) {
        const unsigned int index = indexOf(place);
        self().insert(std::forward<Item>(item), index);
        return begin() + index;
    }
    template <class Place, class Iterator, fxDetail::IfPlace<T, Place> = 0>
    T* insert(Place place, Iterator first, Iterator last) {
        const unsigned int index = indexOf(place);
        Self items;
        std::copy(first, last, std::back_inserter(items));
        self().insert(static_cast<const Self&>(items), index);
        return begin() + index;
    }
    ///@}
    /// Removes the element at `place` and returns the place of what followed it.
    T* erase(const T* place) { return erase(place, place + 1); }
    /// The same for a range.
    T* erase(const T* first, const T* last) {
        const unsigned int index = indexOf(first);
        if (first != last) this->remove(index, indexOf(last) - index);
        return begin() + index;
    }

    /// The first index from `start` on whose element equals `item`, byte for
    /// byte unless the class says otherwise; or notFound.
    unsigned int find(const T& item, unsigned int start = 0) const {
        return fxArray::find(&item, start);
    }

    /// Whether find() finds it.
    bool contains(const T& item) const { return find(item) != this->notFound; }

    /// Moves the element out and removes it. Nothing where there is none.
    std::optional<T> take(unsigned int index) {
        if (index >= length()) return std::nullopt;
        std::optional<T> taken(std::move(begin()[index]));
        fxArray::remove(index, 1);
        return taken;
    }
    /// The same for the last element.
    std::optional<T> takeLast() { return take(length() - 1); }
    void clear() { this->resize(0); }  ///< Destroys all elements and frees the block.

    using Hooks::sort;
    /// Sorts all elements: stable, so that less(a, b) is false for neighbours b, a.
    /// `less` may throw, and the elements then keep their places; it must not change
    /// the array, which is fatal.
    template <class Less>
    void sort(const Less& less) {
        this->sortBy(
            0, length(),
            [](const void* context, const void* a, const void* b) -> bool {
                return (*static_cast<const Less*>(context))(*static_cast<const T*>(a),
                                                            *static_cast<const T*>(b));
            },
            &less);
    }
    /// Sorts all elements by their operator<, unlike sort(), which uses compareElements().
    void sortByValue() { sort(std::less<T>()); }

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

    ///@{
    /// Whether both have equal elements in the same order.
    friend bool operator==(const Self& a, const Self& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
    }
    friend bool operator!=(const Self& a, const Self& b) { return !(a == b); }
    ///@}

    /// The name of the family: "ARRAY" for all of them.
    const char* className() const override { return "ARRAY"; }

protected:
    static constexpr unsigned short itemBytes = sizeof(T);  ///< Bytes of one element.

private:
    // An element that is made before it has a place: making it may throw, and
    // so may growing.
    struct Apart {
        template <class... Arguments>
        explicit Apart(Arguments&&... arguments) {
            new (bytes) T(std::forward<Arguments>(arguments)...);
        }
        Apart(const Apart&) = delete;
        Apart& operator=(const Apart&) = delete;
        ~Apart() {
            if (!isMoved) std::launder(reinterpret_cast<T*>(bytes))->~T();
        }
        alignas(T) unsigned char bytes[sizeof(T)];
        bool isMoved = false;
    };

    Self& self() { return static_cast<Self&>(*this); }
    unsigned int indexOf(const T* place) const {
        FX_ASSERT(place >= begin() && place <= end());
        return static_cast<unsigned int>(place - begin());
    }
    // Whether the hooks are those of Self: a class derived from it may override them.
    bool hasOwnHooks() const { return &typeid(*this) == &typeid(Self); }
    // Requires: T is trivially copyable. The store of a number leaves other fields alone, which
    // a compiler knows; all bytes of a struct are copied, for comparisons of bytes.
    void put(const T& item, unsigned int offset) {
        if constexpr (std::is_scalar_v<T> && std::is_copy_assignable_v<T> &&
                      sizeof(T) <= sizeof(void*)) {
            *reinterpret_cast<T*>(this->data + offset) = item;
        } else {
            std::memcpy(this->data + offset, &item, itemBytes);
        }
    }
    void appendByHooks(const T& item) {
        if constexpr (sizeof(T) <= sizeof(void*) && std::is_trivially_copyable_v<T> &&
                      std::is_copy_constructible_v<T>) {
            const T copy(item);  // so that the caller's variable can stay in a register
            fxArray::append(static_cast<const void*>(&copy));
        } else {
            fxArray::append(static_cast<const void*>(&item));
        }
    }
    template <class Item>
    static decltype(auto) itemOf(Item&& item) {
        if constexpr (std::is_aggregate_v<T> || std::is_same_v<std::decay_t<Item>, T>) {
            return std::forward<Item>(item);
        } else {
            return T(fxDetail::ArrayItem<T>(std::forward<Item>(item)).value);
        }
    }
    static Self adopt(unsigned int count, void* block) {
        return Self(itemBytes, count * itemBytes, block);
    }
    // Self is complete where a constructor is used.
    void checkHooks() {
        static_assert(std::is_trivially_copyable_v<T> || !fxDetail::copiesBytes<Self>,
                      "elements with constructors and destructors need hooks: "
                      "fxTypedArray<Self, T, fxOwningArray<T>>");
        static_assert(fxMovesAsBytes<T>::value,
                      "an array moves its elements by their bytes; see fxMovesAsBytes");
        if (!fxDetail::copiesBytes<Self> || !fxDetail::dropsBytes<Self>) this->ownsElements = true;
    }
    void addItems(fxDetail::ArrayItems<T> items) {
        if constexpr (!std::is_aggregate_v<T>) {
            if (items.size() == 1 && items.begin()->isCount) {
                fxArray::resize(fxLengthField(items.begin()->count));
                return;
            }
        }
        fxArray::setMaxLength(static_cast<unsigned int>(items.size()));
        for (const auto& item : items) {
            if constexpr (std::is_aggregate_v<T>) {
                fxArray::append(&item);
            } else {
                fxArray::append(&item.value);
            }
        }
    }
};

/// A typed array that can be transcribed: its type record is `record`, and its
/// elements travel through the transcriber's operation for T. A failed xdr()
/// leaves the array empty.
template <class Self, class T, fxTypeObj& record, class Hooks = fxArray>
class FX_API fxRecordedArray : public fxRecorded<Self, fxTypedArray<Self, T, Hooks>, record> {
    static_assert(std::is_trivially_copyable_v<T> && !std::is_base_of_v<fxOwningArray<T>, Hooks>,
                  "xdr() of this class reads raw elements into raw memory: an array of others "
                  "derives from fxTypedArray and transcribes them itself, as fxStrArray does");
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

/// Hooks for elements with constructors and destructors, which may throw when
/// they are made. A T must survive being moved as bytes (see fxMovesAsBytes).
template <class T>
class FX_API fxOwningArray : public fxArray {
    static_assert(fxMovesAsBytes<T>::value,
                  "an array moves its elements by their bytes; see fxMovesAsBytes");

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
        if (at == nullptr) return;
        std::uninitialized_value_construct_n(static_cast<T*>(at), countOf(byteCount));
    }
    void destroyElements(void* at, unsigned int byteCount) override {
        T* const elements = static_cast<T*>(at);
        for (unsigned int i = 0; i < countOf(byteCount); ++i) elements[i].~T();
    }
    /// Goes backwards when the copies lie above the originals, so that none is
    /// overwritten before it is read.
    void copyElements(const void* from, void* to, unsigned int byteCount) const override {
        const T* const originals = static_cast<const T*>(from);
        const unsigned int count = countOf(byteCount);
        const bool isUpward = !std::less<>()(from, to);
        Made made = {static_cast<T*>(to), isUpward ? 0 : count, isUpward ? 0 : count};
        while (isUpward && made.end < count) {
            new (made.copies + made.end) T(originals[made.end]);
            ++made.end;
        }
        while (!isUpward && made.begin > 0) {
            new (made.copies + made.begin - 1) T(originals[made.begin - 1]);
            --made.begin;
        }
        made.end = made.begin;
    }

private:
    static constexpr unsigned int countOf(unsigned int byteCount) {
        return byteCount / static_cast<unsigned int>(sizeof(T));
    }
    void own() { this->ownsElements = true; }

    // The copies made so far, which end when the next one throws.
    struct Made {
        T* const copies;
        unsigned int begin;
        unsigned int end;
        ~Made() { std::destroy(copies + begin, copies + end); }
    };
};

#endif
