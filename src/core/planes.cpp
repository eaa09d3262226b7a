// core/planes.cpp - packing operands and going through their planes.
#include <kipx/planes.h>

namespace {

constexpr kipx_dims slice_dims = 3 | 1 << 4;

char *moved(void *base, uint64_t bytes) { return static_cast<char *>(base) + bytes; }

} // namespace

extern "C" {

kipx_pack *kipxa_addpackL(kipx_pack *pack, const kipx_arr *arr, const kipx_site *site,
                          uint32_t role) {
    if (pack->count >= KIPX_PACK_OPERANDS) return nullptr;
    kipx_operand &o = pack->operand[pack->count++];
    o = {moved(arr->base, arr->offset), arr->type, site->extent[3], {}, {}, role, 0};
    for (int i = 0; i < 4; ++i) o.origin[i] = site->origin[i], o.strides[i] = arr->strides[i];
    // Only four axes give the first entries a meaning.
    if (arr->naxes != 4) o.origin[0] = o.strides[0] = 0;
    return pack;
}

kipx_pack *kipxa_genpackL(kipx_pack *pack, uint32_t code, const kipx_arr *arr,
                          const kipx_site *site, void *context) {
    *pack = kipx_pack{};
    pack->code = code;
    pack->dims = slice_dims;
    pack->planes = arr->naxes == 4 ? site->extent[0] : 1;
    pack->extent[0] = 1;
    for (int i = 1; i < 4; ++i) pack->extent[i] = site->extent[i];
    pack->context = context;
    return kipxa_addpackL(pack, arr, site, KIPX_ROLE_SOURCE);
}

kipx_pack *kipxa_mappackL(kipx_pack *pack, uint32_t code, const kipx_arr *src,
                          const kipx_site *src_site, const kipx_arr *mask,
                          const kipx_site *mask_site, void *context) {
    kipxa_genpackL(pack, code, src, src_site, context);
    return kipxa_addpackL(pack, mask, mask_site, KIPX_ROLE_MASK);
}

int32_t kipxa_call(KipxXE *xe, uint64_t flags, const kipx_pack *pack, kipx_slice_fun function) {
    for (uint32_t plane = 0; plane < pack->planes; ++plane) {
        kipx_pack slice = *pack;
        slice.planes = 1;
        for (uint32_t i = 0; i < slice.count; ++i) {
            kipx_operand &o = slice.operand[i];
            o.base = moved(o.base, (uint64_t{o.origin[0]} + plane) * o.strides[0]);
            o.origin[0] = 0;
        }
        int32_t code = function(xe, flags, &slice);
        if (code < 0) return code;
    }
    return 0;
}
}
