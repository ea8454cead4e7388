// Containers whose elements are equal, ordered and counted in a program's own way.
#include <cctype>
#include <cstdio>
#include <string>

#include "fxds/fxds.h"

namespace {

fxStr lower(const void* key) {
    fxStr text = *static_cast<const fxStr*>(key);
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Names that differ in case only are one.
class Headers : public fxTypedDictionary<fxStr, fxStr> {
public:
    Headers() = default;
    ~Headers() override { cleanup(); }

protected:
    unsigned long hashKey(const void* key) const override { return lower(key).hash(); }
    int compareKeys(const void* a, const void* b) const override {
        return ::compare(lower(a), lower(b));
    }
};

// Words in the order of their lengths.
class Words : public fxTypedArray<Words, fxStr, fxOwningArray<fxStr>> {
public:
    using fxTypedArray::fxTypedArray;

    int compareElements(const void* a, const void* b) const override {
        const unsigned int lengths[] = {static_cast<const fxStr*>(a)->length(),
                                        static_cast<const fxStr*>(b)->length()};
        return lengths[0] < lengths[1] ? -1 : lengths[0] > lengths[1] ? 1 : 0;
    }
};

struct Point {
    int x, y;
};

}  // namespace

// The key of a type of its own needs no class of its own.
template <>
struct fxKeyHooks<Point> {
    static unsigned long hash(const Point& p) {
        return static_cast<unsigned long>(p.x) * 31 + static_cast<unsigned long>(p.y);
    }
    static int compare(const Point& a, const Point& b) { return a.x == b.x && a.y == b.y ? 0 : 1; }
};

int main() {
    fxInitializeToolkit();
    {
        Headers headers;
        headers["Content-Type"] = "text/plain";
        headers["content-type"] = "text/html";
        std::printf("%u header, %s\n", headers.size(), headers.find("CONTENT-TYPE")->c_str());

        Words words{"three", "a", "to"};
        words.sort();
        for (const fxStr& word : words) std::printf("%s\n", word.c_str());

        fxTypedDictionary<Point, fxStr> places;
        places[Point{1, 2}] = "here";
        std::printf("%s\n", places.value(Point{1, 2}).c_str());
    }
    fxCleanupGlobalOrderings();
}
