// One graph that has a record and a field of every kind, and its classes.
#ifndef FXDS_TESTS_RICHGRAPH_H
#define FXDS_TESTS_RICHGRAPH_H

#include <functional>
#include <map>
#include <string>
#include <tuple>

#include "fxds/BoolArray.h"
#include "fxds/LongArray.h"
#include "fxds/ShortArray.h"
#include "fxds/StrSet.h"
#include "fxds/StrStrDictionary.h"
#include "fxds/XdrTables.h"
#include "tests/support/StreamKit.h"

/// Blocks and objects that the objects of a graph point to. Who shares what is
/// up to the stream, so they are released here, each once.
struct Received {
    static std::map<const void*, std::function<void()>>& all() {
        static std::map<const void*, std::function<void()>> list;
        return list;
    }
    template <class... T>
    static void enter(T*... each) {
        (all().emplace(each, [each] { end(each); }), ...);
    }
    static void deleteAll() {
        for (const auto& [at, endIt] : all()) endIt();
        all().clear();
        Listed::deleteAll();
    }
    static void end(void* block) { std::free(block); }
    static void end(fxXDRObj* object) { delete object; }
    static void end(fxStr* string) { delete string; }
};

/// A second base, at an address of its own.
class Second : public virtual Listed {
    FX_TRANSCRIBABLE(Second)
    long own = 0;
};
TRANSCRIBED(Second, 1, Listed) { return fxXdrBase<Listed>(t, this) && fxXdr(t, own); }
class First : public virtual Listed {
    FX_TRANSCRIBABLE(First)
    fxStr label;
};
TRANSCRIBED(First, 1, Listed) { return fxXdrBase<Listed>(t, this) && fxXdr(t, label); }

/// Everything that a class without values of the standard library has.
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
    std::tuple<short*, int*, double*, float*> counted;
    char* text = nullptr;
    char* same = nullptr;
    std::tuple<Rich*, Second*, Listed*, fxXDRObj*> to;
    std::tuple<fxShortArray*, fxStrArray*, fxStr*> given;
    std::vector<Listed*> many;

    void receive() {
        const auto enter = [](auto*... each) { Received::enter(each...); };
        std::apply(enter, counted);
        std::apply(enter, given);
        enter(text, same);
        fxXDRObj* const anything = std::get<fxXDRObj*>(to);
        if (dynamic_cast<Listed*>(anything) == nullptr) enter(anything);
    }
    void xdrSuccess(fxTranscriber& t) override {
        if (t.isReading()) receive();
    }
};
TRANSCRIBED(Rich, 1, First, Second) {
    const auto blocks = [&](auto*&... each) { return (fxXdrBlock(t, each, count) && ...); };
    const auto objects = [&](auto*&... each) { return (fxXdrObject(t, each) && ...); };
    return fxXdrBase<First>(t, this) && fxXdrBase<Second>(t, this) &&
           fxXdrAll(t, flag, small, row, real, ints, bools, strings, set, dictionary) &&
           std::apply(blocks, counted) && fxXdrSharedString(t, text) &&
           fxXdrSharedString(t, same) && std::apply(objects, to) && std::apply(objects, given) &&
           fxXdrObjects(t, many);
}

enum class Colour : unsigned char { red };
enum class Far : long { away };

/// Values in values, as deep as a stream says.
struct Deep {
    std::vector<Deep> inner;
    bool xdr(fxTranscriber& t) { return fxXdr(t, inner); }
};
/// Has no bytes in a stream, and 64 KB of memory that is not touched.
struct Weightless {
    Weightless() {}  // NOLINT(cppcoreguidelines-pro-type-member-init)
    char cache[0xFFC0];
    bool xdr(fxTranscriber&) { return true; }
};

/// A value with texts, which move when its vector grows.
struct Named {
    int number = 0;
    fxStr name;
    std::vector<fxStr> aliases;
    bool xdr(fxTranscriber& t) { return fxXdrAll(t, number, name, aliases); }
    bool operator==(const Named& other) const {
        return number == other.number && name == other.name && aliases == other.aliases;
    }
};

