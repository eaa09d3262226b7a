// convert/copy_rows.h - the row loops of copy and fill, by element size: 1, 2, 4 and 8 bytes.
#pragma once

#include "core/run.h"
#include "core/sets.h"

namespace kipx {

inline constexpr uint32_t copy_row_count = 4;
KIPX_SET_TABLES(RowLoop, copy_rows, copy_row_count)

} // namespace kipx
