#include <cstring>

#include "fxds/search/RegInternals.h"

// A recursive descent over the pattern that emits nodes. It runs twice: the
// first run only counts bytes, so that a pattern which is faulty or too big is
// refused before anything is allocated; offsets are then not written and chains
// not followed. Nesting is bounded by the number of groups.
//
// Invariants:
// (1) A node is denoted by its offset in the program; 0, the offset of the magic byte,
//     means none. A function that returns a node returns 0 exactly when it has set
//     `message`.
// (2) Both runs take the same decisions, because these depend on the pattern and on flags,
//     never on emitted bytes. So the second run needs exactly the counted size, and finds
//     no fault.
// (3) In the second run, the last node of a chain has the offset 0 until tail() gives it a
//     target. An operator that applies to nodes emitted before it inserts its node in front
//     of them and moves them up; offsets are distances, so those within the moved nodes
//     stay right.
// (4) An operand of * or + cannot be empty. So every round of a loop takes a byte.

namespace fxRegProgram {
namespace {

enum Flags {
    WORST = 0,     // nothing is known
    HASWIDTH = 1,  // never matches the empty text
    SIMPLE = 2,    // matches exactly one character: can be repeated by STAR and PLUS
    SPSTART = 4    // starts with * or +
};

bool isRepeat(char c) { return c == '*' || c == '+' || c == '?'; }

bool isSeparator(char c) { return c == '|' || c == '\n'; }

unsigned char byteOf(char c) { return static_cast<unsigned char>(c); }

class Parser {
public:
    // `code` null: only count.
    Parser(const char* pattern_, char* code_)
        : pattern(pattern_), at(pattern_), faultAt(pattern_), code(code_) {}

    // Parses the whole pattern; false with `message` set when it is faulty.
    bool run() {
        emit(static_cast<char>(magic));
        int flags;
        if (reg(false, flags) == 0) return false;
        startsRepeated = (flags & SPSTART) != 0;
        return true;
    }

    size_t size = 0;
    bool startsRepeated = false;
    const char* message = nullptr;
    size_t faultOffset() const { return static_cast<size_t>(faultAt - pattern); }

private:
    size_t reg(bool isGroup, int& flags);
    size_t regbranch(int& flags);
    size_t piece(int& flags);
    void repeat(char op, size_t operand, bool isSimple);
    size_t atom(int& flags);
    size_t set();
    bool range();
    size_t literal(int& flags);

    size_t fail(const char* why, const char* where) {
        message = why;
        faultAt = where;
        return 0;
    }

    void emit(char c) {
        if (code != nullptr) code[size] = c;
        ++size;
    }
    size_t node(int op);
    void insert(int op, size_t before);
    size_t next(size_t node) const { return code == nullptr ? 0 : Program(code, size).next(node); }
    void tail(size_t chain, size_t target);
    void operandTail(size_t branch, size_t target);

