// For tests of streams: held streams, streams written by hand, and
// classes with fields of every kind.
#ifndef FXDS_TESTS_STREAMKIT_H
#define FXDS_TESTS_STREAMKIT_H

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fxds/BinaryReader.h"
#include "fxds/BinaryWriter.h"
#include "fxds/IntArray.h"
#include "fxds/MemoryStream.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/Transcriber.h"
#include "fxds/Xdr.h"

/// A stream that has no more than some bytes at hand.
class StingyStream : public fxMemoryStream {
public:
    explicit StingyStream(size_t ahead_) : ahead(ahead_) { take(); }
    StingyStream(const std::string& bytes, size_t ahead_)
        : fxMemoryStream(bytes.data(), bytes.size()), ahead(ahead_) {
        take();
    }

    size_t taken() const {
        return end != nullptr ? static_cast<size_t>(next - bytes()) : getPosition();
    }
    const fxStreamWindow& window() override { return atHand; }
    bool putBytes(const char* p, unsigned int n) override {
        setPosition(taken());
        return shown(fxMemoryStream::putBytes(p, n));
    }
    bool getBytes(char* p, unsigned int n) override {
        setPosition(taken());
        return shown(fxMemoryStream::getBytes(p, n));
    }
    bool getShorts(short* p, unsigned int n) override {
        return shown(fxMemoryStream::getShorts(p, n));
    }
    bool getLongs(long* p, unsigned int n) override {
        return shown(fxMemoryStream::getLongs(p, n));
    }

private:
    bool shown(bool isDone) {
        next = const_cast<char*>(bytes()) + getPosition();
        end = next + std::min(ahead, length() - getPosition());
        return isDone;
    }

    size_t ahead;
    char* next = nullptr;
    char* end = nullptr;
    fxStreamWindow atHand{&next, &end};
};

/// A stream of a test, held so that the test can look at it.
class HeldStream {
public:
    explicit HeldStream(const std::string& bytes = "", size_t limitBytes = SIZE_MAX)
        : stream(new fxMemoryStream(limitBytes)) {
        stream->take();
        set(bytes);
    }
    HeldStream(const HeldStream&) = delete;
    HeldStream& operator=(const HeldStream&) = delete;
    ~HeldStream() { stream->release(); }

    void set(const std::string& bytes) {
        stream->reset();
        stream->putBytes(bytes.data(), static_cast<unsigned int>(bytes.size()));
    }
    fxMemoryStream* operator->() const { return stream; }
    operator fxStream*() const { return stream; }

private:
    fxMemoryStream* stream;
};

// Records by hand, as the grammar has them.

inline std::string word(unsigned long value, unsigned int byteCount = 4) {
    std::string bytes;
    for (unsigned int i = 0; i < byteCount; ++i) {
        bytes += static_cast<char>(value >> (8 * i) & 0xFFU);
    }
    return bytes;
}

/// Tag, fields, payload; the size of the length as the writer chooses it.
inline std::string record(unsigned int tag, const std::string& fields = "",
                          const std::string& payload = "") {
    const size_t n = payload.size();
    const unsigned int lengthBytes = n == 0 ? 0 : n < 0x100 ? 1 : n < 0x10000 ? 2 : 4;
    const unsigned int code = lengthBytes == 4 ? 3 : lengthBytes;
    return static_cast<char>(code << 6U | tag) + word(n, lengthBytes) + fields + payload;
}

/// The bytes of a word of a payload: 7 and 7/4 are numbers of 8 and of 4 bytes, =ab~
/// bytes, of which ~ is a zero. Each may be repeated: =x*5000.
inline std::string payloadOf(const std::string& text) {
    const std::string once = text.substr(0, text.find('*'));
    std::string bytes = once.substr(1), all;
    if (once[0] == '=') {
        for (char& byte : bytes) byte = byte == '~' ? '\0' : byte;
    } else {
        size_t slash = 0;
        const long value = std::stol(once, &slash, 0);
        bytes = word(static_cast<unsigned long>(value),
                     slash < once.size() ? static_cast<unsigned int>(once[slash + 1] - '0') : 8);
    }
    const int times = once.size() < text.size() ? std::stoi(text.substr(once.size() + 1)) : 1;
    for (int i = 0; i < times; ++i) all += bytes;
    return all;
}

