// region/watershed.cpp - the floods' road: checks, planes, types, scratch of the fast flood.
#include <kipx/watershed.h>

#include <kipx/array.h>
#include <kipx/fast_regions.h>

#include "core/element.h"
#include "core/footprint.h"
#include "core/planes.h"
#include "region/fast_store.h"
#include "region/flood.h"
#include "region/road.h"

namespace kipx {

int32_t check_source(const kipx_arr *src) {
    if (!src || !src->base || (src->naxes != 3 && src->naxes != 4)) return KIPX_EINVAL;
    for (int i = 0; i < 3; ++i)
        if (src->volume[i] == 0) return KIPX_EINVAL;
    return channels_of(src->volume[3]) == 0 ? KIPX_EINVAL : 0;
}

int32_t source_region(const kipx_arr *src, const kipx_site *roi, kipx_site *site) {
    kipx_arr_adjorgetRoi(src, site, roi);
    for (int i = 0; i < 4; ++i)
        if (static_cast<int32_t>(site->extent[i]) < 1) return KIPX_EEMPTY;
    return offsets_fit(*src, *site) ? 0 : KIPX_EINVAL;
}

int32_t masked_regions(const kipx_arr *src, const kipx_arr *mask, const kipx_site *roi,
                       const kipx_pos *mask_at, kipx_site *site, kipx_site *mask_site) {
    uint32_t channels = channels_of(mask->volume[3]);
    bool axes = mask->naxes == src->naxes || (mask->naxes == 3 && src->naxes == 4);
    if (!mask->base || !axes || mask->type != KIPX_U8 ||
        (channels != 1 && channels != channels_of(src->volume[3])))
        return KIPX_EINVAL;
    // A mask of three axes has no planes: it is as deep as the source, from its first plane on.
    kipx_arr deep = *mask;
    kipx_pos at = mask_at ? *mask_at : kipx_pos{};
    if (mask->naxes == 3) {
        deep.volume[0] = src->volume[0];
        at.at[0] = 0;
    }
    at.at[3] = 0;
    if (!kipx_arr_negotiateRoi(src, &deep, site, mask_site, roi, &at, 3)) return KIPX_EEMPTY;
    mask_site->origin[3] = 0;
    mask_site->extent[3] = channels;
    return offsets_fit(*src, *site) && offsets_fit(deep, *mask_site) ? 0 : KIPX_EINVAL;
}

int32_t check_type(uint32_t type, uint32_t channels) {
    if (!element_valid(type)) return KIPX_EINVAL;
    if (channels == 1) return type == KIPX_U8 ? 0 : KIPX_ENOTSUP;
    bool even = channels == 2 || channels == 4 || channels == 8;
    return type == KIPX_U8 && even ? KIPX_ENOTSUP : KIPX_EINVAL;
}

namespace {

constexpr uint64_t most_rows = 65536, most_pixels = uint64_t{1} << 28;
constexpr uint64_t most_fast_pixels = (uint64_t{1} << 27) - 1;

Plane plane_of(kipx_dims dims, const void *at, const uint32_t *strides) {
    return {static_cast<const uint8_t *>(at), kipx_rowstride(dims, strides),
            kipx_pixstride(dims, strides)};
}

} // namespace

int32_t image_of(const Slice &slice, const KipxWatershedContext *context, bool fast,
                 FloodImage &image) {
    uint32_t axes = axes_of(slice.dims);
    if (!slice.extent || axes < 2 || axes > 3) return KIPX_EINVAL;
    int32_t code = check_type(slice.type, slice.extent[axes - 1]);
    if (code < 0) return code;
    if (slice.mask && (slice.mask_type != KIPX_U8 || !slice.mask_strides)) return KIPX_EINVAL;
    if (!context || !context->builder || !context->levelset || !slice.src || !slice.strides)
        return KIPX_EINVAL;
    image.height = kipx_volume_height(slice.dims, slice.extent);
    image.width = kipx_volume_width(slice.dims, slice.extent);
    if (image.height == 0 || image.width == 0) return KIPX_EEMPTY;
    uint64_t most = fast ? most_fast_pixels : most_pixels;
    if (image.height > most_rows || image.width > most_rows || image.pixels() > most)
        return KIPX_EINVAL;
    if (context->seed_row >= image.height || context->seed_column >= image.width)
        return KIPX_EINVAL;
    image.source = plane_of(slice.dims, slice.src, slice.strides);
    if (slice.mask) image.mask = plane_of(slice.dims, slice.mask, slice.mask_strides);
    image.invert = context->polarity == 1 ? 255 : 0;
    image.shift = fast ? context->shift : 0;
    image.seed_row = context->seed_row;
    image.seed_column = context->seed_column;
    image.eight = context->connectivity != 0;
    return 0;
}

int32_t announce(KipxWTSLSC *levelset, const FloodImage &image) {
    KipxWTSLSCsetimvol2D(levelset, image.height, image.width,
                         static_cast<uint32_t>(image.source.row));
    return KipxWTSLSCfixup(levelset) < 0 ? KIPX_EINVAL : 0;
}

int32_t FastRun::take(KipxXE *xe, const FloodImage &image) {
    total_ = count_values(image, values_);
    scratch_.cells = KipxXEalloca(xe, fast_cells_size(image), 8);
    if (!scratch_.cells) return KIPX_ENOMEM;
    scratch_.boundary =
        static_cast<uint32_t *>(KipxXEalloca(xe, image.pixels() * sizeof *scratch_.boundary, 8));
    return scratch_.boundary ? 0 : KIPX_ENOMEM;
}

int32_t FastRun::flood(const FloodImage &image, const KipxWTSLSC &levelset, KipxFWTSRES *store) {
    int32_t code = fast_store_prepare(store, levelset);
    return code < 0 ? code : fast_flood(image, values_, total_, scratch_, store);
}

void FastRun::give_back(KipxXE *xe) {
    KipxXEfreea(xe, scratch_.boundary);
    KipxXEfreea(xe, scratch_.cells);
}

const void *slice_start(kipx_dims dims, const void *base, const uint32_t *origin,
                        const uint32_t *strides) {
    bool known = base && origin && strides;
    return known ? region_start(base, axes_of(dims), origin, strides) : base;
}

namespace {

int32_t flood_fast(KipxXE *xe, const FloodImage &image, KipxWatershedContext *context) {
    KipxFWTSRES *store = KipxFWTSRESfrombuilder(context->builder);
    if (!store) return KIPX_EINVAL;
    int32_t code = announce(context->levelset, image);
    if (code < 0) return code;
    FastRun run;
    code = run.take(xe, image);
    if (code == 0) code = run.flood(image, *context->levelset, store);
    run.give_back(xe);
    if (code == 0) context->output = __KipxSTBtree(&store->builder);
    return code;
}

int32_t flood(KipxXE *xe, uint64_t flags, const Slice &slice, KipxWatershedContext *context,
              bool fast) {
    FloodImage image;
    int32_t code = image_of(slice, context, fast, image);
    if (code < 0) return code;
    if (flags & KIPX_FLAG_PROBE) return KIPX_EAGAIN;
    if (flags & KIPX_FLAG_PREPARE) return 0;
    if (!xe) return KIPX_EINVAL;
    if (!settle_seed(image)) return KIPX_EEMPTY;
    return fast ? flood_fast(xe, image, context) : standard_flood(xe, flags, image, context);
}

using Whole = decltype(&kipxa_watershed);
using Masked = decltype(&kipxa_watershed_xm);

} // namespace
} // namespace kipx

