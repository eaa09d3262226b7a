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
    alignas(64) u8 channel[5][4][64], pixels[5][64]; // by the pixels' channels
    constexpr ByteLanes() : channel(), pixels() {
        for (u32 count = 1; count <= 4; ++count)
            for (u32 i = 0; i < 64; ++i) {
                const u32 x = i / count, c = i % count;
                pixels[count][i] = static_cast<u8>((x / 4 * 16 + c * 4 + x % 4) & 63);
                for (u32 of = 0; of < 4; ++of)
                    channel[count][of][i] = static_cast<u8>(i % 4 ? 63 : (i / 4 * count + of) & 63);
            }
    }
};
inline constexpr ByteLanes byte_lanes;

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
    struct {
        __m512i channel[4], pixels;
    } lanes;
    for (u32 j = 0; j < 4; ++j) lanes.channel[j] = _mm512_load_si512(byte_lanes.channel[in][j]);
    lanes.pixels = _mm512_load_si512(byte_lanes.pixels[out]);
    __m512 number[4][4], addend[4];
    for (u32 i = 0; i < out; ++i) {
        for (u32 j = 0; j < in; ++j) number[i][j] = _mm512_set1_ps(bytes.numbers[i * in + j]);
        addend[i] = _mm512_set1_ps(bytes.addends[i]);
    }
    const __m512i above_margin = _mm512_set1_epi32(0xffff & ~(2 * bytes.margin - 1));
    // Pixels to make again are found out first: a branch for them would be foreseen badly.
    constexpr size_t most_blocks = 64;
    alignas(64) char kept[most_blocks][64];
    u16 again[most_blocks];
    const auto block = [&](size_t x, size_t some, size_t k) {
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
        if constexpr (!exact) {
            _mm512_store_si512(kept[k], pixels);
            again[k] = static_cast<u16>(near & first_bytes(some));
        }
        return u64{near != 0} << k;
    };
    for (size_t begin = 0; begin < n; begin += most_blocks * 16) {
        const size_t left = n - begin, whole = left / 16 < most_blocks ? left / 16 : most_blocks;
        u64 found = 0;
        for (size_t k = 0; k < whole; ++k) found |= block(begin + k * 16, 16, k);
        if (whole < most_blocks && left % 16) found |= block(begin + whole * 16, left % 16, whole);
        for (; !exact && found; found &= found - 1) {
            const auto k = static_cast<size_t>(__builtin_ctzll(found));
            make_again<channels_in, channels_out>(dst + (begin + k * 16) * out, kept[k], again[k],
                                                  way);
        }
    }
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
