// region/states.h - the feature states of one region, by their descriptors.
//
// Gives    what builders, stores and gathering do with states, each in one place.
// Promises operations that a descriptor lacks are left out.
// Owner    states belong to the region record; what they hold, to the feature.
#pragma once

#include <kipx/features.h>

namespace kipx {

inline void *state_of(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    // Regions are handed about as constant headers; the states behind them belong to the features.
    return const_cast<char *>(reinterpret_cast<const char *>(region)) + feature.state_offset;
}

void init_states(const KipxWTSLSC &context, KipxWTSregion *region);
void destroy_states(const KipxWTSLSC &context, KipxWTSregion *region);
bool has_destroy(const KipxWTSLSC &context);

// A feature that takes part in gathering; the rest is for such features only.
inline bool can_gather(const KipxWTSFDs &feature) {
    return feature.isgathered && feature.ongather && (feature.lazymerge || feature.merge);
}
inline bool complete(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    return feature.isgathered(state_of(feature, region)) != 0;
}
inline void absorb(const KipxWTSFDs &feature, KipxWTSregion *into, const KipxWTSregion *from) {
    (feature.lazymerge ? feature.lazymerge : feature.merge)(state_of(feature, into),
                                                            state_of(feature, from));
}
// Room for the pixels of the whole region, before any of them is gathered. False, with the state as
// it was, when memory is short. Features other than the pixel feature need none.
bool make_room(const KipxWTSFDs &feature, const KipxWTSregion *region);
// False for a gathered pixel list that lacks pixels of the region.
bool holds_all(const KipxWTSFDs &feature, const KipxWTSregion *region);

} // namespace kipx
