// filter/sep.cpp - separable filters: how they are summed, and all their levels.
#include "filter/sep.h"

#include <algorithm>
#include <cmath>

#include "core/flat.h"

namespace kipx {
namespace {

constexpr size_t slack = sep_block, most_group = 16;

double absolute_sum(const double *weights, size_t n) {
    double sum = 0;
    for (size_t i = 0; i < n; ++i) sum += std::fabs(weights[i]);
    return sum;
}

// The smallest power of two that makes whole numbers of all weights; 0 where 2^12 does not.
double whole_scale(const double *weights, size_t n) {
    for (int exponent = 0; exponent <= 12; ++exponent) {
        const double scale = 1 << exponent;
        bool whole = true;
        for (size_t i = 0; i < n; ++i)
            whole &= std::nearbyint(weights[i] * scale) == weights[i] * scale;
        if (whole) return scale;
    }
    return 0;
}

size_t sums_size(const Sheet &s, const Window &w, size_t size) {
    return (s.width + size_t{w.width} * s.step) * size + slack;
}

size_t kept_at(const Sheet &s, const SepLoops &loops) {
    return (s.width * loops.sum_size + slack + 63) / 64 * 64;
}

size_t ring_row(const Sheet &s, const Window &w, const SepLoops &loops, SepVariant variant) {
    if (variant == sep_smooth) return sums_size(s, w, s.src.size);
    return variant == sep_guarded ? kept_at(s, loops) + sums_size(s, w, s.src.size)
                                  : s.width * loops.sum_size;
}

size_t weights_size(const Window &w) {
    return ((size_t{w.height} + w.width) * sizeof(float) + 63) / 64 * 64;
}

size_t extra_size(const Sheet &s, const Window &w, const SepLoops &loops, SepVariant variant) {
    if (variant != sep_smooth) return sums_size(s, w, loops.sum_size);
    const size_t pitch = smooth_pitch(s.width + (w.width - size_t{1}) * s.step);
    return weights_size(w) + smooth_results * smooth_ways * pitch * sizeof(float);
}

// ---- weights that smooth ----

// What a sum over n weights comes to at most, and how far it may be off in 2^-24 of what it is a sum of: by
// what weights lose, and by every product and sum so far, which is rounded. Not a number for weights below
// 0.
struct Smooth {
    double sum = 0, off = 0;
    Smooth(const double *weights, size_t n) {
        for (size_t i = 0; i < n; ++i) {
            const double w = weights[i], lost = w - static_cast<double>(static_cast<float>(w));
            if (!(w >= 0)) sum = off = NAN;
            sum += w, off += std::fabs(lost) * 0x1p24 + w + sum;
        }
    }
};

// The margin of sep_smooth: how far sums may be off in 2^-16, half of one being added to them and what is
// left of a whole one cut off; a whole number. 0 where they are not at most one, or off by too much.
double smooth_margin(const Window &w, const SepWeights &weights) {
    const Smooth rows(weights.rows, w.height), columns(weights.columns, w.width);
    const double off = rows.off * columns.sum + rows.sum * columns.off;
    if (!(rows.sum * columns.sum <= 1 + 0x1p-20) || !(off < 1000)) return 0;
    return std::ceil(1.01 * 0x1p-8 * (255 * off + w.width + 4.0) + 1.5);
}

} // namespace

bool SepPass::has_type(uint32_t type) {
    return type < 16 && sep_sets_of(Set::baseline)[0].loops[type][sep_plain].along;
}

// How far binary32 may be off: weights, products and sums round by half a unit in the last place of
// what they can amount to, width + 1 times along the row and height + 1 times down the column.
SepPass::Choice SepPass::choose(uint32_t type, const Window &w, const SepWeights &weights) {
    if (type != KIPX_U8) return {sep_plain, 0};
    double most =
        255 * absolute_sum(weights.columns, w.width) * absolute_sum(weights.rows, w.height);
    double scale = whole_scale(weights.rows, w.height) * whole_scale(weights.columns, w.width);
    if (scale > 0 && most * scale < 0x1p24) return {sep_short, 0};
    if (double smooth = smooth_margin(w, weights); smooth > 0) return {sep_smooth, smooth};
    double margin = 1.01 * 0x1p-24 * most * (4.0 + w.width + w.height);
    return margin < 0.05 ? Choice{sep_guarded, margin} : Choice{sep_plain, 0};
}

SepPass::SepPass(const Sheet &s, const Window &w, const SepWeights &weights, Set set)
    : SepPass(s, w, weights, choose(s.src.type, w, weights),
              sep_sets_of(set)[0].loops[s.src.type][choose(s.src.type, w, weights).variant]) {}

SepPass::SepPass(const Sheet &s, const Window &w, const SepWeights &weights, Choice choice,
                 const SepLoops &loops)
    : RingPass(w,
               choice.variant == sep_smooth ? most_group : std::min<size_t>(w.height, most_group),
               ring_row(s, w, loops, choice.variant), extra_size(s, w, loops, choice.variant)),
      loops_(loops), weights_(weights), choice_(choice), n_(s.width), step_(s.step),
      width_(w.width), kept_(choice.variant == sep_guarded ? kept_at(s, loops) : 0),
      weights_size_(weights_size(w)) {
    auto bytes = [&](size_t pixels) { return static_cast<ptrdiff_t>(pixels * s.step_bytes()); };
    reach_ = {-bytes(w.column), bytes(w.width - 1 - w.column)};
    reach_.end += static_cast<ptrdiff_t>(s.bytes());
}

const void *SepPass::fill() const {
    static constexpr uint64_t zero = 0;
    return &zero;
}

void SepPass::along(const Band &band, char *out, ptrdiff_t step) {
    loops_.along(
        {band, reach(), source(), width_, step_, n_, weights_.columns, extra(), out, step, kept_});
}

void SepPass::weigh(const char *const *rows, size_t group, char *out, ptrdiff_t step, bool given) {
    // Behind the sums rows are whole; else they are what there is of the source's.
    const RowElements whole{static_cast<ptrdiff_t>(kept_), 0, n_ + (width_ - 1) * step_, false};
    const RowElements elements =
        choice_.variant == sep_smooth ? elements_of(source(), reach(), given, 1) : whole;
    loops_.down({rows, height(), group, n_, weights_.rows, out, step, elements, width_, step_,
                 weights_.columns, choice_.margin, extra(), weights_size_});
}

void SepPass::down(const char *const *rows, size_t group, char *out, ptrdiff_t step) {
    weigh(rows, group, out, step, false);
}

void SepPass::rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) {
    if (choice_.variant == sep_smooth && source().stay)
        weigh(rows_under(lines, y, rows), rows, out, step, true);
    else
        RingPass::rows(lines, y, rows, out, step);
}