/// Counts what it is told and asked. A reading may fail at its end.
class Ender : public fxXDRObj {
public:
    fxStr text = "text";
    int told = 0;
    static inline std::vector<const void*> asked;
    static inline const fxTypeObj* failing = nullptr;

    void xdrSuccess(fxTranscriber& t) override { told += t.isReading() && text == "text"; }
    fxBool xdrFail(fxTranscriber&, void* object) override {
        asked.push_back(object);
        return 1;
    }
    bool fields(fxTranscriber& t, const fxTypeObj& type) {
        return fxXdr(t, text) && !(t.isReading() && failing == &type);
    }
};
class Owned : public Ender {
    FX_TRANSCRIBABLE(Owned)
};
TRANSCRIBED(Owned, 1) { return fields(t, Owned_type); }
class Rented : public Ender {
    FX_TRANSCRIBABLE(Rented)
};
TRANSCRIBED(Rented, 1) { return fields(t, Rented_type); }

/// Two roots, the second of a part.
class House : public Owned, public Rented {
    FX_TRANSCRIBABLE(House)
    int allTold() const { return Owned::told + Rented::told; }
};
TRANSCRIBED(House, 1, Owned, Rented) {
    return fxXdrBase<Owned>(t, this) && fxXdrBase<Rented>(t, this);
}
/// A virtual base with tables.
class Shelf : public Listed {
    FX_TRANSCRIBABLE(Shelf)
    fxStrStrDictionary dictionary;
    fxStrSet set;
};
TRANSCRIBED(Shelf, 1, Listed) { return fxXdrBase<Listed>(t, this) && fxXdrAll(t, dictionary, set); }
/// Names it twice, as two bases would.
class Cabinet : public virtual Shelf {
    FX_TRANSCRIBABLE(Cabinet)
};
TRANSCRIBED(Cabinet, 1, Shelf) { return fxXdrBase<Shelf>(t, this) && fxXdrBase<Shelf>(t, this); }

/// Embedded, so that no list has it.
struct Inside : public fxXDRObj {
    fxStr text;
    Node* left = nullptr;
    Listed* right = nullptr;
    fxBool xdr(fxTranscriber& t) {
        return fxXdr(t, text) && fxXdrObject(t, left) && fxXdrObject(t, right);
    }
};

/// The fields that a Rich has none of.
class Everything : public Rich {
    FX_TRANSCRIBABLE(Everything)
    ~Everything() override {
        std::apply([](auto*... block) { (std::free(block), ...); }, blocks);
        std::free(own);
    }
    void xdrSuccess(fxTranscriber& t) override {
        Rich::xdrSuccess(t);
        if (!t.isReading()) return;
        ++told;
        isWhole &= t.readObject(typeRecord()) == nullptr;  // nor is the next graph read now
        isWhole &= reference == nullptr || reference->refCount != 0;
        for (const Listed* each : pointers()) isWhole &= each == nullptr || each->number != 0;
    }
    fxBool xdrFail(fxTranscriber&, void*) override { return makesDo; }
    /// How often it and its fields were told of a success, beyond what is due.
    int toldTooOften() const {
        int all = told + corner.allTold() - 3;
        for (const House& house : houses) all += house.allTold() - 2;
        return all;
    }
    auto added() {
        return std::tie(fixed, names, lists, records, maps, perhaps, longs, flags, texts, table,
                        keys, rows, optionals);
    }
    auto values() {
        const auto tie = [](auto&... each) { return std::tie(each...); };
        return std::tuple_cat(added(), std::apply(tie, numbers),
                              std::tie(flag, small, real, label, First::number, Second::own, ints,
                                       bools, strings, set, dictionary, late, lates));
    }
    std::vector<Listed*> pointers() {
        std::vector<Listed*> all = many;
        const auto& [rich, second, any, anything] = to;
        all.insert(all.end(), {rich, second, any, dynamic_cast<Listed*>(anything), child.get(),
                               reference.get()});
        for (const auto& each : children) all.push_back(each.get());
        for (const auto& each : references) all.push_back(const_cast<Listed*>(each.get()));
        for (void* each : nodes) all.push_back(static_cast<Node*>(each));
        return all;
    }
    void letGo() override {
        static_cast<void>(child.release());
        static_cast<void>(reference.release());
        for (auto& each : children) static_cast<void>(each.release());
        for (auto& each : references) static_cast<void>(each.release());
    }

