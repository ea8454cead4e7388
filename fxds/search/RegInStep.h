// Matching by walking all ways in step: the time is proportional to the subject times the
// pattern, for any of them. Private to the library.
#ifndef FXDS_SEARCH_REGINSTEP_H
#define FXDS_SEARCH_REGINSTEP_H

#include "fxds/search/RegReader.h"

namespace fxRegProgram {

class InStep : private RegReader {
public:
    InStep(const Plan& plan, const char* subject);
    InStep(const InStep&) = delete;
    InStep& operator=(const InStep&) = delete;

    /// Finds the match of the first start, `from` or later, that has one; ends where no way
    /// is open. Searches continue behind a walk without a match, so walks of one object
    /// never examine the same part of the subject.
    bool walk(const char* from);

    /// The next place where a match may start after a walk without one, or null.
    const char* behind() const { return *at != 0 ? at + 1 : nullptr; }

    /// The positions of the match: slots of the plan.
    const char* const* match() const { return positions; }

    size_t workDone() const { return work; }

private:
    void recall(const DeadEnds::Position& position);
    size_t keep(size_t index, bool isKnown);
    size_t thinOut();
    void forgetUpTo(const char* position);
    void drop(size_t from, size_t to);
    void start();
    void advance(const Thread& thread, const char* const* slots);
    void follow(const Step* step);
    const Step* pass(const Step* step);
    const Step* enter(const Step* alternative);
    void wait(const Step* step, unsigned int offset);
    void push(const Step* step, const char* position);
    void finish();
    void copySlots(const char* const* from, const char** to) const;
    bool isNew(unsigned int place);
    void beginTurn();

    const size_t slotCount;
    ThreadList here;   // take the byte before `at`
    ThreadList ahead;  // wait for the byte at `at`
    size_t depth = 0;  // pending entries in use
    size_t work = 0;
    const char* at = nullptr;
    const char* walkStart = nullptr;
    uint32_t turn = 0;
    bool hasMatch = false;
    bool isCut = false;                          // the ways after the match just found are dropped
    const char* slots[2 * groupCount] = {};      // recorded on the way being followed
    const char* positions[2 * groupCount] = {};  // those of the match
};

}  // namespace fxRegProgram

#endif
