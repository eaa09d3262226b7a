// core/simd.cpp - the vectorisation switch and the choice of instruction set.
#include "core/simd.h"

#include <kipx/env.h>
#include <kipx/types.h>

#include <atomic>

namespace {

// -1 not yet decided, 0 off, else on. Relaxed: it orders nothing, and racing first queries store
// the same value.
constinit std::atomic<int32_t> simd_switch{-1};

} // namespace

namespace kipx {

Set best_set() {
#if defined(__x86_64__)
    // The features that cmake/flags.cmake compiles the forms for.
    bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                __builtin_cpu_supports("bmi2");
    bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                  __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
                  __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi");
    if (avx2) return avx512 ? Set::avx512 : Set::avx2;
#endif
    return Set::baseline;
}

Set active_set(uint64_t flags) {
    if (!kipx_use_simd(flags)) return Set::baseline;
    Set best = best_set();
    bool avx2 = simd_switch.load(std::memory_order_relaxed) == KIPX_SIMD_AVX2;
    return avx2 && best == Set::avx512 ? Set::avx2 : best;
}

} // namespace kipx

extern "C" {

int32_t kipx_use_simd(uint64_t flags) {
    if (flags & KIPX_FLAG_PLAIN) return 0;
    int32_t value = simd_switch.load(std::memory_order_relaxed);
    // Undecided: off, unless a value is set meanwhile; that one stands, and is the answer.
    if (value == -1 && simd_switch.compare_exchange_strong(value, 0, std::memory_order_relaxed))
        return 0;
    return value != 0;
}

int32_t __kipx_use_simd(void) {
    simd_switch.store(0, std::memory_order_relaxed);
    return 0;
}

void kipx_set_simd(int32_t value) { simd_switch.store(value, std::memory_order_relaxed); }

int32_t kipx_simd_set(uint64_t flags) {
    switch (kipx::active_set(flags)) {
    case kipx::Set::avx512: return KIPX_SIMD_AVX512;
    case kipx::Set::avx2: return KIPX_SIMD_AVX2;
    default: return KIPX_SIMD_OFF;
    }
}
}
