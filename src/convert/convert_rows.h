// convert/convert_rows.h - the index of the conversions and their tables, one per instruction set.
#pragma once

#include "convert/convert_types.inc"
#include "core/run.h"
#include "core/sets.h"

namespace kipx {

#define KIPX_INDEX(D, S) convert_##D##S,
enum ConvertKernel : uint32_t { KIPX_CONVERT_PAIRS(KIPX_INDEX) convert_kernel_count };
#undef KIPX_INDEX

KIPX_SET_TABLES(RowLoop, convert_rows, convert_kernel_count)

} // namespace kipx
