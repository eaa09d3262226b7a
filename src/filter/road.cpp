// filter/road.cpp - the ways into a Call for operations over a window.
#include <kipx/array.h>

#include <algorithm>

#include "core/flat.h"
#include "core/planes.h"
#include "filter/filter.h"

namespace kipx {
namespace {

constexpr Shape filter_shape{
    .anchor = slot_src1,
    .sources = 1,
    .partners = 2,
    .partner = {{slot_dst, Fit::like, Meet::rest, true}, {slot_mask, Fit::mask, Meet::rest, true}},
    .stands_in = slot_dst,
    .planes = true,
    .overlap = true,
    .most_channels = 4,
    .no_rows = KIPX_EEMPTY};

uint32_t clamped(int64_t n) { return static_cast<uint32_t>(std::max<int64_t>(n, 0)); }

} // namespace

int32_t admit_filter(Call &call, KipxXE *xe, uint64_t flags, const FilterArrays &a,
                     kipx_brshape &room) {
    Given given{xe, flags, {}, a.roi, {}};
    given.arr[slot_src1] = a.src, given.arr[slot_dst] = a.dst, given.arr[slot_mask] = a.mask;
    call = {};
    if (int32_t code = admit(filter_shape, given, call)) return code;
    kipx_site region;
    kipx_arr_adjorgetRoi(a.src, &region, a.roi);
    const uint32_t extent[3] = {call.planes, call.height, call.width};
    const kipx_pos start{};
    kipx_brshape__compute_$gv(&room, 3, start.at, a.src->volume, region.origin, extent);
    return 0;
}

int32_t slice_filter(Call &call, KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    call = {};
    call.xe = xe, call.flags = flags, call.sources = 1, call.planes = 1;
    if (!slice || slice->count > KIPX_PACK_OPERANDS) return KIPX_EINVAL;
    call.height = slice->extent[1], call.width = slice->extent[2];
    call.channels = slice->extent[3];
    for (uint32_t i = 0; i < slice->count; ++i) {
        const kipx_operand &o = slice->operand[i];
        Operand operand = slice_operand(o);
        if (o.role == KIPX_ROLE_SOURCE) call.src[0] = operand;
        if (o.role == KIPX_ROLE_RESULT) call.dst = operand;
        if (o.role != KIPX_ROLE_MASK) continue;
        call.mask = operand;
        if (o.channels == 1) call.mask.channel = 0;
        if (o.type != KIPX_U8) return KIPX_EINVAL;
    }
    if (!call.dst.at) call.dst = call.src[0];
    return call.src[0].at && call.channels >= 1 && call.channels <= 4 ? 0 : KIPX_EINVAL;
}

int32_t flat_filter(Call &call, KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume,
                    uint32_t type, FlatPlace dst, FlatPlace src, FlatPlace mask) {
    uint32_t axes = axes_of(dims);
    if (!element_valid(type) || axes < 2 || axes > 4) return KIPX_EINVAL;
    if (axes == 4) return KIPX_ENOTSUP;
    if (!volume || !src.at || !src.strides || (dst.at && !dst.strides)) return KIPX_EINVAL;
    if (mask.at && !mask.strides) return KIPX_EINVAL;
    uint32_t entry = volume[axes - 1];
    call = {};
    call.xe = xe, call.flags = (flags & 0xf0) == 0 ? flags | (entry & 0xf0) : flags;
    call.sources = 1, call.planes = 1, call.channels = channels_of(entry & 15);
    call.height = height_of(axes, volume), call.width = width_of(axes, volume);
    call.src[0] = flat_operand(axes, {type, src.at, src.strides});
    call.dst = dst.at ? flat_operand(axes, {type, dst.at, dst.strides}) : call.src[0];
    if (mask.at) call.mask = flat_operand(axes, {KIPX_U8, mask.at, mask.strides});
    return call.channels >= 1 && call.channels <= 4 ? 0 : KIPX_EINVAL;
}

bool window_of(Window &w, const kipx_se *shape, const kipx_brshape *room) {
    if (!shape) return false;
    const auto *anchor = static_cast<const int32_t *>(shape), *volume = anchor + 4;
    for (int i = 1; i < 3; ++i)
        if (volume[i] < 1 || anchor[i] < 0 || anchor[i] >= volume[i]) return false;
    w.height = static_cast<uint32_t>(volume[1]), w.width = static_cast<uint32_t>(volume[2]);
    w.row = static_cast<uint32_t>(anchor[1]), w.column = static_cast<uint32_t>(anchor[2]);
    kipx_brshape reach;
    if (!room) room = __kipx_brshape__$se(&reach, shape);
    w.above = clamped(-int64_t{room->lower[1]}), w.left = clamped(-int64_t{room->lower[2]});
    w.below = clamped(room->upper[1]), w.right = clamped(room->upper[2]);
    return true;
}

kipx_seshape normalised(const kipx_seshape *shape, const Call &call) {
    kipx_seshape own{};
    if (shape) own = *shape;
    const uint32_t extent[3] = {call.planes, call.height, call.width};
    kipx_seshape__adjust_$gv$I(&own, 3, extent);
    return own;
}

void cut_to_array(Window &w, const Call &call) {
    auto cut = [](uint32_t &size, uint32_t &anchor, uint64_t before, uint64_t extent,
                  uint64_t after) {
        uint64_t behind = std::min<uint64_t>(size - 1 - anchor, after + extent - 1);
        anchor = static_cast<uint32_t>(std::min<uint64_t>(anchor, before + extent - 1));
        size = static_cast<uint32_t>(anchor + 1 + behind);
    };
    if (call.height) cut(w.height, w.row, w.above, call.height, w.below);
    if (call.width) cut(w.width, w.column, w.left, call.width, w.right);
}

void cut_to_reach(Window &w) {
    w.above = std::min(w.above, w.row), w.below = std::min(w.below, w.height - 1 - w.row);
    w.left = std::min(w.left, w.column), w.right = std::min(w.right, w.width - 1 - w.column);
}

int32_t goes_on(const Call &call) {
    if (call.shared) return KIPX_EINVAL;
    if (call.flags & KIPX_FLAG_PROBE) return KIPX_EAGAIN;
    return call.flags & KIPX_FLAG_PREPARE || call.height == 0 || call.width == 0 ? 0 : 1;
}

bool types_fit(const Call &call) {
    return element_valid(call.src[0].type) && call.src[0].type == call.dst.type;
}

} // namespace kipx
