// filter/rect_rows.cpp - the row loops of minimum and maximum over rectangles, compiled once per
// instruction set.
//
// Promises every set gives the same bits: of equal floating zeros the first stays, NaN never counts.
//          Result rows are written up to their last byte and no further.
#include "filter/rect_rows.h"
#include "filter/vectors.h"

namespace kipx::KIPX_SET {
namespace {

constexpr size_t vb = vector_bytes;

// Windows that stay as the loads make them.
struct Stays {
    explicit Stays(const AlongRows &) {}
    void start(Bits) {}
    template<class Op> Bits grown(Bits v) { return v; }
};

#if defined(__AVX512VBMI__)
constexpr size_t most_growth = vector_bytes;

// Windows that grow: a vector of them by the vector before, shifted over it.
template<size_t words> class Grows {
public:
    explicit Grows(const AlongRows &r) {
        alignas(64) u8 bytes[64];
        alignas(64) u32 of_words[16];
        for (u32 i = 0; i < 64; ++i) bytes[i] = static_cast<u8>(64 + i);
        for (u32 i = 0; i < 16; ++i) of_words[i] = 16 + i;
        for (size_t i = 0; i < words; ++i)
            index_[i] = _mm512_sub_epi32(_mm512_load_si512(of_words),
                                         _mm512_set1_epi32(static_cast<int>(r.shift[i] / 4)));
        index_[words] = _mm512_sub_epi8(_mm512_load_si512(bytes),
                                        _mm512_set1_epi8(static_cast<char>(r.shift[words])));
    }
    void start(Bits neutral) {
        for (Bits &b : last_) b = neutral;
    }
    template<class Op> Bits grown(Bits v) {
        for (size_t i = 0; i <= words; ++i) {
            const auto a = reinterpret_cast<__m512i>(last_[i]), b = reinterpret_cast<__m512i>(v);
            const __m512i shifted = i < words ? _mm512_permutex2var_epi32(a, index_[i], b)
                                              : _mm512_permutex2var_epi8(a, index_[i], b);
            last_[i] = v;
            v = Op::of(reinterpret_cast<Bits>(shifted), v);
        }
        return v;
    }

private:
    __m512i index_[words + 1];
    Bits last_[words + 1];
};
#else
constexpr size_t most_growth = 0;
#endif

// The places of a row that a vector of windows is made of.
template<class Op, size_t loads> struct Places {
    ptrdiff_t at[loads];
    Span there;
    explicit Places(const AlongRows &r) : there(r.there) {
        for (size_t i = 0; i < loads; ++i) at[i] = r.at[i];
    }
    [[gnu::always_inline]] Bits whole(const char *row) const {
        Bits v = load_bits(row + at[0]);
        if constexpr (floating<typename Op::Element>) v = Op::of(all(Op::neutral), v);
        for (size_t i = 1; i < loads; ++i) v = Op::of(v, load_bits(row + at[i]));
        return v;
    }
    // What is there of every place of a vector at x.
    struct Parts {
        Part of[loads];
    };
    Parts parts(ptrdiff_t x) const {
        Parts p;
        for (size_t i = 0; i < loads; ++i)
            p.of[i] = Part::of(there.begin - x - at[i], there.end - x - at[i]);
        return p;
    }
    [[gnu::always_inline]] Bits partly(const char *row, const Parts &p) const {
        Bits v = all(Op::neutral);
        for (size_t i = 0; i < loads; ++i)
            v = Op::of(v, load_part(row + at[i], p.of[i], all(Op::neutral)));
        return v;
    }
};

// Vectors of a row from `start` on: those of which not everything is there, the whole ones from
// `first` to before `last`, and the rest, up to `end`.
struct Course {
    ptrdiff_t start, first, last, end;
    Course(const AlongRows &r, ptrdiff_t low, ptrdiff_t high)
        : start(-static_cast<ptrdiff_t>(r.before * vb)), end(static_cast<ptrdiff_t>(r.bytes)) {
        constexpr auto step = static_cast<ptrdiff_t>(vb);
        for (first = start; first + low < r.there.begin && first < end;) first += step;
        last = r.there.end - high < end ? r.there.end - high : end;
        last = last > first ? first + (last - first) / step * step : first;
    }
};

template<class Op, size_t loads, class Growth> void along_with(const AlongRows &r) {
    const Places<Op, loads> places(r);
    constexpr auto step = static_cast<ptrdiff_t>(vb);
    const Course course(r, r.at[0], r.at[loads - 1]);
    // The parts are the same for all rows; of long borders those of the first vectors are kept.
    constexpr size_t most_kept = 8;
    typename Places<Op, loads>::Parts kept[most_kept];
    size_t count = 0;
    for (ptrdiff_t x = course.start; x < course.end && count < most_kept; x += step) {
        if (x == course.first) x = course.last;
        if (x < course.end) kept[count++] = places.parts(x);
    }
    Growth growth(r);
    const ptrdiff_t ahead = r.ahead;
    for (size_t y = 0; y < r.band.rows; ++y) {
        const char *const row = r.band.at + static_cast<ptrdiff_t>(y) * r.band.step;
        char *const out = r.out + static_cast<ptrdiff_t>(y) * r.step;
        size_t number = 0;
        growth.start(all(Op::neutral));
        auto edge = [&](ptrdiff_t x) {
            const auto parts = number < most_kept ? kept[number] : places.parts(x);
            const Bits v = growth.template grown<Op>(places.partly(row + x, parts));
            ++number;
            if (x < 0) return;
            if (x + step <= course.end)
                store_bits(out + x, v);
            else
                store_first(out + x, v, static_cast<size_t>(course.end - x));
        };
        ptrdiff_t x = course.start;
        for (; x < course.first; x += step) edge(x);
        for (; x < 0 && x < course.last; x += step)
            growth.template grown<Op>(places.whole(row + x));
        const ptrdiff_t last = course.last;
        for (; x < last; x += step) {
            __builtin_prefetch(row + x + ahead);
            store_bits(out + x, growth.template grown<Op>(places.whole(row + x)));
        }
        for (; x < course.end; x += step) edge(x);
    }
}

template<class Op> void along(const AlongRows &r) {
#if defined(__AVX512VBMI__)
    if (r.grows) {
        switch (r.words) {
        case 0:
            return along_with<Op, growing_loads, Grows<0>>(r);
        case 1:
            return along_with<Op, growing_loads, Grows<1>>(r);
        case 2:
            return along_with<Op, growing_loads, Grows<2>>(r);
        case 3:
            return along_with<Op, growing_loads, Grows<3>>(r);
        default:
            return along_with<Op, growing_loads, Grows<most_words>>(r);
        }
    }
#endif
    switch (r.loads) {
    case 1:
        return along_with<Op, 1, Stays>(r);
    case 2:
        return along_with<Op, 2, Stays>(r);
    case 3:
        return along_with<Op, 3, Stays>(r);
    case 4:
        return along_with<Op, 4, Stays>(r);
    default:
        return along_with<Op, most_loads, Stays>(r);
    }
}

template<class Op, size_t n>
[[gnu::always_inline]] inline void down_columns(const DownRows &r, size_t x, bool whole) {
    const size_t height = r.height, group = r.group;
    const char *const *row = r.rows;
    char *const kept = r.scratch;
    Bits s[n], p[n];
    // What every window of the group has.
    for (size_t k = 0; k < n; ++k) s[k] = load_bits(row[height - 1] + x + k * vb);
    size_t i = height - 1;
    for (; i-- >= group;)
        for (size_t k = 0; k < n; ++k) s[k] = Op::of(load_bits(row[i] + x + k * vb), s[k]);
    // From the bottom up what the upper ones have, too.
    for (i = group - 1; i > 0; --i)
        for (size_t k = 0; k < n; ++k) {
            if (i < group) store_bits(kept + (i * n + k) * vb, s[k]);
            s[k] = Op::of(load_bits(row[i - 1] + x + k * vb), s[k]);
        }
    auto give = [&](size_t at, Bits(&v)[n]) {
        char *to = r.out + static_cast<ptrdiff_t>(at) * r.step + x;
        for (size_t k = 0; k < n; ++k)
            __builtin_prefetch(to + static_cast<ptrdiff_t>(group) * r.step + k * vb, 1);
        for (size_t k = 0; k < n; ++k) {
            if (whole || x + (k + 1) * vb <= r.bytes)
                store_bits(to + k * vb, v[k]);
            else if (x + k * vb < r.bytes)
                store_first(to + k * vb, v[k], r.bytes - x - k * vb);
        }
    };
    give(0, s);
    for (i = 1; i < group; ++i) {
        Bits v[n];
        for (size_t k = 0; k < n; ++k) {
            Bits next = load_bits(row[height + i - 1] + x + k * vb);
            p[k] = i == 1 ? next : Op::of(p[k], next);
            v[k] = Op::of(load_bits(kept + (i * n + k) * vb), p[k]);
        }
        give(i, v);
    }
}

template<class Op> void down(const DownRows &r) {
    constexpr size_t width = down_width * vector_bytes;
    size_t x = 0;
    for (; x + width <= r.bytes; x += width) down_columns<Op, down_width>(r, x, true);
    for (; x < r.bytes; x += vector_bytes) down_columns<Op, 1>(r, x, false);
}

template<class Op> constexpr typename Op::Element neutral = Op::neutral;

template<class Op> constexpr RectLoops loops = {along<Op>, down<Op>, &neutral<Op>};

constexpr RectSet make_set() {
    RectSet set{most_growth, {}};
#define KIPX_RECT_ROW(T, ...)                                                                      \
    set.loops[KIPX_CODE_##T][0] = loops<Smaller<T>>, set.loops[KIPX_CODE_##T][1] = loops<Larger<T>>;
    KIPX_RECT_TYPES(KIPX_RECT_ROW)
#undef KIPX_RECT_ROW
    return set;
}

} // namespace

extern const RectSet rect_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
