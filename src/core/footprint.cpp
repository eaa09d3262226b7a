// core/footprint.cpp - which bytes a region of an array occupies.
#include "core/footprint.h"

#include <kipx/array.h>

#include <utility>

#include "core/element.h"

namespace kipx {
namespace {

uint32_t first_axis(const kipx_arr &arr) { return 4u - arr.naxes; }

// Whether a run of axes from axis i inwards, shifted by delta bytes, meets itself. Strides nest, so
// only the two multiples of the stride next to delta can bring the runs inside together.
bool shifted_meets(const Footprint &f, uint32_t i, int64_t delta) {
    int64_t span = static_cast<int64_t>(f.span[i]);
    if (delta <= -span || delta >= span) return false;
    if (i == f.axes || i == 4) return true;
    int64_t stride = static_cast<int64_t>(f.stride[i]), count = static_cast<int64_t>(f.count[i]);
    int64_t k = delta >= 0 ? delta / stride : -((-delta + stride - 1) / stride);
    for (int64_t step = k; step <= k + 1; ++step)
        if (step > -count && step < count && shifted_meets(f, i + 1, delta - step * stride))
            return true;
    return false;
}

} // namespace

Footprint footprint(const kipx_arr &arr, const kipx_site &site) {
    Footprint f{};
    uint64_t offset = arr.offset;
    for (uint32_t i = first_axis(arr); i < 4; ++i) {
        offset += uint64_t{site.origin[i]} * arr.strides[i];
        if (site.extent[i] < 2) continue;
        f.step[i] = arr.strides[i];
        uint32_t j = f.axes++;
        f.stride[j] = arr.strides[i], f.count[j] = site.extent[i];
        for (; j > 0 && f.stride[j - 1] < f.stride[j]; --j) {
            std::swap(f.stride[j - 1], f.stride[j]);
            std::swap(f.count[j - 1], f.count[j]);
        }
    }
    f.at = static_cast<const char *>(arr.base) + offset;
    f.span[f.axes] = element_size(arr.type);
    for (uint32_t i = f.axes; i-- > 0;) f.span[i] = f.stride[i] * (f.count[i] - 1) + f.span[i + 1];
    return f;
}

bool shares_own_bytes(const Footprint &f) {
    for (uint32_t i = 0; i < f.axes; ++i)
        if (f.stride[i] < f.span[i + 1]) return true;
    return false;
}

static bool same_shape(const Footprint &a, const Footprint &b) {
    bool same = a.axes == b.axes && a.span[a.axes] == b.span[b.axes];
    for (uint32_t i = 0; same && i < a.axes; ++i)
        same = a.stride[i] == b.stride[i] && a.count[i] == b.count[i];
    return same;
}

bool same_footprint(const Footprint &a, const Footprint &b) {
    bool same = a.at == b.at && a.span[a.axes] == b.span[b.axes];
    for (uint32_t i = 0; i < 4; ++i) same &= a.step[i] == b.step[i];
    return same;
}

bool share_bytes(const Footprint &a, const Footprint &b) {
    uintptr_t pa = reinterpret_cast<uintptr_t>(a.at), pb = reinterpret_cast<uintptr_t>(b.at);
    if (pa >= pb + b.span[0] || pb >= pa + a.span[0]) return false;
    if (!same_shape(a, b) || shares_own_bytes(a)) return true;
    return shifted_meets(a, 0, static_cast<int64_t>(pb - pa));
}

} // namespace kipx
