// Declarations shared by the compiler of regular expressions and the matcher. Private to
// the library.
#ifndef FXDS_SEARCH_REGINTERNALS_H
#define FXDS_SEARCH_REGINTERNALS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fxds/RegExp.h"

namespace fxRegProgram {

enum Opcode : unsigned char {
    END = 0,      // success
    BOL = 1,      // start of the subject
    EOL = 2,      // end of the subject
    ANY = 3,      // any one character
    ANYOF = 4,    // any one character of the operand
    ANYBUT = 5,   // any one character that is not in the operand
    BRANCH = 6,   // one alternative; a BRANCH as next node is the next choice
    BACK = 7,     // goes back to the start of a loop
    EXACTLY = 8,  // the operand, character by character
    NOTHING = 9,  // the empty text
    STAR = 10,    // the one-character node that follows, any number of times
    PLUS = 11,    // the same, at least once
    WORDA = 12,   // start of a word
    WORDZ = 13,   // end of a word
    OPEN = 20,    // OPEN + n: start of group n
    CLOSE = 30    // CLOSE + n: end of group n
};

constexpr int groupCount = 10;          // group 0 is the whole match
constexpr unsigned char magic = 0234;   // first byte of every program
constexpr size_t programLimit = 32767;  // offsets have two bytes
constexpr size_t nodeHead = 3;          // bytes of a node before its operand

/// A program in its textual form, with access to its nodes.
class Program {
public:
    Program(const char* code_, size_t size_) : code(code_), size(size_) {}

    unsigned char opcode(size_t node) const { return static_cast<unsigned char>(code[node]); }
    bool hasText(size_t node) const {
        const unsigned char op = opcode(node);
        return op == EXACTLY || op == ANYOF || op == ANYBUT;
    }
    const char* operand(size_t node) const { return code + node + nodeHead; }
    /// The node after this one in its chain, 0 for none.
    size_t next(size_t node) const;
    /// The node that follows in memory.
    size_t following(size_t node) const;

    const char* const code;
    const size_t size;
};

/// Parses `pattern` into `code`. Returns null, or the reason for a faulty pattern and sets
/// the offset of the fault. Sets `startsRepeated` if an alternative starts with `*` or `+`.
const char* parse(const char* pattern, std::vector<char>& code, bool& startsRepeated,
                  size_t& offset);

/// One step of the matcher: a decoded node with data that speeds up the search. Steps that
/// only lead on (NOTHING, BACK, a BRANCH without choice) are never reached: `next`, `body`
/// and `later` lead past them. An optional character is a STAR in the place of its two
/// BRANCHes.
struct Step {
    // The bytes that a STAR or PLUS repeats. A STAR with ofOptional takes at most one of
    // `set`.
    enum Run : unsigned char { ofAny, ofOne, ofAllBut, ofSet, ofOptional };

    unsigned char op;          // an Opcode; groups without their number
    unsigned char slot;        // OPEN, CLOSE: index of the recorded position
    unsigned char setMask;     // of `set`
    unsigned char followMask;  // of `follow`
    unsigned char least;       // STAR, PLUS: 0 or 1 repetitions
    Run run;                   // STAR, PLUS
    bool isPossessive;         // STAR, PLUS: only the longest run can be followed
    unsigned char byte;        // EXACTLY: the first; STAR, PLUS: the one byte
    unsigned short next;       // the step that this one leads to
    unsigned short body;       // BRANCH: first step of the alternative
    unsigned short later;      // BRANCH: the next alternative, or `none`
    unsigned short place;      // number of the first place that a thread can be at
    unsigned int length;       // EXACTLY
    unsigned int text;         // EXACTLY: offset in the copy of the program
    // Offsets of tables: table[c] & mask is set if byte c is in the set.
    unsigned int set;     // what is matched (ANYOF, ANYBUT, STAR, PLUS)
    unsigned int follow;  // the bytes that can begin the alternative (BRANCH), or
                          // follow the repetition (STAR, PLUS)
    static constexpr unsigned short none = 0xFFFF;
};

/// An entry on the stack of a walk: a way to go back to, or a position to restore.
struct Entry {
    const char* position;  // where to continue; for a group the position to restore
    uint64_t step : 16;    // BRANCH: alternative to try; STAR, PLUS; OPEN, CLOSE: restore
    uint64_t fewer : 48;   // STAR, PLUS: how many shorter repetitions are left as well
};

/// One of the ways that are walked in step: its next byte is taken by `step`, and for an
/// EXACTLY by the byte of its text at `offset`.
struct Thread {
    unsigned short step;
    unsigned short offset;
};

/// The threads of one position in order, each with the positions recorded on its
/// way: those of threads[i] lie at slots[i * Plan::slotCount].
struct ThreadList {
    Thread* threads;
    const char** slots;
    size_t count;
};

/// Results of searches of a subject for later searches that continue in it: the places from
/// which no match can be reached, at some positions. A few positions are enough: they are
/// dense ahead of the start of a walk and sparse further on, so a walk soon meets one, and
/// walks between two of them add others there.
struct DeadEnds {
    static constexpr size_t room = 32;
    static constexpr size_t closest = 8;   // bytes behind the start of a walk
    static constexpr size_t widening = 4;  // each is this many times further away
    struct Position {
        const char* at;
        uint64_t* places;  // bits
    };

