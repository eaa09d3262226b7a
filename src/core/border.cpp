// core/border.cpp - where what lies beyond an array's edge is taken from.
#include "core/border.h"

namespace kipx {

bool border_of(uint32_t kind, Border &border) {
    border = static_cast<Border>(kind & 15);
    return border == Border::none || (border >= Border::constant && border <= Border::reflect101);
}

int64_t continued(Border border, int64_t i, int64_t n) {
    if (i >= 0 && i < n) return i;
    auto modulo = [i](int64_t period) { return ((i % period) + period) % period; };
    switch (border) {
    case Border::replicate:
        return i < 0 ? 0 : n - 1;
    case Border::wrap:
        return modulo(n);
    case Border::reflect: {
        int64_t j = modulo(2 * n);
        return j < n ? j : 2 * n - 1 - j;
    }
    case Border::reflect101: {
        if (n == 1) return 0;
        int64_t j = modulo(2 * n - 2);
        return j < n ? j : 2 * n - 2 - j;
    }
    default:
        return -1;
    }
}

} // namespace kipx
