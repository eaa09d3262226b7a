// stats/extreme_rows.cpp - least and greatest elements, compiled once per instruction set.
//
// Promises a NaN loses every comparison. Which of two zeros is kept depends on the set: whoever reads
//          the result adds +0 to it.
#include "stats/extreme_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<class T> T top() {
    if constexpr (floating<T>)
        return static_cast<T>(__builtin_inf());
    else
        return static_cast<T>(Range<T>::high);
}
template<class T> T bottom() {
    if constexpr (floating<T>)
        return static_cast<T>(-__builtin_inf());
    else
        return static_cast<T>(Range<T>::low);
}

// Element k of a turn belongs to channel k mod C: a turn is a whole number of pixels.
template<class T, uint32_t C> void extremes(FoldRun run) {
    using V = Vector<T>;
    constexpr size_t lanes = vector_bytes / sizeof(T), vectors = C == 3 ? 6 : 4;
    constexpr size_t turn = lanes * vectors;
    V low[vectors], high[vectors];
    for (size_t k = 0; k < vectors; ++k) low[k] = V{} + top<T>(), high[k] = V{} + bottom<T>();
    const size_t n = run.n * C;
    size_t i = 0;
    for (; n - i >= turn; i += turn)
        for (size_t k = 0; k < vectors; ++k) {
            V x = load_vector<T>(run.src, i + k * lanes);
            low[k] = x < low[k] ? x : low[k];
            high[k] = x > high[k] ? x : high[k];
        }
    T least[turn], most[turn];
    memcpy(least, low, sizeof low), memcpy(most, high, sizeof high);
    for (size_t k = 0; i < n; ++i, ++k) {
        T x = load<T>(run.src, i);
        least[k] = x < least[k] ? x : least[k];
        most[k] = x > most[k] ? x : most[k];
    }
    Extremes *state = static_cast<Extremes *>(run.states);
    for (size_t k = 0; k < turn; ++k) {
        Extremes &s = state[k % C];
        f64 l = static_cast<f64>(least[k]), h = static_cast<f64>(most[k]);
        s.low = l < s.low ? l : s.low;
        s.high = h > s.high ? h : s.high;
    }
}

template<class T> void row(FoldRun run) {
    switch (run.channels) {
    case 1:
        return extremes<T, 1>(run);
    case 2:
        return extremes<T, 2>(run);
    case 3:
        return extremes<T, 3>(run);
    default:
        return extremes<T, 4>(run);
    }
}

} // namespace

#define KIPX_ROW(T) row<T>,
extern const FoldLoop extreme_rows[numeric_type_count] = {KIPX_NUMERIC_TYPES(KIPX_ROW)};

} // namespace kipx::KIPX_SET
