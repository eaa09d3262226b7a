// core/element.h - element type codes, channel codes and dims words, for inlining.
//
// Gives    sizes, validity and the table of C++ types behind the codes; the decoding of channel
// codes
//          and dims words.
#pragma once

#include <cstdint>

namespace kipx {

inline constexpr uint32_t element_size(uint32_t type) {
    constexpr uint8_t size[8] = {0, 1, 2, 4, 8, 4, 8, 0};
    return size[type & 7];
}
inline constexpr bool element_valid(uint32_t type) {
    return type <= 15 && (0xfe1eu >> type & 1) != 0;
}
inline constexpr uint32_t channels_of(uint32_t code) { return (code & 7) + (code >> 3 & 1); }
inline constexpr uint32_t axes_of(uint32_t dims) { return dims & 15; }
inline constexpr int leading_of(uint32_t dims) { return static_cast<int>(dims >> 4 & 15); }

// Short names as kernel names spell them.
using u8 = uint8_t;
using u16 = uint16_t;
using s8 = int8_t;
using s16 = int16_t;
using s32 = int32_t;
using f32 = float;

// The code of a type spelled as in kernel names.
#define KIPX_CODE_u8 1u
#define KIPX_CODE_u16 2u
#define KIPX_CODE_s8 9u
#define KIPX_CODE_s16 10u
#define KIPX_CODE_s32 11u
#define KIPX_CODE_f32 13u

inline constexpr uint32_t kernel_key(uint32_t dst, uint32_t src1, uint32_t src2) {
    return dst << 8 | src1 << 4 | src2;
}

} // namespace kipx
