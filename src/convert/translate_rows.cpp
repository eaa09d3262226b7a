// convert/translate_rows.cpp - bytes looked up in tables, compiled once per instruction set.
#include "convert/translate_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

#if defined(__AVX512VBMI__)

// A table in four registers: two permutes, each over half of it, and a choice by the top bit.
class Table {
public:
    static constexpr size_t width = 64;
    using Vector = __m512i;
    Table() = default;
    explicit Table(const u8 *entries) {
        for (int i = 0; i < 4; ++i) part_[i] = _mm512_loadu_si512(entries + 64 * i);
    }
    Vector of(Vector x) const {
        return _mm512_mask_blend_epi8(_mm512_movepi8_mask(x),
                                      _mm512_permutex2var_epi8(part_[0], x, part_[1]),
                                      _mm512_permutex2var_epi8(part_[2], x, part_[3]));
    }
    static Vector load(const u8 *at) { return _mm512_loadu_si512(at); }
    static void store(u8 *at, Vector v, bool streamed) {
        streamed ? _mm512_stream_si512(reinterpret_cast<Vector *>(at), v)
                 : _mm512_storeu_si512(at, v);
    }
    static Vector where(Vector channels, u32 channel, Vector yes, Vector no) {
        return _mm512_mask_blend_epi8(
            _mm512_cmpeq_epi8_mask(channels, _mm512_set1_epi8(static_cast<char>(channel))), no,
            yes);
    }

private:
    Vector part_[4];
};

// A table in two or three pieces: a comparison and a choice for each start.
template<u32 count> class Pieces {
public:
    using Vector = __m512i;
    explicit Pieces(const TablePieces &p) {
        for (u32 i = 0; i < count; ++i) keep_[i] = all(p.keep[i]), value_[i] = all(p.value[i]);
        for (u32 i = 1; i < count; ++i) start_[i] = all(p.start[i - 1]);
    }
    Vector of(Vector x) const {
        Vector out = piece(x, 0);
        for (u32 i = 1; i < count; ++i)
            out = _mm512_mask_mov_epi8(out, _mm512_cmpge_epu8_mask(x, start_[i]), piece(x, i));
        return out;
    }

private:
    static Vector all(u8 byte) { return _mm512_set1_epi8(static_cast<char>(byte)); }
    Vector piece(Vector x, u32 i) const {
        return _mm512_or_si512(_mm512_and_si512(x, keep_[i]), value_[i]);
    }
    Vector keep_[count], value_[count], start_[count];
};

#elif defined(__AVX2__)

// A table in sixteen steps of sixteen entries. Each step looks up those whose upper half is its own:
// less its first entry they are 0 to 15, and adding 112, saturated, leaves their low bits and puts
// the top bit, which makes a shuffle give 0, on all others.
class Table {
public:
    static constexpr size_t width = 32;
    using Vector = __m256i;
    Table() = default;
    explicit Table(const u8 *entries) {
        for (int i = 0; i < 16; ++i)
            part_[i] = _mm256_broadcastsi128_si256(
                _mm_loadu_si128(reinterpret_cast<const __m128i *>(entries + 16 * i)));
    }
    Vector of(Vector x) const {
        Vector out = _mm256_setzero_si256();
        for (int i = 0; i < 16; ++i) {
            Vector from = _mm256_sub_epi8(x, _mm256_set1_epi8(static_cast<char>(16 * i)));
            Vector index = _mm256_adds_epu8(from, _mm256_set1_epi8(112));
            out = _mm256_or_si256(out, _mm256_shuffle_epi8(part_[i], index));
        }
        return out;
    }
    static Vector load(const u8 *at) {
        return _mm256_loadu_si256(reinterpret_cast<const Vector *>(at));
    }
    static void store(u8 *at, Vector v, bool streamed) {
        Vector *to = reinterpret_cast<Vector *>(at);
        streamed ? _mm256_stream_si256(to, v) : _mm256_storeu_si256(to, v);
    }
    static Vector where(Vector channels, u32 channel, Vector yes, Vector no) {
        return _mm256_blendv_epi8(
            no, yes, _mm256_cmpeq_epi8(channels, _mm256_set1_epi8(static_cast<char>(channel))));
    }

private:
    Vector part_[16];
};

#endif

#if defined(__AVX2__)

