// A writer and a loader for the one class of the benchmark: floors for the library.
#ifndef FXDS_BENCH_DIRECTGRAPH_H
#define FXDS_BENCH_DIRECTGRAPH_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "fxds/Str.h"

// Both handle exactly the bytes that an fxBinaryWriter writes for a graph of N (a long, a
// double, an fxStr, two pointers to N), and nothing else. The writer refuses objects of
// derived classes and reports when the stream does not take the bytes. The loader checks
// what a reader must: that a number is not 0 and is defined once, as the kind that its
// places want, that a node is of a type that was defined, that texts are as long as their
// strings, zeros included, and end in a zero, and that nothing lies beyond the end; it
// destroys its objects when it fails, also by an exception. In addition the library serves
// any class, any stream and any order of records.

template <class N>
class DirectWriter {
public:
    explicit DirectWriter(FILE* file_) : file(file_) { grow(); }

    /// Returns whether everything could be written.
    bool write(const N* root) {
        static const char head[] = "fxBinaryWriter\0ieee";
        put(head, sizeof head);
        const short shorts = 0x1122;
        const long longs = 0x33445566;
        put(&shorts, sizeof shorts);
        put(&longs, sizeof longs);
        bool isNew = false;
        push({root, 0, idOf(root, isNew)});
        const unsigned int type = next++;
        put("\x02", 1);
        put(&type, 4);
        put("Node", 5);
        while (!items.empty()) {
            const Item item = items.back();
            items.pop_back();
            if (!items.empty()) __builtin_prefetch(items.back().address);
            if (item.length == 0) {
                writeNode(*static_cast<const N*>(item.address), item.id, type);
            } else {
                writeText(static_cast<const char*>(item.address), item.length, item.id);
            }
        }
        flush();
        return isGood;
    }

private:
    struct Item {
        const void* address;
        unsigned int length;  // of a text; 0 for a node
        unsigned int id;
    };
    struct Slot {
        const void* address;
        unsigned int id;
    };

    void push(const Item& item) {
        __builtin_prefetch(item.address);
        items.push_back(item);
    }
    void put(const void* from, size_t byteCount) {
        if (used + byteCount > sizeof bytes) flush();
        std::memcpy(bytes + used, from, byteCount);
        used += byteCount;
    }
    void flush() {
        isGood &= std::fwrite(bytes, 1, used, file) == used;
        used = 0;
    }
    void writeNode(const N& node, unsigned int id, unsigned int type) {
        isGood &= typeid(node) == typeid(N);
        const unsigned int fields[] = {id, type, 1};
        const long length = node.text.length() + 1L;
        put("\x4a\x18", 2);
        put(fields, sizeof fields);
        put(&node.number, 8);
        put(&node.weight, 8);
        put(&length, 8);
        if (length > 1) writeBlock(node.text.c_str(), static_cast<unsigned int>(length));
        writePointer(node.left);
        writePointer(node.right);
    }
    void writeBlock(const char* text, unsigned int length) {
        bool isNew = false;
        const unsigned int id = idOf(text, isNew);
        put(isNew ? "\x03" : "\x04", 1);
        put(&id, 4);
        if (!isNew) return;
        put(&length, 4);
        push({text, length, id});
    }
    void writePointer(const N* node) {
        bool isNew = false;
        const unsigned int id = node != nullptr ? idOf(node, isNew) : 0;
        put(node == nullptr ? "\x01" : isNew ? "\x0b" : "\x0c", 1);
        if (node != nullptr) put(&id, 4);
        if (isNew) push({node, 0, id});
    }
    void writeText(const char* text, unsigned int length, unsigned int id) {
        if (length > 255) std::abort();  // the benchmark has none
        const unsigned int fields[] = {id, length};
        const unsigned char head[] = {0x45, static_cast<unsigned char>(length)};
        put(head, 2);
        put(fields, sizeof fields);
        put(text, length);
    }

    unsigned int idOf(const void* address, bool& isNew) {
        if (4 * count >= 3 * table.size()) grow();
        Slot& slot = find(address);
        isNew = slot.address == nullptr;
        if (isNew) slot = {address, next++};
        count += isNew;
        return slot.id;
    }
    Slot& find(const void* address) {
        const unsigned long hash =
            (reinterpret_cast<unsigned long>(address) >> 4U) * 0x9E3779B97F4A7C15U >> shift;
        size_t i = hash;
        while (table[i].address != nullptr && table[i].address != address) {
            i = (i + 1) & (table.size() - 1);
        }
        return table[i];
    }
    void grow() {
        std::vector<Slot> old(table.empty() ? 1024 : 4 * table.size());
        old.swap(table);
        shift = static_cast<unsigned int>(64 - __builtin_ctzl(table.size()));
        for (const Slot& slot : old) {
            if (slot.address != nullptr) find(slot.address) = slot;
        }
    }

    FILE* const file;
    char bytes[8192];
    size_t used = 0;
    bool isGood = true;
    std::vector<Item> items;
    std::vector<Slot> table;
    unsigned int shift = 0;
    size_t count = 0;
    unsigned int next = 1;
};

template <class N>
class DirectLoader {
public:
    explicit DirectLoader(const char* path) {
        FILE* const file = std::fopen(path, "r");
        if (file == nullptr) return;
        const long length = std::fseek(file, 0, SEEK_END) == 0 ? std::ftell(file) : -1;
        if (length > 0) {
            const size_t size = static_cast<size_t>(length);
            std::rewind(file);
            bytes.reset(new unsigned char[size + 32]);  // heads are read as a whole
            at = bytes.get();
            end = at + std::fread(bytes.get(), 1, size, file);
        }
        std::fclose(file);
    }
    DirectLoader(const DirectLoader&) = delete;
    DirectLoader& operator=(const DirectLoader&) = delete;
    ~DirectLoader() {
        if (!nodes.empty() && nodes.back() == nullptr) nodes.pop_back();  // could not be made
        for (N* node : nodes) node->left = node->right = nullptr;
        for (N* node : nodes) delete node;
    }

