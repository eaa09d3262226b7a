// compare/roi.h - what comparisons and thresholds share of their road: the region as they are given it,
// and the shape of those that read one array.
#pragma once

#include <kipx/types.h>

#include <cstring>

#include "core/admit.h"

namespace kipx {

// The source leads; the destination's region is its own.
inline constexpr Shape source_and_result{.anchor = slot_src1,
                                         .sources = 1,
                                         .partners = 1,
                                         .partner = {{slot_dst, Fit::same, Meet::rest, true}},
                                         .stands_in = slot_count,
                                         .planes = true,
                                         .overlap = false,
                                         .most_channels = 4,
                                         .no_rows = KIPX_EEMPTY};

// roi is a kipx_site where extent is null; otherwise four origin words, null for zeros, and extent
// four extent words. The result is null for all, or lies in room.
inline const kipx_site *region_of(const void *roi, const uint32_t *extent, kipx_site &room) {
    if (!roi && !extent) return nullptr;
    room = {};
    if (roi) std::memcpy(&room, roi, extent ? sizeof room.origin : sizeof room);
    if (extent) std::memcpy(room.extent, extent, sizeof room.extent);
    return &room;
}

} // namespace kipx
