// zu/poison.h - how the storage makes misuse of its memory visible.
//
// Gives    taken and lost, called with every stretch of memory that changes hands, and misuse,
//          called for a double free or a pointer that is not ours.
// Promises in debug builds (NDEBUG undefined) fresh, given-back and rewound memory carries a
//          pattern of its own, and misuse aborts; release builds do nothing. Under the address
//          sanitizer only the bytes of live blocks may be touched by the program.
// Costs    nothing in a release build without the sanitizer.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#define ZU_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZU_ASAN 1
#endif
#endif

#ifdef ZU_ASAN
#include <sanitizer/asan_interface.h>
// For the functions that read and write block heads, which lie in poisoned memory.
#define ZU_UNCHECKED __attribute__((no_sanitize("address"), noinline))
#else
#define ZU_UNCHECKED inline
#endif

namespace zu {

#ifdef NDEBUG
inline constexpr bool debug = false;
#else
inline constexpr bool debug = true;
#endif

enum Pattern : unsigned char { fresh = 0xa5, given_back = 0xdd, rewound = 0xe1 };

inline void allow(void *memory, std::size_t bytes) {
#ifdef ZU_ASAN
    __asan_unpoison_memory_region(memory, bytes);
#else
    (void)memory, (void)bytes;
#endif
}

inline void forbid(void *memory, std::size_t bytes) {
#ifdef ZU_ASAN
    __asan_poison_memory_region(memory, bytes);
#else
    (void)memory, (void)bytes;
#endif
}

// The program may use bytes from here on; not one more.
inline void taken(void *memory, std::size_t bytes) {
    allow(memory, bytes);
    if constexpr (debug) std::memset(memory, fresh, bytes);
}

// The program has lost this stretch, for the reason that the pattern names.
inline void lost(void *memory, std::size_t bytes, Pattern pattern) {
    if constexpr (debug) {
        allow(memory, bytes);
        std::memset(memory, pattern, bytes);
    }
    forbid(memory, bytes);
}

inline void misuse() {
    if constexpr (debug) std::abort();
}

} // namespace zu