    const char* const pattern;
    const char* at;       // rest of the pattern
    const char* faultAt;  // with a message: the place of the fault
    char* code;
    int groups = 1;  // groups so far, the whole match included
};

size_t Parser::node(int op) {
    const size_t place = size;
    emit(static_cast<char>(op));
    emit(0);
    emit(0);
    return place;
}

void Parser::insert(int op, size_t before) {
    const size_t end = size;
    node(op);
    if (code == nullptr) return;
    std::memmove(code + before + nodeHead, code + before, end - before);
    code[before] = static_cast<char>(op);
    code[before + 1] = code[before + 2] = 0;
}

// Makes the last node of a chain lead to `target`.
void Parser::tail(size_t chain, size_t target) {
    if (code == nullptr) return;
    size_t last = chain;
    while (const size_t after = next(last)) last = after;
    const size_t distance = byteOf(code[last]) == BACK ? last - target : target - last;
    code[last + 1] = static_cast<char>(distance >> 8);
    code[last + 2] = static_cast<char>(distance & 0xFF);
}

// The same for the chain that a BRANCH holds; other nodes hold none.
void Parser::operandTail(size_t branch, size_t target) {
    if (code != nullptr && byteOf(code[branch]) == BRANCH) tail(branch + nodeHead, target);
}

// A whole pattern or a group: alternatives, all leading to one closing node.
// HASWIDTH holds for the whole if it holds for every alternative, SPSTART if it holds for
// one.
size_t Parser::reg(bool isGroup, int& flags) {
    size_t start = 0;
    const int group = groups;
    const char* const open = at - (isGroup ? 1 : 0);
    if (isGroup) {
        if (groups >= groupCount) return fail("too many ()", open);
        ++groups;
        start = node(OPEN + group);
    }
    flags = HASWIDTH;
    for (;;) {
        int branchFlags;
        const size_t branch = regbranch(branchFlags);
        if (branch == 0) return 0;
        if (start == 0) {
            start = branch;
        } else {
            tail(start, branch);
        }
        if ((branchFlags & HASWIDTH) == 0) flags &= ~HASWIDTH;
        flags |= branchFlags & SPSTART;
        if (!isSeparator(*at)) break;
        ++at;
    }
    const size_t end = node(isGroup ? CLOSE + group : +END);
    tail(start, end);
    for (size_t branch = start; branch != 0; branch = next(branch)) operandTail(branch, end);

    if (isGroup && *at++ != ')') return fail("unmatched ()", open);
    if (!isGroup && *at != 0) return fail(*at == ')' ? "unmatched ()" : "junk on end", at);
    return start;
}

// One alternative: pieces in a chain.
size_t Parser::regbranch(int& flags) {
    const size_t start = node(BRANCH);
    flags = WORST;
    size_t last = 0;
    while (*at != 0 && *at != ')' && !isSeparator(*at)) {
        int pieceFlags;
        const size_t latest = piece(pieceFlags);
        if (latest == 0) return 0;
        flags |= pieceFlags & HASWIDTH;
        // Only the first piece decides about the start of the alternative.
        if (last == 0) {
            flags |= pieceFlags & SPSTART;
        } else {
            tail(last, latest);
        }
        last = latest;
    }
    if (last == 0) node(NOTHING);
    return start;
}

// An atom with the operator that may follow it.
size_t Parser::piece(int& flags) {
    int atomFlags;
    const size_t start = atom(atomFlags);
    if (start == 0) return 0;
    const char op = *at;
    if (!isRepeat(op)) {
        flags = atomFlags;
        return start;
    }
    if (op != '?' && (atomFlags & HASWIDTH) == 0) return fail("*+ operand could be empty", at);
    flags = op == '*' ? SPSTART : op == '+' ? HASWIDTH | SPSTART : WORST;
    repeat(op, start, (atomFlags & SIMPLE) != 0);
    ++at;
    if (isRepeat(*at)) return fail("nested *?+", at);
    return start;
}

// Puts the nodes of an operator around its operand, which was emitted last. The
// way out of a loop is a BRANCH that holds NOTHING, and both lead to what follows
// from that NOTHING: otherwise a BRANCH that follows would look like one more
// alternative.
void Parser::repeat(char op, size_t operand, bool isSimple) {
    if (op != '?' && isSimple) {
        insert(op == '*' ? STAR : PLUS, operand);
    } else if (op == '*') {
        insert(BRANCH, operand);
        operandTail(operand, node(BACK));
        operandTail(operand, operand);
        tail(operand, node(BRANCH));
        tail(operand, node(NOTHING));
    } else if (op == '+') {
        const size_t again = node(BRANCH);
        tail(operand, again);
        tail(node(BACK), operand);
        tail(again, node(BRANCH));
        tail(operand, node(NOTHING));
    } else {
        insert(BRANCH, operand);
        tail(operand, node(BRANCH));
        const size_t nothing = node(NOTHING);
        tail(operand, nothing);
        operandTail(operand, nothing);
    }
}

size_t Parser::atom(int& flags) {
    flags = WORST;
    switch (*at) {
        case '^':
            ++at;
            return node(BOL);
        case '$':
            ++at;
            return node(EOL);
        case '.':
            ++at;
            flags = HASWIDTH | SIMPLE;
            return node(ANY);
        case '[':
            ++at;
            flags = HASWIDTH | SIMPLE;
            return set();
        case '(': {
            ++at;
            const size_t group = reg(true, flags);
            flags &= HASWIDTH | SPSTART;
            return group;
        }
        case 0:
        case '|':
        case '\n':
        case ')':
            return fail("internal urp", at);
        case '*':
        case '+':
        case '?':
            return fail("?+* follows nothing", at);
        case '\\':
            if (at[1] == 0) return fail("trailing \\", at);
            if (at[1] == '<' || at[1] == '>') {
                at += 2;
                return node(at[-1] == '<' ? WORDA : WORDZ);
            }
            return literal(flags);
        default:
            return literal(flags);
    }
}

// A set, from behind its opening bracket. A closing bracket or a dash that comes
// first is a member.
size_t Parser::set() {
    const char* const open = at - 1;
    const bool isComplement = *at == '^';
    if (isComplement) ++at;
    const size_t start = node(isComplement ? ANYBUT : ANYOF);
    if (*at == ']' || *at == '-') emit(*at++);
    while (*at != 0 && *at != ']') {
        if (*at != '-' || at[1] == ']' || at[1] == 0) {
            emit(*at++);
        } else if (!range()) {
            return 0;
        }
    }
    emit(0);
    if (*at != ']') return fail("unmatched []", open);
    ++at;
    return start;
}

// The rest of a range, from its dash. Its first member has been emitted.
bool Parser::range() {
    const int first = byteOf(at[-1]);
    const int last = byteOf(at[1]);
    if (first > last) return fail("invalid [] range", at) != 0;
    for (int c = first + 1; c <= last; ++c) emit(static_cast<char>(c));
    at += 2;
    return true;
}

// A run of ordinary or escaped characters. An operator binds to one character,
// so it ends the run before the last one.
size_t Parser::literal(int& flags) {
    const size_t start = node(EXACTLY);
    const char* lastStart = at;
    size_t count = 0;
    while (*at != 0 && std::strchr("\n$().[^|*+?", *at) == nullptr) {
        const bool isEscape = *at == '\\';
        if (isEscape && (at[1] == 0 || at[1] == '<' || at[1] == '>')) break;
        lastStart = at;
        if (isEscape) ++at;
        emit(*at++);
        ++count;
    }
    if (count > 1 && isRepeat(*at)) {
        at = lastStart;
        --size;
        --count;
    }
    emit(0);
    flags = count == 1 ? HASWIDTH | SIMPLE : +HASWIDTH;
    return start;
}

}  // namespace

size_t Program::next(size_t node) const {
    const size_t distance =
        static_cast<size_t>(byteOf(code[node + 1])) << 8 | byteOf(code[node + 2]);
    if (distance == 0) return 0;
    return opcode(node) == BACK ? node - distance : node + distance;
}

size_t Program::following(size_t node) const {
    return node + nodeHead + (hasText(node) ? std::strlen(operand(node)) + 1 : 0);
}

const char* parse(const char* pattern, std::vector<char>& code, bool& startsRepeated,
                  size_t& offset) {
    Parser counter(pattern, nullptr);
    if (!counter.run()) {
        offset = counter.faultOffset();
        return counter.message;
    }
    // Distances have two bytes, hence the limit, which is tested before anything is
    // allocated.
    if (counter.size >= programLimit) {
        offset = std::strlen(pattern);
        return "regexp too big";
    }
    code.resize(counter.size);
    startsRepeated = counter.startsRepeated;
    Parser emitter(pattern, code.data());
    return emitter.run() ? nullptr : emitter.message;
}

}  // namespace fxRegProgram
