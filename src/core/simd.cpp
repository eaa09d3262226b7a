// core/simd.cpp - the vectorisation switch and the choice of instruction set.
#include "core/simd.h"

#include <kipx/env.h>

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

Set active_set(uint64_t flags) { return kipx_use_simd(flags) ? best_set() : Set::baseline; }

} // namespace kipx

extern "C" {

int32_t kipx_use_simd(uint64_t flags) {
    if (flags & 2) return 0;
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
}
