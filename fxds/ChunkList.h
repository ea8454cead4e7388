// A list that grows without moving what it holds.
#ifndef FXDS_CHUNKLIST_H
#define FXDS_CHUNKLIST_H

#include <cstddef>
#include <memory>
#include <vector>

// Elements stand in chunks of equal size. Against a vector that doubles, this
// touches each page of memory once, which is most of what long lists that live
// for one call cost; and pointers to elements stay good.

template <class T>
class fxChunkList {
public:
    size_t size() const { return count; }
    bool empty() const { return count == 0; }
    T& operator[](size_t i) { return chunks[i / chunkItems][i % chunkItems]; }
    const T& operator[](size_t i) const { return chunks[i / chunkItems][i % chunkItems]; }
    T& back() { return (*this)[count - 1]; }

    void push_back(const T& item) {
        reserve(count + 1);
        (*this)[count++] = item;
    }
    /// Makes the length `length`; what is added has default values.
    void resize(size_t length) {
        reserve(length);
        for (size_t i = count; i < length; ++i) (*this)[i] = T();
        count = length;
    }
    void clear() {
        chunks.clear();
        count = 0;
    }
    void swap(fxChunkList& other) {
        chunks.swap(other.chunks);
        std::swap(count, other.count);
    }

private:
    static constexpr size_t chunkItems = 1024;

    void reserve(size_t length) {
        while (chunks.size() * chunkItems < length) chunks.emplace_back(new T[chunkItems]);
    }

    std::vector<std::unique_ptr<T[]>> chunks;
    size_t count = 0;
};

#endif