// Whole vectors; gives the bytes done. of (x, i): what the vector x at byte i becomes.
template<class Of> inline size_t vectors(u8 *dst, const u8 *src, size_t n, bool streamed, Of of) {
    size_t done = 0;
    for (; n - done >= Table::width; done += Table::width) {
        prefetch_lines<Table::width>(reinterpret_cast<const char *>(src + done) + read_ahead);
        if (!streamed)
            prefetch_lines<Table::width>(reinterpret_cast<const char *>(dst + done) + write_ahead);
        Table::store(dst + done, of(Table::load(src + done), done), streamed);
    }
    return done;
}

// numbers: pattern_length table numbers, if there are several.
template<u32 count>
size_t looked_up(u8 *dst, const u8 *src, const u8 *numbers, size_t n, const u8 *tables,
                 bool streamed) {
    Table table[count];
    for (u32 i = 0; i < count; ++i) table[i] = Table(tables + 256 * i);
    return vectors(dst, src, n, streamed, [&](Table::Vector x, size_t at) {
        auto out = table[0].of(x);
        if constexpr (count > 1) {
            const auto channels = Table::load(numbers + at % pattern_length);
            for (u32 i = 1; i < count; ++i) out = Table::where(channels, i, table[i].of(x), out);
        }
        return out;
    });
}

size_t vectors_of(u32 count, u8 *dst, const u8 *src, const u8 *numbers, size_t n, const u8 *tables,
                  bool streamed) {
    switch (count) {
    case 1:
        return looked_up<1>(dst, src, numbers, n, tables, streamed);
    case 2:
        return looked_up<2>(dst, src, numbers, n, tables, streamed);
    case 3:
        return looked_up<3>(dst, src, numbers, n, tables, streamed);
    default:
        return looked_up<4>(dst, src, numbers, n, tables, streamed);
    }
}

#else

size_t vectors_of(u32, u8 *, const u8 *, const u8 *, size_t, const u8 *, bool) { return 0; }

#endif

template<u32 count>
void row_of_pieces(u8 *dst, const u8 *src, size_t n, const TablePieces &p, bool streamed) {
    size_t done = 0;
#if defined(__AVX512VBMI__)
    const Pieces<count> pieces(p);
    done = vectors(dst, src, n, streamed, [&](__m512i x, size_t) { return pieces.of(x); });
#endif
    (void)streamed;
    const u8 first = p.start[0], second = p.start[1];
    const u8 keep[3] = {p.keep[0], p.keep[1], p.keep[2]};
    const u8 value[3] = {p.value[0], p.value[1], p.value[2]};
    auto piece = [=](u8 x, u32 i) { return static_cast<u8>((x & keep[i]) | value[i]); };
    auto from = [](bool there, u8 before, u8 behind) {
        return static_cast<u8>(before ^ ((before ^ behind) & -static_cast<s32>(there)));
    };
    KIPX_INDEPENDENT
    for (size_t i = done; i < n; ++i) {
        u8 x = src[i], out = from(x >= first, piece(x, 0), piece(x, 1));
        if constexpr (count == 3) out = from(x >= second, out, piece(x, 2));
        dst[i] = out;
    }
}

void row(Run run) {
    const TranslateRow &how = *static_cast<const TranslateRow *>(run.params);
    u8 *dst = static_cast<u8 *>(run.dst);
    const u8 *src = static_cast<const u8 *>(run.src[0]), *tables = how.tables;
    const u8 *numbers = how.count > 1 ? static_cast<const u8 *>(run.src[1]) : nullptr;
    const size_t n = run.n;
    const bool streamed = run.writing == Writing::streamed;
    // Neighbours of one number: a channel by itself.
    bool single = !numbers || n < 2 || numbers[0] == numbers[1];
    if (numbers && single) tables += 256 * numbers[0];
    if (!numbers && how.pieces.count)
        return how.pieces.count == 3 ? row_of_pieces<3>(dst, src, n, how.pieces, streamed)
                                     : row_of_pieces<2>(dst, src, n, how.pieces, streamed);
    size_t i = vectors_of(single ? 1 : how.count, dst, src, numbers, n, tables, streamed);
    for (; i < n; ++i) dst[i] = tables[(single ? 0 : 256 * numbers[i % pattern_length]) + src[i]];
}

} // namespace

extern const RowLoop translate_rows[1] = {row};

} // namespace kipx::KIPX_SET
