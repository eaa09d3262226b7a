// stats/count_rows.cpp - elements between two numbers, compiled once per instruction set.
#include "stats/count_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<size_t size> struct Counter;
template<> struct Counter<1> { using S = s8; };
template<> struct Counter<2> { using S = s16; };
template<> struct Counter<4> { using S = s32; };
template<> struct Counter<8> { using S = s64; };

// A comparison that holds is -1 in as many bits as an element has: the lanes count down, and are
// emptied before they wrap.
template<class T> void between(FoldRun run) {
    using S = typename Counter<sizeof(T)>::S;
    constexpr size_t lanes = vector_bytes / sizeof(T);
    constexpr size_t turns = sizeof(T) == 1 ? 128 : sizeof(T) == 2 ? 32768 : 1u << 30;
    BetweenCount &state = *static_cast<BetweenCount *>(run.states);
    if (!(state.low <= state.high)) return;
    const T low = static_cast<T>(state.low), high = static_cast<T>(state.high);
    const Vector<T> lows = Vector<T>{} + low, highs = Vector<T>{} + high;
    u64 count = 0;
    size_t i = 0;
    while (run.n - i >= 2 * lanes) {
        Vector<S> found[2] = {};
        for (size_t t = 0; t < turns && run.n - i >= 2 * lanes; ++t, i += 2 * lanes)
            for (size_t k = 0; k < 2; ++k) {
                Vector<T> x = load_vector<T>(run.src, i + k * lanes);
                found[k] += reinterpret_cast<Vector<S>>((x >= lows) & (x <= highs));
            }
        for (size_t k = 0; k < lanes; ++k)
            count -= static_cast<u64>(s64{found[0][k]} + s64{found[1][k]});
    }
    for (; i < run.n; ++i) {
        T x = load<T>(run.src, i);
        count += x >= low && x <= high;
    }
    state.count += count;
}

} // namespace

#define KIPX_ROW(T) between<T>,
extern const FoldLoop count_rows[numeric_type_count] = {KIPX_NUMERIC_TYPES(KIPX_ROW)};

} // namespace kipx::KIPX_SET
