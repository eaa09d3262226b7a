// arith/matrix_singles.h - one matrix times the dense pixels of f32, three channels to three or one. For row
// files only.
//
// Sixteen pixels at a time are parted into channels, summed in binary64 as everywhere, and joined, all in
// registers.
#pragma once

#include "arith/matrix_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {

#if defined(__AVX512F__)

// Lanes of two vectors, those of the second from 16 on. Channel c of sixteen pixels is part[c][0] of the first
// and the second vector, then part[c][1] of that and the third; vectors of pixels are joined in the same way.
struct SingleLanes {
    alignas(64) u32 part[3][2][16], join[3][2][16];
    constexpr SingleLanes() : part(), join() {
        for (u32 of = 0; of < 3; ++of)
            for (u32 i = 0; i < 16; ++i) {
                const u32 in = i * 3 + of, out = of * 16 + i;
                for (u32 k = 1; k < 3; ++k) {
                    part[of][k - 1][i] = in / 16 == k ? 16 + in % 16 : k == 1 ? in % 16 : i;
                    join[of][k - 1][i] = out % 3 == k ? 16 + out / 3 : k == 1 ? out / 3 : i;
                }
            }
    }
};
inline constexpr SingleLanes single_lanes;

inline __m512 three_to_one(const __m512 (&v)[3], const u32 (&lanes)[2][16]) {
    return _mm512_permutex2var_ps(_mm512_permutex2var_ps(v[0], _mm512_load_si512(lanes[0]), v[1]),
                                  _mm512_load_si512(lanes[1]), v[2]);
}

template<u32 out, bool addends>
void single_row(char *dst, const char *src, size_t n, const MatrixWay &way) {
    using Half = Vector<f64>;
    Half number[out][3], addend[out] = {};
    for (u32 i = 0; i < out; ++i) {
        for (u32 j = 0; j < 3; ++j) number[i][j] = Half{} + way.numbers[i * 3 + j];
        if (addends) addend[i] = Half{} + way.addends[i];
    }
    const auto sum = [&](const Half(&value)[3], u32 i) {
        Half s = number[i][0] * value[0] + number[i][1] * value[1] + number[i][2] * value[2];
        if constexpr (addends) s += addend[i];
        return _mm512_cvtpd_ps(s);
    };
    const __m512 nan = _mm512_set1_ps(__builtin_nanf(""));
    const __m512i keep_but_nan = _mm512_set1_epi32(0x11111100);
    const auto block = [&](size_t x, size_t some) __attribute__((always_inline)) {
        const auto mask = [some](u32 vector, u32 channels) {
            return static_cast<__mmask16>(((u64{1} << some * channels) - 1) >> vector * 16);
        };
        __m512 v[3], channel[3], result[3];
#pragma GCC unroll 3
        for (u32 k = 0; k < 3; ++k) v[k] = _mm512_maskz_loadu_ps(mask(k, 3), src + x * 12 + k * 64);
        Half low[3], high[3];
#pragma GCC unroll 3
        for (u32 k = 0; k < 3; ++k) {
            channel[k] = three_to_one(v, single_lanes.part[k]);
            low[k] = _mm512_cvtps_pd(_mm512_castps512_ps256(channel[k]));
            high[k] = _mm512_cvtps_pd(_mm512_extractf32x8_ps(channel[k], 1));
        }
#pragma GCC unroll 3
        for (u32 i = 0; i < out; ++i) {
            const __m512 r =
                _mm512_insertf32x8(_mm512_castps256_ps512(sum(low, i)), sum(high, i), 1);
            result[i] = _mm512_fixupimm_ps(nan, r, keep_but_nan, 0);
        }
        char *to = dst + x * out * 4;
#pragma GCC unroll 3
        for (u32 i = 0; i < out; ++i) {
            const __m512 joined = out == 1 ? result[0] : three_to_one(result, single_lanes.join[i]);
            _mm512_mask_storeu_ps(to + i * 64, mask(i, out), joined);
        }
    };
    size_t x = 0;
    for (; x + 16 <= n; x += 16) block(x, 16);
    if (x < n) block(x, n - x);
}

// False where there is no such way.
inline bool row_of_singles(char *dst, const char *src, size_t n, const MatrixWay &way) {
    if (!way.singles) return false;
    const bool addends = way.addends;
    if (way.dst.rows == 3)
        (addends ? single_row<3, true> : single_row<3, false>)(dst, src, n, way);
    else
        (addends ? single_row<1, true> : single_row<1, false>)(dst, src, n, way);
    return true;
}

#else

inline bool row_of_singles(char *, const char *, size_t, const MatrixWay &) { return false; }

#endif

} // namespace kipx::KIPX_SET
