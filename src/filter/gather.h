// filter/gather.h - a row with its border, converted. For row files only.
#pragma once

#include "core/lanes.h"
#include "core/window.h"

namespace kipx::KIPX_SET {

// Rows of which not everything that is wanted is there.
struct Wanted {
    Span reach;
    Source source;
    size_t step; // elements of a pixel
};

// What is wanted of a row whose byte 0 is given. There is a whole pixel at least; the fill is 0.
template<class T, class A> void gather(const Wanted &w, const char *row, A *to) {
    constexpr auto size = static_cast<ptrdiff_t>(sizeof(T));
    const Span &there = w.source.there;
    const auto before = static_cast<size_t>((there.begin - w.reach.begin) / size);
    const auto after = static_cast<size_t>((w.reach.end - there.end) / size);
    const size_t n = there.size() / sizeof(T);
    const char *const from = row + there.begin;
    A *const real = to + before, *const end = real + n;
    if constexpr (same<T, A>) {
        memcpy(real, from, n * sizeof(A));
    } else {
        KIPX_INDEPENDENT
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): no characters
        for (size_t i = 0; i < n; ++i) real[i] = static_cast<A>(load<T>(from, i));
    }
    const bool nearest = w.source.beyond == Beyond::nearest;
    for (size_t c = 0; c < w.step; ++c) {
        const A first = nearest ? real[c] : A{}, last = nearest ? end[c - w.step] : A{};
        for (size_t i = c; i < before; i += w.step) to[i] = first;
        for (size_t i = c; i < after; i += w.step) end[i] = last;
    }
}

} // namespace kipx::KIPX_SET
