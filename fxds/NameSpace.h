// Turns names into small numbers, atoms, and back.
#ifndef FXDS_NAMESPACE_H
#define FXDS_NAMESPACE_H

#include "fxds/Config.h"

/// One name of a NameSpace, private to it.
class NameSpace_Node;

/// Gives each name a number, from 1 on; 0 is no name at all. The initialiser
/// enters the names that live as long as the program and are not copied; names
/// entered later are copied. A frozen name space then takes no more names,
/// except under numbers that the caller chooses.
///
/// Misuse of the freeze rule and exhausted memory abort.
class FX_API NameSpace {
public:
    /// Runs `init`, which enters names and returns 0; any other result ends
    /// the process with exit(-1). Null enters nothing. `frozen` is in force
    /// only afterwards.
    NameSpace(int (*init)(NameSpace*), int frozen);
    NameSpace(const NameSpace&) = delete;
    NameSpace& operator=(const NameSpace&) = delete;
    ~NameSpace();

    /// The atom of the name, the first `len` bytes of `name`; null is the empty
    /// name. An unknown name
    /// gets the next number when `create` is set, otherwise the result is 0.
    /// Aborts when `create` is set and the name space frozen, even if the name
    /// is known. Requires, within the initialiser: the text outlives the name
    /// space. It should end behind the name, because nameForAtom() returns it
    /// as it is.
    unsigned long makeAtom(const char* name, unsigned int len, int create);
    unsigned long makeAtom(const char* name, int create);  ///< The same for a zero-terminated name.

    /// The same with a chosen number for an unknown name: aborts when `create`
    /// is set and the name space is *not* frozen. A number that another name
    /// has is then both names', and nameForAtom() returns the newer.
    unsigned long makeAtom(unsigned long atom, const char* name, unsigned int len, int create);

    /// 1 when a name has the number, else 0.
    int validAtom(unsigned long atom) const;
    /// The name of an atom, or null. View, until freeAllAtoms().
    const char* nameForAtom(unsigned long atom) const;

    /// Aborts.
    [[noreturn]] void atomError();

    /// Forgets all names. The name space can be used again.
    void freeAllAtoms();

    unsigned long getNoAtom() const { return noAtom; }      ///< The atom of no name: 0.
    unsigned long getLastAtom() const { return lastAtom; }  ///< The greatest number in use.
    unsigned long getCapacity() const { return capacity; }  ///< Numbers that there is room for.
    int isFrozen() const { return frozen; }  ///< Whether unknown names get no number.

private:
    unsigned long internAtom(unsigned long atom, const char* name, unsigned int len, int create);
    NameSpace_Node** findPlace(unsigned int hash, const char* name, unsigned int len);
    NameSpace_Node* makeNode(unsigned long atom, unsigned int hash, const char* name,
                             unsigned int len);
    void growTable(unsigned long atom);
    static void freeAtom(NameSpace_Node* root);

    unsigned long noAtom;    // 0; its entry in the table is always null
    unsigned long lastAtom;  // the highest atom in use
    NameSpace_Node* root;    // of the tree
    unsigned long capacity;  // entries in the table
    NameSpace_Node** table;  // by atom, null entries are free; calloc memory
    int frozen;
    unsigned long staticLimit;  // 0 while init runs; names are copied afterwards
};

#endif
