// morph/shape.cpp - structuring elements and border shapes.
//
// Gives    everything that kipx/shape.h declares.
// Promises no component arithmetic can overflow: it is done on unsigned numbers, which wrap. Records
//          are read and written as 32-bit integers, so that an element with a mask serves where a
//          solid one does.
#include <kipx/array.h>
#include <kipx/shape.h>

#include <algorithm>
#include <cmath>

#include "core/element.h"

namespace {

constexpr uint32_t spatial = 3;

int32_t *anchor_of(kipx_se *se) { return static_cast<int32_t *>(se); }
int32_t *volume_of(kipx_se *se) { return static_cast<int32_t *>(se) + 4; }
const int32_t *anchor_of(const kipx_se *se) { return static_cast<const int32_t *>(se); }
const int32_t *volume_of(const kipx_se *se) { return static_cast<const int32_t *>(se) + 4; }

uint32_t bits(int32_t value) { return static_cast<uint32_t>(value); }
int32_t number(uint32_t value) { return static_cast<int32_t>(value); }
int32_t sum(int32_t a, int32_t b) { return number(bits(a) + bits(b)); }
int32_t difference(int32_t a, int32_t b) { return number(bits(a) - bits(b)); }
int32_t negative(int32_t a) { return number(0 - bits(a)); }

// How many of the three spatial components a count speaks of.
uint32_t used(int32_t n) { return static_cast<uint32_t>(std::clamp(n, 0, number(spatial))); }

// The count of a $L form with its leading components, and where they begin.
struct Components {
    uint32_t n;
    const int32_t *first;
};
Components leading_too(kipx_dims dims, const int32_t *vector) {
    uint32_t n = std::min(kipx::axes_of(dims), spatial);
    uint32_t leading = std::min(static_cast<uint32_t>(kipx::leading_of(dims)), spatial - n);
    return {n + leading, vector ? vector - leading : nullptr};
}

// Four components, right-aligned over the spatial three. A null vector gives the missing value.
template<class T> void assemble(T *to, Components from, int32_t missing, int32_t fourth) {
    uint32_t first = from.first ? spatial - from.n : spatial;
    for (uint32_t i = 0; i < spatial; ++i)
        to[i] = static_cast<T>(i < first ? missing : from.first[i - first]);
    to[3] = static_cast<T>(fourth);
}
template<class T> void assemble_anchor(T *to, Components from) { assemble(to, from, 0, 0); }
template<class T> void assemble_volume(T *to, Components from) { assemble(to, from, 1, 1); }

void centre(kipx_se *se, uint32_t first, uint32_t end) {
    for (uint32_t i = first; se && i < end; ++i) anchor_of(se)[i] = volume_of(se)[i] / 2;
}

kipx_seshape *centred(kipx_seshape *se, Components sizes) {
    if (!se) return se;
    assemble_volume(se->volume, sizes);
    assemble_anchor(se->anchor, {0, nullptr});
    centre(se, 0, spatial);
    return se;
}
kipx_seshape *anchored(kipx_seshape *se, Components anchor, Components sizes) {
    if (!se) return se;
    assemble_anchor(se->anchor, anchor);
    assemble_volume(se->volume, sizes);
    return se;
}

void set_volume(kipx_se *se, Components sizes) {
    if (se) assemble_volume(volume_of(se), sizes);
}

int32_t counted_from_end(int32_t value, int32_t end) {
    return value < 0 ? std::max(sum(value, end), 0) : value;
}

kipx_brshape *bordered(kipx_brshape *br, Components before, Components after) {
    if (!br) return br;
    assemble_anchor(br->lower, before);
    assemble_anchor(br->upper, after);
    for (int32_t &lower : br->lower) lower = negative(lower);
    return br;
}

// One dimension of a border fitted into the room that there is for it.
void fit(int32_t &lower, int32_t &upper, int32_t room) {
    if (room < 1) {
        lower = negative(room);
        upper = 0;
        return;
    }
    int32_t span = difference(upper, lower);
    if (room >= span) return;
    float share = static_cast<float>(number(bits(lower) * bits(room))) / static_cast<float>(span);
    lower = static_cast<int32_t>(std::nearbyint(share)); // at most 2^30: span is 2 at least
    upper = sum(room, lower);
}

// What a shape adds to an extent, per spatial component.
struct Growth {
    int32_t by[spatial];
};
Growth growth(const kipx_se *se) {
    Growth g{};
    for (uint32_t i = 0; se && i < spatial; ++i) g.by[i] = difference(volume_of(se)[i], 1);
    return g;
}
Growth growth(const kipx_brshape *br) {
    Growth g{};
    for (uint32_t i = 0; br && i < spatial; ++i) g.by[i] = difference(br->upper[i], br->lower[i]);
    return g;
}

void grow(uint32_t *out, const uint32_t *in, uint32_t n, const Growth &g, bool narrower) {
    if (!in) in = out;
    for (uint32_t i = 0; out && i < n; ++i) {
        uint32_t by = bits(g.by[spatial - n + i]);
        out[i] = narrower ? in[i] - by : in[i] + by;
    }
}

// A volume of the kind's axes and leading slots, widened and sized by one of the two functions.
template<class Size>
uint64_t bordered_size(Size size, uint32_t kind, uint32_t *volume, uint32_t *strides,
                       const Growth &g, uint32_t align) {
    uint32_t n = kipx::axes_of(kind);
    if (!volume || n < 1 || n > 4) return 0;
    grow(volume, nullptr, std::min(n - 1, spatial), g, false);
    return size(kind, volume, strides, align);
}
template<class Size>
uint64_t bordered_size(Size size, uint32_t kind, const uint32_t *volume, uint32_t *strides,
                       const Growth &g, uint32_t align) {
    uint32_t n = kipx::axes_of(kind), copy[4] = {};
    uint32_t leading = size == kipx_vmemsizeL ? static_cast<uint32_t>(kipx::leading_of(kind)) : 0;
    if (!volume || n < 1 || n + leading > 4) return 0;
    for (uint32_t i = 0; i < n + leading; ++i) copy[i] = (volume - leading)[i];
    return bordered_size(size, kind, copy + leading, strides, g, align);
}

} // namespace

