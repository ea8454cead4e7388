// The most obvious dictionary or set with chains, and walks over it, to compare
// the real ones with.
#ifndef FXDS_TESTS_HASHMODEL_H
#define FXDS_TESTS_HASHMODEL_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "fxds/Str.h"
#include "tests/support/MemoryTranscriber.h"
#include "tests/support/TestSeed.h"

inline fxStr toStr(const std::string& text) {
    return fxStr(text.data(), static_cast<unsigned int>(text.size()));
}

/// Chains of (key, value), newest first; keys are equal when strcmp() says so.
struct ChainModel {
    typedef std::pair<std::string, std::string> Entry;
    typedef std::list<Entry> Chain;

    explicit ChainModel(unsigned int count) : chains(count) {}

    Chain& chainOf(const std::string& key) { return chains[toStr(key).hash() % chains.size()]; }
    Entry* find(const std::string& key) {
        for (Entry& entry : chainOf(key)) {
            if (std::strcmp(entry.first.c_str(), key.c_str()) == 0) return &entry;
        }
        return nullptr;
    }
    void add(const std::string& key, const std::string& value) {
        Entry* const entry = find(key);
        if (entry != nullptr) {
            entry->second = value;
        } else {
            chainOf(key).emplace_front(key, value);
        }
    }
    void remove(const std::string& key) {
        Chain& chain = chainOf(key);
        for (auto i = chain.begin(); i != chain.end(); ++i) {
            if (std::strcmp(i->first.c_str(), key.c_str()) != 0) continue;
            chain.erase(i);
            return;
        }
    }
    void reverse() {
        for (Chain& chain : chains) chain.reverse();
    }
    std::vector<Entry> list() const {
        std::vector<Entry> entries;
        for (const Chain& chain : chains) entries.insert(entries.end(), chain.begin(), chain.end());
        return entries;
    }
    /// The key of the entry after that of `key`, or "" at the end.
    std::string after(const std::string& key) const {
        const std::vector<Entry> entries = list();
        for (size_t i = 0; i + 1 < entries.size(); ++i) {
            if (entries[i].first == key) return entries[i + 1].first;
        }
        return "";
    }

    std::vector<Chain> chains;
};

/// Short and long keys, many that share the bytes which the hash sees, and some
/// with zero bytes inside.
inline std::string randomKey(std::mt19937& rng, unsigned int range) {
    const std::string number = std::to_string(rng() % range);
    switch (rng() % 5) {
        case 0:
            return "k" + number;
        case 1:
            return "element-" + number;
        case 2:
            return "/a/common/long/prefix/" + number;
        case 3:
            return std::string("z\0", 2) + number;
        default:
            return number;
    }
}

/// A walk as it should go: `key` is where it stands, "" at the end.
struct WalkModel {
    std::string key;
    bool moved = false;

    void step(const ChainModel& model) {
        if (key.empty()) return;
        if (moved) {
            moved = false;
        } else {
            key = model.after(key);
            moved = key.empty();
        }
    }
    void beforeRemoval(const ChainModel& model, const std::string& removed) {
        if (key.empty() || key != removed) return;
        key = model.after(key);
        moved = true;
    }
};

