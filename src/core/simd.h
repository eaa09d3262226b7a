// core/simd.h - which compiled form of a row loop to call.
//
// Gives    the instruction sets that row files are compiled for, and the one to use now.
// Promises off means the baseline form; every form gives the same bits.
// Costs    one relaxed load and a look at the processor features found at load time.
#pragma once

#include <cstdint>

namespace kipx {

enum class Set : uint32_t { baseline, avx2, avx512 };

#if defined(__x86_64__)
inline constexpr uint32_t set_count = 3;
#else
inline constexpr uint32_t set_count = 1;
#endif

// The best set that the processor and the operating system allow.
Set best_set();

// baseline while the vectorisation switch is off or KIPX_FLAG_PLAIN asks for it, else the best set
// that the switch allows.
Set active_set(uint64_t flags);

} // namespace kipx
