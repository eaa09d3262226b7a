// arith/logic_rows.h - the row loops of the bitwise operations and their tables.
#pragma once

#include "core/run.h"
#include "core/sets.h"

namespace kipx {

enum class LogicOp : uint32_t { land, lorr, lxor, lnot };

// Rows of four: elements of 1, 2, 4 and 8 bytes.
inline constexpr uint32_t logic_sizes = 4, logic_count = 4 * logic_sizes;
KIPX_SET_TABLES(RowLoop, logic_rows, logic_count)

} // namespace kipx
