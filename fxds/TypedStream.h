// The typed operations of streams that move plain bytes.
#ifndef FXDS_TYPEDSTREAM_H
#define FXDS_TYPEDSTREAM_H

#include <cstddef>

#include "fxds/Stream.h"

/// Base of a stream class `Self` that has two functions for bytes, which may be
/// private when it befriends this class:
///
///     bool get(void* bytes, size_t byteCount);
///     bool put(const void* bytes, size_t byteCount);
///
/// Every typed operation becomes one of them.
template <class Self>
class fxTypedStream : public fxStream {
public:
    bool getBytes(char* bytes, unsigned int count) override { return getAll(bytes, count); }
    bool getShorts(short* shorts, unsigned int count) override { return getAll(shorts, count); }
    bool getInts(int* ints, unsigned int count) override { return getAll(ints, count); }
    bool getLongs(long* longs, unsigned int count) override { return getAll(longs, count); }
    bool getFloats(float* floats, unsigned int count) override { return getAll(floats, count); }
    bool getDoubles(double* doubles, unsigned int count) override { return getAll(doubles, count); }

    bool putBytes(const char* bytes, unsigned int count) override { return putAll(bytes, count); }
    bool putShorts(const short* shorts, unsigned int count) override {
        return putAll(shorts, count);
    }
    bool putInts(const int* ints, unsigned int count) override { return putAll(ints, count); }
    bool putLongs(const long* longs, unsigned int count) override { return putAll(longs, count); }
    bool putFloats(const float* floats, unsigned int count) override {
        return putAll(floats, count);
    }
    bool putDoubles(const double* doubles, unsigned int count) override {
        return putAll(doubles, count);
    }

private:
    template <class T>
    bool getAll(T* elements, size_t count) {
        return static_cast<Self*>(this)->get(elements, count * sizeof(T));
    }
    template <class T>
    bool putAll(const T* elements, size_t count) {
        return static_cast<Self*>(this)->put(elements, count * sizeof(T));
    }
};

#endif
