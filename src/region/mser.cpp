// region/mser.cpp - stable regions of an image: floods, detection, and cleaning up after failures.
#include <kipx/mser.h>

#include <kipx/array.h>

#include <climits>
#include <initializer_list>

#include "core/element.h"
#include "region/detect.h"
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

// One call of the array level. The builders are handed to the context when all has gone well.
class Generation {
public:
    Generation(KipxXE *xe, uint64_t flags, const Slice &slice, KipxMSERContext *context)
        : xe_(xe), flags_(flags), slice_(slice), context_(context),
          fast_((flags & KIPX_FLAG_FAST) != 0) {}
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
    KipxWatershedContext settings(KipxSTB *builder, uint16_t polarity) const;

    KipxXE *xe_;
    uint64_t flags_;
    const Slice &slice_;
    KipxMSERContext *context_;
    bool fast_;
    FloodImage image_;
    KipxSTB *dark_ = nullptr, *bright_ = nullptr;
};

KipxWatershedContext Generation::settings(KipxSTB *builder, uint16_t polarity) const {
    return {builder,
            &context_->levelset,
            polarity,
            context_->connectivity,
            context_->shift,
            context_->seed_row,
            context_->seed_column,
            context_->output};
}

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
    KipxWatershedContext w = settings(builder, polarity);
    if (!slice_.mask)
        return kipxa__watershed(xe_, flags_, slice_.dims, slice_.extent, slice_.type, slice_.src,
                                slice_.strides, &w);
    return kipxa__watershed_xm(xe_, flags_, slice_.dims, slice_.extent, slice_.type, slice_.src,
                               slice_.strides, slice_.mask_type, slice_.mask, slice_.mask_strides,
                               &w);
}

// Both polarities on one histogram and one scratch.
int32_t Generation::flood_fast() {
    if (!settle_seed(image_)) return KIPX_EEMPTY;
    int32_t code = announce(&context_->levelset, image_);
    if (code < 0) return code;
    FastRun run;
    code = run.take(xe_, image_);
    for (KipxSTB *builder : {dark_, bright_}) {
        if (code < 0 || !builder) continue;
        image_.invert = builder == bright_ ? 255 : 0;
        code = run.flood(image_, context_->levelset, KipxFWTSRESfrombuilder(builder));
    }
    run.give_back(xe_);
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
    // The checks need some builder; every other setting is the context's.
    KipxSTB stand_in{};
    KipxWatershedContext w = settings(&stand_in, 0);
    int32_t code = image_of(slice_, &w, fast_, image_);
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

// Slices of an array with planes: each takes the place of the one before.
struct Planes {
    KipxMSERContext *context;
    kipx_slice_fun slice;
    bool first;
};

int32_t next_plane(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    auto *planes = static_cast<Planes *>(slice->context);
    if (!planes->first) KipxMSERrelease(planes->context);
    planes->first = false;
    kipx_pack own = *slice;
    own.context = planes->context;
    return planes->slice(xe, flags, &own);
}

int32_t generate(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_site *roi,
                 KipxMSERContext *context, kipx_slice_fun slice) {
    if (!context) return KIPX_EINVAL;
    kipx_site site;
    int32_t code = check_source(src);
    if (code == 0) code = source_region(src, roi, &site);
    if (code < 0) return fail(context, code);
    kipx_pack pack;
    Planes planes{context, slice, true};
    kipxa_genpackL(&pack, KIPX_CODE_MSER, src, &site, &planes);
    return kipxa_call(xe, flags, &pack, next_plane);
}

int32_t generate_masked(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *mask,
                        const kipx_site *roi, const kipx_pos *mask_at, KipxMSERContext *context,
                        kipx_slice_fun slice) {
    if (!context) return KIPX_EINVAL;
    kipx_site site, mask_site;
    int32_t code = check_source(src);
    if (code == 0) code = masked_regions(src, mask, roi, mask_at, &site, &mask_site);
    if (code < 0) return fail(context, code);
    kipx_pack pack;
    Planes planes{context, slice, true};
    kipxa_mappackL(&pack, KIPX_CODE_MSER, src, &site, mask, &mask_site, &planes);
    return kipxa_call(xe, flags, &pack, next_plane);
}

} // namespace
} // namespace kipx

using namespace kipx;

