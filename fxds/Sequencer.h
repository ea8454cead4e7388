// Hands out unique numbers.
#ifndef FXDS_SEQUENCER_H
#define FXDS_SEQUENCER_H

#include "fxds/RCObj.h"
#include "fxds/SeqRangeArray.h"

/// Hands out unsigned numbers, each once, and lets numbers be reserved.
/// Numbers are never given back.
///
/// Cost: handing out is O(1) except for closing a gap, reserving is linear in
/// the number of ranges.
class FX_API fxSequencer : public fxRCObj {
public:
    /// Nothing is taken yet: the first number will be 0.
    fxSequencer();
    fxSequencer(const fxSequencer&) = delete;
    fxSequencer& operator=(const fxSequencer&) = delete;
    ~fxSequencer() override;

    /// Hands out a free number: the one below the lowest taken number while
    /// there is one, then the first gap above 0. So a fresh sequencer gives 0,
    /// 1, 2 ...; one in which only 5 is reserved gives 4, 3, 2, 1, 0, 6, 7 ...
    unsigned int operator()();

    /// Reserves `number` and returns it. Reserving a taken number is not
    /// detected; the number may then be returned again.
    unsigned int operator()(unsigned int number);

    /// Joins the ranges at `index` and `index` + 1 when they touch. Nothing
    /// happens when there are no two such ranges.
    void trymerge(unsigned int index);

    fxSeqRangeArray ranges;  ///< The taken numbers, ascending by start.
};

#endif
