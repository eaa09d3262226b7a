// core/binary.cpp - the generic handler for operations of two arrays.
#include "core/binary.h"

#include <kipx/array.h>

#include <algorithm>

#include "core/element.h"
#include "core/footprint.h"

namespace kipx {
namespace {

bool destination_fits(const kipx_arr *dst) {
    if (!dst || !dst->base || (dst->naxes != 3 && dst->naxes != 4)) return false;
    uint32_t channels = channels_of(dst->volume[3]);
    return static_cast<int32_t>(dst->volume[0]) >= 1 && channels >= 1 && channels <= 4;
}

bool source_fits(const kipx_arr *src, const kipx_arr &dst) {
    if (!src || !src->base) return false;
    bool axes = src->naxes == dst.naxes || (src->naxes == 3 && dst.naxes == 4);
    return axes && (src->volume[0] == dst.volume[0] || src->volume[0] == 1) &&
           channels_of(src->volume[3]) == channels_of(dst.volume[3]);
}

// The three regions, all of the same extent once negotiated.
struct Regions {
    kipx_site dst, src1, src2;
};

// Fixes the regions; false when nothing is left. The channels that roi leaves are the same in all
// three arrays.
bool negotiate(const BinaryCall &c, const kipx_arr &src1, Regions &r) {
    if (!kipx_arr_negotiateRoi(c.dst, c.src2, &r.dst, &r.src2, c.roi, c.src2_at, 3)) return false;
    r.src1 = r.dst;
    bool in_place = !c.src1;
    for (int i = 0; i < 3 && !(in_place && !c.src1_at); ++i)
        r.src1.origin[i] = c.src1_at ? c.src1_at->at[i] : 0;
    if (!kipx_arr__adjustRoi_$I(r.src1.origin, r.src1.extent, &src1)) return false;
    r.src2.origin[3] = r.dst.origin[3];
    for (int i = 0; i < 4; ++i) r.dst.extent[i] = r.src2.extent[i] = r.src1.extent[i];
    return true;
}

bool memory_fits(const BinaryCall &c, const kipx_arr &src1, const Regions &r) {
    if (!offsets_fit(*c.dst, r.dst) || !offsets_fit(src1, r.src1) || !offsets_fit(*c.src2, r.src2))
        return false;
    if (!element_valid(c.dst->type) || !element_valid(src1.type) || !element_valid(c.src2->type))
        return true; // the typed level has the word
    Footprint dst = footprint(*c.dst, r.dst);
    Footprint a = footprint(src1, r.src1), b = footprint(*c.src2, r.src2);
    return !shares_own_bytes(dst) && (same_footprint(dst, a) || !share_bytes(dst, a)) &&
           (same_footprint(dst, b) || !share_bytes(dst, b));
}

struct Typed {
    const uint32_t *strides;
    uint32_t *origin;
    char *base;
};

// An operand as the array level takes it: its origin has moved into the base address.
Typed operand(const kipx_arr &arr, kipx_site &site, kipx_dims dims) {
    uint32_t lead = static_cast<uint32_t>(leading_of(dims)), offset = arr.offset;
    kipx_vec_update_loff(dims, &offset, site.origin + lead, arr.strides + lead);
    kipx_vec_dup_$L(dims, site.origin + lead, 0);
    return {arr.strides + lead, site.origin + lead,
            static_cast<char *>(kipx_advance_ptr(arr.base, offset))};
}

} // namespace

int32_t binary_handler(uint32_t code, const BinaryEntry *table, uint32_t entries,
                       const BinaryCall &c) {
    const BinaryEntry *entry =
        std::find_if(table, table + entries, [=](const BinaryEntry &e) { return e.code == code; });
    if (entry == table + entries) return KIPX_EINVAL;
    if (!destination_fits(c.dst)) return KIPX_EINVAL;
    const kipx_arr &src1 = c.src1 ? *c.src1 : *c.dst;
    if (!source_fits(&src1, *c.dst) || !source_fits(c.src2, *c.dst)) return KIPX_EINVAL;
    Regions r;
    if (!negotiate(c, src1, r)) return KIPX_EEMPTY;
    if (c.dst->naxes == 4) return KIPX_ENOTSUP;
    if (!memory_fits(c, src1, r)) return KIPX_EINVAL;

    constexpr kipx_dims dims = 3 | 1 << 4 | 1 << 10;
    Typed dst = operand(*c.dst, r.dst, dims), a = operand(src1, r.src1, dims),
          b = operand(*c.src2, r.src2, dims);
    return entry->routine(c.xe, c.flags, dims, r.dst.extent + 1, c.dst->type, dst.base, dst.origin,
                          dst.strides, src1.type, a.base, a.origin, a.strides, c.src2->type, b.base,
                          b.origin, b.strides, c.scale, c.aux);
}

} // namespace kipx
