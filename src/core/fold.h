// core/fold.h - rows of a call into a state per channel: sums, extrema, histograms.
//
// Gives    Folding, what the typed level has chosen; fold(), which takes a whole call in, plane by
//          plane and row by row.
// Promises only elements of the region are read, and where there is a mask, only those whose mask
//          byte is not 0. Runs come in the order of planes, rows and pixels. With `blocks`, where the
//          runs are cut depends on the region alone, not on strides, types or instruction sets: a
//          loop that sums in blocks of fold_length from the start of its run gives the same bits for
//          every layout.
// Costs    pixels of adjacent elements without a mask are one call of the loop per row, or one in all
//          where rows have no gaps and blocks are not asked for; every other layout is picked
//          through a buffer on the stack, channel by channel, in runs of fold_length.
#pragma once

#include "core/call.h"
#include "core/simd.h"

namespace kipx {

// n pixels of `channels` adjacent elements, to be taken into as many states.
struct FoldRun {
    const void *src;
    size_t n;
    uint32_t channels;
    void *states; // of the run's first channel
};
using FoldLoop = void (*)(FoldRun run);

inline constexpr uint32_t fold_length = 1024, fold_channels = 4;

struct Folding {
    FoldLoop loop;
    void *states;
    size_t state_size;
    bool blocks;      // rows are never joined
    bool interleaved; // the loop takes runs of several channels
    Set set;
};

// Elements taken in, per channel.
struct Taken {
    uint64_t pixels[fold_channels];
};

// The call's first source, of at most fold_channels channels, is taken in; the call is used up.
Taken fold(Call &call, const Folding &how);

} // namespace kipx
