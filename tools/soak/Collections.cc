#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Torturer.h"

// Ready-made collections whose subclasses override every hook. Those that start or
// end a life look at what is there, act, and throw where they may.

namespace soak {

namespace {

std::string folded(const void* text) {
    std::string lower(static_cast<const fxStr*>(text)->view());
    for (char& c : lower) c = static_cast<char>(std::tolower(c));
    return lower;
}

// One of few names, half of which are alike in all that a hash sees.
fxStr name() {
    static const char* const patterns[] = {"k%d", "K%d", "a/long/common/beginning/%d",
                                           "A/long/COMMON/beginning/%d"};
    const long number = torturer->below(24);
    return fxStr(static_cast<int>(number), patterns[number % 2 * 2 + torturer->below(2)]);
}

// Where the keys and values of tables live. Each place is started once and ended once.
std::set<const void*> lives;

void start(const void* place) {
    ++alive;
    if (!lives.insert(place).second) torturer->fail("a life was started twice");
}

void stop(const void* place) {
    --alive;
    if (lives.erase(place) == 0) torturer->fail("a life was ended twice");
}

// What a table of texts holds, which are equal whatever their case. Known from its
// hooks, each of which changes it where the table does: an entry is there once it is
// complete, and one whose value is being replaced has none.
struct Entry {
    const void* key;
    long age;  // the newest has the greatest
    std::string value;
    bool hasValue;
};

typedef std::map<std::string, std::string> Contents;

template <class Base>
class Folding : public Base {
public:
    static constexpr bool hasValues = std::is_base_of_v<fxDictionary, Base>;

    Folding(unsigned int chains, bool isFast_) : Base(chains), isFast(isFast_) {}
    Folding(const Folding& other) : Base(other), isFast(other.isFast) {}
    Folding& operator=(const Folding& other) {  // merges or assigns
        Base::operator=(other);
        return *this;
    }
    ~Folding() override { clear(); }

    void clear() {
        const Uncertain whileClearing(*this);
        this->cleanup();
    }
    void check() const {
        if (uncertain != 0) return;
        if (torturer->below(4) == 0) checkOrder();
        if (this->size() != entries.size()) torturer->fail("a table has another size");
        const fxStr key = name();
        const auto found = entries.find(folded(&key));
        const bool isThere = found != entries.end() && found->second.hasValue;
        const void* const real = Base::find(key);
        if ((real != nullptr) != isThere) torturer->fail("a table finds too much or too little");
        if constexpr (hasValues) {
            if (isThere && *Base::find(key) != fxStr(found->second.value)) {
                torturer->fail("a table has another value");
            }
        }
    }
    // Takes the table's word for what it holds.
    void learn() const {
        entries.clear();
        for (auto i = const_cast<Folding&>(*this).begin(); i.notDone(); ++i) {
            if (i.getKey() == nullptr) continue;
            Entry entry = {i.getKey(), -static_cast<long>(entries.size()), "", true};
            if constexpr (hasValues) entry.value = i.value().c_str();
            if (!entries.insert({folded(i.getKey()), entry}).second) {
                torturer->fail("a table has a key twice");
            }
        }
    }
    Contents contents() const {
        Contents all;
        for (const auto& [key, entry] : entries) {
            if (entry.hasValue) all[key] = entry.value;
        }
        return all;
    }
    std::optional<Entry> forget(const fxStr& key) {
        const auto found = entries.find(folded(&key));
        if (found == entries.end()) return std::nullopt;
        const Entry entry = found->second;
        entries.erase(found);
        return entry;
    }
    void restore(const fxStr& key, const Entry& entry) { entries[folded(&key)] = entry; }
    bool isUncertain() const { return uncertain != 0; }