    std::tuple<bool, char, signed char, unsigned char, short, unsigned short, int, unsigned int,
               long, unsigned long, long long, unsigned long long, float, double, long double,
               wchar_t, char16_t, char32_t, Colour, Far>
        numbers;
    std::pair<std::array<int, 3>, std::array<std::string, 2>> fixed;
    std::pair<fxStr, std::string> names;
    std::pair<std::vector<int>, std::vector<bool>> lists;
    std::vector<Named> records;
    std::pair<std::map<std::string, std::vector<double>>, std::unordered_map<int, fxStr>> maps;
    std::vector<std::optional<std::pair<int, fxStr>>> perhaps;
    std::array<long, 2> longs = {};
    std::array<bool, 2> flags = {};
    std::array<fxStr, 2> texts;
    fxXdrDictionary<fxStr, std::map<int, std::string>> table;
    fxXdrSet<fxStr> keys;
    std::vector<std::vector<fxStr>> rows;
    std::map<std::string, std::optional<fxStr>> optionals;
    std::unique_ptr<std::pair<long, fxStr>> value;
    Inside inner;
    House corner;
    std::vector<House> houses;
    std::unique_ptr<Everything> child;
    std::vector<std::unique_ptr<Listed>> children;
    fxRef<Listed> reference;
    std::vector<fxRef<const Listed>> references;
    fxVoidPtrArray nodes;  // of Node*
    unsigned int n = 0;
    std::tuple<char*, unsigned char*, short*, unsigned short*, int*, long*, float*, double*> blocks;
    char* own = nullptr;
    fxStr late;
    std::vector<fxStr> lates;
    int told = 0;
    bool isWhole = true;
    static inline bool (*act)(Everything& self) = nullptr;  // at the end of its fields
    static inline int local = 0;  // what is read into a variable: 1, a text, 2, a vector
    static inline bool makesDo = false;
};
TRANSCRIBED(Everything, 3, Rich) {
    const auto all = [&t](auto&... field) { return fxXdrAll(t, field...); };
    const auto owned = [&](auto&... block) { return (fxXdrBlock(t, block, n) && ...); };
    fxStr localText;
    std::vector<fxStr> localTexts;
    return fxXdrBase<Rich>(t, this) && std::apply(all, numbers) && std::apply(all, added()) &&
           all(value, inner, corner, houses, child, children, reference, references) &&
           fxXdrObjects<Node>(t, nodes) && std::apply(owned, blocks) && fxXdrString(t, own) &&
           fxXdr(t, local == 1 ? localText : late) && fxXdr(t, local == 2 ? localTexts : lates) &&
           (act == nullptr || act(*this));
}

/// Writes all that was read, so that a sanitizer sees what is not there.
inline void readAllOf(Rich& root) {
    HeldStream stream;
    const std::unique_ptr<fxTranscriber> writer(fxTranscriber::getWriter(stream));
    fxWriteObject(*writer, &root);
}

/// Whether a damaged stream may end with the message: it is in the table of the page, where N
/// stands for what the stream has.
inline bool isDocumentedMessage(const std::string& message) {
    std::ifstream page(FXDS_SOURCE_DIR "/docs/stream-format.md");
    std::string row;
    while (std::getline(page, row) && row != "| Message | Meaning |") continue;
    while (std::getline(page, row) && row[0] == '|') {
        const size_t end = std::min(row.find('N'), row.find("` |"));
        if (message.rfind(row.substr(3, end - 3), 0) == 0) return true;
    }
    return false;
}

#endif