    const char* subject;  // of the last search; null before the first
    const char* begin;    // where the first search of the subject began
    size_t work;          // of backtracking in it since then
    size_t words;         // of `places`
    size_t count;
    Position positions[room];  // ascending
};

/// Memory for walking in step. It is part of the block of the compiled expression, so that
/// a search allocates nothing.
struct WalkRoom {
    ThreadList lists[2];
    uint32_t* marks;  // by place: the turn in which it was reached last
    Entry* pending;   // one for each step
    DeadEnds* known;
};

/// The method of finding the places where a match may start.
enum class Start : unsigned char { anchored, pairs, runAndPair, needed, set, anywhere };

/// The bytes from `least` to `least + span`.
struct ByteRange {
    unsigned char least;
    unsigned char span;
};

/// A set of bytes, as a table and a mask in it. A mask of 0 means no set.
struct TableSet {
    unsigned int table;
    unsigned char mask;
};

/// Two neighbouring bytes, and the text that they belong to, if it has more.
struct BytePair {
    unsigned char first;
    unsigned char second;
    unsigned short before;  // bytes of the text before them
    unsigned short length;  // of the text; 0 for none
    unsigned int text;      // offset in the copy of the program
};

/// The part of a match before a certain byte, as an automaton that runs backwards from
/// there. A place takes one byte; a set of places is a set of bits.
struct alignas(uint32_t) Prefix {
    static constexpr size_t limit = 16;
    uint16_t taking[256];       // the places that take a byte
    uint16_t preceding[limit];  // those that may take the byte before the one of a place
    uint16_t last;              // those that may take the byte before the certain one
    uint16_t first;             // those that may take the first byte of a match
    bool canBeEmpty;
};

/// The compiled form that the matcher uses. It follows the program in the block of the
/// compiled expression.
struct Plan {
    static constexpr size_t rangeLimit = 4;
    static constexpr size_t pairLimit = 8;

    /// Whether the text that every match needs is searched before a match is tried.
    bool findsNeeded() const {
        return startKind == Start::runAndPair || startKind == Start::needed;
    }

    const Step* steps;
    const unsigned char* tables;
    const char* program;  // copy of the program, to detect damage
    size_t programSize;
    WalkRoom room;
    TableSet start;  // bytes that a match may start with, and 0, which stops a search at
                     // the end; none if any byte can start a match or other fields select better
    // Start::needed: a set of bytes and 0; every match contains one of the bytes. The same
    // as at most rangeLimit ranges, or none; the automaton for the part of a match before
    // the first of them, or null.
    TableSet needed;
    const Prefix* prefix;
    ByteRange ranges[rangeLimit];
    // Start::pairs: one of these begins every match; if there are several, no bytes precede
    // a pair. Start::runAndPair: the text behind the first run of every match.
    BytePair pairs[pairLimit];
    unsigned short first;     // step to start with
    unsigned short runFirst;  // the STAR or PLUS that every match starts with, or Step::none
    unsigned short stepCount;
    unsigned short placeCount;  // places where a thread can be
    Start startKind;
    unsigned char rangeCount;
    unsigned char pairCount;
    bool startsAtEnd;         // Start::set: a match may start at the terminator
    unsigned char slotCount;  // recorded positions: 0 for the match, from 2 on the groups'
};

/// Makes the whole block of a compiled expression from its program; null when memory runs
/// out.
fxregexp* makeBlock(const std::vector<char>& code);

/// The plan in the block; null when the program was damaged.
const Plan* planOf(const fxregexp* compiled);

/// The amount of backtracking that a search may do before it walks in step.
struct Patience {
    size_t atLeast = 256;
    size_t perByte = 8;  // of the bytes seen
};

/// Searches the subject for matches that start at `from` or later, and sets the positions
/// of the first one and of the groups that the pattern has. Adds the number of steps to
/// `effort`. The result does not depend on `patience`. `goesOn`: if the subject is that of
/// the last search, it is unchanged.
bool search(const Plan& plan, const char* subject, const char* from, const char** startp,
            const char** endp, size_t& effort, Patience patience = Patience(), bool goesOn = false);

}  // namespace fxRegProgram

#endif
