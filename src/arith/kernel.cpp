// arith/kernel.cpp - scale, row loop and walk of the named kernels.
#include "arith/kernel.h"

namespace kipx {
namespace {

// 2^e as binary32, e from -31 to 63.
float power_of_two(int32_t e) {
    return e < 0 ? 1.0f / static_cast<float>(uint64_t{1} << -e)
                 : static_cast<float>(uint64_t{1} << e);
}

} // namespace

ArithScale make_scale(int32_t exponent) {
    if (exponent == 0) return {ScaleMode::none, 0, 1.0f, 1.0f};
    if (exponent < 0) {
        uint32_t k = (0u - static_cast<uint32_t>(exponent)) & 31;
        float factor = power_of_two(-static_cast<int32_t>(k));
        return {ScaleMode::down, k, factor, factor};
    }
    uint32_t s = static_cast<uint32_t>(exponent) & 63;
    return {ScaleMode::up, s, power_of_two(static_cast<int32_t>(s)),
            power_of_two(static_cast<int32_t>(s & 31))};
}

RowLoop arith_row(uint32_t kernel, Set set) {
    static constexpr const RowLoop *tables[set_count] = {
        baseline::arith_rows,
#if defined(__x86_64__)
        avx2::arith_rows,
        avx512::arith_rows,
#endif
    };
    return tables[static_cast<uint32_t>(set)][kernel];
}

bool same_storage(kipx_dims n, const KernelOperand &a, const KernelOperand &b) {
    bool same = a.at == b.at;
    for (uint32_t i = 0; i < (n & 15); ++i) same &= a.strides[i] == b.strides[i];
    return same;
}

int32_t run_kernel_of(uint32_t kernel, uint64_t flags, kipx_dims n, const uint32_t *extent,
                      const Stream &dst, const Stream &a, const Stream &b, int32_t exponent) {
    if (flags & (KIPX_FLAG_PROBE | KIPX_FLAG_PREPARE))
        return flags & KIPX_FLAG_PROBE ? KIPX_EAGAIN : 0;
    const ArithScale scale = make_scale(exponent);
    RowTask task;
    task.rows = height_of(axes_of(n), extent);
    task.width = width_of(axes_of(n), extent);
    task.sources = 2;
    task.dst = dst, task.src[0] = a, task.src[1] = b;
    task.loop = arith_row(kernel, active_set(flags));
    task.params = &scale;
    walk(task);
    return 0;
}

} // namespace kipx
