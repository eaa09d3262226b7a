// core/flat.cpp - entering the road below the descriptors.
#include "core/flat.h"

namespace kipx {
namespace {

// Extent and strides of whatever takes part.
bool has_vectors(const uint32_t *extent, const FlatGiven &given) {
    bool all =
        extent && (!given.dst || given.dst->strides) && (!given.mask.at || given.mask.strides);
    for (uint32_t i = 0; i < given.sources; ++i) all &= given.src[i].strides != nullptr;
    return all;
}

} // namespace

int32_t flat_call(Call &call, KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                  const FlatGiven &given) {
    uint32_t axes = axes_of(dims);
    bool valid = !given.dst || element_valid(given.dst->type);
    for (uint32_t i = 0; i < given.sources; ++i) valid &= element_valid(given.src[i].type);
    if (given.mask.at) valid &= given.mask.type == KIPX_U8;
    if (!valid || axes < 2 || axes > 4) return KIPX_EINVAL;
    if (axes == 4) return KIPX_ENOTSUP;
    if (!has_vectors(extent, given)) return KIPX_EINVAL;
    uint64_t entry = extent[axes - 1];
    call.dst.at = call.src[0].at = call.src[1].at = call.src[2].at = call.mask.at = nullptr;
    call.xe = xe;
    call.flags = (flags & 0xf0) == 0 ? flags | (entry & 0xf0) : flags;
    if (given.dst) call.dst = flat_operand(axes, *given.dst);
    for (uint32_t i = 0; i < given.sources; ++i) call.src[i] = flat_operand(axes, given.src[i]);
    if (given.mask.at) call.mask = flat_operand(axes, given.mask);
    call.sources = given.sources, call.planes = 1, call.channels = entry & 15;
    call.height = height_of(axes, extent), call.width = width_of(axes, extent);
    call.params = nullptr, call.shared = false;
    return 0;
}

} // namespace kipx
