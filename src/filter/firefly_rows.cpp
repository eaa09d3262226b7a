// filter/firefly_rows.cpp - the row loop of outlier removal, compiled once per instruction set.
#include "filter/firefly_rows.h"
#include "core/element.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

// A number that differences of the type are compared with: the whole part of a threshold, where the
// differences are whole, at most a number that no difference exceeds.
template<class D> D limit_of(double threshold) {
    if constexpr (floating<D>) return threshold;
    const double most = sizeof(D) == 4 ? 0x1p30 : 0x1p40;
    return static_cast<D>(threshold < most ? threshold : most);
}

// D holds every difference of two elements.
template<class T, class D> void judge(const FireflyRow &r) {
    for (size_t c = 0; c < r.channels; ++c) {
        const D bright = limit_of<D>(r.bright[c]), dark = limit_of<D>(r.dark[c]);
        KIPX_INDEPENDENT
        for (size_t i = c; i < r.n; i += r.channels) {
            const T v = load<T>(r.source, i), high = load<T>(r.largest, i),
                    low = load<T>(r.smallest, i);
            const bool some = !(low > high);
            T result = v;
            if (some && static_cast<D>(v) - static_cast<D>(high) > bright) result = high;
            if (some && static_cast<D>(low) - static_cast<D>(v) > dark) result = low;
            store(r.dst, i, result);
        }
    }
}

constexpr FireflySet make_set() {
    FireflySet set{};
    set.loops[KIPX_CODE_u8] = judge<u8, s32>;
    set.loops[KIPX_CODE_s16] = judge<s16, s32>;
    set.loops[KIPX_CODE_s32] = judge<s32, s64>;
    set.loops[KIPX_CODE_f32] = judge<f32, f64>;
    return set;
}

} // namespace

extern const FireflySet firefly_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
