// arith/matrix_bytes.h - one matrix times the dense pixels of bytes: colour transforms. For row files only.
//
// Sums are formed in binary32, sixteen pixels at a time, each channel in a vector of its own. Those that are
// not exact are in units of 2^-16; where one could lie on either side of a tie, the pixel is made again in
// binary64.
#pragma once

#include "arith/matrix_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {

#if defined(__AVX512VBMI__)

// Where the bytes of sixteen pixels go: into 32-bit lanes, a channel each, and back from 128-bit lanes that
// hold four of each channel. Pixels of less than four channels leave the last byte of a vector 0.
struct ByteLanes {
    __m512i channel[4], pixels;
    ByteLanes(u32 in, u32 out) {
        alignas(64) u8 from[64] = {}, to[64];
        for (u32 c = 0; c < 4; ++c) {
            for (u32 i = 0; i < 64; ++i)
                from[i] = static_cast<u8>(i % 4 ? 63 : (i / 4 * in + c) & 63);
            channel[c] = _mm512_load_si512(from);
        }
        for (u32 i = 0; i < 64; ++i) {
            const u32 x = i / out, c = i % out;
            to[i] = static_cast<u8>((x / 4 * 16 + c * 4 + x % 4) & 63);
        }
        pixels = _mm512_load_si512(to);
    }
};

inline __mmask64 first_bytes(size_t n) { return n < 64 ? (__mmask64{1} << n) - 1 : ~__mmask64{0}; }

// The pixels of a block that are set in `which`. channels_in, channels_out: 0 where they are not known.
template<u32 channels_in, u32 channels_out>
[[gnu::noinline]] void make_again(char *to, const char *pixels, u32 which, const MatrixWay &way) {
    const u32 in = channels_in ? channels_in : way.b.rows,
              out = channels_out ? channels_out : way.dst.rows;
    for (; which; which &= which - 1) {
        const auto x = static_cast<u32>(__builtin_ctz(which));
#pragma GCC unroll 4
        for (u32 i = 0; i < out; ++i) {
            f64 sum = way.numbers[i * in] * load<u8>(pixels, x * in);
#pragma GCC unroll 4
            for (u32 j = 1; j < in; ++j)
                sum += way.numbers[i * in + j] * load<u8>(pixels, x * in + j);
            if (way.addends) sum += way.addends[i];
            store(to, x * out + i, round_saturate<u8>(sum * way.factor));
        }
    }
}

template<u32 channels_in, u32 channels_out, bool exact>
void byte_row(char *dst, const char *src, size_t n, const MatrixWay &way) {
    const u32 in = channels_in ? channels_in : way.b.rows,
              out = channels_out ? channels_out : way.dst.rows;
    const MatrixBytes &bytes = *way.bytes;
    const ByteLanes lanes(in, out);
    __m512 number[4][4], addend[4];
    for (u32 i = 0; i < out; ++i) {
        for (u32 j = 0; j < in; ++j) number[i][j] = _mm512_set1_ps(bytes.numbers[i * in + j]);
        addend[i] = _mm512_set1_ps(bytes.addends[i]);
    }
    const __m512i above_margin = _mm512_set1_epi32(0xffff & ~(2 * bytes.margin - 1));
    const auto block = [&](size_t x, size_t some) {
        const __m512i pixels = _mm512_maskz_loadu_epi8(first_bytes(some * in), src + x * in);
        __m512 value[4];
#pragma GCC unroll 4
        for (u32 j = 0; j < in; ++j) {
            __m512i v = _mm512_permutexvar_epi8(lanes.channel[j], pixels);
            if (in == 4) v = _mm512_and_si512(v, _mm512_set1_epi32(255));
            value[j] = _mm512_cvtepi32_ps(v);
        }
        __m512i whole[4] = {};
        __mmask16 near = 0;
#pragma GCC unroll 4
        for (u32 i = 0; i < out; ++i) {
            __m512 sum = addend[i];
#pragma GCC unroll 4
            for (u32 j = 0; j < in; ++j) sum = _mm512_fmadd_ps(value[j], number[i][j], sum);
            if constexpr (exact) {
                whole[i] =
                    _mm512_cvt_roundps_epi32(sum, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
            } else {
                const __m512i units = _mm512_cvttps_epi32(sum);
                near = _kor_mask16(near, _mm512_testn_epi32_mask(units, above_margin));
                whole[i] = _mm512_srai_epi32(units, 16);
            }
        }
        const __m512i words = _mm512_packs_epi32(whole[0], whole[1]),
                      more = _mm512_packs_epi32(whole[2], whole[3]),
                      result =
                          _mm512_permutexvar_epi8(lanes.pixels, _mm512_packus_epi16(words, more));
        _mm512_mask_storeu_epi8(dst + x * out, first_bytes(some * out), result);
        if (near == 0) return;
        alignas(64) char kept[64];
        _mm512_store_si512(kept, pixels);
        make_again<channels_in, channels_out>(dst + x * out, kept,
                                              static_cast<u32>(near & first_bytes(some)), way);
    };
    size_t x = 0;
    for (; x + 16 <= n; x += 16) block(x, 16);
    if (x < n) block(x, n - x);
}

template<u32 in, u32 out>
void byte_row(char *dst, const char *src, size_t n, const MatrixWay &way) {
    if (way.bytes->margin)
        byte_row<in, out, false>(dst, src, n, way);
    else
        byte_row<in, out, true>(dst, src, n, way);
}

// False where there is no such way.
inline bool row_of_bytes(char *dst, const char *src, size_t n, const MatrixWay &way) {
    if (!way.bytes) return false;
    const bool three = way.b.rows == 3;
    if (three && way.dst.rows == 3)
        byte_row<3, 3>(dst, src, n, way);
    else if (three && way.dst.rows == 1)
        byte_row<3, 1>(dst, src, n, way);
    else
        byte_row<0, 0>(dst, src, n, way);
    return true;
}

#else

inline bool row_of_bytes(char *, const char *, size_t, const MatrixWay &) { return false; }

#endif

} // namespace kipx::KIPX_SET
