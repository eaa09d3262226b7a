// stats/histogram_rows.cpp - counting, compiled once per instruction set.
//
// Promises the bin of a value is floor ((value - low) / width), both operations in binary64.
#include "stats/histogram_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

// 64 equal bytes. Flat parts of an image would wait for one counter again and again. Most lines are
// known by their first bytes not to be flat.
inline bool flat_line(const u8 *p) {
    const u64 first = load<u64>(p, 0);
    if (first != (first << 8 | first >> 56)) return false;
    u64 differs = 0;
    for (size_t i = 1; i < 8; ++i) differs |= first ^ load<u64>(p, i);
    return differs == 0;
}

void bytes(FoldRun run) {
    const u8 *p = static_cast<const u8 *>(run.src), *end = p + run.n;
    u32(*t)[256] = static_cast<ByteCounts *>(run.states)->table;
    for (; end - p >= 64; p += 64) {
        if (flat_line(p)) {
            t[0][*p] += 64;
            continue;
        }
        for (size_t i = 0; i < 8; ++i) {
            u64 w = load<u64>(p, i);
            ++t[0][w & 255], ++t[1][w >> 8 & 255], ++t[2][w >> 16 & 255], ++t[3][w >> 24 & 255];
            ++t[4][w >> 32 & 255], ++t[5][w >> 40 & 255], ++t[6][w >> 48 & 255], ++t[7][w >> 56];
        }
    }
    for (; p < end; ++p) ++t[0][*p];
}

// State c begins tables_of (C) tables behind state c - 1.
template<uint32_t C> void bytes_of(FoldRun run) {
    constexpr uint32_t tables = tables_of(C);
    const u8 *p = static_cast<const u8 *>(run.src);
    u32(*t)[256] = static_cast<u32(*)[256]>(run.states);
    size_t i = 0;
    for (; run.n - i >= tables; i += tables, p += tables * C)
        for (uint32_t k = 0; k < tables; ++k)
            for (uint32_t c = 0; c < C; ++c) ++t[c * tables + k][p[k * C + c]];
    for (; i < run.n; ++i, p += C)
        for (uint32_t c = 0; c < C; ++c) ++t[c * tables][p[c]];
}

void bytes_of_channels(FoldRun run) {
    if (run.channels == 2) return bytes_of<2>(run);
    if (run.channels == 3) return bytes_of<3>(run);
    if (run.channels == 4) return bytes_of<4>(run);
    const u8 *p = static_cast<const u8 *>(run.src);
    u32(*t)[256] = static_cast<u32(*)[256]>(run.states);
    for (size_t i = 0; i < run.n; ++i) ++t[i & 1][p[i]];
}

template<class T> void find_bins(u32 *bin, const void *src, size_t n, const BinRule &r) {
    const u32 none = r.bins;
    if constexpr (!floating<T>)
        if (r.direct) {
            const u32 first = r.first, span = r.span, offset = r.offset;
            KIPX_INDEPENDENT
            for (size_t i = 0; i < n; ++i) {
                u32 d = static_cast<u32>(load<T>(src, i)) - first;
                bin[i] = d <= span ? d + offset : none;
            }
            return;
        }
    const f64 low = r.low, width = r.width, least = r.least, most = r.most;
    const f64 last = static_cast<f64>(r.bins - 1);
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) {
        f64 x = static_cast<f64>(load<T>(src, i));
        f64 t = (x - low) / width;
        t = t > 0.0 ? t : 0.0; // NaN becomes 0, too, and is left out below
        t = t < last ? t : last;
        u32 b = static_cast<u32>(static_cast<s32>(t));
        bin[i] = ((x >= least) & (x <= most)) ? b : none;
    }
}

template<class T> void bins(FoldRun run) {
    constexpr size_t block = 512;
    u32 bin[block];
    BinCounts &s = *static_cast<BinCounts *>(run.states);
    for (size_t done = 0; done < run.n; done += block) {
        size_t n = run.n - done < block ? run.n - done : block;
        find_bins<T>(bin, static_cast<const char *>(run.src) + done * sizeof(T), n, s.rule);
        size_t i = 0;
        if (s.tables == 1) {
            for (; i < n; ++i)
                if (bin[i] < s.rule.bins) ++s.table[bin[i]], ++s.counted;
            continue;
        }
        u32 *a = s.table, *b = a + s.stride, *c = s.tables == 4 ? b + s.stride : a,
            *d = s.tables == 4 ? c + s.stride : b;
        for (; n - i >= 4; i += 4) ++a[bin[i]], ++b[bin[i + 1]], ++c[bin[i + 2]], ++d[bin[i + 3]];
        for (; i < n; ++i) ++a[bin[i]];
    }
}

} // namespace

#define KIPX_ROW(T) bins<T>,
extern const FoldLoop histogram_rows[histogram_row_count] = {bytes, bytes_of_channels,
                                                             KIPX_NUMERIC_TYPES(KIPX_ROW)};

} // namespace kipx::KIPX_SET
