// A transcriber that moves values to and from bytes in memory, for tests of
// what a class hands to its transcriber.
#ifndef FXDS_MEMORYTRANSCRIBER_H
#define FXDS_MEMORYTRANSCRIBER_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "fxds/Str.h"
#include "fxds/Transcriber.h"

/// Writes values as they lie in memory, without any framing, and reads the
/// same. Of what is held by pointer it moves only the texts of strings.
class MemoryTranscriber : public fxTranscriber {
public:
    MemoryTranscriber() : fxTranscriber(nullptr, false) {}
    explicit MemoryTranscriber(std::string bytes_)
        : fxTranscriber(nullptr, true), bytes(std::move(bytes_)) {}

    std::string bytes;      ///< What was written, or is to be read.
    std::size_t taken = 0;  ///< How much of it was read.
    int baseParts = 0;      ///< Base parts that were handed over.

    using fxTranscriber::xdr;

    void reset() override {}
    bool xdr(char* p, unsigned int n) override { return move(p, n); }
    bool xdr(unsigned char* p, unsigned int n) override { return move(p, n); }
    bool xdr(short* p, unsigned int n) override { return move(p, n); }
    bool xdr(unsigned short* p, unsigned int n) override { return move(p, n); }
    bool xdr(long* p, unsigned int n) override { return move(p, n); }
    bool xdr(unsigned long* p, unsigned int n) override { return move(p, n); }
    bool xdr(float* p, unsigned int n) override { return move(p, n); }
    bool xdr(double* p, unsigned int n) override { return move(p, n); }
    bool xdr(fxStr* p, unsigned int n) override {
        for (unsigned int i = 0; i < n; ++i) {
            if (!p[i].xdr(*this)) return false;
        }
        return true;
    }
    bool xdr(char** p, unsigned int n) override { return moveText(p, n); }
    bool xdr(unsigned char**, unsigned int) override { return false; }
    bool xdr(short**, unsigned int) override { return false; }
    bool xdr(unsigned short**, unsigned int) override { return false; }
    bool xdr(long**, unsigned int) override { return false; }
    bool xdr(unsigned long**, unsigned int) override { return false; }
    bool xdr(float**, unsigned int) override { return false; }
    bool xdr(double**, unsigned int) override { return false; }
    bool xdr(char**) override { return false; }
    bool xdr(unsigned char**) override { return false; }
    bool xdr(void*, fxXDRObj*, fxTypeObj&, fxXDRObj*, void*) override { return false; }
    bool xdr(fxTypeObj&, void*, void*) override {
        ++baseParts;
        return true;
    }
    void* readObject(fxTypeObj&) override { return nullptr; }
    bool writeObject(void*, fxXDRObj*) override { return false; }
    const char* className() const override { return "MemoryTranscriber"; }

private:
    template <class T>
    bool move(T* values, std::size_t count) {
        const std::size_t size = count * sizeof(T);
        if (!isReading()) {
            bytes.append(reinterpret_cast<const char*>(values), size);
            return true;
        }
        if (bytes.size() - taken < size) return false;
        std::memcpy(values, bytes.data() + taken, size);
        taken += size;
        return true;
    }
    bool moveText(char** text, std::size_t size) {
        if (isReading()) {
            if (bytes.size() - taken < size) return false;
            *text = static_cast<char*>(std::malloc(size));
        }
        return move(*text, size);
    }
};

#endif
