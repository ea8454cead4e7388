// The growable contiguous container from which every array of the library derives.
// Sources: containers/Array.cc; containers/ArraySort.cc for sort() and qsort().
#ifndef FXDS_ARRAY_H
#define FXDS_ARRAY_H

#include <cstddef>

#include "fxds/XDRObj.h"
#include "fxds/detail/MovesAsBytes.h"

/// An array of elements of one size, in one block. Four virtual hooks let a subclass define
/// creation, destruction, copying and order of its elements. Elements are moved as bytes:
/// only making a copy goes through a hook.
///
/// This class is the base for new array classes. Programs use a typed array (IntArray.h and
/// its kin), whose members hide those with `const void*`. Lengths, indices and counts at
/// this interface are in elements; the hooks count in bytes. A total above 2^32 - 1 bytes
/// and exhausted memory are fatal.
///
/// Capacity grows in the steps that each operation states and shrinks only by resize() and
/// setMaxLength(). The block behind it may be larger than the capacity, so that growing in
/// small steps costs amortised O(1).
///
/// An operation that may raise the capacity invalidates pointers to elements. An argument
/// may be an element of the array itself. A hook must not change the array that it is
/// called for. createElements() and copyElements() may throw, after destroying the elements
/// made so far; the array then keeps its content, except in an assignment, which leaves it
/// empty. compareElements() may throw, too.
class FX_API fxArray : public fxXDRObj {
public:
    /// The index that means not found.
    static constexpr unsigned int notFound = 0xFFFFFFFF;

    /// Holds `count` raw elements, of zero bytes: no hook has run on them.
    /// Requires: elementSize >= 1.
    fxArray(unsigned short elementSize, unsigned int count);
    /// Copies the bytes of the elements in use, whatever the hooks: a subclass
    /// whose elements own something must define its own copy constructor.
    fxArray(const fxArray& source);
    /// Takes over the block and leaves `source` empty.
    fxArray(fxArray&& source) noexcept;
    /// Adopts `block`, which must be malloc() memory, as `lengthBytes` bytes
    /// of elements. Requires: 1 <= elementSize < 65536; a block unless
    /// lengthBytes is 0.
    fxArray(unsigned int elementSize, unsigned int lengthBytes, void* block);
    /// Empty, for xdr() to fill. A subclass sets `elementSize` afterwards.
    explicit fxArray(fxTypeObj& type);
    /// Frees the block. It cannot call the hooks of subclasses, so the destructor of a
    /// class that overrides destroyElements() calls destroy(). If a base has such a
    /// destructor already, as the owning arrays and fxStrArray do, it calls resize(0)
    /// instead, so that elements are destroyed once.
    ~fxArray() override;

    /// In elements, as everything here but the hooks.
    unsigned int length() const { return lengthBytes / elementSize; }
    bool isEmpty() const { return lengthBytes == 0; }
    /// The capacity: how long the array can get before it has to grow.
    unsigned int getMaxLength() const { return maxBytes / elementSize; }

    /// Copies `item` to the end. A full array grows by exactly 4 elements.
    void append(const void* item);
    /// Copies all elements of `other`, which may be this array, to the end.
    /// Grows to exactly the new length when that exceeds the capacity.
    /// Requires: equal element sizes.
    void append(const fxArray& other);
    /// Copies `item` in before `index`. A full array grows by exactly 1.
    /// Requires: index <= length().
    void insert(const void* item, unsigned int index);
    /// Copies all elements of `other`, which may be this array, in before
    /// `index`; grows as append() does. Requires: equal element sizes,
    /// index <= length().
    void insert(const fxArray& other, unsigned int index);
    /// Destroys `count` elements and closes the gap. Requires: the run lies in
    /// the array; one past the end wraps the length and is not caught.
    void remove(unsigned int start, unsigned int count = 1);
    /// Makes length and capacity exactly `n`, creating (from zero bytes) or
    /// destroying elements at the end.
    void resize(unsigned int n);
    /// Makes the capacity exactly `n`, or the length if that is more.
    void setMaxLength(unsigned int n);
    /// Exchanges the bytes of two elements. Requires: i, j < length().
    void swap(unsigned int i, unsigned int j);

    /// The first index from `start` on whose element compares equal to `item`,
    /// or notFound.
    unsigned int find(const void* item, unsigned int start) const;

    /// Sorts all elements, or `count` of them from `start` on: stable, in the
    /// order of compareElements(), O(n log n) comparisons, moving bytes.
    /// Caution: the hook of the arrays of numbers compares bytes. For
    /// numeric order use sortByValue().
    void sort() { sort(0, length()); }
    void sort(unsigned int start, unsigned int count);  ///< Requires: the run lies in the array.

    /// Does NOT leave a sorted array. It partitions as quicksort does, but the
    /// last step of each partition sets both positions of the exchange to the
    /// scratch element: what was exchanged last, or an element of zero bytes
    /// (a default element, where elements own something) if nothing was yet.
    /// So elements get lost and others doubled: 2 3 1 becomes 3 3 3, and a
    /// single element becomes zero. This placement is part of the contract; for a
    /// sorted array call sort().
    void qsort() { qsort(0, length()); }
    void qsort(unsigned int start, unsigned int count);  ///< Requires: the run lies in the array.

    /// Runs destroyElements() on all elements and changes no field.
    void destroy();

    ///@{
    /// Returns a new block, given (release it with free()), or null when
    /// `count` is 0. Its elements are copies made by copyElements().
    /// Requires: the run lies in the array.
    void* raw_extract(unsigned int start, unsigned int count) const;
    void* raw_head(unsigned int count) const;
    void* raw_tail(unsigned int count) const;
    void* raw_copy() const;
    ///@}
    /// The same for elements that leave the array: moved as bytes, no hook.
    void* raw_cut(unsigned int start, unsigned int count);

