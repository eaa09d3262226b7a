// core/stages.h - the steps between a strided, masked operand and a run of adjacent elements.
//
// Gives    one table of steps per instruction set, indexed by step and element size: pack strided
//          elements into a run, spread a run out, both under a mask or not, and blend an adjacent
//          run under a mask; repeat widens one mask byte per pixel to one per channel.
//          Sift packs only the elements whose mask byte is not 0.
// Promises elements are moved whole, whatever their alignment. Where the mask byte is 0, spread
//          touches nothing and blend leaves the element's value.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/sets.h"

namespace kipx {

// step: bytes from element to element of the strided side; repeat: channels a mask byte stands for.
using Stage = void (*)(char *to, const char *from, const char *mask, size_t n, size_t step);

enum StageKind : uint32_t {
    stage_pack,
    stage_spread,
    stage_spread_masked,
    stage_blend,
    stage_kinds
};

// Rows of four: elements of 1, 2, 4 and 8 bytes.
inline constexpr uint32_t stage_sizes = 4, stage_count = stage_kinds * stage_sizes;
KIPX_SET_TABLES(Stage, stages, stage_count)

// The same byte `channels` times for each of n / channels pixels, of which the first has already
// given `phase` channels away; step: bytes from mask byte to mask byte.
using Widen = void (*)(char *to, const char *mask, size_t n, size_t step, uint32_t channels,
                       uint32_t phase);
KIPX_SET_TABLES(Widen, widen_stages, 1)

// Elements of n, `step` bytes apart, whose mask byte is not 0, packed; their number. mask_step: bytes
// from mask byte to mask byte. `to` has room for n. By element size, as above.
using Sift = size_t (*)(char *to, const char *from, const char *mask, size_t n, size_t step,
                        size_t mask_step);
KIPX_SET_TABLES(Sift, sift_stages, stage_sizes)

inline constexpr uint32_t size_index(uint32_t size) {
    return size == 1 ? 0 : size == 2 ? 1 : size == 4 ? 2 : 3;
}

} // namespace kipx
