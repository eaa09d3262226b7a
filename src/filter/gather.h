// filter/gather.h - the pieces of a row one behind the other, converted. For row files only.
#pragma once

#include "core/lanes.h"
#include "core/window.h"

namespace kipx::KIPX_SET {

// `need` elements of row y of a band, which has so many.
template<class T, class A>
void gather(const Band &band, const Pieces &pieces, size_t vector, size_t y, size_t need, A *to) {
    int last = pieces.vectors[2] ? 2 : pieces.vectors[1] ? 1 : 0;
    for (int piece = 0; piece <= last; ++piece) {
        const char *at = band.at[piece];
        if (!pieces.vectors[piece]) continue;
        at += static_cast<ptrdiff_t>(y) * band.step[piece];
        size_t n = pieces.vectors[piece] * vector / sizeof(T);
        if (piece == last || n > need) n = need;
        KIPX_INDEPENDENT
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): no characters
        for (size_t i = 0; i < n; ++i) to[i] = static_cast<A>(load<T>(at, i));
        to += n, need -= n;
    }
}

} // namespace kipx::KIPX_SET
