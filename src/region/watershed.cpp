// region/watershed.cpp - the floods' levels, from the public functions to one image.
#include <kipx/watershed.h>

#include "core/planes.h"
#include "region/fast_flood.h"
#include "region/flood.h"
#include "region/road.h"

namespace kipx {
namespace {

int32_t flood_fast(const Call &call, const FloodImage &image, KipxWatershedContext *context) {
    KipxFWTSRES *store = KipxFWTSRESfrombuilder(context->builder);
    if (!store || !context->levelset) return KIPX_EINVAL;
    int32_t code = announce(context->levelset, image);
    if (code < 0) return code;
    FastFlood fast;
    code = fast.open(call.xe, call.flags, image);
    if (code == 0) code = fast.run(image, *context->levelset, store);
    fast.close();
    if (code == 0) context->output = __KipxSTBtree(&store->builder);
    return code;
}

// One plane.
int32_t flood(const Call &call, KipxWatershedContext *context, bool fast) {
    bool complete = context && context->builder && context->levelset;
    FloodSettings settings{};
    if (complete)
        settings = {context->polarity, context->connectivity, context->shift, context->seed_row,
                    context->seed_column};
    FloodImage image;
    int32_t code = image_of(call, complete ? &settings : nullptr, fast, image);
    if (code < 0) return code;
    if (call.flags & KIPX_FLAG_PROBE) return KIPX_EAGAIN;
    if (call.flags & KIPX_FLAG_PREPARE) return 0;
    if (!call.xe) return KIPX_EINVAL;
    if (!settle_seed(image)) return KIPX_EEMPTY;
    return fast ? flood_fast(call, image, context)
                : standard_flood(call.xe, call.flags, image, context);
}

int32_t flood_flat(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                   const Flat &src, const Flat &mask, KipxWatershedContext *context, bool fast) {
    Call call;
    int32_t code = flat_flood(call, xe, flags, dims, extent, src, mask);
    return code < 0 ? code : flood(call, context, fast);
}

int32_t flood_slice(KipxXE *xe, uint64_t flags, const kipx_pack *slice, bool masked) {
    Call call;
    int32_t code = slice_flood(call, xe, flags, slice, masked);
    if (code < 0) return code;
    return flood(call, static_cast<KipxWatershedContext *>(slice->context),
                 (flags & KIPX_FLAG_FAST) != 0);
}

constexpr Flat no_mask{0, nullptr, nullptr};

} // namespace
} // namespace kipx

using namespace kipx;

#define KIPX_FLOOD(name, fast)                                                                     \
    KIPX_TYPED_FLOOD(kipxa__##name, KipxWatershedContext) {                                        \
        return flood_flat(xe, flags, dims, extent, {type, src, strides}, no_mask, context, fast);  \
    }                                                                                              \
    KIPX_TYPED_FLOOD_M(kipxa__##name##_xm, KipxWatershedContext) {                                 \
        return flood_flat(xe, flags, dims, extent, {type, src, strides},                           \
                          {mask_type, mask, mask_strides}, context, fast);                         \
    }                                                                                              \
    KIPX_ARRAY_FLOOD(kipxa_##name, KipxWatershedContext) {                                         \
        return kipxa__##name(xe, flags, dims, extent, type, start_of(dims, src, origin, strides),  \
                             strides, context);                                                    \
    }                                                                                              \
    KIPX_ARRAY_FLOOD_M(kipxa_##name##_xm, KipxWatershedContext) {                                  \
        return kipxa__##name##_xm(                                                                 \
            xe, flags, dims, extent, type, start_of(dims, src, origin, strides), strides,          \
            mask_type, start_of(dims, mask, mask_origin, mask_strides), mask_strides, context);    \
    }
KIPX_FLOOD(watershed, false)
KIPX_FLOOD(fwatershed, true)
#undef KIPX_FLOOD

int32_t __kipxa__fwatershed_c1_u8(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                  const uint32_t *extent, const void *src, const uint32_t *strides,
                                  KipxWatershedContext *context) {
    return kipxa__fwatershed(xe, flags, dims, extent, KIPX_U8, src, strides, context);
}

int32_t __kipxa__fwatershed_xm_c1_u8(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                     const uint32_t *extent, const void *src,
                                     const uint32_t *strides, const void *mask,
                                     const uint32_t *mask_strides, KipxWatershedContext *context) {
    return kipxa__fwatershed_xm(xe, flags, dims, extent, KIPX_U8, src, strides, KIPX_U8, mask,
                                mask_strides, context);
}

KIPX_SLICE(KipxTGAwatershed) { return flood_slice(xe, flags, slice, false); }
KIPX_SLICE(KipxTGAwatershedEx) { return flood_slice(xe, flags, slice, true); }

KIPX_PUBLIC_FLOOD_M(KipxWatershedEx, KipxWatershedContext) {
    if (!context) return KIPX_EINVAL;
    Call call;
    int32_t code = admit_flood(call, xe, flags, src, mask, roi, maskAt);
    if (code < 0) return code;
    bool fast = (flags & KIPX_FLAG_FAST) != 0;
    return each_plane(call, [=](const Call &slice) { return flood(slice, context, fast); });
}

KIPX_PUBLIC_FLOOD(KipxWatershed, KipxWatershedContext) {
    return KipxWatershedEx(xe, flags, src, nullptr, roi, nullptr, context);
}