extern "C" {

kipx_seshape *__kipx_seshape__$(kipx_seshape *se) { return __kipx_seshape__$g2(se, 5, 5); }

kipx_seshape *__kipx_seshape__$gv(kipx_seshape *se, int32_t n, const int32_t *sizes) {
    return centred(se, {used(n), sizes});
}
kipx_seshape *__kipx_seshape__$gv$L(kipx_seshape *se, kipx_dims n, const int32_t *sizes) {
    return centred(se, leading_too(n, sizes));
}
kipx_seshape *__kipx_seshape__$gvv(kipx_seshape *se, int32_t n, const int32_t *anchor,
                                   const int32_t *sizes) {
    return anchored(se, {used(n), anchor}, {used(n), sizes});
}
kipx_seshape *__kipx_seshape__$gvv$L(kipx_seshape *se, kipx_dims n, const int32_t *anchor,
                                     const int32_t *sizes) {
    return anchored(se, leading_too(n, anchor), leading_too(n, sizes));
}

kipx_seshape *__kipx_seshape__$g1(kipx_seshape *se, int32_t width) {
    return __kipx_seshape__$gv(se, 1, &width);
}
kipx_seshape *__kipx_seshape__$g2(kipx_seshape *se, int32_t height, int32_t width) {
    const int32_t sizes[] = {height, width};
    return __kipx_seshape__$gv(se, 2, sizes);
}
kipx_seshape *__kipx_seshape__$g3(kipx_seshape *se, int32_t planes, int32_t height, int32_t width) {
    const int32_t sizes[] = {planes, height, width};
    return __kipx_seshape__$gv(se, 3, sizes);
}
kipx_seshape *__kipx_seshape__$g11(kipx_seshape *se, int32_t column, int32_t width) {
    return __kipx_seshape__$gvv(se, 1, &column, &width);
}
kipx_seshape *__kipx_seshape__$g22(kipx_seshape *se, int32_t row, int32_t column, int32_t height,
                                   int32_t width) {
    const int32_t anchor[] = {row, column}, sizes[] = {height, width};
    return __kipx_seshape__$gvv(se, 2, anchor, sizes);
}
kipx_seshape *__kipx_seshape__$g33(kipx_seshape *se, int32_t plane, int32_t row, int32_t column,
                                   int32_t planes, int32_t height, int32_t width) {
    const int32_t anchor[] = {plane, row, column}, sizes[] = {planes, height, width};
    return __kipx_seshape__$gvv(se, 3, anchor, sizes);
}

void kipx_strel_rstanchor(kipx_se *se, int32_t n) { centre(se, 0, used(n)); }
void kipx_seshape_rstanchor_$gn(kipx_se *se, int32_t n) { centre(se, 0, used(n)); }
void kipx_seshape_rstanchor_$g1(kipx_se *se) { centre(se, 2, spatial); }
void kipx_seshape_rstanchor_$g2(kipx_se *se) { centre(se, 1, spatial); }
void kipx_seshape_rstanchor_$g3(kipx_se *se) { centre(se, 0, spatial); }

void kipx_seshape_setvol_$gv(kipx_se *se, int32_t n, const int32_t *sizes) {
    set_volume(se, {used(n), sizes});
}
void kipx_seshape_setvol_$gv$L(kipx_se *se, kipx_dims n, const int32_t *sizes) {
    set_volume(se, leading_too(n, sizes));
}
void kipx_seshape_setvol_$g1(kipx_se *se, int32_t width) { kipx_seshape_setvol_$gv(se, 1, &width); }
void kipx_seshape_setvol_$g2(kipx_se *se, int32_t height, int32_t width) {
    const int32_t sizes[] = {height, width};
    kipx_seshape_setvol_$gv(se, 2, sizes);
}
void kipx_seshape_setvol_$g3(kipx_se *se, int32_t planes, int32_t height, int32_t width) {
    const int32_t sizes[] = {planes, height, width};
    kipx_seshape_setvol_$gv(se, 3, sizes);
}
void kipx_seshape_vzero(kipx_se *se) {
    if (se) std::fill_n(volume_of(se), spatial, 0);
}
void kipx_strel_azero(kipx_se *se) {
    if (se) std::fill_n(anchor_of(se), spatial, 0);
}

uint32_t kipx_strel_capacity(const kipx_se *se) {
    uint32_t product = se ? 1 : 0;
    for (uint32_t i = 0; se && i < spatial; ++i) product *= bits(volume_of(se)[i]);
    return product;
}
uint64_t kipx_seshape_capacity_$Q(const kipx_se *se) {
    uint64_t product = se ? 1 : 0;
    bool overflow = false, none = false;
    for (uint32_t i = 0; se && i < spatial; ++i) {
        uint64_t size = bits(volume_of(se)[i]);
        none |= size == 0;
        overflow |= __builtin_mul_overflow(product, size, &product);
    }
    return none ? 0 : overflow ? UINT64_MAX : product;
}
int32_t kipx_strel_empty(const kipx_se *se) {
    bool empty = false;
    for (uint32_t i = 0; se && i < spatial; ++i) empty |= volume_of(se)[i] < 1;
    return empty;
}

int32_t kipx_sea_issolid_v255(const kipx_arr *mask) {
    if (!mask) return 0;
    if (!mask->base || (mask->naxes != 3 && mask->naxes != 4)) return !mask->base;
    if (kipx_elsize(mask->type) != 1) return 0;
    const uint32_t *volume = mask->volume, *strides = mask->strides;
    uint32_t planes = mask->naxes == 4 ? volume[0] : 1, channels = kipx_nchannels(volume[3]);
    uint64_t row = uint64_t{volume[2]} * channels;
    bool folds = strides[2] == uint64_t{strides[3]} * channels && row <= UINT32_MAX;
    const uint8_t solid = 255;
    const auto *base = static_cast<const char *>(kipx_arr_base(mask));
    for (uint64_t p = 0; p < planes; ++p)
        for (uint64_t c = 0; c < (folds ? 1 : channels); ++c)
            if (kipx_memcelem2dS(base + p * strides[0] + c * strides[3], volume[1], strides[1],
                                 folds ? static_cast<uint32_t>(row) : volume[2],
                                 folds ? strides[3] : strides[2], 1, &solid))
                return 0;
    return 1;
}
int32_t kipx_strel_issolid_$v255(const kipx_strel *strel) {
    return strel ? kipx_sea_issolid_v255(&strel->mask) : 0;
}

int32_t kipx_seshape__adjust_$gv$I(kipx_se *se, int32_t n, const uint32_t *ref) {
    if (!se) return KIPX_EINVAL;
    int32_t *anchor = anchor_of(se), *volume = volume_of(se);
    uint32_t count = used(n), first = spatial - count;
    anchor[3] = volume[3] = 0;
    bool point = true;
    for (uint32_t i = first; i < spatial; ++i) {
        volume[i] = counted_from_end(volume[i], ref ? number(ref[i - first]) : 0);
        if (volume[i] == 0) anchor[i] = 0, volume[i] = 1;
        point &= volume[i] == 1;
    }
    if (point) {
        volume[1] = volume[2] = 5;
        anchor[1] = anchor[2] = 2;
    }
    for (uint32_t i = first; i < spatial; ++i)
        anchor[i] = std::min(counted_from_end(anchor[i], volume[i]), volume[i] - 1);
    return 1;
}
int32_t kipx_seshape__adjust_$gv(kipx_se *dst, const kipx_se *src, int32_t n, const uint32_t *ref) {
    if (dst && src && dst != src) std::copy_n(anchor_of(src), 8, anchor_of(dst));
    return kipx_seshape__adjust_$gv$I(dst, n, ref);
}
int32_t kipx_strel__adjust_$gv$I(kipx_se *se, int32_t n, const uint32_t *ref) {
    return kipx_seshape__adjust_$gv$I(se, n, ref);
}
int32_t kipx_strel__adjust_$gv(kipx_se *dst, const kipx_se *src, int32_t n, const uint32_t *ref) {
    return kipx_seshape__adjust_$gv(dst, src, n, ref);
}
int32_t kipx_strel_adjust(kipx_se *dst, const kipx_se *src, const uint32_t *ref) {
    return kipx_seshape__adjust_$gv(dst, src, 3, ref);
}
int32_t kipx_seshape_adjust_$I(kipx_se *se, const uint32_t *ref) {
    return kipx_seshape__adjust_$gv$I(se, 3, ref);
}
int32_t kipx_seshape_adjust_$g2(kipx_se *dst, const kipx_se *src, uint32_t rows, uint32_t columns) {
    const uint32_t ref[] = {rows, columns};
    return kipx_seshape__adjust_$gv(dst, src, 2, ref);
}
int32_t kipx_seshape_adjust_$g2$I(kipx_se *se, uint32_t rows, uint32_t columns) {
    return kipx_seshape_adjust_$g2(se, nullptr, rows, columns);
}

kipx_brshape *__kipx_brshape__$gv(kipx_brshape *br, int32_t n, const int32_t *before,
                                  const int32_t *after) {
    return bordered(br, {used(n), before}, {used(n), after});
}
kipx_brshape *__kipx_brshape__$gv$L(kipx_brshape *br, kipx_dims n, const int32_t *before,
                                    const int32_t *after) {
    return bordered(br, leading_too(n, before), leading_too(n, after));
}
kipx_brshape *__kipx_brshape__$g1(kipx_brshape *br, int32_t before, int32_t after) {
    return __kipx_brshape__$gv(br, 1, &before, &after);
}
kipx_brshape *__kipx_brshape__$g2(kipx_brshape *br, int32_t rows_before, int32_t columns_before,
                                  int32_t rows_after, int32_t columns_after) {
    const int32_t before[] = {rows_before, columns_before}, after[] = {rows_after, columns_after};
    return __kipx_brshape__$gv(br, 2, before, after);
}
kipx_brshape *__kipx_brshape__$g3(kipx_brshape *br, int32_t planes_before, int32_t rows_before,
                                  int32_t columns_before, int32_t planes_after, int32_t rows_after,
                                  int32_t columns_after) {
    const int32_t before[] = {planes_before, rows_before, columns_before},
                  after[] = {planes_after, rows_after, columns_after};
    return __kipx_brshape__$gv(br, 3, before, after);
}
kipx_brshape *__kipx_brshape__$se(kipx_brshape *br, const kipx_se *se) {
    if (!br || !se) return br;
    Growth g = growth(se);
    int32_t after[spatial];
    for (uint32_t i = 0; i < spatial; ++i) after[i] = difference(g.by[i], anchor_of(se)[i]);
    return bordered(br, {spatial, anchor_of(se)}, {spatial, after});
}
kipx_brparm *__kipx_brparm__$se(kipx_brparm *br, const kipx_se *se) {
    return __kipx_brshape__$se(br, se);
}
kipx_brshape *kipx_brshape__compute_$gv(kipx_brshape *br, int32_t n, const uint32_t *outer_at,
                                        const uint32_t *outer_volume, const uint32_t *inner_at,
                                        const uint32_t *inner_volume) {
    if (!br || !outer_at || !outer_volume || !inner_at || !inner_volume) return br;
    int32_t before[spatial], after[spatial];
    for (uint32_t i = 0; i < used(n); ++i) {
        before[i] = number(inner_at[i] - outer_at[i]);
        after[i] = number(outer_at[i] + outer_volume[i] - inner_at[i] - inner_volume[i]);
    }
    return __kipx_brshape__$gv(br, n, before, after);
}
kipx_brparm *kipx_brparm__compute_$gv(kipx_brparm *br, int32_t n, const uint32_t *outer_at,
                                      const uint32_t *outer_volume, const uint32_t *inner_at,
                                      const uint32_t *inner_volume) {
    return kipx_brshape__compute_$gv(br, n, outer_at, outer_volume, inner_at, inner_volume);
}
kipx_brshape *__kipx_brshape__$ois(kipx_brshape *br, const uint32_t *outer_at,
                                   const uint32_t *outer_volume, const uint32_t *inner_at,
                                   const uint32_t *inner_volume) {
    return kipx_brshape__compute_$gv(br, 3, outer_at, outer_volume, inner_at, inner_volume);
}
void kipx_brparm_zero(kipx_brparm *br) {
    if (!br) return;
    std::fill_n(br->lower, spatial, 0);
    std::fill_n(br->upper, spatial, 0);
}
int32_t kipx_brparm_empty(const kipx_brparm *br) {
    int32_t any = 0;
    for (uint32_t i = 0; br && i < spatial; ++i) any |= br->lower[i] | br->upper[i];
    return br && any == 0;
}

int32_t kipx_brshape__adjust_$gv$I(kipx_brshape *br, int32_t n, const uint32_t *outer_volume,
                                   const uint32_t *inner_volume) {
    if (!br || !outer_volume || !inner_volume) return KIPX_EINVAL;
    br->lower[3] = br->upper[3] = 0;
    uint32_t count = used(n), first = spatial - count;
    for (uint32_t k = 0; k < count; ++k)
        fit(br->lower[first + k], br->upper[first + k], number(outer_volume[k] - inner_volume[k]));
    int32_t signs = 0;
    for (uint32_t i = 0; i < spatial; ++i) signs |= negative(br->lower[i]) | br->upper[i];
    return signs >= 0;
}
int32_t kipx_brshape__adjust_$gv(kipx_brshape *dst, const kipx_brshape *src, int32_t n,
                                 const uint32_t *outer_volume, const uint32_t *inner_volume) {
    if (dst && src && dst != src) *dst = *src;
    return kipx_brshape__adjust_$gv$I(dst, n, outer_volume, inner_volume);
}
int32_t kipx_brshape_adjust(kipx_brshape *dst, const kipx_brshape *src, const kipx_site *outer,
                            const kipx_site *inner) {
    return kipx_brshape__adjust_$gv(dst, src, 3, outer ? outer->extent : nullptr,
                                    inner ? inner->extent : nullptr);
}

uint32_t *__kipx_dims__$gv(uint32_t *vector, int32_t n, const int32_t *components) {
    if (vector) assemble_anchor(vector, {used(n), components});
    return vector;
}
uint32_t *__kipx_dims__$gv$L(uint32_t *vector, kipx_dims n, const int32_t *components) {
    if (vector) assemble_anchor(vector, leading_too(n, components));
    return vector;
}
uint32_t *__kipx_Nvolume__$gv(uint32_t *vector, int32_t n, const int32_t *components) {
    if (vector) assemble_volume(vector, {used(n), components});
    return vector;
}
uint32_t *__kipx_Nvolume__$gv$L(uint32_t *vector, kipx_dims n, const int32_t *components) {
    if (vector) assemble_volume(vector, leading_too(n, components));
    return vector;
}

#define KIPX_VOLUME_ARITHMETIC(op, by, record, narrower)                                           \
    void kipx_volume__##op##_##by(uint32_t *out, const uint32_t *in, int32_t n,                    \
                                  const record *shape) {                                           \
        grow(out, in, used(n), growth(shape), narrower);                                           \
    }                                                                                              \
    void kipx_volume__##op##_$I##by(uint32_t *volume, int32_t n, const record *shape) {            \
        grow(volume, nullptr, used(n), growth(shape), narrower);                                   \
    }                                                                                              \
    void kipx_Nvolume_##op##_##by(uint32_t *out, const uint32_t *in, kipx_dims n,                  \
                                  const record *shape) {                                           \
        grow(out, in, std::min(kipx::axes_of(n), spatial), growth(shape), narrower);               \
    }                                                                                              \
    void kipx_Nvolume_##op##_$I##by(uint32_t *volume, kipx_dims n, const record *shape) {          \
        grow(volume, nullptr, std::min(kipx::axes_of(n), spatial), growth(shape), narrower);       \
    }
