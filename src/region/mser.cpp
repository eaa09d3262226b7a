// region/mser.cpp - stable regions of an image: floods, detection, and cleaning up after failures.
#include <kipx/mser.h>

#include <climits>
#include <initializer_list>

#include "core/planes.h"
#include "region/detect.h"
#include "region/fast_flood.h"
#include "region/flood.h"
#include "region/road.h"

namespace kipx {
namespace {

// Forgets what a call leaves; the builders are closed by whoever opened them.
void forget_results(KipxMSERContext *context) {
    _ZuMfree(context->list.entries);
    context->list = {};
    context->dark_count = context->bright_count = 0;
    context->dark = context->bright = nullptr;
    context->dark_builder = context->bright_builder = nullptr;
}

int32_t fail(KipxMSERContext *context, int32_t code) {
    if (context) forget_results(context);
    return code;
}

// One plane. The builders are handed to the context when all has gone well.
class Generation {
public:
    Generation(const Call &call, KipxMSERContext *context)
        : xe_(call.xe), flags_(call.flags), call_(call), context_(context),
          fast_((call.flags & KIPX_FLAG_FAST) != 0) {}
    int32_t run();

private:
    int32_t work();
    bool open_builders();
    int32_t flood_all();
    int32_t flood_fast();
    int32_t flood_standard(KipxSTB *builder, uint16_t polarity);
    KipxMSERparms parameters() const;
    int32_t detect();
    int32_t gather();

    KipxXE *xe_;
    uint64_t flags_;
    const Call &call_;
    KipxMSERContext *context_;
    bool fast_;
    FloodImage image_;
    KipxSTB *dark_ = nullptr, *bright_ = nullptr;
};

bool Generation::open_builders() {
    ZuSMEMSTG *stack = KipxXEmmstack(xe_);
    if (!stack) return false;
    auto open = [&]() -> KipxSTB * {
        if (!fast_) return KipxWTSTBopen(nullptr, nullptr, nullptr, stack);
        return reinterpret_cast<KipxSTB *>(KipxFWTSRESopen(nullptr, nullptr, nullptr, stack));
    };
    if (context_->polarity != 1 && !(dark_ = open())) return false;
    return context_->polarity == 0 || (bright_ = open());
}

int32_t Generation::flood_standard(KipxSTB *builder, uint16_t polarity) {
    KipxWatershedContext w{builder,
                           &context_->levelset,
                           polarity,
                           context_->connectivity,
                           context_->shift,
                           context_->seed_row,
                           context_->seed_column,
                           context_->output};
    image_.invert = polarity == 1 ? 255 : 0;
    return settle_seed(image_) ? standard_flood(xe_, flags_, image_, &w) : KIPX_EEMPTY;
}

// Both polarities on one scratch.
int32_t Generation::flood_fast() {
    if (!settle_seed(image_)) return KIPX_EEMPTY;
    int32_t code = announce(&context_->levelset, image_);
    if (code < 0) return code;
    FastFlood fast;
    code = fast.open(xe_, flags_, image_);
    for (KipxSTB *builder : {dark_, bright_}) {
        if (code < 0 || !builder) continue;
        image_.invert = builder == bright_ ? 255 : 0;
        code = fast.run(image_, context_->levelset, KipxFWTSRESfrombuilder(builder));
    }
    fast.close();
    return code;
}

int32_t Generation::flood_all() {
    if (fast_) return flood_fast();
    int32_t code = dark_ ? flood_standard(dark_, 0) : 0;
    return code == 0 && bright_ ? flood_standard(bright_, 1) : code;
}

int32_t truncated(float value) {
    if (!(value > static_cast<float>(INT_MIN))) return value < 0 ? INT_MIN : 0;
    return value >= -static_cast<float>(INT_MIN) ? INT_MAX : static_cast<int32_t>(value);
}

KipxMSERparms Generation::parameters() const {
    float pixels = static_cast<float>(image_.pixels());
    KipxMSERparms p{context_->delta, truncated(pixels * context_->min_area_fraction),
                    truncated(pixels * context_->max_area_fraction), context_->max_variation,
                    context_->min_diversity};
    if (p.min_area == 0) p.min_area = context_->min_area_pixels > 0 ? context_->min_area_pixels : 9;
    return p;
}

int32_t Generation::detect() {
    KipxMSERlist &list = context_->list;
    KipxMSERparms parms = parameters();
    uint64_t first = list.count;
    if (dark_ && !detect_regions(&list, dark_->tree, parms)) return KIPX_ENOMEM;
    uint64_t middle = list.count;
    if (bright_ && !detect_regions(&list, bright_->tree, parms)) return KIPX_ENOMEM;
    for (uint64_t i = middle; i < list.count; ++i) list.entries[i]->level ^= 255;
    context_->dark_count = static_cast<uint32_t>(middle - first);
    context_->bright_count = static_cast<uint32_t>(list.count - middle);
    context_->dark = list.entries ? list.entries + first : nullptr;
    context_->bright = list.entries ? list.entries + middle : nullptr;
    return 0;
}

int32_t Generation::gather() {
    if (!fast_ || context_->gather == 0) return 0;
    int32_t code = 0;
    if (context_->dark_count > 0)
        code = KipxGatherMSERsFeatures(dark_, context_->dark, context_->dark_count);
    if (code == 0 && context_->bright_count > 0)
        code = KipxGatherMSERsFeatures(bright_, context_->bright, context_->bright_count);
    return code;
}

int32_t Generation::work() {
    if (!open_builders()) return KIPX_ENOMEM;
    int32_t code = flood_all();
    if (code == 0) code = detect();
    return code < 0 ? code : gather();
}

int32_t Generation::run() {
    // The polarities that are asked for are flooded in turn.
    const FloodSettings settings{0, context_->connectivity, context_->shift, context_->seed_row,
                                 context_->seed_column};
    int32_t code = image_of(call_, &settings, fast_, image_);
    if (code == 0 && flags_ & KIPX_FLAG_PROBE)
        code = KIPX_EAGAIN;
    else if (code == 0 && !(flags_ & KIPX_FLAG_PREPARE))
        code = xe_ ? work() : KIPX_EINVAL;
    if (code < 0) {
        fail(context_, code);
        KipxSTBclose(dark_, 0);
        KipxSTBclose(bright_, 0);
        return code;
    }
    context_->dark_builder = dark_;
    context_->bright_builder = bright_;
    return 0;
}

int32_t generate_slice(KipxXE *xe, uint64_t flags, const kipx_pack *slice, bool masked) {
    if (!slice) return KIPX_EINVAL;
    auto *context = static_cast<KipxMSERContext *>(slice->context);
    Call call;
    int32_t code = slice_flood(call, xe, flags, slice, masked);
    if (code < 0 || !context) return fail(context, code < 0 ? code : KIPX_EINVAL);
    return Generation(call, context).run();
}

} // namespace
} // namespace kipx