using namespace kipx;

// ---- typed level, array level ----

#define KIPX_FLOOD(name, fast)                                                                     \
    int32_t kipxa__##name(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,      \
                          uint32_t type, const void *src, const uint32_t *strides,                 \
                          KipxWatershedContext *context) {                                         \
        return flood(xe, flags, {dims, extent, type, src, strides, 0, nullptr, nullptr}, context,  \
                     fast);                                                                        \
    }                                                                                              \
    int32_t kipxa__##name##_xm(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent, \
                               uint32_t type, const void *src, const uint32_t *strides,            \
                               uint32_t mask_type, const void *mask, const uint32_t *mask_strides, \
                               KipxWatershedContext *context) {                                    \
        return flood(xe, flags, {dims, extent, type, src, strides, mask_type, mask, mask_strides}, \
                     context, fast);                                                               \
    }                                                                                              \
    int32_t kipxa_##name(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,       \
                         uint32_t type, const void *src, const uint32_t *origin,                   \
                         const uint32_t *strides, KipxWatershedContext *context) {                 \
        return kipxa__##name(xe, flags, dims, extent, type,                                        \
                             slice_start(dims, src, origin, strides), strides, context);           \
    }                                                                                              \
    int32_t kipxa_##name##_xm(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,  \
                              uint32_t type, const void *src, const uint32_t *origin,              \
                              const uint32_t *strides, uint32_t mask_type, const void *mask,       \
                              const uint32_t *mask_origin, const uint32_t *mask_strides,           \
                              KipxWatershedContext *context) {                                     \
        return kipxa__##name##_xm(                                                                 \
            xe, flags, dims, extent, type, slice_start(dims, src, origin, strides), strides,       \
            mask_type, slice_start(dims, mask, mask_origin, mask_strides), mask_strides, context); \
    }
