// A program as a user of the library writes it: adds two images of 8-bit grey, saturating.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

#include <kipx/kipx.h>

namespace {

struct Image {
    Image(uint32_t width, uint32_t height) : pixels(width * height) {
        arr.volume[0] = 1;
        arr.volume[1] = height;
        arr.volume[2] = width;
        arr.volume[3] = 1;
        arr.strides[1] = width;
        arr.strides[2] = arr.strides[3] = 1;
        arr.naxes = 3;
        arr.type = KIPX_U8;
        arr.base = pixels.data();
    }
    std::vector<uint8_t> pixels;
    kipx_arr arr{};
};

} // namespace

int main() {
    Image a(33, 5), b(33, 5), sum(33, 5);
    for (size_t i = 0; i < a.pixels.size(); i++) {
        a.pixels[i] = static_cast<uint8_t>(5 * i);
        b.pixels[i] = static_cast<uint8_t>(250 - i);
    }
    KipxXE xe{};
    bool right = KipxAddq(&xe, 0, &sum.arr, &a.arr, &b.arr, nullptr, nullptr, nullptr, 0, 0) == 0;
    for (size_t i = 0; i < a.pixels.size(); i++) {
        right = right && sum.pixels[i] == std::min(255, a.pixels[i] + b.pixels[i]);
    }
    KipxXEfini(&xe);
    std::puts(right ? "right" : "wrong");
    return right ? 0 : 1;
}
