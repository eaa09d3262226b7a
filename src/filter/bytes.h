// filter/bytes.h - rows as filters take and write them. For row files only.
#pragma once

#include "core/lanes.h"
#include "core/window.h"

namespace kipx::KIPX_SET {

template<class S> inline constexpr size_t lanes_of = vector_bytes / sizeof(S);
template<class S> struct BytesOf { typedef u8 Type __attribute__((vector_size(lanes_of<S>))); };
// As many as a vector has lanes.
template<class S> using Bytes = typename BytesOf<S>::Type;

// A vector of S from as many smaller elements.
template<class T, class S> inline Vector<S> widened(const void *elements) {
    typedef T Narrow __attribute__((vector_size(lanes_of<S> * sizeof(T))));
    Narrow v;
    memcpy(&v, elements, sizeof v);
#if defined(__AVX512BW__)
    [[maybe_unused]] const auto half = reinterpret_cast<__m256i>(v);
    if constexpr (same<T, u8> && same<S, u16>)
        return reinterpret_cast<Vector<S>>(_mm512_cvtepu8_epi16(half));
    if constexpr (same<T, s16> && same<S, u32>)
        return reinterpret_cast<Vector<S>>(_mm512_cvtepi16_epi32(half));
    if constexpr (same<T, u16> && same<S, u32>)
        return reinterpret_cast<Vector<S>>(_mm512_cvtepu16_epi32(half));
#endif
    if constexpr (T(-1) < T(0))
        return reinterpret_cast<Vector<S>>(__builtin_convertvector(v, Vector<s32>));
    else
        return __builtin_convertvector(v, Vector<S>);
}

// What a result row of n bytes is written by, a vector at a time, from byte x on.
struct ResultRow {
    char *to;
    size_t n;
    template<class V> [[gnu::always_inline]] void put(size_t x, const V &some) const {
        if (x + sizeof some <= n)
            memcpy(to + x, &some, sizeof some);
        else
            memcpy(to + x, &some, n - x);
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
