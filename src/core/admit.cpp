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

bool fits(Fit fit, const kipx_arr &a, const kipx_arr &anchor) {
    if (!a.base) return false;
    uint32_t channels = channels_of(a.volume[3]);
    bool channels_fit = channels == channels_of(anchor.volume[3]);
    bool planes_fit = a.volume[0] == anchor.volume[0];
    switch (fit) {
    case Fit::like:
        return axes_fit(a, anchor) && (planes_fit || a.volume[0] == 1) && channels_fit;
    case Fit::near:
        return axes_fit(a, anchor) && channels_fit;
    case Fit::same:
        return a.naxes == anchor.naxes && planes_fit && channels_fit;
    default:
        return axes_fit(a, anchor) && a.type == KIPX_U8 && (channels_fit || channels == 1);
    }
}

// One array of the call and its region.
struct Met {
    const kipx_arr *arr;
    Slot slot;
    bool every_plane; // the anchor's planes all meet the same one
    bool single;      // a mask of one channel serves all of them
    kipx_site site;
    Span span;
};

// Those that take part: the anchor, then the others in the order of the shape.
struct Party {
    uint32_t count = 0;
    Met met[slot_count];
    void add(const kipx_arr &arr, Slot slot, bool every_plane, bool single) {
        Met &m = met[count++];
        m.arr = &arr, m.slot = slot, m.every_plane = every_plane, m.single = single;
    }
};

// Brings the region of a partner and the anchor's to a common extent; false when nothing is left.
bool meet(const Partner &p, bool follows, const kipx_pos *at, Met &own, kipx_site &anchor) {
    if (p.meet == Meet::rest) {
        kipx_pos from;
        if (follows) {
            for (int i = 0; i < 3; ++i) from.at[i] = anchor.origin[i];
            at = &from;
        }
        kipx_arr__siteofAt(own.arr, 3, own.site.origin, own.site.extent, at);
        if (own.every_plane) own.site.origin[0] = 0, own.site.extent[0] = anchor.extent[0];
        return common_extent(anchor, own.site, 3);
    }
    own.site = anchor;
    for (int i = 0; i < 3 && !follows; ++i) own.site.origin[i] = at ? at->at[i] : 0;
    if (own.every_plane) own.site.origin[0] = 0, own.site.extent[0] = 1;
    if (!kipx_arr__adjustRoi_$I(own.site.origin, own.site.extent, own.arr)) return false;
    for (int i = own.every_plane; i < 4; ++i) anchor.extent[i] = own.site.extent[i];
    return true;
}

// The extent agreed on, back into a region.
void settle(Met &m, const kipx_site &anchor) {
    for (int i = 0; i < 4; ++i) m.site.extent[i] = anchor.extent[i];
    m.site.origin[3] = anchor.origin[3];
    if (m.single) m.site.origin[3] = 0, m.site.extent[3] = 1;
    if (m.every_plane) m.site.extent[0] = 1;
}

Operand operand_of(const Met &m) {
    const kipx_arr &a = *m.arr;
    bool planes = a.naxes == 4 && !m.every_plane;
    return {reinterpret_cast<char *>(m.span.first),
            planes ? a.strides[0] : 0,
            a.strides[1],
            a.strides[2],
            m.single ? 0 : a.strides[3],
            a.type,
            element_size(a.type),
            0,
            0};
}

// Any array may lie apart from the destination, or share its span but no byte; a source may be the
// destination.
bool lies_well(const Met &dst, const Met &other) {
    if (apart(dst.span, other.span)) return true;
    Footprint d = footprint(*dst.arr, dst.site), o = footprint(*other.arr, other.site);
    return (other.slot != slot_mask && same_footprint(d, o)) || !share_bytes(d, o);
}

// Says in the call whether the destination shares bytes with itself or another array.
void look_for_shared_bytes(const Shape &shape, const Party &party, const Met &dst, Call &call) {
    if (!nests_plainly(*dst.arr, dst.site))
        call.shared = shares_own_bytes(footprint(*dst.arr, dst.site));
    for (uint32_t i = 0; i < party.count; ++i) {
        const Met &m = party.met[i];
        if (&m == &dst || lies_well(dst, m)) continue;
        (shape.overlap && m.slot != slot_mask ? call.across : call.shared) = true;
    }
}