int32_t sep_call(Call &call, Window window, const SepWeights &weights) {
    if (!types_fit(call) || !SepPass::has_type(call.src[0].type)) return KIPX_EINVAL;
    Recipe recipe{window, Border::constant, {}, active_set(call.flags), 0};
    if (!border_in(call.flags, recipe.border)) return KIPX_EINVAL;
    if (window.height == 1 && window.width == 1) return copy_call(call);
    if (int32_t code = goes_on(call); code < 1) return code;
    bool near = recipe.border == Border::constant || recipe.border == Border::replicate;
    if (near) cut_to_reach(recipe.window);
    return apply<Single<SepPass>>(call, recipe, [&](const Sheet &s, const Window &w, Role) {
        return SepPass(s, w, weights, recipe.set);
    });
}

// The weights of a kernel whose shape makes a window; false for null ones.
static bool weights_of(const kipx_sepkernel &kernel, SepWeights &weights) {
    weights = {kernel.weights[1], kernel.weights[2]};
    return weights.rows && weights.columns;
}

static int32_t kernel_call(Call &call, const kipx_sepkernel *kernel, const kipx_brshape *room) {
    Window window;
    SepWeights weights;
    bool good = kernel && window_of(window, &kernel->shape, room) && weights_of(*kernel, weights);
    return good ? sep_call(call, window, weights) : KIPX_EINVAL;
}

} // namespace kipx

using namespace kipx;

extern "C" {

int32_t KipxSepFilter(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                      const kipx_arr *mask, const kipx_site *roi, const kipx_sepkernel *kernel) {
    Call call;
    kipx_brshape room;
    int32_t code = admit_filter(call, xe, flags, {src, dst, mask, roi}, room);
    return code < 0 ? code : kernel_call(call, kernel, &room);
}

KIPX_SLICE(KipxTGAsepfilter) {
    Call call;
    if (int32_t code = slice_filter(call, xe, flags, slice); code < 0) return code;
    const auto *args = static_cast<const kipx_sepfilter_args *>(slice->context);
    return args ? kernel_call(call, &args->kernel, &args->room) : KIPX_EINVAL;
}

int32_t kipxa__esepfilter(KIPX_FILTER_OPERANDS, const void *mask, const uint32_t *mask_strides,
                          const kipx_sepkernel *kernel) {
    Call call;
    int32_t code = flat_filter(call, xe, flags, dims, volume, type, {dst, dst_strides},
                               {src, src_strides}, {mask, mask_strides});
    return code < 0 ? code : kernel_call(call, kernel, nullptr);
}

int32_t kipxa__sepfilter(KIPX_FILTER_OPERANDS, const kipx_sepkernel *kernel) {
    return kipxa__esepfilter(xe, flags, dims, volume, type, dst, dst_strides, src, src_strides,
                             nullptr, nullptr, kernel);
}

int32_t kipxa_esepfilter(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK, const kipx_sepkernel *kernel) {
    return kipxa__esepfilter(xe, flags, dims, volume, type,
                             start_of(dims, dst, dst_origin, dst_strides), dst_strides,
                             start_of(dims, src, src_origin, src_strides), src_strides,
                             start_of(dims, mask, mask_origin, mask_strides), mask_strides, kernel);
}

int32_t kipxa_sepfilter(KIPX_FILTER_ORIGINS, const kipx_sepkernel *kernel) {
    return kipxa_esepfilter(xe, flags, dims, volume, type, dst, dst_origin, dst_strides, src,
                            src_origin, src_strides, nullptr, nullptr, nullptr, kernel);
}

#define KIPX_SEPFILTER_KERNEL(c, T)                                                                \
    int32_t kipxa__sepfilter_c##c##_##T(                                                           \
        KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume, void *dst,             \
        const uint32_t *dst_strides, const void *src, const uint32_t *src_strides,                 \
        const kipx_sepkernel *kernel) {                                                            \
        return kipxa__sepfilter(xe, flags, dims, volume, KIPX_CODE_##T, dst, dst_strides, src,     \
                                src_strides, kernel);                                              \
    }
KIPX_SEPFILTER_KERNELS(KIPX_SEPFILTER_KERNEL)
}
