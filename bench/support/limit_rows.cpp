// Compiled once per instruction set; KIPX_SET names it. Nothing of the standard library is
// instantiated here, for such code would be shared with callers on older processors.
#include "support/limit_rows.h"

#include <stdint.h>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#define KIPX_JOIN2(a, b) a##b
#define KIPX_JOIN(a, b) KIPX_JOIN2(a, b)

namespace kipx::bench {
namespace {

#if defined(__AVX512F__)
constexpr size_t width = 64;
#elif defined(__AVX2__)
constexpr size_t width = 32;
#else
constexpr size_t width = 16;
#endif

typedef uint64_t Vector __attribute__((vector_size(width), aligned(1), may_alias));

inline Vector load(const unsigned char *from) { return *reinterpret_cast<const Vector *>(from); }

template<bool streamed> inline void store(unsigned char *to, Vector v) {
#if defined(__AVX512F__)
    if (streamed) return _mm512_stream_si512(reinterpret_cast<__m512i *>(to), (__m512i)v);
#elif defined(__AVX2__)
    if (streamed) return _mm256_stream_si256(reinterpret_cast<__m256i *>(to), (__m256i)v);
#elif defined(__SSE2__)
    if (streamed) return _mm_stream_si128(reinterpret_cast<__m128i *>(to), (__m128i)v);
#endif
    *reinterpret_cast<Vector *>(to) = v;
}

template<int streams, unsigned copies, bool streamed>
void combine_n(unsigned char *to, const unsigned char *const *from, size_t n) {
    const unsigned char *a = from[0], *b = streams > 1 ? from[1] : nullptr,
                        *c = streams > 2 ? from[2] : nullptr;
    size_t i = 0;
    for (; i + 4 * width <= n; i += 4 * width) {
        for (size_t k = 0; k < 4 * width; k += width) {
            Vector v = load(a + i + k);
            if constexpr (streams > 1) v ^= load(b + i + k);
            if constexpr (streams > 2) v ^= load(c + i + k);
            for (size_t m = 0; m < copies; m++) {
                store<streamed>(to + (i + k) * copies + m * width, v);
            }
        }
    }
    for (; i < n; i++) {
        unsigned char v = a[i];
        if constexpr (streams > 1) v ^= b[i];
        if constexpr (streams > 2) v ^= c[i];
        for (size_t m = 0; m < copies; m++) to[i * copies + m] = v;
    }
}

template<unsigned copies, bool streamed>
void combine_any(unsigned char *to, const unsigned char *const *from, int streams, size_t n) {
    if (streams == 1) return combine_n<1, copies, streamed>(to, from, n);
    if (streams == 2) return combine_n<2, copies, streamed>(to, from, n);
    combine_n<3, copies, streamed>(to, from, n);
}

template<bool streamed>
void combine_copies(unsigned char *to, const unsigned char *const *from, int streams, size_t n,
                    unsigned copies) {
    if (copies == 1) return combine_any<1, streamed>(to, from, streams, n);
    if (copies == 2) return combine_any<2, streamed>(to, from, streams, n);
    combine_any<4, streamed>(to, from, streams, n);
}

void combine(unsigned char *to, const unsigned char *const *from, int streams, size_t n,
             unsigned copies, bool streamed) {
    if (streamed) return combine_copies<true>(to, from, streams, n, copies);
    combine_copies<false>(to, from, streams, n, copies);
}

unsigned read(const unsigned char *from, size_t n) {
    Vector sum[4] = {};
    size_t i = 0;
    for (; i + 4 * width <= n; i += 4 * width) {
        for (size_t k = 0; k < 4; k++) sum[k] ^= load(from + i + k * width);
    }
    const Vector all = sum[0] ^ sum[1] ^ sum[2] ^ sum[3];
    uint64_t mix = 0;
    for (size_t k = 0; k < width / 8; k++) mix ^= all[k];
    for (; i < n; i++) mix ^= from[i];
    return static_cast<unsigned>(mix ^ (mix >> 32));
}

template<bool streamed> void write_n(unsigned char *to, size_t n) {
    const Vector v = Vector{} + 0x5A5A5A5A5A5A5A5Au;
    size_t i = 0;
    for (; i + 4 * width <= n; i += 4 * width) {
        for (size_t k = 0; k < 4 * width; k += width) store<streamed>(to + i + k, v);
    }
    for (; i < n; i++) to[i] = 0x5A;
}

void write(unsigned char *to, size_t n, bool streamed) {
    if (streamed) return write_n<true>(to, n);
    write_n<false>(to, n);
}

void fence() {
#if defined(__SSE2__)
    _mm_sfence();
#endif
}

} // namespace

extern const Loops KIPX_JOIN(KIPX_SET, _loops) = {combine, read, write, fence};

} // namespace kipx::bench
