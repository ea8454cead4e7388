// A graph that has a record of every kind, and its classes.
#ifndef FXDS_TESTS_RICHGRAPH_H
#define FXDS_TESTS_RICHGRAPH_H

#include <set>
#include <string>

#include "fxds/BoolArray.h"
#include "fxds/LongArray.h"
#include "fxds/ShortArray.h"
#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "tests/support/StreamKit.h"

/// Blocks and objects that the objects of a graph point to. Who shares what is
/// up to the stream, so they are released here, each once.
struct Received {
    static std::set<void*>& blocks() {
        static std::set<void*> all;
        return all;
    }
    static std::set<fxXDRObj*>& objects() {
        static std::set<fxXDRObj*> all;
        return all;
    }
    static std::set<fxStr*>& strings() {
        static std::set<fxStr*> all;
        return all;
    }
    static void deleteAll() {
        for (void* block : blocks()) std::free(block);
        for (fxXDRObj* object : objects()) delete object;
        for (fxStr* string : strings()) delete string;
        blocks().clear();
        objects().clear();
        strings().clear();
        Listed::deleteAll();
    }
};

/// A second base, at an address of its own.
class Second : public virtual Listed {
    FX_TRANSCRIBABLE(Second)
    long own = 0;
};
FX_TRANSCRIBABLE_TYPE(Second, "Second", 1, Listed);
inline fxBool Second::xdr(fxTranscriber& t) { return fxXdrBase<Listed>(t, this) && fxXdr(t, own); }

class First : public virtual Listed {
    FX_TRANSCRIBABLE(First)
    fxStr label;
};
FX_TRANSCRIBABLE_TYPE(First, "First", 1, Listed);
inline fxBool First::xdr(fxTranscriber& t) { return fxXdrBase<Listed>(t, this) && fxXdr(t, label); }

/// Everything at once.
class Rich : public First, public Second {
    FX_TRANSCRIBABLE(Rich)

    bool flag = true;
    short small = 1;
    int row[3] = {1, 2, 3};
    double real = 0.5;
    fxIntArray ints;
    fxBoolArray bools;
    fxStrArray strings;
    fxStrSet set;
    fxStrStrDictionary dictionary;
    unsigned int count = 0;
    short* shorts = nullptr;
    int* integers = nullptr;
    double* doubles = nullptr;
    float* floats = nullptr;
    char* text = nullptr;
    char* same = nullptr;
    Rich* other = nullptr;
    Second* second = nullptr;
    Listed* any = nullptr;
    fxXDRObj* anything = nullptr;
    fxShortArray* shortArray = nullptr;
    fxStrArray* stringArray = nullptr;
    fxStr* string = nullptr;
    std::vector<Listed*> many;

    void xdrSuccess(fxTranscriber& t) override {
        if (!t.isReading()) return;
        for (void* block :
             {static_cast<void*>(shorts), static_cast<void*>(integers), static_cast<void*>(doubles),
              static_cast<void*>(floats), static_cast<void*>(text), static_cast<void*>(same)}) {
            if (block != nullptr) Received::blocks().insert(block);
        }
        for (fxXDRObj* object :
             {static_cast<fxXDRObj*>(shortArray), static_cast<fxXDRObj*>(stringArray), anything}) {
            if (object != nullptr && dynamic_cast<Listed*>(object) == nullptr) {
                Received::objects().insert(object);
            }
        }
        if (string != nullptr) Received::strings().insert(string);
    }
};
FX_TRANSCRIBABLE_TYPE(Rich, "Rich", 1, First, Second);
inline fxBool Rich::xdr(fxTranscriber& t) {
    return fxXdrBase<First>(t, this) && fxXdrBase<Second>(t, this) &&
           fxXdrAll(t, flag, small, row, real, ints, bools, strings, set, dictionary) &&
           fxXdrBlock(t, shorts, count) && fxXdrBlock(t, integers, count) &&
           fxXdrBlock(t, doubles, count) && fxXdrBlock(t, floats, count) &&
           fxXdrSharedString(t, text) && fxXdrSharedString(t, same) && fxXdrObject(t, other) &&
           fxXdrObject(t, second) && fxXdrObject(t, any) && fxXdrObject(t, anything) &&
           fxXdrObject(t, shortArray) && fxXdrObject(t, stringArray) && fxXdrObject(t, string) &&
           fxXdrObjects(t, many);
}

/// Writes all that was read, so that a sanitizer sees what is not there.
inline void readAllOf(Rich& root) {
    HeldStream stream;
    const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
    fxWriteObject(*writer, &root);
}

/// The messages that a damaged stream may end with.
inline bool isDocumentedMessage(const std::string& message) {
    for (const char* start :
         {"Unknown transcriber type \"", "fxBinaryReader: unknown short ordering ",
          "fxBinaryReader: unknown long ordering ",
          "fxBinaryReader: unsupported floating point format ", "Whoops!", "unknown type ",
          "format error", "XXX bad news!", "XXX baddest news", "XXX new base for old base",
          "XXX old base previously unseen", "XXX version error handling is missing",
          "XXX error handling is missing"}) {
        if (message.compare(0, std::strlen(start), start) == 0) return true;
    }
    return false;
}

#endif
