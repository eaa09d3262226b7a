// arith/kernel.h - a named kernel's one step: make the scale ready, choose the row loop, walk.
#pragma once

#include <kipx/types.h>

#include "arith/arith_rows.h"
#include "core/element.h"
#include "core/simd.h"
#include "core/walk.h"

namespace kipx {

struct KernelOperand {
    const void *at;
    const uint32_t *strides;
};

ArithScale make_scale(int32_t exponent);
RowLoop arith_row(uint32_t kernel, Set set);

// Adding an array to itself multiplies it by 2.0. What the saturating sum does with twice the
// element is that product, scaled or not; only the u8 sum differs from its own unscaled wrap.
inline constexpr uint32_t doubled(uint32_t kernel) {
    return kernel == add_u8u8u8 ? static_cast<uint32_t>(addq_u8u8u8) : kernel;
}
bool same_storage(kipx_dims n, const KernelOperand &a, const KernelOperand &b);

inline Stream stream_of(kipx_dims n, const KernelOperand &o, uint32_t size) {
    return {static_cast<char *>(const_cast<void *>(o.at)), row_stride(axes_of(n), o.strides),
            pixel_stride(axes_of(n), o.strides), size};
}

int32_t run_kernel_of(uint32_t kernel, uint64_t flags, kipx_dims n, const uint32_t *extent,
                      const Stream &dst, const Stream &a, const Stream &b, int32_t exponent);

template<uint32_t kernel, uint32_t dst_size, uint32_t a_size, uint32_t b_size>
int32_t run_kernel(uint64_t flags, kipx_dims n, const uint32_t *extent, KernelOperand dst,
                   KernelOperand a, KernelOperand b, int32_t exponent) {
    uint32_t chosen = kernel;
    if constexpr (doubled(kernel) != kernel)
        if (same_storage(n, a, b)) chosen = doubled(kernel);
    return run_kernel_of(chosen, flags, n, extent, stream_of(n, dst, dst_size),
                         stream_of(n, a, a_size), stream_of(n, b, b_size), exponent);
}

} // namespace kipx