    // While one lives, the model does not follow.
    struct Uncertain {
        explicit Uncertain(const Folding& table_) : table(table_) { ++table.uncertain; }
        ~Uncertain() {
            --table.uncertain;
            table.learn();
        }
        const Folding& table;
    };
    // An operation; `copies` when it is a copy that is made with these hooks.
    struct Use {
        explicit Use(const Folding& table_, bool copies)
            : table(table_), isCopied(std::exchange(table_.isCopied, copies)) {
            ++table.useCount;
        }
        ~Use() {
            --table.useCount;
            table.isCopied = isCopied;
        }
        const Folding& table;
        const bool isCopied;
    };
    bool isInUse() const { return useCount != 0; }

protected:
    unsigned long hashKey(const void* key) const override { return fxStr(folded(key)).hash(); }
    int compareKeys(const void* a, const void* b) const override {
        const int order = folded(a).compare(folded(b));
        if (isFast && order != 0) torturer->fail("keys were compared that cannot be equal");
        return order;
    }
    unsigned long fingerprintKey(const void* key, unsigned long hash) const override {
        return isFast ? fxKeyHooks<fxStr>::fingerprint(fxStr(folded(key)), hash) : hash;
    }
    // A table asks for a key only where it has none that is equal.
    void copyKey(const void* from, void* to) const override {
        if (!isCopied) entries.erase(folded(from));
        act(true);
        Base::copyKey(from, to);
        start(to);
        if (isCopied) return;
        if (hasValues) fresh.insert(to);
        if (!hasValues) entries.insert({folded(to), entered(to)});
    }
    void destroyKey(void* key) const override {
        const auto found = entries.find(folded(key));
        if (found != entries.end() && found->second.key == key && uncertain == 0) {
            torturer->fail("an entry ended in its table");
        }
        fresh.erase(key);
        Base::destroyKey(key);
        stop(key);
        act(false);
    }
    // An entry is older than those before it in its chain.
    void checkOrder() const {
        std::pair<unsigned long, long> last(0, std::numeric_limits<long>::min());
        size_t met = 0;
        for (auto i = const_cast<Folding&>(*this).begin(); i.notDone(); ++i, ++met) {
            const auto entry = entries.find(folded(i.getKey()));
            const bool isKnown = entry != entries.end() && entry->second.key == i.getKey();
            const std::pair<unsigned long, long> here(hashKey(i.getKey()) % this->buckets.length(),
                                                      isKnown ? -entry->second.age : 0);
            if (!isKnown || here <= last) torturer->fail("a table is in another order");
            last = here;
        }
        if (met != entries.size()) torturer->fail("a walk misses entries");
    }
    Entry entered(const void* key) const { return {key, ++additions, "", true}; }
    void act(bool mayThrow) const {
        check();
        torturer->act();
        check();
        if (mayThrow) torturer->maybeThrow();
    }

    mutable std::map<std::string, Entry> entries;
    mutable std::set<const void*> fresh;  // keys that wait for their first values
    mutable long additions = 0;
    mutable int uncertain = 0;
    mutable int useCount = 0;
    mutable bool isCopied = false;

private:
    const bool isFast;
};

class Dictionary : public Folding<fxStrStrDictionary> {
public:
    using Folding::Folding;
    ~Dictionary() override { clear(); }
    const void* keyOf(const void* value) const { return static_cast<const char*>(value) - keySize; }

protected:
    void copyValue(const void* from, void* to) const override {
        try {
            act(true);
        } catch (const Thrown&) {
            if (entryOf(to) != nullptr) entries.erase(folded(keyOf(to)));
            throw;
        }
        Folding::copyValue(from, to);
        start(to);
        if (isCopied) return;
        if (fresh.erase(keyOf(to)) != 0) entries[folded(keyOf(to))] = entered(keyOf(to));
        Entry* const entry = entryOf(to);
        if (entry == nullptr) return;  // it was removed meanwhile
        entry->value = static_cast<const fxStr*>(to)->c_str();
        entry->hasValue = true;
    }
    void createValue(void* to) const override {
        act(true);
        Folding::createValue(to);
        start(to);
        fresh.erase(keyOf(to));
        entries.insert({folded(keyOf(to)), entered(keyOf(to))});
    }
    // A key ends before its value: one that is alive is to have another.
    void destroyValue(void* value) const override {
        if (lives.count(keyOf(value)) != 0) {
            Entry* const entry = entryOf(value);
            if (entry == nullptr && uncertain == 0) torturer->fail("a value ended early");
            if (entry != nullptr) entry->hasValue = false;
        }
        Folding::destroyValue(value);
        stop(value);
        act(false);
    }

private:
    Entry* entryOf(const void* value) const {
        const auto found = entries.find(folded(keyOf(value)));
        if (found == entries.end() || found->second.key != keyOf(value)) return nullptr;
        return &found->second;
    }
};

typedef Folding<fxStrSet> Set;

// Owns numbers, which are equal whatever their sign. A hook must leave its array
// alone, so what is done to one from within is done to the others.
class Numbers : public fxVoidPtrArray {
public:
    Numbers() { ownsElements = true; }
    Numbers(const Numbers& other) : fxVoidPtrArray(other) {}
    Numbers& operator=(const Numbers& other) {
        fxVoidPtrArray::operator=(other);
        return *this;
    }
    ~Numbers() override { resize(0); }

