// core/flat.cpp - entering the road below the descriptors.
#include "core/flat.h"

namespace kipx {

int32_t flat_call(Call &call, KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                  const Flat &dst, const Flat *src, uint32_t sources) {
    uint32_t axes = axes_of(dims);
    bool valid = element_valid(dst.type);
    for (uint32_t i = 0; i < sources; ++i) valid &= element_valid(src[i].type);
    if (!valid || axes < 2 || axes > 4) return KIPX_EINVAL;
    if (axes == 4) return KIPX_ENOTSUP;
    uint64_t entry = extent[axes - 1];
    call.src[1].at = call.src[2].at = call.mask.at = nullptr;
    call.xe = xe;
    call.flags = (flags & 0xf0) == 0 ? flags | (entry & 0xf0) : flags;
    call.dst = flat_operand(axes, dst);
    for (uint32_t i = 0; i < sources; ++i) call.src[i] = flat_operand(axes, src[i]);
    call.sources = sources, call.planes = 1, call.channels = entry & 15;
    call.height = height_of(axes, extent), call.width = width_of(axes, extent);
    call.params = nullptr, call.shared = false;
    return 0;
}

} // namespace kipx
