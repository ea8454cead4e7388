// The transcription of dictionaries and sets. Private to the library.
#ifndef FXDS_CONTAINERS_HASHXDR_H
#define FXDS_CONTAINERS_HASHXDR_H

#include <cstdlib>
#include <cstring>
#include <utility>

#include "fxds/Transcriber.h"
#include "fxds/containers/HashContainer.h"

// Each number is a word of 8 bytes, in memory order:
//
//     number  4 | the field that follows it in the container, or 0  4
//
//     count, key size, (value size,) number of chains,
//     then for each entry: key, (value,) number of its chain

template <class Container>
struct fxHashXdr {
    typedef fxHashCore<Container> Core;
    typedef typename Container::Node Node;

    static bool transcribe(Container& table, fxTranscriber& transcriber) {
        if (!transcriber.isReading()) return writeEntries(table, transcriber);
        // However the reading ends, also by an exception of a hook, the table has all
        // entries of the stream or none.
        struct EmptyUnlessRead {
            ~EmptyUnlessRead() {
                if (!isRead) empty(&table);
            }
            Container& table;
            bool isRead;
        };
        Core::clear(table);
        EmptyUnlessRead result{table, false};
        static constexpr fxTranscriber::Container kind = {print, empty};
        result.isRead =
            transcriber.attempt(&table, kind, [&] { return readAll(table, transcriber); });
        return result.isRead;
    }

    /// Gives every late node its tag, or stops at the first that cannot have one.
    template <class Hooks>
    static bool setTags(const Container& table, Hooks hooks) {
        for (Node* node : table.buckets) {
            for (; node != nullptr; node = node->next) {
                if (!node->is(Node::late)) continue;
                if (!isComplete(table, node)) return false;
                const void* const key = node->element;
                node->tag = fxMix32(hooks.fingerprint(key, hooks.hash(key)));
                node->word &= ~Node::late;
            }
        }
        table.extra.hasLate = false;
        return true;
    }

private:
    typedef typename Container::Iter Iter;

    static size_t print(const void* container) {
        const Container& table = *static_cast<const Container*>(container);
        const size_t chains = fxTranscriber::printOf(table.buckets.begin(), table.extra.linked);
        return fxTranscriber::printOf(nullptr, chains + table.extra.additions);
    }
    static void empty(void* container) {
        Container& table = *static_cast<Container*>(container);
        Core::clear(table);
        table.count = table.extra.linked;
    }

    // A reader fills in texts and pointers when it has the whole graph, and the
    // container gets no notice of that. So a node that was read keeps a
    // checksum of its key's bytes for a tag, and its key is complete when they
    // have changed. No hook is called for a key before that. A key that was
    // complete from the start gets a checksum that does not fit.
    static bool isComplete(const Container& table, const Node* node) {
        return node->tag != checksum(table, node->element);
    }
    static unsigned int checksum(const Container& table, const void* key) {
        return fxMix32(fxFingerprint(key, table.keySize));
    }

    static constexpr unsigned int maxReadChains = 1U << 24;
    static constexpr size_t maxReadEntryBytes = 1U << 20;

    static bool readAll(Container& table, fxTranscriber& transcriber) {
        unsigned int entries = 0;
        if (table.extra.linked != 0 || !xdrSizes(table, transcriber, entries) ||
            !readChains(table, transcriber, entries)) {
            return false;
        }
        for (unsigned int i = 0; i < entries; ++i) {
            if (!readEntry(table, transcriber)) return false;
        }
        return earnChains(transcriber, entries);
    }

    static bool earnChains(fxTranscriber& transcriber, unsigned int entries) {
        constexpr long chainsOfEntry = 16;
        return transcriber.claimChains(-chainsOfEntry * static_cast<long>(entries));
    }

    // Foreign byte orders are undone in groups of 4 bytes, so the pair keeps
    // its order in memory on every machine.
    static bool xdrNumber(fxTranscriber& transcriber, unsigned int& number, unsigned int follower) {
        unsigned int pair[2] = {number, follower};
        unsigned long word;
        static_assert(sizeof pair == sizeof word);
        std::memcpy(&word, pair, sizeof word);
        if (!transcriber.xdr(&word, 1)) return false;
        std::memcpy(pair, &word, sizeof word);
        if (transcriber.isReading()) number = pair[0];
        return true;
    }

