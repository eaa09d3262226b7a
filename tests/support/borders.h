// support/borders.h - where a place beyond an array comes from, for models.
#ifndef KIPX_TESTS_SUPPORT_BORDERS_H
#define KIPX_TESTS_SUPPORT_BORDERS_H

#include <algorithm>

#include <kipx/filter.h>

namespace kipx::test {

inline int wrapped(int i, int n) { return ((i % n) + n) % n; }

// Which of n stands at place i; -1 for the constant 0.
inline int border_place(uint32_t kind, int i, int n) {
    if (i >= 0 && i < n) return i;
    switch (kind) {
    case KIPX_BORDER_CONST:
        return -1;
    case KIPX_BORDER_WRAP:
        return wrapped(i, n);
    case KIPX_BORDER_REFLECT:
        return std::min(wrapped(i, 2 * n), 2 * n - 1 - wrapped(i, 2 * n));
    case KIPX_BORDER_REFLECT101:
        return n == 1 ? 0 : std::min(wrapped(i, 2 * n - 2), 2 * n - 2 - wrapped(i, 2 * n - 2));
    default:
        return std::clamp(i, 0, n - 1);
    }
}

} // namespace kipx::test

#endif
