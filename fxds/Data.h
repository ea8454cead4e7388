// Boxed values, as they wait in the event queue and in properties.
#ifndef FXDS_DATA_H
#define FXDS_DATA_H

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

#include "fxds/DataTypes.h"
#include "fxds/detail/Hold.h"

/// A value with its data type number and a count of holders. Holders take()
/// and release() it; the one that brings the count to 0 destroys it, once, even
/// if its destructor takes and releases it. A send adopts a value that has
/// no holder.
class FX_API fxData {
public:
    explicit fxData(unsigned short type);  ///< It has no holder yet.
    fxData(const fxData&) = delete;
    fxData& operator=(const fxData&) = delete;
    virtual ~fxData();

    /// Name of the kind of value.
    virtual const char* dataName() const = 0;

    /// Calls `function` with `closure` and the value, as a function of the
    /// signature that belongs to the data type.
    virtual void deliverTo(void (*function)(), void* closure) = 0;

    /// Copies the value to `target`, which has room for getSize() bytes and may
    /// be unaligned; for strings and string arrays `target` is a live object
    /// that is assigned to. A text is copied as its pointer, which stays the
    /// box's: a view, good as long as the box. `type` is not consulted.
    virtual void getValue(unsigned short type, void* target) = 0;

    /// Size of the value in bytes.
    virtual unsigned int getSize() = 0;

    unsigned short getType() const { return type; }  ///< Data type number.
    void take() { ++count; }                         ///< Adds one holder.
    /// Removes one holder; the last one destroys the value.
    void release() {
        if (--count == 0) fxEnd(this, count);
    }

    ///@{
    /// Storage from the library's free lists; aligned as the class asks when
    /// that is more than usual, or the caller's own.
    static void* operator new(size_t size);
    static void* operator new(size_t size, std::align_val_t alignment);
    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void* memory, size_t size);
    static void operator delete(void* memory, std::align_val_t alignment);
    static void operator delete(void*, void*) noexcept {}
    ///@}

    unsigned long count;  ///< Number of holders, 0 when made.
    unsigned short type;  ///< Data type number.
};

/// Base of the boxed values: T is the type that is kept, Passed that which the
/// receiving function takes.
template <class T, class Passed = T>
class FX_API fxValueData : public fxData {
public:
    const char* dataName() const override { return "TYPE"; }
    void deliverTo(void (*function)(), void* closure) override {
        reinterpret_cast<void (*)(void*, Passed)>(function)(closure, value);
    }
    void getValue(unsigned short, void* target) override {
        if constexpr (std::is_trivially_copyable_v<T>) {
            std::memcpy(target, &value, sizeof value);  // the target may be unaligned
        } else {
            *static_cast<T*>(target) = value;
        }
    }
    unsigned int getSize() override { return sizeof(T); }

    T value;  ///< The value itself.

protected:
    /// For a kind of value of the application's own.
    fxValueData(unsigned short type_, const T& value_) : fxData(type_), value(value_) {}
    /// For the library's classes: T has the data type.
    explicit fxValueData(const T& value_) : fxValueData(fxChannelType<T>::type(), value_) {}
};

/// A boxed boolean byte.
class FX_API fxBoolData : public fxValueData<unsigned char> {
public:
    explicit fxBoolData(unsigned char value);  ///< Keeps the byte as it is.
};

/// A boxed int.
class FX_API fxIntData : public fxValueData<int> {
public:
    explicit fxIntData(int value);  ///< It has no holder yet.
};

/// A boxed long.
class FX_API fxLongData : public fxValueData<long> {
public:
    explicit fxLongData(long value);  ///< It has no holder yet.
};

/// A boxed float.
class FX_API fxFloatData : public fxValueData<float> {
public:
    explicit fxFloatData(float value);  ///< It has no holder yet.
};

/// A boxed double.
class FX_API fxDoubleData : public fxValueData<double> {
public:
    explicit fxDoubleData(double value);  ///< It has no holder yet.
};

/// Boxes a text that it takes over: `text` must come from `operator new` (see
/// fxCopyCharPtr()) and is released with `operator delete`. It may be null.
class FX_API fxCharPtrData : public fxValueData<char*> {
public:
    explicit fxCharPtrData(char* text);  ///< Adopts the text.
    ~fxCharPtrData() override;
    const char* dataName() const override { return "char *"; }
};

/// No value at all: receivers are called with their closure alone.
class FX_API fxVoidData : public fxData {
public:
    fxVoidData();
    const char* dataName() const override { return "void"; }
    void deliverTo(void (*function)(), void* closure) override;
    void getValue(unsigned short type, void* target) override;
    unsigned int getSize() override { return 0; }
};

/// A copy of `text` that fxCharPtrData or an owned text property may take
/// over; null for null. Release it with `operator delete` otherwise.
FX_API char* fxCopyCharPtr(const char* text);

#endif
