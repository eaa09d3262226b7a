// support/element.h - one element of any type code: its size, its value, its extremes.
//
// Gives    loads and stores through wide numbers, for models that are independent of the kernels,
//          and random values biased to where rounding, wrapping and saturating go wrong.
// Promises no alignment is needed. An integer store keeps the low bits; a real store into an
//          integer element expects a value that the element can hold.
#ifndef KIPX_TESTS_SUPPORT_ELEMENT_H
#define KIPX_TESTS_SUPPORT_ELEMENT_H

#include <cstdint>

#include "support/rng.h"

namespace kipx::test {

// The eight types that have kernels.
inline constexpr uint32_t all_types[] = {1, 2, 3, 9, 10, 11, 13, 14};

uint32_t element_size(uint32_t type); // 0 for codes without a size
bool is_real(uint32_t type);
bool is_signed(uint32_t type);
const char *type_name(uint32_t type); // "u8", "f32" ...; "t5" for codes without a name

// Range of an integer type; unsigned 64-bit elements are read as signed ones.
int64_t lowest(uint32_t type);
int64_t highest(uint32_t type);

int64_t load_integer(uint32_t type, const void *address); // a real element is truncated
double load_real(uint32_t type, const void *address);
void store_integer(uint32_t type, void *address, int64_t value);
void store_real(uint32_t type, void *address, double value);

// A number as an element's bits: to nearest even, saturated; NaN is 0 in integers, else the one without a
// sign. Worked out from the remainder.
uint64_t bits_of(uint32_t type, double value);

enum class Values {
    finite,  // anything but infinities and NaN
    any,     // those too, for real types
    nonzero, // finite, and fit as a divisor
    small    // whole numbers of -8 to 8, 0 to 8 for unsigned types: nothing overflows
};

void store_random(uint32_t type, void *address, Rng &rng, Values values);

} // namespace kipx::test

#endif
