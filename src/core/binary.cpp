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

// A source may lie apart from the destination, be the destination, or share its span but no byte.
bool source_apart(const kipx_arr &dst, const kipx_site &dst_site, const Span &dst_span,
                  const kipx_arr &src, const kipx_site &src_site, const Span &src_span) {
    if (apart(dst_span, src_span)) return true;
    Footprint d = footprint(dst, dst_site), s = footprint(src, src_site);
    return same_footprint(d, s) || !share_bytes(d, s);
}

struct Spans {
    Span dst, src1, src2;
};

bool spans_fit(const BinaryCall &c, const kipx_arr &src1, const Regions &r, Spans &s) {
    return span_of(*c.dst, r.dst, s.dst) && span_of(src1, r.src1, s.src1) &&
           span_of(*c.src2, r.src2, s.src2);
}

bool bytes_apart(const BinaryCall &c, const kipx_arr &src1, const Regions &r, const Spans &s) {
    return (nests_plainly(*c.dst, r.dst) || !shares_own_bytes(footprint(*c.dst, r.dst))) &&
           source_apart(*c.dst, r.dst, s.dst, src1, r.src1, s.src1) &&
           source_apart(*c.dst, r.dst, s.dst, *c.src2, r.src2, s.src2);
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
    Spans s;
    if (!spans_fit(c, src1, r, s)) return KIPX_EINVAL;

    // Origins have moved into the addresses; what they were is no longer needed.
    constexpr kipx_dims dims = 3 | 1 << 4 | 1 << 10;
    auto route = [&](uint64_t flags) {
        return entry->routine(
            c.xe, flags, dims, r.dst.extent + 1, c.dst->type, reinterpret_cast<void *>(s.dst.first),
            nullptr, c.dst->strides + 1, src1.type, reinterpret_cast<void *>(s.src1.first), nullptr,
            src1.strides + 1, c.src2->type, reinterpret_cast<void *>(s.src2.first), nullptr,
            c.src2->strides + 1, c.scale, c.aux);
    };
    if (bytes_apart(c, src1, r, s)) return route(c.flags);
    // Sizes that no kernel works with say nothing about shared bytes: the types have the first word.
    int32_t types = route((c.flags | KIPX_FLAG_PREPARE) & ~KIPX_FLAG_PROBE);
    return types ? types : KIPX_EINVAL;
}

} // namespace kipx