    /// The root, or null.
    N* load() {
        static const char head[] = "fxBinaryWriter\0ieee\0\x22\x11\x66\x55\x44\x33\0\0\0";
        if (end - at < 30 || std::memcmp(at, head, 30) != 0) return nullptr;
        at += 30;
        if (!readGraph()) return nullptr;
        N* const root = nodes.front();
        nodes.clear();  // given
        return root;
    }

private:
    enum Kind : unsigned char { unknown, awaitedNode, awaitedText, type, object, block };
    struct Entry {
        Kind kind = unknown;
        unsigned int waiting = 0;  // the last place that waits, as its index + 1
        union {
            void* address = nullptr;
            unsigned int length;
        };
    };
    struct Place {
        void* slot;
        unsigned int next;
        unsigned int length;
    };

    bool readGraph() {
        while (awaited > 0 || nodes.empty()) {
            if (end - at < 5) return false;
            const unsigned int tag = *at;
            if (tag == 2) {
                Entry& entry = entryOf(word(at + 1));
                if (entry.kind != unknown || std::memcmp(at + 5, "Node", 5) != 0) return false;
                entry.kind = type;
                at += 10;
            } else if (tag == 0x4a && end - at >= 38) {
                if (!readNode()) return false;
            } else if (tag == 0x45 && end - at >= 10 + at[1]) {
                if (!readText()) return false;
            } else {
                return false;
            }
        }
        return true;
    }
    bool readNode() {
        Entry& entry = entryOf(word(at + 2));
        const bool isAwaited = entry.kind == awaitedNode;
        if (!(isAwaited || (entry.kind == unknown && nodes.empty()))) return false;
        if (entryOf(word(at + 6)).kind != type || word(at + 10) != 1 || at[1] != 24) return false;
        nodes.push_back(nullptr);
        N* const made = nodes.back() = new N;
        fill(entry, made);
        entry.kind = object;
        entry.address = made;
        awaited -= isAwaited;
        long length = 0;
        std::memcpy(&made->number, at + 14, 8);
        std::memcpy(&made->weight, at + 22, 8);
        std::memcpy(&length, at + 30, 8);
        at += 38;
        if (length < 1 || length > 255) return false;
        if (length > 1 && !readBlock(made->text, static_cast<unsigned int>(length))) return false;
        return readPointer(made->left) && readPointer(made->right);
    }
    void fill(Entry& entry, N* made) {
        for (unsigned int i = entry.waiting; i != 0; i = places[i - 1].next) {
            *static_cast<N**>(places[i - 1].slot) = made;
        }
    }
    bool readBlock(fxStr& string, unsigned int length) {
        if (end - at < 9 || *at != 3 || word(at + 5) < length) return false;
        Entry& entry = entryOf(word(at + 1));
        if (entry.kind != unknown) return false;
        at += 9;
        entry.kind = awaitedText;
        entry.length = length;
        ++awaited;
        wait(entry, &string, length);
        return true;
    }
    bool readPointer(N*& slot) {
        if (end - at >= 1 && *at == 1) {
            ++at;
            return true;
        }
        if (end - at < 5 || (*at != 11 && *at != 12)) return false;
        Entry& entry = entryOf(word(at + 1));
        at += 5;
        if (entry.kind == object) {
            slot = static_cast<N*>(entry.address);
            return true;
        }
        if (entry.kind == unknown) ++awaited;
        if (entry.kind != unknown && entry.kind != awaitedNode) return false;
        entry.kind = awaitedNode;
        wait(entry, &slot, 0);
        return true;
    }
    void wait(Entry& entry, void* slot, unsigned int length) {
        places.push_back({slot, entry.waiting, length});
        entry.waiting = static_cast<unsigned int>(places.size());
    }
    bool readText() {
        const unsigned int length = at[1];
        Entry& entry = entryOf(word(at + 2));
        if (entry.kind != awaitedText || word(at + 6) != length || length < entry.length) {
            return false;
        }
        for (unsigned int i = entry.waiting; i != 0; i = places[i - 1].next) {
            if (at[10 + places[i - 1].length - 1] != 0) return false;
            *static_cast<fxStr*>(places[i - 1].slot) =
                std::string_view(reinterpret_cast<const char*>(at + 10), places[i - 1].length - 1);
        }
        entry.kind = block;
        --awaited;
        at += 10 + length;
        return true;
    }
    static unsigned int word(const unsigned char* from) {
        unsigned int value = 0;
        std::memcpy(&value, from, 4);
        return value;
    }
    // Grows with the bytes that were read. An entry that no stream of the writer has suits
    // no place.
    Entry& entryOf(unsigned int id) {
        if (id == 0 || id >= entries.size()) {
            if (id == 0 || id > static_cast<size_t>(at - bytes.get())) {
                return none = {block, 0, {nullptr}};
            }
            entries.resize(std::max<size_t>(id + 1, 2 * entries.size()));
        }
        return entries[id];
    }

    std::unique_ptr<unsigned char[]> bytes;
    const unsigned char* at = nullptr;
    const unsigned char* end = nullptr;
    std::vector<Entry> entries;
    std::vector<Place> places;
    std::vector<N*> nodes;
    Entry none;
    unsigned int awaited = 0;
};

#endif
