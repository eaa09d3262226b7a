#include "support/images.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <tuple>

namespace kipx::bench {
namespace {

struct Free {
    void operator()(void *p) const { std::free(p); }
};

struct Image {
    std::unique_ptr<void, Free> pixels;
    kipx_arr arr{};
};

uint64_t mix(uint64_t z) {
    z = (z ^ (z >> 32)) * 0xD6E8FEB86659FD93u;
    z = (z ^ (z >> 32)) * 0xD6E8FEB86659FD93u;
    return z ^ (z >> 32);
}

template<class T> void fill(void *pixels, size_t n, uint64_t seed) {
    T *p = static_cast<T *>(pixels);
    for (size_t i = 0; i < n; i++) {
        const uint64_t draw = mix(seed + i * 0x9E3779B97F4A7C15u);
        if constexpr (T(0.5) != T(0)) {
            p[i] = static_cast<T>(0.5 + static_cast<double>(draw % 1000) * 0.1995);
        } else {
            p[i] = static_cast<T>(draw);
            if (p[i] == 0) p[i] = 1;
        }
    }
}

void fill_any(uint32_t type, void *pixels, size_t n, uint64_t seed) {
    switch (type) {
    case KIPX_F32:
        return fill<float>(pixels, n, seed);
    case KIPX_F64:
        return fill<double>(pixels, n, seed);
    default:
        break;
    }
    switch (type_size(type)) {
    case 1:
        return fill<uint8_t>(pixels, n, seed);
    case 2:
        return fill<uint16_t>(pixels, n, seed);
    case 4:
        return fill<uint32_t>(pixels, n, seed);
    default:
        return fill<uint64_t>(pixels, n, seed);
    }
}

} // namespace

uint32_t type_size(uint32_t type) {
    static const uint32_t sizes[8] = {0, 1, 2, 4, 8, 4, 8, 0};
    return sizes[type & 7];
}

const char *type_name(uint32_t type) {
    static const char *const names[16] = {"t0", "u8", "u16", "u32", "u64", "t5",  "t6",  "t7",
                                          "t8", "s8", "s16", "s32", "s64", "f32", "f64", "t15"};
    return names[type & 15];
}

kipx_arr *image(uint32_t type, Size size, int role, uint32_t channels) {
    using Key = std::tuple<uint32_t, uint32_t, uint32_t, int, uint32_t>;
    static std::map<Key, Image> pool;
    Image &found = pool[Key{type, size.width, size.height, role, channels}];
    if (!found.pixels) {
        const uint32_t element = type_size(type), pixel = element * channels;
        const size_t n = size_t{size.width} * size.height * channels;
        found.pixels.reset(std::aligned_alloc(64, (n * element + 63) / 64 * 64));
        if (!found.pixels) std::abort();
        fill_any(type, found.pixels.get(), n, static_cast<uint64_t>(role) << 40);
        kipx_arr &arr = found.arr;
        const uint32_t volume[4] = {1, size.height, size.width, channels};
        const uint32_t strides[4] = {0, size.width * pixel, pixel, element};
        for (int i = 0; i < 4; i++) arr.volume[i] = volume[i], arr.strides[i] = strides[i];
        arr.naxes = 3;
        arr.type = type;
        arr.base = found.pixels.get();
    }
    return &found.arr;
}

} // namespace kipx::bench
