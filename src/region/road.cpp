// region/road.cpp - what the floods' and the stable regions' roads share.
#include "region/road.h"

#include "core/admit.h"
#include "core/planes.h"

namespace kipx {
namespace {

constexpr Shape flood_shape{.anchor = slot_src1,
                            .sources = 1,
                            .partners = 1,
                            .partner = {{slot_mask, Fit::mask, Meet::rest}},
                            .stands_in = slot_count,
                            .planes = true,
                            .overlap = false,
                            .most_channels = 8,
                            .no_rows = KIPX_EINVAL};

constexpr uint64_t most_rows = 65536, most_pixels = uint64_t{1} << 28;
constexpr uint64_t most_fast_pixels = (uint64_t{1} << 27) - 1;

int32_t check_type(uint32_t type, uint32_t channels) {
    if (!element_valid(type)) return KIPX_EINVAL;
    if (channels == 1) return type == KIPX_U8 ? 0 : KIPX_ENOTSUP;
    bool even = channels == 2 || channels == 4 || channels == 8;
    return type == KIPX_U8 && even ? KIPX_ENOTSUP : KIPX_EINVAL;
}

Plane plane_of(const Operand &o) {
    return {reinterpret_cast<const uint8_t *>(o.at), o.row, o.pixel};
}

} // namespace

int32_t admit_flood(Call &call, KipxXE *xe, uint64_t flags, const kipx_arr *src,
                    const kipx_arr *mask, const kipx_site *roi, const kipx_pos *mask_at) {
    Given given{xe, flags, {}, roi, {}};
    given.arr[slot_src1] = src, given.arr[slot_mask] = mask, given.at[slot_mask] = mask_at;
    int32_t code = admit(flood_shape, given, call);
    if (code < 0) return code;
    return mask && channels_of(mask->volume[3]) > 1 ? KIPX_EINVAL : 0;
}

int32_t slice_flood(Call &call, KipxXE *xe, uint64_t flags, const kipx_pack *slice, bool masked) {
    if (!slice || (masked && slice->operand[1].channels > 1)) return KIPX_EINVAL;
    call = {};
    call.xe = xe, call.flags = flags, call.sources = 1, call.planes = 1;
    call.height = slice->extent[1], call.width = slice->extent[2];
    call.channels = slice->extent[3];
    call.src[0] = slice_operand(slice->operand[0]);
    if (masked) call.mask = slice_operand(slice->operand[1]);
    return 0;
}

int32_t flat_flood(Call &call, KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                   const Flat &src, const Flat &mask) {
    uint32_t axes = axes_of(dims);
    if (!extent || axes < 2 || axes > 3) return KIPX_EINVAL;
    if (int32_t code = check_type(src.type, extent[axes - 1])) return code;
    if (!src.at || !src.strides || (mask.at && !mask.strides)) return KIPX_EINVAL;
    call = {};
    call.xe = xe, call.flags = flags, call.sources = 1, call.planes = 1;
    call.height = height_of(axes, extent), call.width = width_of(axes, extent);
    call.channels = extent[axes - 1];
    call.src[0] = flat_operand(axes, src);
    if (mask.at) call.mask = flat_operand(axes, mask);
    return 0;
}

int32_t image_of(const Call &call, const FloodSettings *settings, bool fast, FloodImage &image) {
    if (int32_t code = check_type(call.src[0].type, call.channels)) return code;
    if (call.mask.at && call.mask.type != KIPX_U8) return KIPX_EINVAL;
    if (!settings || !call.src[0].at) return KIPX_EINVAL;
    image.height = call.height, image.width = call.width;
    if (image.height == 0 || image.width == 0) return KIPX_EEMPTY;
    uint64_t most = fast ? most_fast_pixels : most_pixels;
    if (image.height > most_rows || image.width > most_rows || image.pixels() > most)
        return KIPX_EINVAL;
    if (settings->seed_row >= image.height || settings->seed_column >= image.width)
        return KIPX_EINVAL;
    image.source = plane_of(call.src[0]);
    image.mask = plane_of(call.mask);
    image.invert = settings->polarity == 1 ? 255 : 0;
    image.shift = fast ? settings->shift : 0;
    image.seed_row = settings->seed_row;
    image.seed_column = settings->seed_column;
    image.eight = settings->connectivity != 0;
    return 0;
}

int32_t announce(KipxWTSLSC *levelset, const FloodImage &image) {
    KipxWTSLSCsetimvol2D(levelset, image.height, image.width,
                         static_cast<uint32_t>(image.source.row));
    return KipxWTSLSCfixup(levelset) < 0 ? KIPX_EINVAL : 0;
}

} // namespace kipx