    const char* className() const override = 0;  ///< The name of the class, for people.
    /// Transcribes nothing, because the generic array has no contents. Returns the result
    /// of the transcriber for a base part at the object's own address.
    fxBool xdr(fxTranscriber& transcriber) override;
    fxTypeObj* getTypeObj() const override;

    /// Makes the block hold `maxBytes`; 0 frees it.
    virtual void getmem();
    /// Raises the capacity by 4 elements.
    virtual void expand();

    // Element hooks. Byte counts are multiples of the element size, never 0.
    // A subclass that overrides copyElements() or destroyElements() also sets
    // `ownsElements` in its constructors; for the class that fxTypedArray is
    // given as Self, fxTypedArray does.

    /// Turns raw bytes into default elements. This one leaves them as they are.
    virtual void createElements(void* at, unsigned int byteCount);
    /// Destroys the elements; the bytes are then reused or freed.
    virtual void destroyElements(void* at, unsigned int byteCount);
    /// Copies elements into raw bytes at `to`. This one moves the bytes.
    virtual void copyElements(const void* from, void* to, unsigned int byteCount) const;
    /// Negative, zero or positive. This one compares the bytes.
    virtual int compareElements(const void* a, const void* b) const;

    /// The function of fxArray_type; forwards to the member.
    static fxBool xdr(void* object, fxTranscriber& transcriber);

protected:
    /// Makes or fills `count` elements at `at` on the way through a
    /// transcriber.
    typedef bool XdrElements(fxTranscriber& transcriber, void* at, unsigned int count);

    /// Whether the element at `a` belongs before that at `b`.
    typedef bool Less(const void* context, const void* a, const void* b);
    /// As sort(), in the order of `less`, which gets the context and may throw: the
    /// elements then keep their places. It is fatal if it changes the array.
    void sortBy(unsigned int start, unsigned int count, Less* less, const void* context);

    /// Copies the elements with the hooks; the capacity becomes the source's.
    fxArray& operator=(const fxArray& source);
    /// Destroys the elements and takes over the source's block.
    fxArray& operator=(fxArray&& source) noexcept;

    /// For copy constructors: takes the capacity and, with the source's hook, the
    /// elements of `source` into this array, which must have no block yet.
    void copyFrom(const fxArray& source);

    /// Transcribes byte length and element size; `byteCount` is what must
    /// follow. Writing first brings the capacity to the length. Reading first
    /// empties the array, and refuses another element size than this array's
    /// and a length that is no multiple of it.
    bool xdrSizes(fxTranscriber& transcriber, unsigned int& byteCount);
    /// Transcribes the elements after xdrSizes() in one call of `operation`,
    /// or, from a transcriber that readsInPieces(), in calls of at most
    /// `pieceBytes`, so that memory is taken as the bytes arrive or are known to
    /// come. When it fails the array is empty.
    bool xdrElements(fxTranscriber& transcriber, unsigned int byteCount, XdrElements* operation);
    /// Makes the block at least `bytes` long while elements are read, of which
    /// there will be `mostBytes`, and that long if the stream has as much. False
    /// when there is no memory.
    bool growTo(const fxTranscriber& transcriber, std::size_t bytes, unsigned int mostBytes);
    /// Ends a reading: the array has the `byteCount` bytes that are in its
    /// block, or is empty. Returns `isRead`.
    bool endReading(bool isRead, unsigned int byteCount);
    /// Makes capacity and block exactly `byteCount` bytes, at least those in
    /// use. False, and nothing has changed, when they cannot be had.
    bool reserve(std::size_t byteCount);
    /// Empties the array without running a hook and frees the block.
    void discard();

    /// The largest piece in which elements are read.
    static constexpr unsigned int pieceBytes = 1U << 20;

    /// Whether the block is large enough for a capacity of `bytes` bytes. `bytes` may be four
    /// elements more than the capacity and have wrapped: then it is not.
    bool hasBlockFor(unsigned int bytes) const { return bytes < blockLimit; }

    /// The element, as bytes. Requires: index <= length().
    char* at(std::size_t index) const { return data + index * elementSize; }

    char* data;                  ///< Malloc memory, null when there is none.
    unsigned int maxBytes;       ///< Capacity; the block is never smaller.
    unsigned int lengthBytes;    ///< Bytes in use.
    unsigned short elementSize;  ///< Bytes of one element.
    bool ownsElements;           ///< Elements are copied and destroyed only by the hooks.

private:
    bool wasRead = false;  // whether xdrSizes() has read it, or the array that it moved from

    std::size_t blockBytes() const;
    void noteBlock(std::size_t bytes);
    bool resizeBlock(std::size_t bytes);
    void takeBlock(fxArray& source);
    void raiseCapacity(std::size_t bytes);
    void fillFrom(const fxArray& source, const fxArray& hooks);
    void takeIn(std::size_t offset, std::size_t bytes);
    void closeGap(std::size_t offset, std::size_t bytes);
    void* copyOf(std::size_t offset, std::size_t bytes) const;

    unsigned int blockLimit = 1;  // more than the size of the block by one; see noteBlock()
};

/// Base of the arrays whose new elements are zero bytes, as null pointers are.
class FX_API fxZeroFilledArray : public fxArray {
public:
    using fxArray::fxArray;
    void createElements(void* at, unsigned int byteCount) override;
};

/// True for every array whose class adds no fields.
template <class T>
struct fxMovesAsBytes<T, std::enable_if_t<std::is_base_of_v<fxArray, T>>>
    : std::bool_constant<sizeof(T) == sizeof(fxArray)> {};

extern FX_API fxTypeObj fxArray_type;

#endif
