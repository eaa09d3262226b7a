// filter/bytes.h - rows of bytes as filters take and write them. For row files only.
#pragma once

#include "core/lanes.h"
#include "core/window.h"

namespace kipx::KIPX_SET {

template<class S> inline constexpr size_t lanes_of = vector_bytes / sizeof(S);
template<class S> struct BytesOf { typedef u8 Type __attribute__((vector_size(lanes_of<S>))); };
// As many as a vector has lanes.
template<class S> using Bytes = typename BytesOf<S>::Type;

inline Vector<u16> widened(const char *row, size_t x) {
    Bytes<u16> bytes;
    memcpy(&bytes, row + x, sizeof bytes);
#if defined(__AVX512BW__)
    return reinterpret_cast<Vector<u16>>(_mm512_cvtepu8_epi16(reinterpret_cast<__m256i>(bytes)));
#else
    return __builtin_convertvector(bytes, Vector<u16>);
#endif
}

// What a result row of n bytes is written by, a vector at a time.
struct RowOfBytes {
    char *to;
    size_t n;
    template<class V> [[gnu::always_inline]] void put(size_t x, const V &bytes) const {
        if (n - x >= sizeof bytes)
            memcpy(to + x, &bytes, sizeof bytes);
        else
            memcpy(to + x, &bytes, n - x);
    }
};

// What there is of the source's rows.
template<class Along> void copy_rows(const Along &a) {
    const Span &there = a.source.there;
    for (size_t y = 0; y < a.band.rows; ++y)
        memcpy(a.out + static_cast<ptrdiff_t>(y) * a.out_step,
               a.band.at + static_cast<ptrdiff_t>(y) * a.band.step + there.begin, there.size());
}

} // namespace kipx::KIPX_SET