/// Random additions, removals, steps, copies and restarts of many iterators.
template <class Container, class Iter, class Add>
void compareWalks(Container& container, ChainModel model, Add addTo) {
    std::mt19937 rng(testSeed());
    std::vector<std::pair<std::unique_ptr<Iter>, WalkModel>> walks;
    for (int step = 0; step < 6000; ++step) {
        const std::string key = "k" + std::to_string(rng() % 40);
        switch (rng() % 8) {
            case 0:
            case 1:
                addTo(container, toStr(key));
                model.add(key, "");
                break;
            case 2:
            case 3:
                for (auto& walk : walks) walk.second.beforeRemoval(model, key);
                container.remove(toStr(key));
                model.remove(key);
                break;
            case 4:
                if (walks.size() < 30) {
                    WalkModel start;
                    if (!model.list().empty()) start.key = model.list().front().first;
                    start.moved = start.key.empty();
                    walks.emplace_back(std::make_unique<Iter>(container), start);
                }
                break;
            case 5:
                if (!walks.empty())
                    walks.erase(walks.begin() + static_cast<long>(rng() % walks.size()));
                break;
            case 6:
                if (!walks.empty()) {
                    auto& from = walks[rng() % walks.size()];
                    auto& to = walks[rng() % walks.size()];
                    if (rng() % 2 == 0) {
                        *to.first = Iter(*from.first);
                    } else {
                        *to.first = *from.first;
                    }
                    to.second = from.second;
                }
                break;
            default:
                for (auto& walk : walks) {
                    if (rng() % 3 != 0) continue;
                    ++*walk.first;
                    walk.second.step(model);
                }
        }
        for (auto& [iter, walk] : walks) {
            ASSERT_EQ(iter->notDone(), !walk.key.empty()) << "step " << step;
            ASSERT_EQ(iter->moved, walk.moved) << "step " << step;
            if (walk.key.empty() || walk.moved) {
                ASSERT_EQ(iter->getKey(), nullptr);
            } else {
                ASSERT_EQ(iter->key(), walk.key.c_str()) << "step " << step;
            }
        }
    }
}

/// Shows the chains and the iterators of a table of texts.
template <class Base>
class Open : public Base {
public:
    using Base::Base;
    using Base::buckets;
    using Base::iters;

    /// The stored key that walking its chain finds, or null.
    const fxStr* walkFor(const fxStr& key) const {
        const unsigned long chain = key.hash() % buckets.length();
        for (auto* i = buckets[static_cast<unsigned int>(chain)]; i != nullptr; i = i->next) {
            const fxStr* const stored = static_cast<const fxStr*>(i->element);
            if (compare(key, *stored) == 0) return stored;
        }
        return nullptr;
    }

protected:
    typename Base::Finder* finder() const override { return this->finderFor(typeid(Open)); }
};

/// Fills in texts only when it is told to, as the reader of streams does.
class LateTexts : public MemoryTranscriber {
public:
    using MemoryTranscriber::MemoryTranscriber;
    using MemoryTranscriber::xdr;
    bool xdrText(fxStr& string, char**, unsigned int size) override {
        if (bytes.size() - taken < size) return throws ? throw EndOfTexts() : false;
        waiting.emplace_back(&string, bytes.substr(taken, size));
        taken += size;
        return true;
    }
    struct EndOfTexts {};
    bool throws = false;  // at the end of the bytes, instead of failing
    void arrive() {
        for (auto& [string, text] : waiting) {
            char* const block = static_cast<char*>(std::malloc(text.size()));
            std::memcpy(block, text.data(), text.size());
            string->adopt(block, static_cast<unsigned int>(text.size()));
        }
    }
    size_t placesNoted() const override { return waiting.size(); }
    void forgetPlaces(size_t count) override { waiting.resize(count); }

private:
    std::vector<std::pair<fxStr*, std::string>> waiting;
};

/// The bytes that a dictionary or set hands over.
template <class Container>
std::string written(Container& container) {
    MemoryTranscriber out;
    EXPECT_TRUE(container.doxdr(out));
    return out.bytes;
}

/// One number as the containers put it into a stream.
inline std::string word(unsigned int number, unsigned int follower = 0) {
    const unsigned int pair[2] = {number, follower};
    return std::string(reinterpret_cast<const char*>(pair), sizeof pair);
}

/// A string as it gets there, with MemoryTranscriber.
inline std::string text(const std::string& bytes) {
    const std::string length = word(static_cast<unsigned int>(bytes.size() + 1));
    return bytes.empty() ? length : length + bytes + '\0';
}

#endif
