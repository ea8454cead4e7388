// Fields of the types of C++ and its standard library, for Xdr.h.
#ifndef FXDS_XDRVALUES_H
#define FXDS_XDRVALUES_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fxds/Transcriber.h"

// One rule of layout: a value of a type with parts is its parts, one after the other, each
// as it would be alone. A number of parts that the type does not fix comes first, as an
// unsigned int. docs/stream-format.md has the table.
//
// A claimed size costs no more than the stream has: containers grow as their elements arrive,
// those of numbers at once where the stream has all of them to come, memory is claimed by
// fxXdrClaim() where few bytes may ask for much, and values nest up to `fxXdrNesting::most`
// deep.

template <class T>
bool fxXdr(fxTranscriber& t, T& v);

/// For a scope, one more level of values in values: those of a container.
class fxXdrNesting {
public:
    fxXdrNesting(fxTranscriber& transcriber_, const void* container)
        : within(transcriber_, container), transcriber(transcriber_) {
        ++transcriber.nestingLevel();
    }
    fxXdrNesting(const fxXdrNesting&) = delete;
    fxXdrNesting& operator=(const fxXdrNesting&) = delete;
    ~fxXdrNesting() { --transcriber.nestingLevel(); }
    /// False when there are too many for the stack, which is refused.
    explicit operator bool() const {
        return transcriber.nestingLevel() <= most ||
               transcriber.refuse("values in values more than 500 deep");
    }

    static constexpr unsigned int most = 500;  ///< Levels.

private:
    const fxXdrWithin within;
    fxTranscriber& transcriber;
};

/// Whether numbers of type T travel by an operation of their own type.
template <class T>
inline constexpr bool fxXdrIsPlain =
    std::is_same_v<T, char> || std::is_same_v<T, unsigned char> || std::is_same_v<T, short> ||
    std::is_same_v<T, unsigned short> || std::is_same_v<T, long> ||
    std::is_same_v<T, unsigned long> || std::is_same_v<T, float> || std::is_same_v<T, double>;

/// The type whose operation numbers of type T travel by otherwise.
template <class T>
using fxXdrWire =
    std::conditional_t<sizeof(T) == 1, unsigned char,
                       std::conditional_t<sizeof(T) == 2, unsigned short, unsigned long>>;

/// Numbers that lie side by side, each as it would be alone: an integer of 4
/// bytes is followed by 4 zero bytes.
template <class T>
bool fxXdrRun(fxTranscriber& t, T* values, size_t count) {
    static_assert(std::is_arithmetic_v<T> && sizeof(T) <= sizeof(long));
    if constexpr (fxXdrIsPlain<T>) {
        return t.xdr(values, static_cast<unsigned int>(count));
    } else {
        constexpr size_t step = 256;
        fxXdrWire<T> wire[step];
        for (size_t done = 0; done < count;) {
            const size_t n = std::min(step, count - done);
            for (size_t i = 0; i < n && !t.isReading(); ++i) {
                wire[i] = 0;
                std::memcpy(&wire[i], &values[done + i], sizeof(T));
            }
            if (!t.xdr(wire, static_cast<unsigned int>(n))) return false;
            for (size_t i = 0; i < n && t.isReading(); ++i) {
                std::memcpy(&values[done + i], &wire[i], sizeof(T));
            }
            done += n;
        }
        return true;
    }
}

/// Whether a run of them can be moved as bytes without loss of speed.
template <class T>
inline constexpr bool fxXdrIsRun =
    std::is_arithmetic_v<T> && !std::is_same_v<T, bool> && sizeof(T) <= sizeof(long);

/// A single number. One that cannot be read leaves the field as it is. A long
/// double travels as two doubles that add up to it; one beyond their range is
/// refused.
template <class T>
bool fxXdrNumber(fxTranscriber& t, T& v) {
    if constexpr (std::is_same_v<T, bool>) {
        unsigned char byte = v;
        if (!t.xdr(&byte, 1)) return false;
        v = byte != 0;
        return true;
    } else if constexpr (sizeof(T) > sizeof(long)) {
        static_assert(std::is_same_v<T, long double>);
        double parts[2] = {static_cast<double>(v), 0};
        if (std::isfinite(parts[0])) parts[1] = static_cast<double>(v - parts[0]);
        const T sum = static_cast<T>(parts[0]) + parts[1];
        if (!t.isReading() && !std::isnan(v) && sum != v) {
            return t.refuse("a long double beyond the range of a double");
        }
        if (!t.xdr(parts, 2)) return false;
        if (t.isReading()) v = static_cast<T>(parts[0]) + parts[1];
        return true;
    } else if constexpr (std::is_same_v<T, int> || std::is_same_v<T, unsigned int>) {
        return t.takeReady(v) || t.xdr(&v, 1);
    } else if constexpr (sizeof(T) == sizeof(int) && !std::is_floating_point_v<T>) {
        return fxXdrRun(t, &v, 1);
    } else {
        if (t.takeReady(v)) return true;
        T number = v;  // a reader may fail in its middle
        if (!fxXdrRun(t, &number, 1)) return false;
        if (t.isReading()) v = number;
        return true;
    }
}

