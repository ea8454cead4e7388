#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <type_traits>

#include "fxds/search/RegByteSet.h"
#include "fxds/search/RegInternals.h"
#include "fxds/search/RegSignposts.h"

// The program is the compiled expression as callers can see it; the plan is the same thing
// laid out for speed. Each node becomes a step of fixed size with its jumps resolved. Each
// choice has the set of bytes that can come first, so that the matcher neither enters nor
// saves alternatives that cannot succeed.
//
// A set of bytes is a bit in a table of 256 bytes, eight sets to a table; a set equal to
// one of the latest 64 is not stored again. Byte 0 is the end of the subject: a step that
// can continue there has it in its set.
//
// Block: fxregexp with the program | Plan | prefix, if there is one | steps | tables | copy
// of the program | room for walking in step
//
// Invariants of a plan:
// (1) steps[i] is for the node with number i, also if no step leads to it. `next`, `body`
//     and `later` are numbers of steps, and no chain of them that takes no byte leads in a
//     circle: the parser refuses a repeated operand that may be empty.
// (2) `follow` has every byte that can come there, and 0 where the subject can end; it may
//     have more. So a byte that is not in it excludes the way, and one that is in it proves
//     nothing.
// (3) The places of threads are numbered step after step, each step's from its `place` on:
//     a text has one for each byte, a repetition two, any other step one. All are below
//     placeCount.
// (4) All pointers of the plan lead into the block. So it is one malloc() block, released
//     by one free(), and cannot be copied to another address.
// (5) The program in fxregexp is public and may be overwritten. The matcher reads only the
//     copy, and a plan whose program differs from its copy is not used.

namespace fxRegProgram {
namespace {

size_t aligned(size_t size) {
    constexpr size_t unit = alignof(std::max_align_t);
    return (size + unit - 1) / unit * unit;
}

// Builds the steps. Nodes are numbered in the order of their places.
class Planner {
public:
    explicit Planner(const std::vector<char>& code) : program(code.data(), code.size()) {
        plan.slotCount = 1;
        number();
        sets.reserve(8);  // one table; most need no more
        tables.reserve(256);
        steps.reserve(nodes.size());
        firstSets();
        for (const size_t node : nodes) steps.push_back(stepFor(node));
        plan.stepCount = static_cast<unsigned short>(steps.size());
        makeStart();
    }

    size_t bytes() const { return roomOffset() + roomBytes(); }
    void place(char* block) const;

private:
    void number();
    void firstSets();
    ByteSet firstOf(size_t node, bool followsBack) const;
    ByteSet firstFrom(size_t node) const { return first[indexOf[node]]; }
    ByteSet matched(size_t node) const;
    ByteSet takenBy(size_t node) const;
    bool isChoice(size_t node) const {
        return program.opcode(node) == BRANCH && program.opcode(program.next(node)) == BRANCH;
    }
    size_t optionalIn(size_t node) const;
    unsigned short resolve(size_t node) const;
    Step stepFor(size_t node);
    void repeatStep(Step& step, size_t operand, size_t after);
    void makeStart();
    void makeSignposts();
    void makeRanges(const ByteSet& set);
    unsigned int intern(const ByteSet& set, unsigned char& mask);
    TableSet internStops(ByteSet set) {
        TableSet result{};
        set.add(0);
        result.table = intern(set, result.mask);
        return result;
    }
    size_t prefixBytes() const { return prefix ? sizeof(Prefix) : 0; }
    size_t roomOffset() const {
        return aligned(sizeof(Plan) + prefixBytes() + steps.size() * sizeof(Step) + tables.size() +
                       program.size);
    }
    size_t placeWords() const { return (plan.placeCount + size_t{63}) / 64; }
    size_t roomBytes() const;
    WalkRoom roomAt(char* at) const;