KIPX_VOLUME_ARITHMETIC(widen, $se, kipx_se, false)
KIPX_VOLUME_ARITHMETIC(narrow, $se, kipx_se, true)
KIPX_VOLUME_ARITHMETIC(widen, $br, kipx_brshape, false)
KIPX_VOLUME_ARITHMETIC(narrow, $br, kipx_brshape, true)

#define KIPX_BORDERED_SIZE(name, record, constant, size)                                           \
    uint64_t name(uint32_t kind, constant uint32_t *volume, uint32_t *strides,                     \
                  const record *shape, uint32_t align) {                                           \
        return bordered_size(size, kind, volume, strides, growth(shape), align);                   \
    }
KIPX_BORDERED_SIZE(kipx_vmemsize_$se, kipx_se, const, kipx_vmemsize)
KIPX_BORDERED_SIZE(kipx_vmemsize_$L$se, kipx_se, const, kipx_vmemsizeL)
KIPX_BORDERED_SIZE(kipx_vmemsize_$I$se, kipx_se, , kipx_vmemsize)
KIPX_BORDERED_SIZE(kipx_vmemsize_$IL$se, kipx_se, , kipx_vmemsizeL)
KIPX_BORDERED_SIZE(kipx_vmemsize_br, kipx_brshape, const, kipx_vmemsize)
KIPX_BORDERED_SIZE(kipx_vmemsizeL_br, kipx_brshape, const, kipx_vmemsizeL)
KIPX_BORDERED_SIZE(kipx_vmemsizeI_br, kipx_brshape, , kipx_vmemsize)
KIPX_BORDERED_SIZE(kipx_vmemsizeIL_br, kipx_brshape, , kipx_vmemsizeL)