/// How a type of the standard library travels; `isKnown` for those that do.
template <class T>
struct fxXdrStd {
    static constexpr bool isKnown = false;
};

/// Whether a T is complete as soon as it is read, so that it can be a key: pointers and
/// texts of fxStr arrive when the graph is complete.
template <class T>
inline constexpr bool fxXdrIsWhole = std::is_arithmetic_v<T> || std::is_enum_v<T>;
template <>
inline constexpr bool fxXdrIsWhole<std::string> = true;
template <class A, class B>
inline constexpr bool fxXdrIsWhole<std::pair<A, B>> = fxXdrIsWhole<A>&& fxXdrIsWhole<B>;
template <class T, size_t count>
inline constexpr bool fxXdrIsWhole<std::array<T, count>> = fxXdrIsWhole<T>;
template <class T, class A>
inline constexpr bool fxXdrIsWhole<std::vector<T, A>> = fxXdrIsWhole<T>;
template <class T>
inline constexpr bool fxXdrIsWhole<std::optional<T>> = fxXdrIsWhole<T>;

/// Whether the elements lie side by side.
template <class T>
inline constexpr bool fxXdrIsVector = false;
template <class T, class A>
inline constexpr bool fxXdrIsVector<std::vector<T, A>> = true;

/// The number of elements, which comes before them. False when there are too
/// many to be counted, which is refused.
inline bool fxXdrCount(fxTranscriber& t, size_t size, unsigned int& count) {
    count = static_cast<unsigned int>(size);
    if (count != size) return t.refuse("more than 4294967295 elements");
    return t.xdr(&count, 1);
}

/// Elements of numbers: a string or a vector of them.
template <class Numbers>
bool fxXdrNumbers(fxTranscriber& t, Numbers& numbers) {
    constexpr size_t piece = size_t{1} << 16;
    unsigned int count = 0;
    if (!fxXdrCount(t, numbers.size(), count)) return false;
    if (!t.isReading()) return fxXdrRun(t, numbers.data(), count);
    numbers.clear();
    if (t.hasToCome(count * sizeof(numbers[0]))) numbers.reserve(count);
    while (numbers.size() < count) {
        const size_t have = numbers.size();
        const size_t n = std::min(piece, count - have);
        numbers.resize(have + n);
        if (fxXdrRun(t, &numbers[have], n)) continue;
        numbers.clear();
        return false;
    }
    return true;
}

template <class Traits, class A>
struct fxXdrStd<std::basic_string<char, Traits, A>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::basic_string<char, Traits, A>& v) {
        return fxXdrNumbers(t, v);
    }
};

/// Appends to the vector, and informs the reader when the elements move.
template <class T, class A>
void fxXdrAppend(fxTranscriber& t, std::vector<T, A>& v) {
    constexpr size_t first = 1 + 256 / sizeof(T);  // a vector of vectors may have many of one
    if (v.size() == v.capacity()) {
        std::vector<T, A> roomier;
        roomier.reserve(2 * v.size() + first);
        for (T& element : v) roomier.push_back(std::move(element));
        t.placesMoved(v.data(), v.size() * sizeof(T), roomier.data());
        v.swap(roomier);
    }
    v.emplace_back();
}

/// Of a container: elements side by side go by the address of the first, others
/// each by its own.
template <class Parts>
size_t fxXdrPrint(const void* container) {
    const Parts& parts = *static_cast<const Parts*>(container);
    size_t all = 0;
    if constexpr (fxXdrIsVector<Parts>) {
        all = reinterpret_cast<size_t>(parts.data());
    } else {
        for (const auto& part : parts) all += fxTranscriber::printOf(&part, 1);
    }
    return fxTranscriber::printOf(nullptr, all + parts.size());
}

/// Whether all of a T arrives when the graph is complete.
template <class T>
inline constexpr bool fxXdrIsLate = std::is_pointer_v<T> || std::is_same_v<T, fxStr>;

/// Of a container: empties it if all its elements are such.
template <class Parts, class T>
inline constexpr auto fxXdrEmpty = fxXdrIsLate<T>
                                       ? +[](void* parts) { static_cast<Parts*>(parts)->clear(); }
                                       : nullptr;