KIPX_FLOOD(watershed, false)
KIPX_FLOOD(fwatershed, true)
#undef KIPX_FLOOD

int32_t __kipxa__fwatershed_c1_u8(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                  const uint32_t *extent, const void *src, const uint32_t *strides,
                                  KipxWatershedContext *context) {
    return flood(xe, flags, {dims, extent, KIPX_U8, src, strides, 0, nullptr, nullptr}, context,
                 true);
}

int32_t __kipxa__fwatershed_xm_c1_u8(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                     const uint32_t *extent, const void *src,
                                     const uint32_t *strides, const void *mask,
                                     const uint32_t *mask_strides, KipxWatershedContext *context) {
    return flood(xe, flags, {dims, extent, KIPX_U8, src, strides, KIPX_U8, mask, mask_strides},
                 context, true);
}

// ---- slices, public ----

int32_t KipxTGAwatershed(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    if (!slice) return KIPX_EINVAL;
    const kipx_operand &s = slice->operand[0];
    Whole whole = flags & KIPX_FLAG_FAST ? kipxa_fwatershed : kipxa_watershed;
    return whole(xe, flags, slice->dims, slice->extent + 1, s.type, s.base, s.origin + 1,
                 s.strides + 1, static_cast<KipxWatershedContext *>(slice->context));
}

int32_t KipxTGAwatershedEx(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    if (!slice || slice->operand[1].channels > 1) return KIPX_EINVAL;
    const kipx_operand &s = slice->operand[0], &m = slice->operand[1];
    Masked masked = flags & KIPX_FLAG_FAST ? kipxa_fwatershed_xm : kipxa_watershed_xm;
    return masked(xe, flags, slice->dims, slice->extent + 1, s.type, s.base, s.origin + 1,
                  s.strides + 1, m.type, m.base, m.origin + 1, m.strides + 1,
                  static_cast<KipxWatershedContext *>(slice->context));
}

int32_t KipxWatershed(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_site *roi,
                      KipxWatershedContext *context) {
    if (!context) return KIPX_EINVAL;
    kipx_site site;
    int32_t code = check_source(src);
    if (code == 0) code = source_region(src, roi, &site);
    if (code < 0) return code;
    kipx_pack pack;
    kipxa_genpackL(&pack, KIPX_CODE_WTSH, src, &site, context);
    return kipxa_call(xe, flags, &pack, KipxTGAwatershed);
}

int32_t KipxWatershedEx(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *mask,
                        const kipx_site *roi, const kipx_pos *maskAt,
                        KipxWatershedContext *context) {
    if (!mask) return KipxWatershed(xe, flags, src, roi, context);
    if (!context) return KIPX_EINVAL;
    kipx_site site, mask_site;
    int32_t code = check_source(src);
    if (code == 0) code = masked_regions(src, mask, roi, maskAt, &site, &mask_site);
    if (code < 0) return code;
    kipx_pack pack;
    kipxa_mappackL(&pack, KIPX_CODE_WTSX, src, &site, mask, &mask_site, context);
    return kipxa_call(xe, flags, &pack, KipxTGAwatershedEx);
}