int32_t kipx__compute_roi_$se(kipx_site *roi, kipx_site *need, int32_t n, uint32_t kind,
                              const kipx_site *given, const kipx_se *se, const kipx_site *src_roi,
                              const kipx_site *dst_roi) {
    const kipx_site *wanted = given ? given : dst_roi ? dst_roi : src_roi;
    const kipx_site *there = (kind & KIPX_ROI_OF_OTHER || !src_roi) && dst_roi ? dst_roi : src_roi;
    if (!roi || !need || !se || !wanted || !there) return 0;
    *need = *wanted;
    *roi = kind & KIPX_ROI_ON_NEED ? *need : *there;
    uint32_t count = used(n), first = spatial - count;
    for (uint32_t i = first; i < spatial; ++i) need->origin[i] -= bits(anchor_of(se)[i]);
    grow(need->extent + first, nullptr, count, growth(se), false);
    if (kind & KIPX_ROI_ON_NEED) return 0;
    kipx__intersecI(4, roi->origin, roi->extent, need->origin, need->extent);
    return std::equal(roi->extent, roi->extent + spatial, need->extent);
}
int32_t kipx_compute_roi_$se(kipx_site *roi, kipx_site *need, uint32_t kind, const kipx_site *given,
                             const kipx_se *se, const kipx_site *src_roi,
                             const kipx_site *dst_roi) {
    return kipx__compute_roi_$se(roi, need, 3, kind, given, se, src_roi, dst_roi);
}
int32_t kipx__testfiltop_$se(kipx_site *roi, kipx_site *need, int32_t n, uint32_t kind,
                             const kipx_site *given, const kipx_se *se, const kipx_arr *src,
                             const kipx_arr *dst) {
    kipx_site of_src, of_dst;
    bool first = kipx_arr_adjorgetRoi(src, &of_src, nullptr) != 0;
    bool second = kipx_arr_adjorgetRoi(dst, &of_dst, nullptr) != 0;
    return kipx__compute_roi_$se(roi, need, n, kind, given, se, first ? &of_src : nullptr,
                                 second ? &of_dst : nullptr);
}
int32_t kipx_testfiltop_$se(kipx_site *roi, kipx_site *need, uint32_t kind, const kipx_site *given,
                            const kipx_se *se, const kipx_arr *src, const kipx_arr *dst) {
    return kipx__testfiltop_$se(roi, need, 3, kind, given, se, src, dst);
}
}