/// Parts of any kind, as many as come first: `write()` writes those that are in
/// `v`, `readOne()` appends one that it reads. They are in `container`.
template <class Parts, class Write, class ReadOne>
bool fxXdrParts(fxTranscriber& t, Parts& v, Write write, ReadOne readOne, void* container,
                const fxTranscriber::Container& kind) {
    unsigned int count = 0;
    const fxXdrNesting nesting(t, container);
    if (!nesting || !fxXdrCount(t, v.size(), count)) return false;
    if (!t.isReading()) return std::all_of(v.begin(), v.end(), write);
    v.clear();
    const bool isRead = t.attempt(container, kind, [&] {
        for (unsigned int i = 0; i < count; ++i) {
            if (!readOne()) return false;
        }
        return true;
    });
    if (!isRead) v.clear();
    return isRead;
}
/// The same of parts that are their own container.
template <class Parts, class Write, class ReadOne>
bool fxXdrParts(fxTranscriber& t, Parts& v, Write write, ReadOne readOne) {
    static constexpr fxTranscriber::Container kind = {
        fxXdrPrint<Parts>, fxXdrEmpty<Parts, typename Parts::value_type>};
    return fxXdrParts(t, v, write, readOne, &v, kind);
}

/// A number of bytes that each T has in the stream at least. Those of a class of the program
/// may have none.
template <class T>
inline constexpr size_t fxXdrLeast = std::is_arithmetic_v<T> || std::is_enum_v<T>
                                         ? sizeof(T)
                                         : size_t{fxXdrStd<T>::isKnown || fxXdrIsLate<T>};
template <class A, class B>
inline constexpr size_t fxXdrLeast<std::pair<A, B>> = fxXdrLeast<A> + fxXdrLeast<B>;
template <class T, size_t count>
inline constexpr size_t fxXdrLeast<std::array<T, count>> = count* fxXdrLeast<T>;

/// Requests the memory of a T that the stream is about to have made, with `more` bytes
/// beside its own, unless that is in proportion to them in any case. Each T counts for 64
/// bytes more than its size: for the node that it is in, and the time that it takes.
template <class T, size_t more = 0>
bool fxXdrClaim(fxTranscriber& t) {
    constexpr size_t memory = sizeof(T) + 64;
    constexpr bool isSmall = memory <= fxTranscriber::memoryOfByte * (fxXdrLeast<T> + more);
    return isSmall || t.claimMemory(memory);
}

template <class T, class A>
struct fxXdrStd<std::vector<T, A>> {
    static_assert(!std::is_empty_v<T>, "elements without content cannot be counted");
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::vector<T, A>& v) {
        if constexpr (fxXdrIsRun<T>) {
            return fxXdrNumbers(t, v);
        } else {
            return fxXdrParts(
                t, v, [&t](T& element) { return fxXdrClaim<T>(t) && fxXdr(t, element); },
                [&] {
                    if (!fxXdrClaim<T>(t)) return false;
                    fxXdrAppend(t, v);
                    return fxXdr(t, v.back());
                });
        }
    }
};

/// One byte for each.
template <class A>
struct fxXdrStd<std::vector<bool, A>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::vector<bool, A>& v) {
        std::basic_string<char> bytes(v.begin(), v.end());
        if (!fxXdrNumbers(t, bytes)) return false;
        if (t.isReading()) v.assign(bytes.begin(), bytes.end());
        return true;
    }
};

template <class T, size_t count>
struct fxXdrStd<std::array<T, count>> {
    static_assert(count > 0, "an array without elements has nothing to transcribe");
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::array<T, count>& v) {
        if constexpr (fxXdrIsRun<T>) return fxXdrRun(t, v.data(), count);
        return std::all_of(v.begin(), v.end(), [&t](T& element) { return fxXdr(t, element); });
    }
};

template <class A, class B>
struct fxXdrStd<std::pair<A, B>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::pair<A, B>& v) {
        return fxXdr(t, v.first) && fxXdr(t, v.second);
    }
};

template <class T>
struct fxXdrStd<std::optional<T>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::optional<T>& v) {
        bool isThere = v.has_value();
        if (!fxXdrNumber(t, isThere)) return false;
        if (t.isReading()) {
            v.reset();
            if (isThere) v.emplace();
        }
        static constexpr fxTranscriber::Container kind = {
            [](const void* field) {
                return size_t{static_cast<const std::optional<T>*>(field)->has_value()};
            },
            nullptr};
        return !isThere || t.attempt(&v, kind, [&] { return fxXdr(t, *v); });
    }
};