    // A container with known sizes takes no others; one without takes those of
    // the stream, within reason.
    static bool xdrSizes(Container& table, fxTranscriber& transcriber, unsigned int& entries) {
        unsigned int keySize = table.keySize;
        unsigned int valueSize = 0;
        if constexpr (Container::hasValues) valueSize = table.valueSize;
        const bool isKnown = keySize != 0;
        const unsigned int knownValueSize = valueSize;

        if (!xdrNumber(transcriber, entries, keySize) ||
            !xdrNumber(transcriber, keySize, valueSize) ||
            (Container::hasValues && !xdrNumber(transcriber, valueSize, 0))) {
            return false;
        }
        if (!transcriber.isReading()) return true;
        if (isKnown) {
            return (keySize == table.keySize || keySize == Core::keyBytes(table)) &&
                   valueSize == knownValueSize;
        }
        if (size_t{keySize} + valueSize > maxReadEntryBytes) return false;
        if (keySize == 0 && entries != 0) return false;
        table.keySize = keySize;
        if constexpr (Container::hasValues) table.valueSize = valueSize;
        return true;
    }

    // The system commits the pages of calloc() at their first use, so a huge
    // number of chains alone costs no memory.
    static bool readChains(Container& table, fxTranscriber& transcriber, unsigned int entries) {
        table.count = 0;
        unsigned int chains = 0;
        if (!xdrNumber(transcriber, chains, 0) || chains > maxReadChains ||
            (chains == 0 && entries != 0) || !transcriber.claimChains(chains)) {
            return false;
        }
        if (chains == table.buckets.length()) return true;
        void* const heads = chains != 0 ? std::calloc(chains, sizeof(Node*)) : nullptr;
        if (chains != 0 && heads == nullptr) return false;
        constexpr unsigned int headBytes = sizeof(Node*);
        table.buckets = decltype(table.buckets)(headBytes, chains * headBytes, heads);
        return true;
    }

    static bool readEntry(Container& table, fxTranscriber& transcriber) {
        void* const block = std::calloc(1, Core::blockBytes(table));
        if (block == nullptr) return false;
        typename Core::Unlinked read{table, table, table.extra.nodes.adopt(block)};
        read.node->word |= Node::ending;
        const size_t placesBefore = transcriber.placesNoted();
        if (!table.xdrKey(transcriber, block)) return false;
        read.hasKey = true;
        const bool isWhole = transcriber.placesNoted() == placesBefore;
        if constexpr (Container::hasValues) {
            if (!table.xdrValue(transcriber, Core::valueOf(table, read.node))) return false;
        }
        read.node->word &= ~Node::ending;
        unsigned int bucket = 0;
        if (!xdrNumber(transcriber, bucket, 0) || bucket >= table.buckets.length()) return false;
        table.extra.index.drop();
        table.extra.dropTexts();
        table.extra.hasLate = true;
        read.node->tag = checksum(table, block) ^ (isWhole ? 1U : 0U);
        Core::link(table, std::exchange(read.node, nullptr), Node::late | bucket);
        return true;
    }

    // A hook may change the table. Writing fails then if the stream has got
    // another number of entries than it claims.
    static bool writeEntries(Container& table, fxTranscriber& transcriber) {
        const typename Core::Hold hold(table);
        unsigned int entries = table.count;
        unsigned int chains = table.buckets.length();
        const unsigned int claimed = entries;
        if (!transcriber.claimChains(chains) || !xdrSizes(table, transcriber, entries) ||
            !xdrNumber(transcriber, chains, 0)) {
            return false;
        }
        Iter walk;
        for (Core::attach(walk, table); walk.node != nullptr; Core::step(walk), --entries) {
            Node* const node = walk.node;
            unsigned int bucket = walk.bucketIndex;
            if (entries == 0 || node->is(Node::ending)) return false;
            if (!table.xdrKey(transcriber, node->element)) return false;
            if constexpr (Container::hasValues) {
                if (node->is(Node::removed | Node::ending)) return false;
                if (!table.xdrValue(transcriber, Core::valueOf(table, node))) return false;
            }
            if (!xdrNumber(transcriber, bucket, 0)) return false;
        }
        return entries == 0 && earnChains(transcriber, claimed);
    }
};

#endif
