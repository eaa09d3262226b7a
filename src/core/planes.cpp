// core/planes.cpp - packing operands and going through their planes.
#include <kipx/planes.h>

#include <kipx/array.h>

namespace {

constexpr kipx_dims slice_dims = 3 | 1 << 4;

void pack_operand(kipx_operand *operand, const kipx_arr *arr, const kipx_site *site) {
    operand->base = static_cast<const uint8_t *>(arr->base) + arr->offset;
    operand->type = arr->type;
    operand->channels = site->extent[3];
    for (int i = 0; i < 4; ++i) {
        operand->origin[i] = site->origin[i];
        operand->strides[i] = arr->strides[i];
    }
    // Only four axes give the first entries a meaning.
    if (arr->naxes != 4) operand->origin[0] = operand->strides[0] = 0;
}

} // namespace

kipx_pack *kipxa_genpackL(kipx_pack *pack, uint32_t code, const kipx_arr *arr,
                          const kipx_site *site, void *context) {
    *pack = kipx_pack{};
    pack->code = code;
    pack->dims = slice_dims;
    pack->planes = arr->naxes == 4 ? site->extent[0] : 1;
    pack->count = 1;
    pack->extent[0] = 1;
    for (int i = 1; i < 4; ++i) pack->extent[i] = site->extent[i];
    pack_operand(&pack->operand[0], arr, site);
    pack->context = context;
    return pack;
}

kipx_pack *kipxa_mappackL(kipx_pack *pack, uint32_t code, const kipx_arr *src,
                          const kipx_site *src_site, const kipx_arr *mask,
                          const kipx_site *mask_site, void *context) {
    kipxa_genpackL(pack, code, src, src_site, context);
    pack->count = 2;
    pack_operand(&pack->operand[1], mask, mask_site);
    return pack;
}

int32_t kipxa_call(KipxXE *xe, uint64_t flags, const kipx_pack *pack, kipx_slice_fun function) {
    for (uint32_t plane = 0; plane < pack->planes; ++plane) {
        kipx_pack slice = *pack;
        slice.planes = 1;
        for (uint32_t i = 0; i < slice.count; ++i) {
            kipx_operand &o = slice.operand[i];
            o.base = static_cast<const uint8_t *>(o.base) +
                     (uint64_t{o.origin[0]} + plane) * o.strides[0];
            o.origin[0] = 0;
        }
        int32_t code = function(xe, flags, &slice);
        if (code < 0) return code;
    }
    return 0;
}
