// resize/resize_rows.cpp - rows of picked pixels, compiled once per instruction set.
//
// Costs    a vector of the result takes a load, a shuffle and a store, and another load and shuffle
//          for every vector more that its pixels are spread over. Pixels that lie further apart are
//          moved one by one.
#include "resize/resize_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<size_t unit> void pick(char *to, const char *from, const Picks &picks) {
    const size_t n = picks.pixels; // which the bytes written might be, for all the compiler knows
#pragma GCC unroll 4
    for (size_t i = 0; i < n; ++i) memcpy(to + i * unit, from + picks.offset[i], unit);
}

template<class T> void move(Run run) { memcpy(run.dst, run.src[0], run.n * sizeof(T)); }

#if defined(__AVX512VBMI__)

constexpr uint32_t chunk = 64, shuffle_blocks = most_blocks;
using Bytes = __m512i;
inline Bytes load_bytes(const void *at) { return _mm512_loadu_si512(at); }
inline void store_bytes(void *to, Bytes v) { _mm512_storeu_si512(to, v); }
inline void stream_bytes(void *to, Bytes v) { _mm512_stream_si512(static_cast<Bytes *>(to), v); }
inline void store_first(void *to, Bytes v, size_t n) {
    _mm512_mask_storeu_epi8(to, (uint64_t{1} << n) - 1, v);
}

template<uint32_t blocks> Bytes shuffled(const char *from, Bytes at, const uint64_t *part) {
    if constexpr (blocks == 1) {
        return _mm512_permutexvar_epi8(at, load_bytes(from));
    } else {
        auto half = [&](uint32_t h) {
            return _mm512_permutex2var_epi8(load_bytes(from + h * 128), at,
                                            load_bytes(from + h * 128 + 64));
        };
        Bytes v = half(0);
        for (uint32_t h = 1; h < blocks / 2; ++h) v = _mm512_mask_mov_epi8(v, part[h], half(h));
        return v;
    }
}

#elif defined(__AVX2__)

constexpr uint32_t chunk = 16, shuffle_blocks = 4;
using Bytes = __m128i;
inline Bytes load_bytes(const void *at) { return _mm_loadu_si128(static_cast<const Bytes *>(at)); }
inline void store_bytes(void *to, Bytes v) { _mm_storeu_si128(static_cast<Bytes *>(to), v); }
inline void stream_bytes(void *to, Bytes v) { _mm_stream_si128(static_cast<Bytes *>(to), v); }
inline void store_first(void *to, Bytes v, size_t n) { memcpy(to, &v, n); }

// A shuffle gives 0 where the index has its highest bit, as all those have that are not of a block.
template<uint32_t blocks> Bytes shuffled(const char *from, Bytes at, const uint64_t *) {
    Bytes v = _mm_setzero_si128();
    for (uint32_t b = 0; b < blocks; ++b) {
        Bytes own = _mm_sub_epi8(at, _mm_set1_epi8(static_cast<char>(b * 16)));
        own = _mm_adds_epu8(own, _mm_set1_epi8(0x70));
        v = _mm_or_si128(v, _mm_shuffle_epi8(load_bytes(from + b * 16), own));
    }
    return v;
}

#else

constexpr uint32_t chunk = 16, shuffle_blocks = 0;

#endif

#if defined(__AVX2__)

template<uint32_t blocks, uint32_t copies, bool streamed>
void shuffle_rows(const Stretch &s, const Picks &p) {
    size_t done = 0, k = 0;
    const char *next = s.next;
    for (; done + chunk <= p.bytes; done += chunk, ++k) {
        if (next)
            for (uint32_t b = 0; b < blocks; ++b)
                _mm_prefetch(next + p.from[k] + size_t{b} * chunk, _MM_HINT_T0);
        const Bytes v =
            shuffled<blocks>(s.from + p.from[k], load_bytes(p.at + done), p.part[k % 64]);
        for (uint32_t i = 0; i < copies; ++i) {
            char *to = s.to + i * s.row + done;
            if constexpr (streamed)
                stream_bytes(to, v);
            else
                store_bytes(to, v);
        }
    }
    if (done == p.bytes) return;
    const Bytes v = shuffled<blocks>(s.from + p.from[k], load_bytes(p.at + done), p.part[k % 64]);
    for (uint32_t i = 0; i < copies; ++i) store_first(s.to + i * s.row + done, v, p.bytes - done);
}

template<uint32_t blocks> void shuffle_blocks_of(const Stretch &s, const Picks &p) {
    using Way = void (*)(const Stretch &, const Picks &);
    static constexpr Way ways[2][4] = {
        {shuffle_rows<blocks, 1, false>, shuffle_rows<blocks, 2, false>,
         shuffle_rows<blocks, 3, false>, shuffle_rows<blocks, 4, false>},
        {shuffle_rows<blocks, 1, true>, shuffle_rows<blocks, 2, true>,
         shuffle_rows<blocks, 3, true>, shuffle_rows<blocks, 4, true>}};
    ways[s.streamed][s.copies - 1](s, p);
}

void shuffle(const Stretch &s, const Picks &p) {
    switch (p.blocks) {
    case 1:
        return shuffle_blocks_of<1>(s, p);
    case 2:
        return shuffle_blocks_of<2>(s, p);
    case 4:
        return shuffle_blocks_of<4>(s, p);
#if defined(__AVX512VBMI__)
    case 8:
        return shuffle_blocks_of<8>(s, p);
    default:
        return shuffle_blocks_of<16>(s, p);
#endif
    }
}

#else
void shuffle(const Stretch &, const Picks &) {}
#endif

} // namespace

extern const ResizeLoops resize_loops[1] = {
    {chunk,
     shuffle_blocks,
     shuffle,
     {pick<1>, pick<2>, pick<3>, pick<4>, pick<6>, pick<8>, pick<12>, pick<16>, pick<24>, pick<32>},
     {move<u8>, move<u16>, move<u32>, move<u64>}}};

} // namespace kipx::KIPX_SET
