#include "support/photograph.h"

#include <cstddef>

#if defined(KIPX_BENCH_PNG)
#include <png.h>
#endif

namespace kipx::bench {
namespace {

struct Grey {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> pixels;
};

#if defined(KIPX_BENCH_PNG)
// Of python3-skimage.
constexpr const char *known[] = {"/usr/lib/python3/dist-packages/skimage/data/camera.png",
                                 "/usr/lib/python3/dist-packages/skimage/data/coins.png"};

bool read(const char *path, Grey &grey) {
    png_image header = {};
    header.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&header, path)) return false;
    header.format = PNG_FORMAT_GRAY;
    grey = {header.width, header.height, std::vector<uint8_t>(PNG_IMAGE_SIZE(header))};
    return png_image_finish_read(&header, nullptr, grey.pixels.data(), 0, nullptr) != 0;
}
#endif

const Grey &first_known() {
    static const Grey grey = [] {
        Grey found;
#if defined(KIPX_BENCH_PNG)
        for (const char *path : known)
            if (read(path, found)) return found;
        found = {};
#endif
        return found;
    }();
    return grey;
}

// 0 1 2 2 1 0 0 1 ...
uint32_t mirrored(uint32_t at, uint32_t length) {
    uint32_t turn = at % (2 * length);
    return turn < length ? turn : 2 * length - 1 - turn;
}

} // namespace

bool have_photograph() { return !first_known().pixels.empty(); }

std::vector<uint8_t> photograph(Size size) {
    const Grey &grey = first_known();
    std::vector<uint8_t> out(size_t{size.width} * size.height);
    for (uint32_t y = 0; y < size.height; ++y)
        for (uint32_t x = 0; x < size.width; ++x)
            out[size_t{y} * size.width + x] =
                grey.pixels[size_t{mirrored(y, grey.height)} * grey.width +
                            mirrored(x, grey.width)];
    return out;
}

} // namespace kipx::bench
