// image.h - a picture in memory: an owned block of elements with its type, size and channels.
//
// Gives    Image, always compact (row after row, channels of a pixel side by side), described to the
//          library by arr().
// Promises at least 1x1, 1 to 4 channels, and less than 2^32 bytes, which is what the library
//          addresses; a larger one is refused with a sentence before memory is taken. New elements
//          are zero.
// Owner    the Image owns its block; an arr() is valid as long as the Image that made it.
#pragma once

#include <kipx/types.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

struct Shape {
    uint32_t type = KIPX_U8;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 1;
};

class Image {
public:
    Image() = default;
    explicit Image(const Shape &shape);

    const Shape &shape() const { return shape_; }
    uint32_t type() const { return shape_.type; }
    uint32_t width() const { return shape_.width; }
    uint32_t height() const { return shape_.height; }
    uint32_t channels() const { return shape_.channels; }
    uint64_t pixels() const { return uint64_t(width()) * height(); }
    uint64_t elements() const { return pixels() * channels(); }
    size_t row_bytes() const;
    size_t bytes() const { return row_bytes() * height(); }

    uint8_t *data() { return block_.get(); }
    const uint8_t *data() const { return block_.get(); }
    uint8_t *row(uint32_t y) { return data() + row_bytes() * y; }
    const uint8_t *row(uint32_t y) const { return data() + row_bytes() * y; }
    template<class T> T *as() { return reinterpret_cast<T *>(data()); }
    template<class T> const T *as() const { return reinterpret_cast<const T *>(data()); }

    kipx_arr arr() const;
    // The same bytes as elements of another type of the same size.
    void reinterpret(uint32_t type) { shape_.type = type; }

private:
    struct Release {
        void operator()(uint8_t *block) const { std::free(block); }
    };
    Shape shape_;
    std::unique_ptr<uint8_t[], Release> block_;
};

// Bytes of an element; "u8" for KIPX_U8 and so on.
uint32_t size_of(uint32_t type);
const char *name_of(uint32_t type);
bool is_integer(uint32_t type);
// "640x480, 3 channels, u8".
std::string describe(const Shape &shape);

// Calls what(T{}) with the C++ type of an element type code.
template<class What> decltype(auto) with_type(uint32_t type, What &&what) {
    switch (type) {
    case KIPX_U8:
        return what(uint8_t{});
    case KIPX_U16:
        return what(uint16_t{});
    case KIPX_U32:
        return what(uint32_t{});
    case KIPX_S8:
        return what(int8_t{});
    case KIPX_S16:
        return what(int16_t{});
    case KIPX_S32:
        return what(int32_t{});
    case KIPX_F32:
        return what(float{});
    default:
        return what(double{});
    }
}