/// Records as a text: a letter for each tag, or # and its number; fields with colons
/// between them; the words of the payload. An object's version is 1 where it lacks.
inline std::string records(const std::string& text) {
    static const std::string tags = "dntBbchlfgoPpSs";
    std::string all, fields, payload;
    unsigned int tag = 0;
    bool isOpen = false;
    const auto finish = [&] {
        if (isOpen) all += record(tag, fields, payload);
        fields = payload = "";
    };
    std::istringstream words(text);
    for (std::string each; words >> each;) {
        const size_t found = tags.find(each[0]);
        if (found == std::string::npos && each[0] != '#') {
            payload += payloadOf(each);
            continue;
        }
        finish();
        isOpen = true;
        tag = static_cast<unsigned int>(each[0] == '#' ? std::stoul(each.substr(1)) : found);
        std::istringstream parts(each[0] == '#' ? "" : each.substr(1));
        int count = 0;
        for (std::string part; std::getline(parts, part, ':'); ++count) {
            const bool isName = tag == 2 && count == 1;
            fields += isName ? part + '\0' : word(std::stoul(part, nullptr, 0));
        }
        if (tag == 10 && count == 2) fields += word(1);
    }
    finish();
    return all;
}

inline std::string header(short shortMark = 0x1122, long longMark = 0x33445566) {
    return std::string("fxBinaryWriter\0ieee\0", 20) +
           word(static_cast<unsigned short>(shortMark), 2) +
           word(static_cast<unsigned long>(longMark), 8);
}

// Saving to and loading from memory.

/// The bytes of numbers of this machine as another one stores them. Byte i of each group of
/// 4 is byte i ^ (machine & 3); with machine & 4, those of a short are exchanged.
inline std::string asStored(unsigned int machine, std::string bytes, size_t itemBytes = 4) {
    const std::string ours = bytes;
    const size_t turned = itemBytes == 2 ? machine >> 2U : machine & 3U;
    for (size_t i = 0; i < ours.size(); ++i) bytes[i] = ours[i ^ turned];
    return bytes;
}
inline std::string headerOf(unsigned int machine) {
    const std::string marks = header().substr(20);
    return header().substr(0, 20) + asStored(machine, marks.substr(0, 2), 2) +
           asStored(machine, marks.substr(2));
}

/// Notes which operations it was asked for, with their bytes in hex: "long" and what
/// numbers there are, "block long" likewise, "object", "part"; 0 for a null pointer.
/// Writes whole numbers as a machine stores them.
class NotingWriter : public fxBinaryWriter {
    typedef fxBinaryWriter Base;

public:
    explicit NotingWriter(fxStream* stream_, unsigned int machine_ = 0)
        : fxTranscriber(stream_, false), Base(stream_), machine(machine_) {}
    using fxBinaryWriter::xdr;

#define NOTED(Type, name)                                                \
    bool xdr(Type* v, unsigned int n) override {                         \
        note(name + hex(v, n));                                          \
        std::string copy;                                                \
        Type* const at = stored(v, n, copy);                             \
        return nested([&] { return Base::xdr(at, n); });                 \
    }                                                                    \
    bool xdr(Type** v, unsigned int n) override {                        \
        note("block " + (*v != nullptr ? name + hex(*v, n) : "0"));      \
        Type* at = stored(*v, n, copies[*v]);                            \
        return nested([&] { return Base::xdr(at == *v ? v : &at, n); }); \
    }
    NOTED(char, std::string("byte"))
    NOTED(unsigned char, std::string("byte"))
    NOTED(short, std::string("short"))
    NOTED(unsigned short, std::string("short"))
    NOTED(int, std::string("int"))
    NOTED(unsigned int, std::string("int"))
    NOTED(long, std::string("long"))
    NOTED(unsigned long, std::string("long"))
    NOTED(float, std::string("float"))
    NOTED(double, std::string("double"))
#undef NOTED
    bool xdr(char** v) override {
        const auto n = *v != nullptr ? static_cast<unsigned int>(std::strlen(*v)) + 1 : 0;
        note("block " + (n != 0 ? "byte" + hex(*v, n) : "0"));
        return nested([&] { return Base::xdr(v); });
    }
    bool xdr(void* slot, fxXDRObj* from, fxTypeObj& type, fxXDRObj* object, void* at) override {
        note(at != nullptr ? "object" : "object 0");
        return nested([&] { return Base::xdr(slot, from, type, object, at); });
    }
    bool xdr(fxTypeObj& base, void* derived, void* at) override {
        if (derived != at) note("part");
        return Base::xdr(base, derived, at);
    }

