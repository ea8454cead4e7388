#include "fxds/NameSpace.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

// Names are found in a binary tree, ordered by hash and then by text; a table
// leads back from atom to name. The tree is not balanced, so it may be as deep
// as there are names; it is never walked by recursion.
//
// Invariants:
// (1) Every node is in the tree exactly once, and the tree owns the nodes. A node never
//     changes its place or its name, so views of names are good until freeAllAtoms().
// (2) table[atom] is null, or the newest node of that atom. Several nodes may have one
//     atom, and those of atom 0 are in the tree alone.
// (3) Entries of the table from lastAtom + 1 on are null. There is a table with room for
//     lastAtom, or none after freeAllAtoms().
// (4) While staticLimit is 0, which is during the initialiser, names are borrowed;
//     afterwards nodes own copies.

class NameSpace_Node {
public:
    NameSpace_Node* left;
    NameSpace_Node* right;
    unsigned long atom;
    unsigned int hash;
    const char* name;
    unsigned int length;  // of the name
    bool ownsName;
};

namespace {

constexpr unsigned long firstCapacity = 100;

unsigned int byteAt(const char* name, unsigned int index) {
    return static_cast<unsigned int>(static_cast<int>(static_cast<signed char>(name[index])));
}

// Takes bytes in pairs from both ends; the middle of an odd length counts twice.
unsigned int hashOf(const char* name, unsigned int len) {
    unsigned int hash = 0;
    for (unsigned int k = 0; k < len / 2 + len % 2; ++k) {
        hash = (hash * 27 + byteAt(name, k)) * 27 + byteAt(name, len - 1 - k);
    }
    return hash;
}

// Negative, 0 or positive as the name goes before, to or behind the node of an
// equal hash. The node's text is not read beyond its length: the initialiser
// may have entered a part of a longer text.
int compareTo(const NameSpace_Node& node, const char* name, unsigned int len) {
    const int order = std::strncmp(name, node.name, std::min(len, node.length));
    if (order != 0) return order;
    if (len < node.length) return -1;
    return len > node.length && name[node.length] != '\0' ? 1 : 0;
}

}  // namespace

NameSpace::NameSpace(int (*init)(NameSpace*), int frozen_)
    : noAtom(0),
      lastAtom(0),
      root(nullptr),
      capacity(0),
      table(nullptr),
      frozen(0),
      staticLimit(0) {
    growTable(noAtom);
    if (init != nullptr && init(this) != 0) std::exit(-1);
    frozen = frozen_;
    staticLimit = lastAtom + 1;
}

NameSpace::~NameSpace() { freeAllAtoms(); }

unsigned long NameSpace::makeAtom(const char* name, unsigned int len, int create) {
    if (frozen != 0 && create != 0) std::abort();
    return internAtom(lastAtom + 1, name, len, create);
}

unsigned long NameSpace::makeAtom(const char* name, int create) {
    return makeAtom(name, name != nullptr ? static_cast<unsigned int>(std::strlen(name)) : 0,
                    create);
}

unsigned long NameSpace::makeAtom(unsigned long atom, const char* name, unsigned int len,
                                  int create) {
    if (frozen == 0 && create != 0) std::abort();
    return internAtom(atom, name, len, create);
}

int NameSpace::validAtom(unsigned long atom) const { return nameForAtom(atom) != nullptr ? 1 : 0; }

const char* NameSpace::nameForAtom(unsigned long atom) const {
    if (table == nullptr || atom > lastAtom || table[atom] == nullptr) return nullptr;
    return table[atom]->name;
}

void NameSpace::atomError() { std::abort(); }

void NameSpace::freeAllAtoms() {
    freeAtom(root);
    std::free(table);
    root = nullptr;
    table = nullptr;
    capacity = 0;
    lastAtom = noAtom;
}

// The link to the name's node, or the empty one where it belongs.
NameSpace_Node** NameSpace::findPlace(unsigned int hash, const char* name, unsigned int len) {
    NameSpace_Node** place = &root;
    while (NameSpace_Node* node = *place) {
        if (node->hash != hash) {
            place = node->hash > hash ? &node->left : &node->right;
            continue;
        }
        const int order = compareTo(*node, name, len);
        if (order == 0) return place;
        place = order < 0 ? &node->left : &node->right;
    }
    return place;
}

unsigned long NameSpace::internAtom(unsigned long atom, const char* name, unsigned int len,
                                    int create) {
    if (name == nullptr) {
        name = "";
        len = 0;
    }
    const unsigned int hash = hashOf(name, len);
    NameSpace_Node** place = findPlace(hash, name, len);
    if (*place != nullptr) return (*place)->atom;
    if (create == 0) return noAtom;

    // Whatever can fail comes before the node is linked.
    NameSpace_Node* node = makeNode(atom, hash, name, len);
    growTable(atom);
    *place = node;
    if (atom > lastAtom) lastAtom = atom;
    if (atom != noAtom) table[atom] = node;
    return atom;
}

// The length ends at a zero byte in the name, the copy at `len`: behind such a byte it is
// filled with zeros.
NameSpace_Node* NameSpace::makeNode(unsigned long atom, unsigned int hash, const char* name,
                                    unsigned int len) {
    const auto length = static_cast<unsigned int>(strnlen(name, len));
    auto* node =
        new (std::nothrow) NameSpace_Node{nullptr, nullptr, atom, hash, name, length, false};
    if (node == nullptr) atomError();
    if (staticLimit == 0) return node;
    const size_t size = static_cast<size_t>(len) + 1;
    char* copy = static_cast<char*>(std::malloc(size));
    if (copy == nullptr) atomError();
    std::strncpy(copy, name, len);
    copy[len] = '\0';
    node->name = copy;
    node->ownsName = true;
    return node;
}

// Doubles the table until the atom has an entry. One block of the final size is
// allocated, and untouched in its empty part: a huge atom fails cleanly.
void NameSpace::growTable(unsigned long atom) {
    unsigned long wanted = capacity != 0 ? capacity : firstCapacity;
    while (atom >= wanted) {
        if (wanted > SIZE_MAX / (2 * sizeof *table)) atomError();
        wanted *= 2;
    }
    if (wanted == capacity) return;
    auto** grown = static_cast<NameSpace_Node**>(std::calloc(wanted, sizeof *table));
    if (grown == nullptr) atomError();
    if (table != nullptr) std::memcpy(grown, table, capacity * sizeof *table);
    std::free(table);
    table = grown;
    capacity = wanted;
}

void NameSpace::freeAtom(NameSpace_Node* node) {
    while (node != nullptr) {
        // Left branches are turned to the right until there is none: that needs
        // no stack.
        while (NameSpace_Node* left = node->left) {
            node->left = left->right;
            left->right = node;
            node = left;
        }
        NameSpace_Node* next = node->right;
        if (node->ownsName) std::free(const_cast<char*>(node->name));
        delete node;
        node = next;
    }
}