using namespace kipx;

KIPX_ARRAY_FLOOD_M(kipxa_mser_xm, KipxMSERContext) {
    if (!context) return KIPX_EINVAL;
    Call call;
    int32_t code = flat_flood(
        call, xe, flags, dims, extent, {type, start_of(dims, src, origin, strides), strides},
        {mask_type, start_of(dims, mask, mask_origin, mask_strides), mask_strides});
    return code < 0 ? fail(context, code) : Generation(call, context).run();
}

KIPX_ARRAY_FLOOD(kipxa_mser, KipxMSERContext) {
    return kipxa_mser_xm(xe, flags, dims, extent, type, src, origin, strides, 0, nullptr, nullptr,
                         nullptr, context);
}

KIPX_ARRAY_FLOOD_M(kipxa_fmser_xm, KipxMSERContext) {
    return kipxa_mser_xm(xe, flags | KIPX_FLAG_FAST, dims, extent, type, src, origin, strides,
                         mask_type, mask, mask_origin, mask_strides, context);
}

KIPX_ARRAY_FLOOD(kipxa_fmser, KipxMSERContext) {
    return kipxa_mser(xe, flags | KIPX_FLAG_FAST, dims, extent, type, src, origin, strides,
                      context);
}

KIPX_SLICE(KipxTGAgenerateMSERs) { return generate_slice(xe, flags, slice, false); }
KIPX_SLICE(KipxTGAgenerateMSERsEx) { return generate_slice(xe, flags, slice, true); }
KIPX_SLICE(KipxTGAgenerateFMSERs) {
    return generate_slice(xe, flags | KIPX_FLAG_FAST, slice, false);
}
KIPX_SLICE(KipxTGAgenerateFMSERsEx) {
    return generate_slice(xe, flags | KIPX_FLAG_FAST, slice, true);
}

KIPX_PUBLIC_FLOOD_M(KipxGenerateMSERsEx, KipxMSERContext) {
    if (!context) return KIPX_EINVAL;
    Call call;
    int32_t code = admit_flood(call, xe, flags, src, mask, roi, maskAt);
    if (code < 0) return fail(context, code);
    // Each plane of an array takes the place of the one before.
    bool first = true;
    return each_plane(call, [&](const Call &slice) {
        if (!first) KipxMSERrelease(context);
        first = false;
        return Generation(slice, context).run();
    });
}

KIPX_PUBLIC_FLOOD(KipxGenerateMSERs, KipxMSERContext) {
    return KipxGenerateMSERsEx(xe, flags, src, nullptr, roi, nullptr, context);
}

KIPX_PUBLIC_FLOOD(KipxGenerateFMSERs, KipxMSERContext) {
    return KipxGenerateMSERs(xe, flags | KIPX_FLAG_FAST, src, roi, context);
}

KIPX_PUBLIC_FLOOD_M(KipxGenerateFMSERsEx, KipxMSERContext) {
    return KipxGenerateMSERsEx(xe, flags | KIPX_FLAG_FAST, src, mask, roi, maskAt, context);
}

void KipxMSERrelease(KipxMSERContext *context) {
    if (!context) return;
    KipxSTBclose(context->dark_builder, 0);
    KipxSTBclose(context->bright_builder, 0);
    forget_results(context);
}