    std::string notes;
    std::map<const void*, std::string> copies;  ///< Of blocks, as they are stored.

private:
    // The base may ask itself for another operation, and for those of contents.
    bool isAsked() const { return depth == 0 && (tag < fxTagBytes || tag > fxTagDoubles); }
    template <class Do>
    bool nested(Do operation) {
        ++depth;
        const bool isDone = operation();
        --depth;
        return isDone;
    }
    void note(const std::string& operation) {
        if (isAsked()) notes += operation + '\n';
    }
    template <class T>
    static std::string hex(const T* items, unsigned int count) {
        std::string text = " ";
        for (const char each : bytesOf(items, count)) {
            text += "0123456789abcdef"[static_cast<unsigned char>(each) >> 4U];
            text += "0123456789abcdef"[static_cast<unsigned char>(each) & 15U];
        }
        return text;
    }
    template <class T>
    static std::string bytesOf(const T* items, unsigned int count) {
        return {reinterpret_cast<const char*>(items), count * sizeof(T)};
    }
    template <class T>
    T* stored(T* items, unsigned int count, std::string& copy) const {
        const bool isStored = machine != 0 && isAsked() && items != nullptr;
        if (!isStored || !std::is_integral_v<T> || sizeof(T) == 1) return items;
        copy = asStored(machine, bytesOf(items, count), sizeof(T));
        return reinterpret_cast<T*>(copy.data());
    }
    const unsigned int machine;
    int depth = 0;
};

/// Leaves a stream in the folder that the environment names, with the operations that it
/// was written by, for a reader in another language.
inline void keep(std::string_view bytes, std::string_view notes) {
    const char* const folder = std::getenv("FX_SAVED_STREAMS");
    if (folder == nullptr) return;
    const std::string path =
        std::string(folder) + '/' + std::to_string(std::hash<std::string_view>()(bytes));
    std::ofstream(path + ".fx") << bytes;
    std::ofstream(path + ".ops") << notes;
}

template <class C>
std::string saved(C* root) {
    HeldStream stream, again;
    const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
    if (writer == nullptr || !fxWriteObject(*writer, root)) return "failed";
    NotingWriter noting(again);
    if (fxWriteObject(noting, root)) {
        const bool isSame = again->view() == stream->view().substr(30);
        keep(stream->view(), isSame ? noting.notes : "written otherwise\n");
    }
    return std::string(stream->view());
}

template <class C>
C* loaded(std::string_view bytes) {
    fxMemoryStream stream(bytes.data(), bytes.size());
    stream.take();
    const std::unique_ptr<fxTranscriber> reader(fxTranscriber::getReader(&stream));
    return reader != nullptr ? fxReadObject<C>(*reader) : nullptr;
}

/// Of a class with FX_TRANSCRIBABLE: its record, by its own name, version and bases, and
/// the head of its xdr().
#define TRANSCRIBED(Class, ...)                        \
    FX_TRANSCRIBABLE_TYPE(Class, #Class, __VA_ARGS__); \
    inline fxBool Class::xdr(fxTranscriber& t)

/// An object that a test can find again: all that live are listed, so that a
/// test can delete them whatever they point to, and see that none is left.
class Listed : public fxXDRObj {
    FX_TRANSCRIBABLE(Listed)

    Listed() { all().insert(this); }
    Listed(const Listed&) = delete;
    Listed& operator=(const Listed&) = delete;
    ~Listed() override { all().erase(this); }

    static std::set<Listed*>& all() {
        static std::set<Listed*> list;
        return list;
    }
    /// Leaves what it holds to others.
    virtual void letGo() {}
    static void deleteAll() {
        for (Listed* each : all()) each->letGo();
        while (!all().empty()) delete *all().begin();
    }

    long number = 0;
};
TRANSCRIBED(Listed, 1) { return fxXdr(t, number); }

/// Two pointers, a text and numbers.
class Node : public Listed {
    FX_TRANSCRIBABLE(Node)
    fxStr text;
    Node* left = nullptr;
    Listed* right = nullptr;
};
TRANSCRIBED(Node, 1, Listed) {
    return fxXdrBase<Listed>(t, this) && fxXdr(t, text) && fxXdrObject(t, left) &&
           fxXdrObject(t, right);
}

/// Of another type and version than Node.
class Leaf : public Listed {
    FX_TRANSCRIBABLE(Leaf)
    Node* owner = nullptr;
    double weight = 0;
};
TRANSCRIBED(Leaf, 2, Listed) {
    return fxXdrBase<Listed>(t, this) && fxXdrObject(t, owner) && fxXdr(t, weight);
}

#endif