// Fills in the arrays that take part, and checks how they fit; false where one does not.
bool take_part(const Shape &shape, const Given &given, Party &party) {
    const kipx_arr &anchor = *given.arr[shape.anchor];
    party.add(anchor, shape.anchor, false, false);
    for (uint32_t i = 0; i < shape.partners; ++i) {
        const Partner &p = shape.partner[i];
        const kipx_arr *a = given.arr[p.slot];
        if (!a && p.slot == slot_mask) continue;
        if (!a && p.slot == shape.stands_in) a = &anchor;
        if (!a || !fits(p.fit, *a, anchor)) return false;
        // A source or a mask without planes of its own serves them all, a source of one plane, too.
        bool one_plane = p.fit == Fit::like && a->volume[0] == 1 && anchor.volume[0] != 1;
        bool every_plane = shape.planes && p.slot != slot_dst && (a->naxes == 3 || one_plane);
        bool single = p.slot == slot_mask && channels_of(a->volume[3]) == 1;
        party.add(*a, p.slot, every_plane, single);
    }
    return true;
}

bool agree(const Shape &shape, const Given &given, Party &party) {
    kipx_site &anchor = party.met[0].site;
    kipx_arr_adjorgetRoi(party.met[0].arr, &anchor, given.roi);
    for (int i = 0; i < 4; ++i)
        if (static_cast<int32_t>(anchor.extent[i]) < 1) return false;
    for (uint32_t i = 0, k = 1; k < party.count; ++i) {
        const Partner &p = shape.partner[i];
        if (p.slot != party.met[k].slot) continue;
        const kipx_pos *at = given.at[p.slot];
        bool stands_in = !given.arr[p.slot];
        if (!meet(p, !at && (p.follows || stands_in), at, party.met[k++], anchor)) return false;
    }
    return true;
}

void begin(Call &call, const Shape &shape, const Given &given, const Party &party) {
    const Met &anchor = party.met[0];
    call.xe = given.xe, call.flags = given.flags, call.sources = shape.sources;
    call.planes = anchor.arr->naxes == 4 ? anchor.site.extent[0] : 1;
    call.height = anchor.site.extent[1], call.width = anchor.site.extent[2];
    call.channels = anchor.site.extent[3];
    call.params = nullptr, call.shared = false;
    call.dst.at = call.src[0].at = call.src[1].at = call.src[2].at = call.mask.at = nullptr;
}

} // namespace

int32_t admit(const Shape &shape, const Given &given, Call &call) {
    if (!leads(shape, given.arr[shape.anchor])) return KIPX_EINVAL;
    Party party;
    if (!take_part(shape, given, party)) return KIPX_EINVAL;
    if (!agree(shape, given, party)) return KIPX_EEMPTY;
    if (party.met[0].arr->naxes == 4 && !shape.planes) return KIPX_ENOTSUP;

    begin(call, shape, given, party);
    const Met *dst = nullptr;
    for (uint32_t i = 0; i < party.count; ++i) {
        Met &m = party.met[i];
        if (i) settle(m, party.met[0].site);
        if (!span_of(*m.arr, m.site, m.span)) return KIPX_EINVAL;
        operand(call, m.slot) = operand_of(m);
        if (m.slot == slot_dst) dst = &m;
    }
    if (!dst) return 0;
    if (dst->arr->naxes == 3) call.planes = 1; // no plane may be written twice
    look_for_shared_bytes(shape, party, *dst, call);
    return 0;
}

int32_t travel(const Shape &shape, const Given &given, const void *params, Worker worker) {
    Call call;
    if (int32_t code = admit(shape, given, call)) return code;
    call.params = params;
    return work_admitted(call, worker);
}

int32_t work_admitted(Call &call, Worker worker) {
    if (!call.shared) return worker(call);
    // Sizes that no kernel works with say nothing about shared bytes: types have the first word.
    call.flags = (call.flags | KIPX_FLAG_PREPARE) & ~KIPX_FLAG_PROBE;
    int32_t types = worker(call);
    return types ? types : KIPX_EINVAL;
}

} // namespace kipx
