// region/pit_rows.h - one row of a block with its small pits raised.
//
// Gives    a row loop, for 4 neighbours, in every instruction set.
// Promises the row read and its neighbours are left alone; out is apart from all of them. Up to
//          pit_slack cells before and behind each row are read, and as many behind out are written;
//          what the former hold beyond the block's border cells has no influence.
// Costs    24 neighbours a pixel, a vector at a time.
#pragma once

#include <cstdint>

#include "core/sets.h"

namespace kipx {

// rows: the row at hand in the middle, three above and three below it, each at its first pixel.
using PitRow = void (*)(uint8_t *out, const uint8_t *const rows[7], uint32_t n);

inline constexpr uint32_t pit_slack = 72, pit_row_count = 1;
KIPX_SET_TABLES(PitRow, pit_rows, pit_row_count)

} // namespace kipx
