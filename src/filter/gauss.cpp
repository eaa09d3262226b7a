// filter/gauss.cpp - Gaussian filters: sigmas, weights, and all their levels.
//
// Promises weights have the same bits everywhere: the exponential is formed here, not by a library
//          that may choose its form by the processor.
#include <algorithm>
#include <cmath>

#include "core/flat.h"
#include "filter/sep.h"

namespace kipx {
namespace {

// e to the x, off by two units in the last place at most: x = k ln 2 + r, |r| <= 0.35, and the
// exponential series of r up to its 13th power, which is below half a unit.
double exponential(double x) {
    if (!(x > -746)) return x == x ? 0 : x;
    if (x > 710) return HUGE_VAL;
    double k = std::nearbyint(x * 0x1.71547652b82fep+0);
    double r = x - k * 0x1.62e42fee00000p-1; // the product is exact: 20 low bits are 0
    r -= k * 0x1.a39ef35793c76p-33;
    double sum = 1;
    for (int i = 13; i >= 1; --i) sum = 1 + sum * (r / i);
    return std::ldexp(sum, static_cast<int>(k));
}

uint32_t spatial(kipx_dims dims) {
    uint32_t axes = axes_of(dims);
    return axes > 0 ? std::min(axes - 1, 3u) : 0;
}

bool finite(const double *weights, size_t n) {
    bool all = true;
    for (size_t i = 0; i < n; ++i) all &= std::isfinite(weights[i]);
    return all;
}

int32_t gauss_call(Call &call, kipx_dims dims, const kipx_seshape &shape, const double *given,
                   const kipx_brshape *room) {
    Window window;
    if (!window_of(window, &shape, room)) return KIPX_EINVAL;
    double sigmas[3] = {0, 0, 0};
    uint32_t n = spatial(dims);
    kipx_adjustgaussigmas(dims, sigmas + (3 - n), &shape, given);
    for (double sigma : sigmas)
        if (sigma != sigma) return KIPX_EINVAL;
    // Checked with weights of no meaning, so that the block is taken only where there is work.
    const double one = 1;
    uint64_t flags = call.flags;
    call.flags |= KIPX_FLAG_PREPARE;
    int32_t code = sep_call(call, window, {&one, &one});
    call.flags = flags;
    if (code < 0 || flags & KIPX_FLAG_PREPARE || goes_on(call) < 1) return code;

    size_t total = size_t{window.height} + window.width;
    auto *block = static_cast<double *>(KipxXEalloca(call.xe, total * sizeof(double), 8));
    if (!block) return KIPX_ENOMEM;
    SepWeights weights{block, block + window.height};
    if (n > 1)
        kipx__computegauskernel1(block, shape.anchor[1], shape.volume[1], sigmas[1]);
    else
        std::fill_n(block, window.height, 1.0 / window.height);
    kipx__computegauskernel1(block + window.height, shape.anchor[2], shape.volume[2], sigmas[2]);
    code = finite(block, total) ? sep_call(call, window, weights) : KIPX_EINVAL;
    KipxXEfreea(call.xe, block);
    return code;
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {

double *kipx_adjustgaussigmas(kipx_dims dims, double *sigmas, const kipx_seshape *shape,
                              const double *given) {
    uint32_t n = spatial(dims);
    if (!sigmas || !shape) return sigmas;
    double last = 0;
    for (uint32_t i = n; given && i-- > 0;)
        if (given[i] != 0) last = given[i]; // in the end the first that is not 0
    for (uint32_t i = 0; i < n; ++i) {
        if (given && given[i] != 0) last = given[i];
        double extent = shape->volume[3 - n + i];
        sigmas[i] = last != 0 ? last : ((extent - 1) * 0.5 - 1.0) * 0.3 + 0.8;
    }
    return sigmas;
}

void kipx__computegauskernel1(double *weights, int32_t anchor, int32_t extent, double sigma) {
    double sum = 0;
    for (int32_t i = 0; i < extent; ++i) {
        uint32_t x = static_cast<uint32_t>(i) - static_cast<uint32_t>(anchor);
        double square = static_cast<int32_t>(x * x);
        weights[i] = exponential(-square / (2 * sigma * sigma));
        sum += weights[i];
    }
    for (int32_t i = 0; i < extent; ++i) weights[i] /= sum;
}

void kipx__computegauskernel(uint32_t n, double *const *weights, const int32_t *anchors,
                             const int32_t *extents, const double *sigmas) {
    if (!weights || !anchors || !extents || !sigmas) return;
    for (uint32_t i = 0; i < n; ++i)
        if (weights[i]) kipx__computegauskernel1(weights[i], anchors[i], extents[i], sigmas[i]);
}

void kipx_computegauskernel(kipx_dims dims, const kipx_sepkernel *kernel, const double *sigmas) {
    if (!kernel) return;
    uint32_t n = spatial(dims), first = 3 - n;
    double *weights[3];
    for (int i = 0; i < 3; ++i) weights[i] = const_cast<double *>(kernel->weights[i]);
    kipx__computegauskernel(n, weights + first, kernel->shape.anchor + first,
                            kernel->shape.volume + first, sigmas);
}

int32_t KipxGaussianFilter(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                           const kipx_arr *mask, const kipx_site *roi, const kipx_seshape *shape,
                           const double *sigmas) {
    Call call;
    kipx_brshape room;
    int32_t code = admit_filter(call, xe, flags, {src, dst, mask, roi}, room);
    if (code < 0) return code;
    kipx_seshape own = normalised(shape, call);
    return gauss_call(call, src->naxes, own, sigmas, &room);
}

KIPX_SLICE(KipxTGAgaussianfilter) { return KipxTGAsepfilter(xe, flags, slice); }

int32_t kipxa__efilter_gaussian(KIPX_FILTER_OPERANDS, const void *mask,
                                const uint32_t *mask_strides, const kipx_seshape *shape,
                                const double *sigmas) {
    Call call;
    int32_t code = flat_filter(call, xe, flags, dims, volume, type, {dst, dst_strides},
                               {src, src_strides}, {mask, mask_strides});
    if (code < 0) return code;
    return shape ? gauss_call(call, dims, *shape, sigmas, nullptr) : KIPX_EINVAL;
}

int32_t kipxa__filter_gaussian(KIPX_FILTER_OPERANDS, const kipx_seshape *shape,
                               const double *sigmas) {
    return kipxa__efilter_gaussian(xe, flags, dims, volume, type, dst, dst_strides, src,
                                   src_strides, nullptr, nullptr, shape, sigmas);
}

int32_t kipxa_egaussianfilter(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK, const kipx_seshape *shape,
                              const double *sigmas) {
    return kipxa__efilter_gaussian(
        xe, flags, dims, volume, type, start_of(dims, dst, dst_origin, dst_strides), dst_strides,
        start_of(dims, src, src_origin, src_strides), src_strides,
        start_of(dims, mask, mask_origin, mask_strides), mask_strides, shape, sigmas);
}

int32_t kipxa_gaussianfilter(KIPX_FILTER_ORIGINS, const kipx_seshape *shape, const double *sigmas) {
    return kipxa_egaussianfilter(xe, flags, dims, volume, type, dst, dst_origin, dst_strides, src,
                                 src_origin, src_strides, nullptr, nullptr, nullptr, shape, sigmas);
}
}
