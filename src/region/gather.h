// region/gather.h - completing feature states, from nested regions or from a store of pixels.
//
// Gives    the gathering behind the public functions, and its counterpart for a flood that keeps
// the
//          pixels of every region itself and leaves the states empty until they are asked for.
// Promises a complete state is not touched; a state that cannot have its memory is not touched
//          either and is reported.
// Owner    states keep what they gathered; the lists and the pixels are only read.
#pragma once

#include <kipx/features.h>

namespace kipx {

inline void *state_of(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    // Regions are handed about as constant headers; the states behind them belong to the features.
    return const_cast<char *>(reinterpret_cast<const char *>(region)) + feature.state_offset;
}

// From the states of the regions nested in each listed one. 0, KIPX_EINVAL for a null in the list,
// KIPX_ENOMEM. Marks listed regions in bit 31 of their kept word while it runs.
int32_t gather_nested(const KipxWTSLSC &context, KipxWTSregion *const *regions, uint64_t count);

// Where the pixels of regions are kept. fetch writes up to room pairs (row, column) of the region's
// pixels, those of nested regions included, from number `from` on, and returns how many; less than
// room only at the end.
struct PixelSource {
    uint32_t (*fetch)(void *arg, const KipxWTSregion *region, uint64_t from, uint32_t *pairs,
                      uint32_t room);
    void *arg;
};

// From a source: each state that is not complete must be as init left it; it is given all pixels of
// its region and marked complete. 0, KIPX_EINVAL, KIPX_ENOMEM.
int32_t gather_fetched(const KipxWTSLSC &context, KipxWTSregion *const *regions, uint64_t count,
                       const PixelSource &source);

} // namespace kipx