int32_t kipxa_mser_xm(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                      uint32_t type, const void *src, const uint32_t *origin,
                      const uint32_t *strides, uint32_t mask_type, const void *mask,
                      const uint32_t *mask_origin, const uint32_t *mask_strides,
                      KipxMSERContext *context) {
    if (!context) return KIPX_EINVAL;
    Slice slice{dims,
                extent,
                type,
                slice_start(dims, src, origin, strides),
                strides,
                mask_type,
                slice_start(dims, mask, mask_origin, mask_strides),
                mask_strides};
    return Generation(xe, flags, slice, context).run();
}

int32_t kipxa_mser(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                   uint32_t type, const void *src, const uint32_t *origin, const uint32_t *strides,
                   KipxMSERContext *context) {
    return kipxa_mser_xm(xe, flags, dims, extent, type, src, origin, strides, 0, nullptr, nullptr,
                         nullptr, context);
}

int32_t kipxa_fmser(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                    uint32_t type, const void *src, const uint32_t *origin, const uint32_t *strides,
                    KipxMSERContext *context) {
    return kipxa_mser(xe, flags | KIPX_FLAG_FAST, dims, extent, type, src, origin, strides,
                      context);
}

int32_t kipxa_fmser_xm(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                       uint32_t type, const void *src, const uint32_t *origin,
                       const uint32_t *strides, uint32_t mask_type, const void *mask,
                       const uint32_t *mask_origin, const uint32_t *mask_strides,
                       KipxMSERContext *context) {
    return kipxa_mser_xm(xe, flags | KIPX_FLAG_FAST, dims, extent, type, src, origin, strides,
                         mask_type, mask, mask_origin, mask_strides, context);
}

int32_t KipxTGAgenerateMSERs(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    if (!slice) return KIPX_EINVAL;
    const kipx_operand &s = slice->operand[0];
    return kipxa_mser(xe, flags, slice->dims, slice->extent + 1, s.type, s.base, s.origin + 1,
                      s.strides + 1, static_cast<KipxMSERContext *>(slice->context));
}

int32_t KipxTGAgenerateMSERsEx(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    if (!slice) return KIPX_EINVAL;
    auto *context = static_cast<KipxMSERContext *>(slice->context);
    const kipx_operand &s = slice->operand[0], &m = slice->operand[1];
    if (m.channels > 1) return fail(context, KIPX_EINVAL);
    return kipxa_mser_xm(xe, flags, slice->dims, slice->extent + 1, s.type, s.base, s.origin + 1,
                         s.strides + 1, m.type, m.base, m.origin + 1, m.strides + 1, context);
}

int32_t KipxTGAgenerateFMSERs(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    return KipxTGAgenerateMSERs(xe, flags | KIPX_FLAG_FAST, slice);
}

int32_t KipxTGAgenerateFMSERsEx(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    return KipxTGAgenerateMSERsEx(xe, flags | KIPX_FLAG_FAST, slice);
}

int32_t KipxGenerateMSERs(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_site *roi,
                          KipxMSERContext *context) {
    return generate(xe, flags, src, roi, context, KipxTGAgenerateMSERs);
}

int32_t KipxGenerateFMSERs(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_site *roi,
                           KipxMSERContext *context) {
    return generate(xe, flags | KIPX_FLAG_FAST, src, roi, context, KipxTGAgenerateFMSERs);
}

int32_t KipxGenerateMSERsEx(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *mask,
                            const kipx_site *roi, const kipx_pos *maskAt,
                            KipxMSERContext *context) {
    if (!mask) return KipxGenerateMSERs(xe, flags, src, roi, context);
    return generate_masked(xe, flags, src, mask, roi, maskAt, context, KipxTGAgenerateMSERsEx);
}

int32_t KipxGenerateFMSERsEx(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *mask,
                             const kipx_site *roi, const kipx_pos *maskAt,
                             KipxMSERContext *context) {
    return KipxGenerateMSERsEx(xe, flags | KIPX_FLAG_FAST, src, mask, roi, maskAt, context);
}

void KipxMSERrelease(KipxMSERContext *context) {
    if (!context) return;
    KipxSTBclose(context->dark_builder, 0);
    KipxSTBclose(context->bright_builder, 0);
    forget_results(context);
}