    void createElements(void* at, unsigned int byteCount) override {
        actAndThrow();
        for (unsigned int i = 0; i < byteCount / itemBytes; ++i) numbers(at)[i] = made(0);
    }
    void copyElements(const void* from, void* to, unsigned int byteCount) const override {
        actAndThrow();
        long* const* const originals = static_cast<long* const*>(from);
        for (unsigned int i = 0; i < byteCount / itemBytes; ++i) {
            numbers(to)[i] = made(*originals[i]);
        }
    }
    void destroyElements(void* at, unsigned int byteCount) override {
        for (unsigned int i = 0; i < byteCount / itemBytes; ++i) end(numbers(at)[i]);
        torturer->act();
    }
    int compareElements(const void* a, const void* b) const override {
        return static_cast<int>(size(a) - size(b));
    }
    static long size(const void* element) { return std::abs(**static_cast<long* const*>(element)); }
    // For elements that another class holds by now.
    static void endAll(const fxVoidPtrArray& elements) {
        for (void* element : elements) end(static_cast<long*>(element));
    }
    bool holds(const std::vector<long>& expected) const {
        return std::equal(begin(), end(), expected.begin(), expected.end(),
                          [](void* a, long b) { return *static_cast<long*>(a) == b; });
    }

    bool isInUse = false;
    std::vector<long> model;

private:
    using fxVoidPtrArray::end;
    static long** numbers(void* at) { return static_cast<long**>(at); }
    static long* made(long value) {
        ++alive;
        return new long(value);
    }
    static void end(const long* number) {
        --alive;
        delete number;
    }
    static void actAndThrow() {
        torturer->act();
        torturer->maybeThrow();
    }
};

// Copies `table` and, if no hook has changed it, compares.
template <class Table>
void copy(const Table& table) {
    const typename Table::Use use(table, true);
    const unsigned long before = torturer->getActions();
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it is what is tested
    Table made(table);
    made.learn();
    if (torturer->getActions() != before || table.isUncertain()) return;
    if (made.contents() != table.contents()) torturer->fail("another copy");
}

// Removes entries that iterators are on.
template <class Table>
void removeSome(Table& table) {
    for (auto i = table.begin(); i.notDone(); ++i) {
        if (i.getKey() == nullptr || torturer->below(4) != 0) continue;
        table.forget(i.key());
        table.remove(i.key());
    }
}

void cut(Dictionary& table, const fxStr& key) {
    const std::optional<Entry> before = table.forget(key);
    const bool hadValue = before && before->hasValue;
    const void* const place = table.find(key);
    fxStr* const value = table.cut(key);
    if (value == nullptr) {  // perhaps one that an addition under way is to enter
        if (hadValue && !torturer->isNested()) torturer->fail("a value was not cut");
        if (before) table.restore(key, *before);
        return;
    }
    stop(place);
    if (!table.isUncertain() && (!hadValue || *value != fxStr(before->value))) {
        torturer->fail("another value was cut");
    }
    value->~fxStr();
    std::free(value);
}

// A table takes the place of one that is cleared, while nothing is under way in that.
template <class Table>
void renew(std::unique_ptr<Table>& table) {
    static const unsigned int chains[] = {1, 2, 7, 31};
    if (table != nullptr) {
        const typename Table::Use use(*table, false);
        table->clear();
        if (table->begin().notDone()) torturer->fail("a table that is cleared has entries");
    }
    table = std::make_unique<Table>(chains[torturer->below(4)], torturer->below(2) == 0);
}

void change(Dictionary& table, Dictionary& other, long kind) {
    const fxStr key = name();
    const fxStr second = name();
    const fxStr value(static_cast<int>(torturer->below(1000)), "value %d");
    if (kind < 5) return table.add(key, value);
    if (kind < 7) {
        if (const fxStr* const stored = table.find(second)) table.add(key, *stored);
    } else if (kind < 9) {
        table.forget(key);
        table.remove(key);
    } else if (kind < 11) {
        cut(table, key);
    } else if (kind < 13) {
        table[key];
    } else if (kind < 14) {
        copy(table);
    } else if (kind < 15) {
        table = other;
    } else {
        removeSome(table);
    }
}

void change(Set& table, Set& other, long kind) {
    const fxStr key = name();
    if (kind < 7) return table.add(key);
    if (kind < 10) {
        table.forget(key);
        table.remove(key);
    } else if (kind < 11) {
        copy(table);
    } else if (kind < 12) {
        table |= other;
    } else if (kind < 15) {
        const Contents mine = table.contents();
        const Contents others = other.contents();
        const unsigned long before = torturer->getActions();
        const bool isCertain = !table.isUncertain() && !other.isUncertain();
        {
            const Set::Uncertain whileSeveralGo(table);
            if (kind == 12) table = other;
            if (kind == 13) table &= other;
            if (kind == 14) table -= other;
        }
        Contents expected = kind == 12 ? others : Contents();
        for (const auto& one : mine) {
            if (kind > 12 && (others.count(one.first) != 0) == (kind == 13)) expected.insert(one);
        }
        if (torturer->getActions() != before || !isCertain) return;
        if (table.contents() != expected) torturer->fail("other keys are left");
    } else {
        removeSome(table);
    }
}

// What a change of an array must come to.
void change(Numbers& array, const Numbers& other, long kind, std::vector<long>& model) {
    const long from = torturer->below(model.size() + 1);
    const long count = torturer->below(model.size() - static_cast<size_t>(from) + 1);
    const auto place = static_cast<unsigned int>(from);
    const auto run = static_cast<unsigned int>(count);
    const auto at = model.begin() + from;
    long item = torturer->below(20) - 10;
    if (kind < 3) {
        model.push_back(item);
        array.append(&item);
    } else if (kind < 5 && at != model.end()) {
        model.insert(model.begin(), *at);
        array.insert(array[place], 0);
    } else if (kind < 7) {
        model.insert(model.end(), array.model.begin(), array.model.end());
        array.append(array);
    } else if (kind < 9) {
        model.erase(at, at + count);
        Numbers::endAll(array.cut(place, run));
    } else if (kind < 10) {
        model.resize(model.size() + 3);
        array.resize(array.length() + 3);
    } else if (kind < 11) {
        std::stable_sort(model.begin(), model.end(),
                         [](long a, long b) { return std::abs(a) < std::abs(b); });
        array.sort();
    } else if (kind < 12) {
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): it is what is tested
        const Numbers copied(array);
        if (!copied.holds(model)) torturer->fail("another copy");
        Numbers::endAll(copied.extract(place, run));
    } else {
        model = other.model;
        array = other;
    }
}

}  // namespace

