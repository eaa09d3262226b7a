// support/images.h - images to time with: made on first use, kept until the program ends.
//
// Gives    one image per (type, size, channels, role). Role 0 is a destination, the others sources.
// Promises packed, aligned to 64 bytes, every page touched. Integers are drawn from the whole range
//          without 0, so that any source may divide; reals from 0.5 to 200. Equal on every run.
// Owner    the pool owns records and pixels.
#ifndef KIPX_BENCH_SUPPORT_IMAGES_H
#define KIPX_BENCH_SUPPORT_IMAGES_H

#include <cstdint>

#include <kipx/types.h>

namespace kipx::bench {

struct Size {
    uint32_t width, height;
};
inline constexpr Size all_sizes[] = {{512, 512}, {1920, 1080}, {4096, 4096}};

uint32_t type_size(uint32_t type);
const char *type_name(uint32_t type);

kipx_arr *image(uint32_t type, Size size, int role, uint32_t channels = 1);

} // namespace kipx::bench

#endif
