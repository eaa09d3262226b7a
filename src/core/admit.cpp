// core/admit.cpp - from array descriptors to a Call.
#include "core/admit.h"

#include <kipx/array.h>

#include "core/footprint.h"
#include "core/region.h"

namespace kipx {
namespace {

bool leads(const Shape &shape, const kipx_arr *a) {
    if (!a || !a->base || (a->naxes != 3 && a->naxes != 4)) return false;
    uint32_t channels = channels_of(a->volume[3]);
    if (channels < 1 || channels > shape.most_channels) return false;
    if (shape.no_rows == KIPX_EINVAL) return a->volume[0] && a->volume[1] && a->volume[2];
    return static_cast<int32_t>(a->volume[0]) >= 1;
}

bool axes_fit(const kipx_arr &a, const kipx_arr &anchor) {
    return a.naxes == anchor.naxes || (a.naxes == 3 && anchor.naxes == 4);
}

bool fits(Fit fit, const kipx_arr *a, const kipx_arr &anchor) {
    if (!a || !a->base) return false;
    uint32_t channels = channels_of(a->volume[3]);
    bool channels_fit = channels == channels_of(anchor.volume[3]);
    bool planes_fit = a->volume[0] == anchor.volume[0];
    switch (fit) {
    case Fit::like:
        return axes_fit(*a, anchor) && (planes_fit || a->volume[0] == 1) && channels_fit;
    case Fit::same:
        return a->naxes == anchor.naxes && planes_fit && channels_fit;
    default:
        return axes_fit(*a, anchor) && a->type == KIPX_U8 && (channels_fit || channels == 1);
    }
}

// One array of the call and its region.
struct Met {
    const kipx_arr *arr = nullptr;
    kipx_site site;
    bool every_plane = false; // the anchor's planes all meet the same one
};

// A source or a mask without planes of its own.
bool serves_every_plane(const Shape &shape, const Partner &p, const kipx_arr &a) {
    return shape.planes && p.slot != slot_dst && a.naxes == 3;
}

// Brings the region of a partner and the anchor's to a common extent; false when nothing is left.
bool meet(const Partner &p, bool follows, const kipx_pos *at, Met &own, kipx_site &anchor) {
    if (p.meet == Meet::rest) {
        kipx_pos from = at ? *at : kipx_pos{};
        if (follows)
            for (int i = 0; i < 3; ++i) from.at[i] = anchor.origin[i];
        kipx_arr__siteofAt(own.arr, 3, own.site.origin, own.site.extent, &from);
        if (own.every_plane) own.site.origin[0] = 0, own.site.extent[0] = anchor.extent[0];
        if (!common_extent(anchor, own.site, 3)) return false;
    } else {
        own.site = anchor;
        for (int i = 0; i < 3 && !follows; ++i) own.site.origin[i] = at ? at->at[i] : 0;
        uint32_t planes = own.site.extent[0];
        if (own.every_plane) own.site.origin[0] = 0, own.site.extent[0] = 1;
        if (!kipx_arr__adjustRoi_$I(own.site.origin, own.site.extent, own.arr)) return false;
        if (own.every_plane) own.site.extent[0] = planes;
        for (int i = 0; i < 4; ++i) anchor.extent[i] = own.site.extent[i];
    }
    return true;
}

// A mask of one channel serves all of them.
bool single(const Met (&met)[slot_count], uint32_t slot) {
    return slot == slot_mask && channels_of(met[slot].arr->volume[3]) == 1;
}

// The extent agreed on, back into every region.
void settle(Met (&met)[slot_count], const kipx_site &anchor) {
    for (uint32_t i = 0; i < slot_count; ++i) {
        Met &m = met[i];
        if (!m.arr) continue;
        m.site.origin[3] = single(met, i) ? 0 : anchor.origin[3];
        for (int k = 0; k < 4; ++k) m.site.extent[k] = anchor.extent[k];
        if (single(met, i)) m.site.extent[3] = 1;
        if (m.every_plane) m.site.extent[0] = 1;
    }
}

Operand operand_of(const Met &m, const Span &span, bool single) {
    const kipx_arr &a = *m.arr;
    Operand o;
    o.at = reinterpret_cast<char *>(span.first);
    o.plane = a.naxes == 4 && !m.every_plane ? a.strides[0] : 0;
    o.row = a.strides[1], o.pixel = a.strides[2], o.channel = single ? 0 : a.strides[3];
    o.type = a.type, o.size = element_size(a.type);
    return o;
}

// A source may lie apart from the destination, be the destination, or share its span but no byte.
bool source_apart(const Met &dst, const Span &dst_span, const Met &src, const Span &src_span) {
    if (apart(dst_span, src_span)) return true;
    Footprint d = footprint(*dst.arr, dst.site), s = footprint(*src.arr, src.site);
    return same_footprint(d, s) || !share_bytes(d, s);
}

bool bytes_apart(const Shape &shape, const Met (&met)[slot_count], const Span *span) {
    const Met &dst = met[slot_dst];
    if (!nests_plainly(*dst.arr, dst.site) && shares_own_bytes(footprint(*dst.arr, dst.site)))
        return false;
    for (uint32_t i = slot_src1; i < slot_count; ++i) {
        if (!met[i].arr || (shape.overlap && i != slot_mask)) continue;
        if (!source_apart(dst, span[slot_dst], met[i], span[i])) return false;
    }
    return true;
}

// Fills in the arrays that take part, and checks how they fit; false where one does not.
bool take_part(const Shape &shape, const Given &given, Met (&met)[slot_count]) {
    const kipx_arr &anchor = *given.arr[shape.anchor];
    met[shape.anchor].arr = &anchor;
    for (uint32_t i = 0; i < shape.partners; ++i) {
        const Partner &p = shape.partner[i];
        const kipx_arr *a = given.arr[p.slot];
        if (!a && p.slot == slot_mask) continue;
        if (!a && p.slot == shape.stands_in) a = &anchor;
        if (!fits(p.fit, a, anchor)) return false;
        met[p.slot].arr = a;
        met[p.slot].every_plane = serves_every_plane(shape, p, *a);
    }
    return true;
}

bool agree(const Shape &shape, const Given &given, Met (&met)[slot_count]) {
    kipx_site &anchor = met[shape.anchor].site;
    kipx_arr_adjorgetRoi(given.arr[shape.anchor], &anchor, given.roi);
    for (int i = 0; i < 4; ++i)
        if (static_cast<int32_t>(anchor.extent[i]) < 1) return false;
    for (uint32_t i = 0; i < shape.partners; ++i) {
        const Partner &p = shape.partner[i];
        if (!met[p.slot].arr) continue;
        const kipx_pos *at = given.at[p.slot];
        bool stands_in = !given.arr[p.slot];
        if (!meet(p, !at && (p.follows || stands_in), at, met[p.slot], anchor)) return false;
    }
    return true;
}

} // namespace

int32_t admit(const Shape &shape, const Given &given, Call &call) {
    if (!leads(shape, given.arr[shape.anchor])) return KIPX_EINVAL;
    Met met[slot_count];
    if (!take_part(shape, given, met)) return KIPX_EINVAL;
    if (!agree(shape, given, met)) return KIPX_EEMPTY;
    const kipx_site region = met[shape.anchor].site;
    settle(met, region);
    bool planes = met[shape.anchor].arr->naxes == 4;
    if (planes && !shape.planes) return KIPX_ENOTSUP;

    call.xe = given.xe, call.flags = given.flags, call.sources = shape.sources;
    bool one_result = met[slot_dst].arr && met[slot_dst].arr->naxes == 3;
    call.planes = planes && !one_result ? region.extent[0] : 1;
    call.height = region.extent[1], call.width = region.extent[2], call.channels = region.extent[3];
    call.params = nullptr;
    Span span[slot_count];
    for (uint32_t i = 0; i < slot_count; ++i) {
        if (!met[i].arr) continue;
        if (!span_of(*met[i].arr, met[i].site, span[i])) return KIPX_EINVAL;
        operand(call, i) = operand_of(met[i], span[i], single(met, i));
    }
    call.shared = met[slot_dst].arr && !bytes_apart(shape, met, span);
    return 0;
}

int32_t travel(const Shape &shape, const Given &given, const void *params, Worker worker) {
    Call call;
    if (int32_t code = admit(shape, given, call)) return code;
    call.params = params;
    if (!call.shared) return worker(call);
    // Sizes that no kernel works with say nothing about shared bytes: types have the first word.
    call.flags = (call.flags | KIPX_FLAG_PREPARE) & ~KIPX_FLAG_PROBE;
    int32_t types = worker(call);
    return types ? types : KIPX_EINVAL;
}

} // namespace kipx