/// Entries in the order of the map. A key that comes twice is refused.
template <class Map>
bool fxXdrEntries(fxTranscriber& t, Map& v) {
    typedef typename Map::key_type Key;
    typedef std::pair<Key, typename Map::mapped_type> Entry;
    static_assert(fxXdrIsWhole<Key>,
                  "a key must be whole when it is read: a number, an enumeration, a std::string, "
                  "or made of these");
    return fxXdrParts(
        t, v,
        [&t](auto& entry) {
            return fxXdrClaim<Entry>(t) && fxXdr(t, const_cast<Key&>(entry.first)) &&
                   fxXdr(t, entry.second);
        },
        [&] {
            Key key{};
            if (!fxXdrClaim<Entry>(t) || !fxXdr(t, key)) return false;
            const auto made = v.try_emplace(std::move(key));
            return made.second && fxXdr(t, made.first->second);
        });
}

template <class Key, class T, class Less, class A>
struct fxXdrStd<std::map<Key, T, Less, A>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::map<Key, T, Less, A>& v) { return fxXdrEntries(t, v); }
};

template <class Key, class T, class Hash, class Equal, class A>
struct fxXdrStd<std::unordered_map<Key, T, Hash, Equal, A>> {
    static constexpr bool isKnown = true;
    static bool xdr(fxTranscriber& t, std::unordered_map<Key, T, Hash, Equal, A>& v) {
        return fxXdrEntries(t, v);
    }
};

/// Whether T is one of the templates or classes of the standard library with these
/// names. By name, so that their headers need not be included.
template <class T>
constexpr bool fxXdrIsNamed(std::initializer_list<std::string_view> names) {
    constexpr std::string_view parameter = "T = std::";
    std::string_view name = __PRETTY_FUNCTION__;
    if (name.find(parameter) == std::string_view::npos) return false;
    name.remove_prefix(name.find(parameter) + parameter.size());
    if (name.substr(0, 2) == "__" && name.find("::") < name.find('<')) {  // an inline namespace
        name.remove_prefix(name.find("::") + 2);
    }
    for (const std::string_view each : names) {
        if (name.substr(0, each.size()) == each) return true;
    }
    return false;
}

/// Fails to compile, and names the alternative to a field of type T, which cannot be
/// transcribed.
template <class T>
bool fxXdrRefuse() {
    constexpr bool isSet =
        fxXdrIsNamed<T>({"set<", "multiset<", "unordered_set<", "unordered_multiset<"});
    constexpr bool isMulti = fxXdrIsNamed<T>({"multimap<", "unordered_multimap<"});
    constexpr bool isList = fxXdrIsNamed<T>({"list<", "deque<", "forward_list<", "queue<", "stack<",
                                             "priority_queue<", "basic_string<"});
    constexpr bool isView = fxXdrIsNamed<T>({"basic_string_view<", "span<", "reference_wrapper<"});
    constexpr bool isPointer = fxXdrIsNamed<T>({"shared_ptr<", "weak_ptr<", "unique_ptr<"});
    constexpr bool isSum = fxXdrIsNamed<T>({"tuple<", "variant<", "any"});
    constexpr bool isTime = fxXdrIsNamed<T>({"chrono::"});
    constexpr bool isPath = fxXdrIsNamed<T>({"filesystem::"});
    constexpr bool isBlock = std::is_pointer_v<T> && std::is_arithmetic_v<std::remove_pointer_t<T>>;
    static_assert(!std::is_pointer_v<T> || isBlock,
                  "a pointer to an object travels by fxXdrObject(), a vector of such pointers by "
                  "fxXdrObjects()");
    static_assert(!isBlock,
                  "a text held by pointer travels by fxXdrString(), a block of numbers by "
                  "fxXdrBlock()");
    static_assert(!isSet, "a set travels as an fxXdrSet, or as a std::vector of its keys");
    static_assert(!isMulti, "keys that may come twice travel as a std::vector of std::pair");
    static_assert(!isList,
                  "a sequence travels as a std::vector, text as a std::string or an fxStr");
    static_assert(!isView,
                  "a view owns nothing that could be read: take a std::string or a std::vector");
    static_assert(!isPointer,
                  "an object with several holders travels by fxRef, with a single one by "
                  "std::unique_ptr with its usual deleter, an array as a std::vector");
    static_assert(!isSum,
                  "a tuple or variant travels as a struct of its parts, with an fxXdr() beside it");
    static_assert(!isTime, "a time travels as a number: the count() of its duration, in a long");
    static_assert(!isPath, "a path travels as its text: take a std::string");
    static_assert(std::is_pointer_v<T> || isSet || isMulti || isList || isView || isPointer ||
                      isSum || isTime || isPath,
                  "fields of this type need an fxXdr() beside the type");
    return false;
}

#endif
