// image.cpp - see image.h.
#include "image/image.h"

#include "failure.h"

#include <new>

uint32_t size_of(uint32_t type) {
    return with_type(type, [](auto sample) { return uint32_t(sizeof sample); });
}

const char *name_of(uint32_t type) {
    switch (type) {
    case KIPX_U8:
        return "u8";
    case KIPX_U16:
        return "u16";
    case KIPX_U32:
        return "u32";
    case KIPX_S8:
        return "s8";
    case KIPX_S16:
        return "s16";
    case KIPX_S32:
        return "s32";
    case KIPX_F32:
        return "f32";
    case KIPX_F64:
        return "f64";
    default:
        return "?";
    }
}

bool is_integer(uint32_t type) { return type != KIPX_F32 && type != KIPX_F64; }

std::string describe(const Shape &shape) {
    return fmt::format("{}x{}, {} channel{}, {}", shape.width, shape.height, shape.channels,
                       shape.channels == 1 ? "" : "s", name_of(shape.type));
}

Image::Image(const Shape &shape) : shape_(shape) {
    if (shape.width < 1 || shape.height < 1 || shape.channels < 1 || shape.channels > 4)
        fail("an image of {} is not possible: at least 1x1 and 1 to 4 channels", describe(shape));
    const uint64_t pixel = uint64_t(shape.channels) * size_of(shape.type);
    const uint64_t pixels = uint64_t(shape.width) * shape.height;
    if (shape.width > INT32_MAX || shape.height > INT32_MAX || pixels > UINT32_MAX / pixel)
        fail("an image of {} takes 2^32 bytes or more, beyond what arrays hold", describe(shape));
    block_.reset(static_cast<uint8_t *>(std::calloc(size_t(pixels), size_t(pixel))));
    if (!block_) throw std::bad_alloc();
}

size_t Image::row_bytes() const { return size_t(width()) * channels() * size_of(type()); }

kipx_arr Image::arr() const {
    const uint32_t element = size_of(type());
    kipx_arr out = {};
    out.volume[0] = 1;
    out.volume[1] = height();
    out.volume[2] = width();
    out.volume[3] = channels();
    out.strides[0] = uint32_t(bytes());
    out.strides[1] = uint32_t(row_bytes());
    out.strides[2] = channels() * element;
    out.strides[3] = element;
    out.naxes = 3;
    out.type = type();
    out.base = const_cast<uint8_t *>(data());
    return out;
}