struct Collections {
    std::unique_ptr<Dictionary> dictionaries[2];
    std::unique_ptr<Set> sets[2];
    Numbers arrays[3];
};

std::shared_ptr<Collections> Torturer::makeCollections() {
    auto made = std::make_shared<Collections>();
    for (auto& table : made->dictionaries) renew(table);
    for (auto& table : made->sets) renew(table);
    return made;
}

void Torturer::act() {
    if (!report.empty() || chance(60) || stack.size() >= deepest || reactionsLeft == 0) return;
    ++actions;
    --reactionsLeft;
    chance(50) ? changeCollection() : step();
}

template <class Table>
void Torturer::changeTables(std::unique_ptr<Table> (&tables)[2]) {
    auto& table = tables[below(2)];
    Activity nothing(model);
    const long kind = below(17);
    note("change a table: kind, entries", kind, table->size());
    if (kind == 16) {
        if (!table->isInUse() && chance(20)) during(nothing, [&] { renew(table); });
        return;
    }
    auto& other = *tables[below(2)];
    const typename Table::Use use(*table, false);
    const typename Table::Use source(other, false);
    during(nothing, [&] { change(*table, other, kind); });
    table->check();
}

void Torturer::changeCollection() {
    const long kind = below(3);
    if (kind == 0) return changeTables(collections->dictionaries);
    if (kind == 1) return changeTables(collections->sets);
    Numbers& array = collections->arrays[below(3)];
    Numbers& other = collections->arrays[below(3)];
    if (array.isInUse || other.isInUse) return;
    const long change = array.length() < 30 ? below(13) : 8;
    note("change an array: kind, length", change, array.length());
    std::vector<long> after = array.model;
    bool isDone = false;
    Activity nothing(model);
    array.isInUse = other.isInUse = true;
    during(nothing, [&] {
        soak::change(array, other, change, after);
        isDone = true;
    });
    array.isInUse = other.isInUse = false;
    if (isDone) array.model = after;
    if (!isDone && change == 12) array.model.clear();
    if (!array.holds(array.model)) fail("an array holds other numbers");
}

void Torturer::endCollections() {
    Activity nothing(model);
    during(nothing, [&] {
        for (auto& table : collections->dictionaries) renew(table);
        for (auto& table : collections->sets) renew(table);
        for (Numbers& array : collections->arrays) {
            array.isInUse = true;
            array.resize(0);
            array.model.clear();
            array.isInUse = false;
        }
    });
    reactionsLeft = 0;  // what was added meanwhile ends quietly
    collections.reset();
}

}  // namespace soak
