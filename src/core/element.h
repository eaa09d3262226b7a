// core/element.h - element type codes, channel codes and dims words, for inlining.
//
// Gives    sizes, validity and the table of C++ types behind the codes; the decoding of channel
//          codes and dims words.
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
using u32 = uint32_t;
using s8 = int8_t;
using s16 = int16_t;
using s32 = int32_t;
using f32 = float;
using f64 = double;

// The code of a type spelled as in kernel names.
#define KIPX_CODE_u8 1u
#define KIPX_CODE_u16 2u
#define KIPX_CODE_u32 3u
#define KIPX_CODE_s8 9u
#define KIPX_CODE_s16 10u
#define KIPX_CODE_s32 11u
#define KIPX_CODE_f32 13u
#define KIPX_CODE_f64 14u

// Strides and extents over n axes; kipx/array.h says what each means.
inline uint32_t row_stride(uint32_t n, const uint32_t *strides) {
    return n > 2 ? strides[n - 3] : 0;
}
inline uint32_t pixel_stride(uint32_t n, const uint32_t *strides) {
    return n > 1 ? strides[n - 2] : 0;
}
inline uint32_t element_stride(uint32_t n, const uint32_t *strides) {
    return n > 0 ? strides[n - 1] : 0;
}
inline uint32_t height_of(uint32_t n, const uint32_t *volume) { return n > 2 ? volume[n - 3] : 1; }
inline uint32_t width_of(uint32_t n, const uint32_t *volume) { return n > 1 ? volume[n - 2] : 0; }

// Sum of position[i] * strides[i] over entries from -leading to n - 1, as a 32-bit byte offset.
inline uint32_t byte_offset(int leading, uint32_t n, const uint32_t *position,
                            const uint32_t *strides) {
    uint32_t offset = 0;
    for (int i = -leading; i < static_cast<int>(n); ++i) offset += position[i] * strides[i];
    return offset;
}

inline constexpr uint32_t kernel_key(uint32_t dst, uint32_t src1, uint32_t src2) {
    return dst << 8 | src1 << 4 | src2;
}

} // namespace kipx
