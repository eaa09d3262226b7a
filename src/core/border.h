// core/border.h - where what lies beyond an array's edge is taken from.
//
// Gives    Border, the kinds; border_of(), one from a number; continued(), an element's place.
#pragma once

#include <kipx/convert.h>

namespace kipx {

enum class Border : uint32_t {
    none = KIPX_BORDER_NONE,
    constant = KIPX_BORDER_CONST,
    replicate = KIPX_BORDER_REPLICATE,
    wrap = KIPX_BORDER_WRAP,
    reflect = KIPX_BORDER_REFLECT,
    reflect101 = KIPX_BORDER_REFLECT101
};
// The low four bits count; false for a kind that there is not.
bool border_of(uint32_t kind, Border &border);

// Which of n elements stands at place i, any integer; -1 where none does: beyond the edge for none and
// constant.
int64_t continued(Border border, int64_t i, int64_t n);

} // namespace kipx
