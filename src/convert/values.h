// convert/values.h - single numbers into elements of any type.
//
// Promises to nearest with ties to even, saturated; NaN gives 0 in integers. f32 keeps what it can
//          hold of the value, infinities and NaN included.
#pragma once

#include <cstdint>

namespace kipx {

// An element of a valid type with a size; no alignment is needed.
void store_value(uint32_t type, double value, void *at);
// The type, an integer one, holds the value as it is.
bool holds_value(uint32_t type, double value);

} // namespace kipx
