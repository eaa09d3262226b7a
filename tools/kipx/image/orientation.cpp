// orientation.cpp - see orientation.h.
#include "image/orientation.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint32_t orientation_tag = 274, short_kind = 3;

// Whole numbers of a block in its byte order; 0 behind its end.
struct Block {
    const uint8_t *data;
    size_t size;
    bool little;

    uint32_t number(size_t at, size_t bytes) const {
        uint32_t out = 0;
        if (at > size || bytes > size - at) return 0;
        for (size_t i = 0; i < bytes; ++i)
            out |= uint32_t(data[at + i]) << (8 * (little ? i : bytes - 1 - i));
        return out;
    }
};

} // namespace

uint32_t exif_orientation(const uint8_t *data, size_t size) {
    if (size < 8) return 1;
    const Block block{data, size, data[0] == 'I'};
    const size_t directory = block.number(4, 4);
    const uint32_t entries = block.number(directory, 2);
    for (uint32_t i = 0; i < entries; ++i) {
        const size_t entry = directory + 2 + size_t(12) * i;
        if (block.number(entry, 2) != orientation_tag) continue;
        const uint32_t value = block.number(entry + 8, 2);
        const bool sound = block.number(entry + 2, 2) == short_kind && value >= 1 && value <= 8;
        return sound ? value : 1;
    }
    return 1;
}

Image turned(const Image &image, uint32_t orientation) {
    const bool across = orientation >= 5; // rows become columns
    const uint32_t width = image.width(), height = image.height();
    Image out({image.type(), across ? height : width, across ? width : height, image.channels()});
    const bool mirror_x =
        orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool mirror_y =
        orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    const size_t pixel = size_t(image.channels()) * size_of(image.type());
    for (uint32_t y = 0; y < out.height(); ++y) {
        uint8_t *to = out.row(y);
        for (uint32_t x = 0; x < out.width(); ++x, to += pixel) {
            const uint32_t u = across ? y : x, v = across ? x : y;
            const uint8_t *from = image.row(mirror_y ? height - 1 - v : v);
            std::memcpy(to, from + pixel * (mirror_x ? width - 1 - u : u), pixel);
        }
    }
    return out;
}

const char *turn_name(uint32_t orientation) {
    static constexpr const char *names[] = {"as stored",         "mirrored",   "turned upside down",
                                            "flipped",           "transposed", "turned right",
                                            "transposed across", "turned left"};
    return names[std::clamp<uint32_t>(orientation, 1, 8) - 1];
}