    const Program program;
    std::vector<size_t> nodes;            // place of each node
    std::vector<unsigned short> indexOf;  // and back
    std::vector<ByteSet> first;           // by index: the bytes that can come next
    std::vector<Step> steps;
    std::vector<ByteSet> sets;
    std::vector<unsigned char> tables;
    std::optional<Prefix> prefix;
    Plan plan{};
};

void Planner::number() {
    indexOf.assign(program.size, Step::none);
    nodes.reserve(program.size / nodeHead);
    for (size_t node = 1; node < program.size; node = program.following(node)) {
        indexOf[node] = static_cast<unsigned short>(nodes.size());
        nodes.push_back(node);
    }
}

// Every node but BACK leads to higher places only, so one pass from the end is enough for
// all nodes not reached through a BACK. The loop that a BACK returns to consumes a byte
// before it comes to the BACK, so its set is known after the first pass, and a second one
// can use it.
void Planner::firstSets() {
    first.assign(nodes.size(), ByteSet::all());
    for (const bool followsBack : {false, true}) {
        for (size_t i = nodes.size(); i-- > 0;) first[i] = firstOf(nodes[i], followsBack);
    }
}

ByteSet Planner::firstOf(size_t node, bool followsBack) const {
    const size_t next = program.next(node);
    ByteSet end;
    end.add(0);
    switch (program.opcode(node)) {
        case END:
            return ByteSet::all();
        case EOL:
            return firstFrom(next) & end;
        case WORDA:
            return firstFrom(next) & ~end;
        case BACK:
            return followsBack ? firstFrom(next) : ByteSet::all();
        case ANY:
        case ANYOF:
        case ANYBUT:
        case EXACTLY:
            return matched(node);
        case PLUS:
            return matched(program.following(node));
        case STAR:
            return matched(program.following(node)) | firstFrom(next);
        case BRANCH: {
            const ByteSet body = firstFrom(program.following(node));
            return isChoice(node) ? body | firstFrom(next) : body;
        }
        default:
            return firstFrom(next);
    }
}

// The bytes that a node for one character takes; the first of a text.
ByteSet Planner::matched(size_t node) const {
    ByteSet set;
    const char* operand = program.operand(node);
    switch (program.opcode(node)) {
        case ANY:
            break;
        case EXACTLY:
            set.add(static_cast<unsigned char>(*operand));
            return set;
        default:
            while (*operand != 0) set.add(static_cast<unsigned char>(*operand++));
            if (program.opcode(node) == ANYOF) return set;
    }
    set.add(0);
    return ~set;
}

// The bytes of which the step for a node takes one; empty for steps that take none, and for
// texts.
ByteSet Planner::takenBy(size_t node) const {
    switch (program.opcode(node)) {
        case ANY:
        case ANYOF:
        case ANYBUT:
            return matched(node);
        case STAR:
        case PLUS:
            return matched(program.following(node));
        case BRANCH:
            return optionalIn(node) != 0 ? matched(optionalIn(node)) : ByteSet();
        default:
            return ByteSet();
    }
}

// The one-character node that a BRANCH makes optional, 0 for none: its other
// alternative is the last, and both lead to the NOTHING in that.
size_t Planner::optionalIn(size_t node) const {
    const size_t body = program.following(node);
    const size_t other = program.next(node);
    if (!isChoice(node) || isChoice(other)) return 0;
    const size_t nothing = program.following(other);
    if (program.opcode(nothing) != NOTHING || program.next(other) != nothing ||
        program.next(body) != nothing) {
        return 0;
    }
    const unsigned char op = program.opcode(body);
    const bool isOneByte = op == ANY || op == ANYOF || op == ANYBUT ||
                           (op == EXACTLY && program.operand(body)[1] == 0);
    return isOneByte ? body : 0;
}

// The step to go to for a node: the first one behind nodes that only lead on.
// This ends: a BACK leads to the choice or to the operand of its loop, and both begin with
// a step.
unsigned short Planner::resolve(size_t node) const {
    for (;;) {
        const unsigned char op = program.opcode(node);
        if (op == NOTHING || op == BACK) {
            node = program.next(node);
        } else if (op == BRANCH && !isChoice(node)) {
            node = program.following(node);
        } else {
            return indexOf[node];
        }
    }
}

// The table and the bit of a set. Sets repeat often, mostly within a short distance.
unsigned int Planner::intern(const ByteSet& set, unsigned char& mask) {
    constexpr size_t lookBack = 64;
    size_t number = sets.size();
    const size_t oldest = number > lookBack ? number - lookBack : 0;
    while (number > oldest && !(sets[number - 1] == set)) --number;
    const bool isNew = number == oldest;
    number = isNew ? sets.size() : number - 1;
    const size_t table = number / 8 * 256;
    mask = static_cast<unsigned char>(1U << number % 8);
    if (isNew) {
        sets.push_back(set);
        if (tables.size() <= table) tables.resize(table + 256);
        set.forEach([this, table, mask](size_t c) { tables[table + c] |= mask; });
    }
    return static_cast<unsigned int>(table);
}

Step Planner::stepFor(size_t node) {
    Step step{};
    const unsigned char op = program.opcode(node);
    step.op = op > CLOSE ? +CLOSE : op > OPEN ? +OPEN : op;
    step.place = plan.placeCount++;
    if (op != END) step.next = resolve(program.next(node));
    if (op == BRANCH && optionalIn(node) != 0) {
        const size_t nothing = program.next(program.next(node));
        step.op = STAR;
        step.next = resolve(nothing);
        repeatStep(step, optionalIn(node), nothing);
        step.run = Step::ofOptional;
    } else if (op == BRANCH) {
        step.body = resolve(program.following(node));
        step.later = isChoice(node) ? indexOf[program.next(node)] : Step::none;
        step.follow = intern(firstFrom(program.following(node)), step.followMask);
    } else if (op == STAR || op == PLUS) {
        repeatStep(step, program.following(node), program.next(node));
    } else if (op == ANYOF || op == ANYBUT) {
        step.set = intern(matched(node), step.setMask);
    } else if (op == EXACTLY) {
        step.length = static_cast<unsigned int>(std::strlen(program.operand(node)));
        step.text = static_cast<unsigned int>(node + nodeHead);
        step.byte = static_cast<unsigned char>(*program.operand(node));
        plan.placeCount = static_cast<unsigned short>(step.place + step.length);
    } else if (op > OPEN) {
        step.slot = static_cast<unsigned char>(op > CLOSE ? (op - CLOSE) * 2 + 1 : (op - OPEN) * 2);
        if (step.slot >= plan.slotCount) plan.slotCount = static_cast<unsigned char>(step.slot + 1);
    }
    return step;
}

// A run whose bytes cannot come behind it is possessive: shorter runs need not be tried.
// `run` selects a faster loop for sets that have one.
void Planner::repeatStep(Step& step, size_t operand, size_t after) {
    const ByteSet set = matched(operand);
    const ByteSet follow = firstFrom(after);
    step.least = step.op == PLUS ? 1 : 0;
    step.set = intern(set, step.setMask);
    step.follow = intern(follow, step.followMask);
    step.isPossessive = (set & follow).isEmpty();
    const size_t count = set.count();
    ++plan.placeCount;
    if (count == 255) {
        step.run = Step::ofAny;
    } else if (count == 254) {
        ByteSet missing = ~set;
        missing.remove(0);
        step.run = Step::ofAllBut;
        step.byte = missing.lowest();
    } else if (count == 1) {
        step.run = Step::ofOne;
        step.byte = set.lowest();
    } else {
        step.run = Step::ofSet;
    }
}

// From the most selective method to the least: the start of the subject alone; a text of
// two bytes or more, at the start or behind a run; a needed byte or first pairs, if they
// are rare; the set of first bytes. Groups are passed over, because they take no byte.
void Planner::makeStart() {
    const ByteSet set = first[0];
    plan.first = resolve(1);
    const auto skipGroups = [this](unsigned short index) {
        while (steps[index].op == OPEN || steps[index].op == CLOSE) index = steps[index].next;
        return index;
    };
    const unsigned short leadIndex = skipGroups(plan.first);
    const Step* const lead = &steps[leadIndex];
    const bool isRun = (lead->op == STAR || lead->op == PLUS) && lead->run != Step::ofOptional;
    plan.runFirst = isRun ? leadIndex : Step::none;
    plan.startsAtEnd = set.has(0);
    const Step& text = steps[isRun ? skipGroups(lead->next) : leadIndex];
    if (lead->op == BOL) {
        plan.startKind = Start::anchored;
    } else if (text.op == EXACTLY && text.length > 1) {
        plan.startKind = isRun ? Start::runAndPair : Start::pairs;
        plan.pairs[plan.pairCount++] = rarestPair(program.code, text);
    } else {
        plan.startKind = Start::anywhere;
        if (set.count() < 256) {
            plan.startKind = Start::set;
            plan.start = internStops(set);
        }
        makeSignposts();
    }
}

// Selects a search for something rarer than the bytes that a match may start with.
void Planner::makeSignposts() {
    std::vector<ByteSet> takes;
    takes.reserve(nodes.size());
    for (const size_t node : nodes) takes.push_back(takenBy(node));
    Signposts signposts(steps, takes, first, program.code, plan.first);
    FirstPairs pairs;
    const bool hasPairs = signposts.findFirstPairs(pairs);
    NeededSet needed;
    if (hasPairs) needed.cost = pairs.cost;
    if (signposts.findNeeded(needed)) {
        plan.startKind = Start::needed;
        plan.needed = internStops(needed.set);
        makeRanges(needed.set);
        prefix.emplace();
        if (!signposts.findPrefix(needed.set, *prefix)) prefix.reset();
    } else if (hasPairs) {
        plan.startKind = Start::pairs;
        for (const BytePair& pair : pairs.pairs) plan.pairs[plan.pairCount++] = pair;
    }
}

// The set as ranges; none if there are too many.
void Planner::makeRanges(const ByteSet& set) {
    int last = -2;
    size_t count = 0;
    set.forEach([&](unsigned char c) {
        if (c != last + 1) ++count;
        if (count > Plan::rangeLimit) return;
        ByteRange& range = plan.ranges[count - 1];
        if (c != last + 1) range.least = c;
        range.span = static_cast<unsigned char>(c - range.least);
        last = c;
    });
    plan.rangeCount = static_cast<unsigned char>(count <= Plan::rangeLimit ? count : 0);
}

// In the order of their alignment: dead ends and their places, pending, slots, marks,
// threads.
size_t Planner::roomBytes() const {
    const size_t places = plan.placeCount;
    return sizeof(DeadEnds) + DeadEnds::room * placeWords() * sizeof(uint64_t) +
           plan.stepCount * sizeof(Entry) +
           2 * places * (plan.slotCount * sizeof(const char*) + sizeof(Thread)) +
           places * sizeof(uint32_t);
}

WalkRoom Planner::roomAt(char* at) const {
    const size_t places = plan.placeCount;
    static_assert(alignof(DeadEnds) == alignof(uint64_t) && alignof(Entry) == alignof(uint64_t));
    WalkRoom room{};
    room.known = reinterpret_cast<DeadEnds*>(at);
    auto* const bits = reinterpret_cast<uint64_t*>(at + sizeof(DeadEnds));
    DeadEnds known{};
    known.words = placeWords();
    for (size_t i = 0; i < DeadEnds::room; ++i) {
        known.positions[i].places = bits + i * known.words;
    }
    std::memcpy(at, &known, sizeof known);
    room.pending = reinterpret_cast<Entry*>(bits + DeadEnds::room * known.words);
    room.lists[0].slots = reinterpret_cast<const char**>(room.pending + plan.stepCount);
    room.lists[1].slots = room.lists[0].slots + places * plan.slotCount;
    room.marks = reinterpret_cast<uint32_t*>(room.lists[1].slots + places * plan.slotCount);
    room.lists[0].threads = reinterpret_cast<Thread*>(room.marks + places);
    room.lists[1].threads = room.lists[0].threads + places;
    return room;
}

// Copies the plan and its parts to their places in the block.
void Planner::place(char* block) const {
    static_assert(sizeof(Plan) % alignof(Step) == 0 && sizeof(Prefix) % alignof(Step) == 0 &&
                  std::is_trivially_copyable_v<Plan> && std::is_trivially_copyable_v<Step>);
    char* const stepsAt = block + sizeof(Plan) + prefixBytes();
    char* const tablesAt = stepsAt + steps.size() * sizeof(Step);
    char* const copyAt = tablesAt + tables.size();
    std::memcpy(stepsAt, steps.data(), steps.size() * sizeof(Step));
    if (!tables.empty()) std::memcpy(tablesAt, tables.data(), tables.size());
    std::memcpy(copyAt, program.code, program.size);

    Plan placed = plan;
    if (prefix) {
        std::memcpy(block + sizeof(Plan), &*prefix, sizeof(Prefix));
        placed.prefix = reinterpret_cast<const Prefix*>(block + sizeof(Plan));
    }
    placed.steps = reinterpret_cast<const Step*>(stepsAt);
    placed.tables = reinterpret_cast<const unsigned char*>(tablesAt);
    placed.program = copyAt;
    placed.programSize = program.size;
    placed.room = roomAt(block + roomOffset());
    std::memcpy(block, &placed, sizeof placed);
}

size_t planOffset(size_t programSize) { return aligned(sizeof(fxregexp) + programSize); }

}  // namespace

fxregexp* makeBlock(const std::vector<char>& code) {
    const Planner planner(code);
    const size_t offset = planOffset(code.size());
    char* const block = static_cast<char*>(std::malloc(offset + planner.bytes()));
    if (block == nullptr) return nullptr;
    std::memset(block, 0, offset);
    fxregexp* const compiled = reinterpret_cast<fxregexp*>(block);
    compiled->programSize_ = static_cast<unsigned short>(code.size());
    std::memcpy(block + offsetof(fxregexp, program), code.data(), code.size());
    planner.place(block + offset);
    return compiled;
}

const Plan* planOf(const fxregexp* compiled) {
    const char* const block = reinterpret_cast<const char*>(compiled);
    const char* const program = block + offsetof(fxregexp, program);
    const Plan* const plan =
        reinterpret_cast<const Plan*>(block + planOffset(compiled->programSize_));
    return std::memcmp(program, plan->program, plan->programSize) == 0 ? plan : nullptr;
}

}  // namespace fxRegProgram
