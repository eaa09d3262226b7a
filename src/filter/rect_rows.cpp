// filter/rect_rows.cpp - the row loops of minimum and maximum over rectangles, compiled once per
// instruction set.
//
// Promises every set gives the same bits: of equal floating zeros the first stays, NaN never counts.
//          Result rows are written up to their last byte and no further.
#include "filter/rect_rows.h"
#include "filter/course.h"

namespace kipx::KIPX_SET {
namespace {

constexpr size_t vb = vector_bytes;

constexpr size_t lower_of(size_t a, size_t b) { return a < b ? a : b; }

// Types that images come in have loops of their own for every number of loads; the others share one,
// which takes places more than once: that changes no result, and keeps this file compilable.
template<class T> constexpr bool frequent = same<T, u8> || same<T, s16> || same<T, f32>;

// Windows that stay as the loads make them.
struct Stays {
    static constexpr bool looks_back = false;
    explicit Stays(const AlongRows &) {}
    void start(Bits) {}
    template<class Op> Bits grown(Bits v) { return v; }
};

#if defined(__AVX512VBMI__)
constexpr size_t most_growth = vector_bytes;

// Windows that grow: a vector of them by the vector before, shifted over it.
template<size_t words> class Grows {
public:
    static constexpr bool looks_back = true;
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

// The places of one row that a vector of windows is made of. fresh: elements may be NaN.
template<class Op, size_t loads, bool fresh> struct Loads : Places<loads> {
    using Places<loads>::Places, Places<loads>::at;
    using typename Places<loads>::Parts;
    [[gnu::always_inline]] Bits whole(const char *row) const {
        Bits v = load_bits(row + at[0]);
        if constexpr (fresh && floating<typename Op::Element>) v = Op::of(all(Op::neutral), v);
        for (size_t i = 1; i < loads; ++i) v = Op::of(v, load_bits(row + at[i]));
        return v;
    }
    [[gnu::always_inline]] Bits partly(const char *row, const Parts &p) const {
        Bits v = all(Op::neutral);
        for (size_t i = 0; i < loads; ++i)
            v = Op::of(v, load_part(row + at[i], p.of[i], all(Op::neutral)));
        return v;
    }
};

// The whole vectors of a row, from x to before last. A loop of its own, so that what it needs stays in
// registers.
template<class Op, class From, class Growth>
[[gnu::noinline]] void along_whole(const From &from, const char *row, ptrdiff_t x, ptrdiff_t last,
                                   ptrdiff_t ahead, char *out, Growth &growth) {
    constexpr ptrdiff_t step = Course<From>::step;
    Growth own = growth;
    const From places = from;
    if constexpr (Growth::looks_back)
        for (; x < 0 && x < last; x += step) own.template grown<Op>(places.whole(row + x));
    for (; x < last; x += step) {
        __builtin_prefetch(row + x + ahead);
        store_bits(out + x, own.template grown<Op>(places.whole(row + x)));
    }
    growth = own;
}

template<class Op, size_t loads, class Growth> void along_with(const AlongRows &r) {
    using From = Loads<Op, loads, true>;
    const From places(r.at, r.there);
    const Course<From> course(places, r.at[0], r.at[loads - 1], r.before, r.bytes);
    constexpr ptrdiff_t step = Course<From>::step;
    const ptrdiff_t ahead = r.ahead, last = course.last;
    Growth growth(r);
    for (size_t y = 0; y < r.band.rows; ++y) {
        const char *const row = r.band.at + static_cast<ptrdiff_t>(y) * r.band.step;
        char *const out = r.out + static_cast<ptrdiff_t>(y) * r.step;
        size_t number = 0;
        growth.start(all(Op::neutral));
        for (ptrdiff_t x = course.start;; x += step) {
            if (x == course.first && x < last) {
                along_whole<Op>(places, row, x, last, ahead, out, growth);
                x = last;
            }
            if (x >= course.end) break;
            const auto parts = course.parts(places, number++, x);
            const Bits v = growth.template grown<Op>(places.partly(row + x, parts));
            if (x >= 0) course.put(out, x, v);
        }
    }
}

#if defined(__AVX512VBMI__)
template<class Op> void along_growing(const AlongRows &r) {
    if constexpr (frequent<typename Op::Element>) switch (r.words) {
        case 0:
            return along_with<Op, growing_loads, Grows<0>>(r);
        case 1:
            return along_with<Op, growing_loads, Grows<1>>(r);
        case 2:
            return along_with<Op, growing_loads, Grows<2>>(r);
        case 3:
            return along_with<Op, growing_loads, Grows<3>>(r);
        }
    AlongRows all = r; // that grow by nothing first
    for (size_t i = 0, none = most_words - r.words; i <= most_words; ++i)
        all.shift[i] = i < none ? 0 : r.shift[i - none];
    along_with<Op, growing_loads, Grows<most_words>>(all);
}
#endif

template<class Op> void along(const AlongRows &r) {
#if defined(__AVX512VBMI__)
    if (r.grows) return along_growing<Op>(r);
#endif
    if constexpr (frequent<typename Op::Element>) switch (r.loads) {
        case 2:
            return along_with<Op, 2, Stays>(r);
        case 3:
            return along_with<Op, 3, Stays>(r);
        case 4:
            return along_with<Op, 4, Stays>(r);
        }
    AlongRows all = r;
    for (size_t i = r.loads; i < most_loads; ++i) all.at[i] = r.at[r.loads - 1];
    along_with<Op, most_loads, Stays>(all);
}

// n vectors of a group of results; load (row, k): the k-th of a row; give (row, k, v) takes them.
// size: of the group and the window, where both are the same and known; else 0.
template<class Op, size_t n, size_t size, class Load, class Give>
[[gnu::always_inline]] inline void group_down(const DownRows &r, const char *const *row,
                                              const Load &load, const Give &give) {
    const size_t height = size ? size : r.height, group = size ? size : r.group;
    Bits in_registers[size ? size * n : 1];
    char *const kept = size ? reinterpret_cast<char *>(in_registers) : r.scratch;
    Bits s[n], p[n];
    // What every window of the group has.
    for (size_t k = 0; k < n; ++k) s[k] = load(row[height - 1], k);
    size_t i = height - 1;
    for (; i-- >= group;)
        for (size_t k = 0; k < n; ++k) s[k] = Op::of(load(row[i], k), s[k]);
            // From the bottom up what the upper ones have, too.
#pragma GCC unroll 5
    for (i = group - 1; i > 0; --i)
        for (size_t k = 0; k < n; ++k) {
            store_bits(kept + (i * n + k) * vb, s[k]);
            s[k] = Op::of(load(row[i - 1], k), s[k]);
        }
    for (size_t k = 0; k < n; ++k) give(0, k, s[k]);
#pragma GCC unroll 5
    for (i = 1; i < group; ++i)
        for (size_t k = 0; k < n; ++k) {
            const Bits next = load(row[height + i - 1], k);
            p[k] = i == 1 ? next : Op::of(p[k], next);
            give(i, k, Op::of(load_bits(kept + (i * n + k) * vb), p[k]));
        }
}

// One group of results, along all of its rows.
template<class Op, size_t size, class From>
void group_along(const DownRows &r, const char *const *rows, char *out, const From &places,
                 const Course<From> &course) {
    constexpr ptrdiff_t step = Course<From>::step;
    constexpr size_t wide = From::count == 1 ? down_width : size ? 2 : 1;
    const ptrdiff_t ahead = r.ahead, row_step = r.step, last = course.last;
    const ptrdiff_t below = static_cast<ptrdiff_t>(r.group) * row_step;
    size_t number = 0;
    ptrdiff_t x = 0;
    auto load = [&](const char *row, size_t k) {
        const char *const at = row + x + k * vb;
        if constexpr (From::count > 1) __builtin_prefetch(at + ahead);
        return places.whole(at);
    };
    auto give = [&](size_t i, size_t k, Bits v) {
        if (size && i >= r.group) return;
        char *const to = out + static_cast<ptrdiff_t>(i) * row_step + x + k * vb;
        __builtin_prefetch(to + below, 1);
        store_bits(to, v);
    };
    for (x = course.first; x + ptrdiff_t{wide} * step <= last; x += ptrdiff_t{wide} * step)
        group_down<Op, wide, size>(r, rows, load, give);
    for (; wide > 1 && x < last; x += step) group_down<Op, 1, size>(r, rows, load, give);
    for (x = 0; x < course.end; x += step) {
        if (x == course.first) x = last;
        if (x >= course.end) break;
        const auto parts = course.parts(places, number++, x);
        group_down<Op, 1, size>(
            r, rows, [&](const char *row, size_t) { return places.partly(row + x, parts); },
            [&](size_t i, size_t, Bits v) {
                if (!size || i < r.group)
                    course.put(out + static_cast<ptrdiff_t>(i) * row_step, x, v);
            });
    }
}

// Of rows that hold windows.
template<class Op> void down_rows(const DownRows &given) {
    const Loads<Op, 1, false> places(given.at, given.there);
    const Course course(places, 0, 0, 0, given.bytes);
    DownRows r = given;
    for (size_t y = 0; y < given.results; y += r.group) {
        r.group = lower_of(given.group, given.results - y);
        group_along<Op, 0>(r, given.rows + y, given.out + static_cast<ptrdiff_t>(y) * given.step,
                           places, course);
    }
}

#if defined(__AVX512VBMI__)
// The union of `size` pixels up to each element of v; between: 16 bytes of the vector before each 16
// of v. Not for floating elements: pixels of other rows have been united before.
template<class Op, size_t size, size_t pixel>
[[gnu::always_inline]] inline Bits pixels_back(__m512i v, __m512i between) {
    constexpr int back = (size - 1) * pixel;
    static_assert(back <= 16);
    if constexpr (size == 1)
        return reinterpret_cast<Bits>(v);
    else
        return Op::of(pixels_back<Op, size - 1, pixel>(v, between),
                      reinterpret_cast<Bits>(_mm512_alignr_epi8(v, between, 16 - back)));
}

// Square windows, down the columns first: what has been united there is kept of the last vector.
template<class Op, size_t size, size_t pixel> class Square {
    using From = Loads<Op, 1, false>;
    static constexpr ptrdiff_t step = vb;

public:
    Square(const DownRows &r, const char *const *rows, char *out, const From &places,
           const Course<From> &course)
        : r_(r), rows_(rows), out_(out), places_(places), course_(course) {}

    void all_along() {
        size_t number = 0;
        for (Bits &b : before_) b = all(Op::neutral);
        for (ptrdiff_t x = course_.start;; x += step) {
            if (x == course_.first && x < course_.last) {
                whole(x);
                x = course_.last;
            }
            if (x >= course_.end) break;
            const auto parts = course_.parts(places_, number++, x);
            group_down<Op, 1, size>(
                r_, rows_, [&](const char *row, size_t) { return places_.partly(row + x, parts); },
                [&](size_t i, size_t, Bits v) {
                    const Bits w = windows(before_[i], v);
                    if (x >= 0 && i < r_.group)
                        course_.put(out_ + static_cast<ptrdiff_t>(i) * r_.step, x, w);
                });
        }
    }

private:
    [[gnu::always_inline]] static Bits windows(Bits &before, Bits now) {
        const auto v = reinterpret_cast<__m512i>(now);
        const auto between = _mm512_alignr_epi64(v, reinterpret_cast<__m512i>(before), 6);
        before = now;
        return pixels_back<Op, size, pixel>(v, between);
    }
    // A loop of its own, so that what it needs stays in registers.
    [[gnu::noinline]] void whole(ptrdiff_t x) {
        const char *const *const rows = rows_;
        const ptrdiff_t last = course_.last, ahead = r_.ahead + places_.at[0], at = places_.at[0];
        const ptrdiff_t row_step = r_.step, below = static_cast<ptrdiff_t>(r_.group) * row_step;
        const size_t group = r_.group;
        char *const out = out_;
        Bits before[size];
        for (size_t i = 0; i < size; ++i) before[i] = before_[i];
        auto load = [&](const char *row, size_t k) { return load_bits(row + at + x + k * vb); };
        auto keep = [&](size_t i, size_t, Bits v) { before[i] = v; };
        auto give = [&](size_t i, size_t k, Bits v) {
            const Bits w = windows(before[i], v);
            if (i >= group) return;
            const ptrdiff_t place = x + static_cast<ptrdiff_t>(k * vb);
            char *const to = out + static_cast<ptrdiff_t>(i) * row_step + place;
            __builtin_prefetch(rows[size - 1 + i] + ahead + place);
            __builtin_prefetch(to + below, 1);
            store_bits(to, w);
        };
        for (; x < 0 && x < last; x += step) group_down<Op, 1, size>(r_, rows, load, keep);
        for (; x + 2 * step <= last; x += 2 * step) group_down<Op, 2, size>(r_, rows, load, give);
        for (; x < last; x += step) group_down<Op, 1, size>(r_, rows, load, give);
        for (size_t i = 0; i < size; ++i) before_[i] = before[i];
    }
    const DownRows &r_;
    const char *const *rows_;
    char *out_;
    const From &places_;
    const Course<From> &course_;
    Bits before_[size];
};
#endif

// Square windows of the source's rows. The last group may be a part of one: rows that are missing
// are the last one again, and give nothing.
template<size_t size, class Work> void each_group(const DownRows &given, const Work &work) {
    const size_t count = given.results + size - 1;
    DownRows r = given;
    for (size_t y = 0; y < given.results; y += size) {
        const char *const *rows = given.rows + y;
        const char *padded[2 * size - 1];
        r.group = lower_of(size, given.results - y);
        if (r.group < size) {
            for (size_t i = 0; i < 2 * size - 1; ++i)
                padded[i] = given.rows[lower_of(y + i, count - 1)];
            rows = padded;
        }
        work(r, rows, given.out + static_cast<ptrdiff_t>(y) * given.step);
    }
}

template<class Op, size_t size, size_t pixel> void square_by_columns(const DownRows &given) {
    const ptrdiff_t end = given.at[size - 1];
    const Loads<Op, 1, false> places(&end, given.there);
    const Course course(places, end, end, 1, given.bytes);
    each_group<size>(given, [&](const DownRows &r, const char *const *rows, char *out) {
        Square<Op, size, pixel>(r, rows, out, places, course).all_along();
    });
}

template<class Op, size_t size> void down_square(const DownRows &given) {
#if defined(__AVX512VBMI__)
    if constexpr (!floating<typename Op::Element>) switch (given.at[1] - given.at[0]) {
        case 1:
            return square_by_columns<Op, size, 1>(given);
        case 2:
            return square_by_columns<Op, size, 2>(given);
        case 3:
            return square_by_columns<Op, size, 3>(given);
        case 4:
            return square_by_columns<Op, size, 4>(given);
        }
#endif
    const Loads<Op, size, true> places(given.at, given.there);
    const Course course(places, given.at[0], given.at[size - 1], 0, given.bytes);
    each_group<size>(given, [&](const DownRows &r, const char *const *rows, char *out) {
        group_along<Op, size>(r, rows, out, places, course);
    });
}

template<class Op> void down(const DownRows &r) {
    if constexpr (frequent<typename Op::Element>) switch (r.loads) {
        case 3:
            return down_square<Op, 3>(r);
        case 5:
            return down_square<Op, 5>(r);
        }
    down_rows<Op>(r);
}

template<class Op> constexpr typename Op::Element neutral = Op::neutral;

template<class Op>
constexpr RectLoops loops = {along<Op>, down<Op>, frequent<typename Op::Element>, &neutral<Op>};

constexpr RectSet make_set() {
    RectSet set{most_growth, {}};
#define KIPX_RECT_ROW(T, ...)                                                                      \
    set.loops[KIPX_CODE_##T][0] = loops<Smaller<T>>;                                               \
    set.loops[KIPX_CODE_##T][1] = loops<Larger<T>>;
    KIPX_RECT_TYPES(KIPX_RECT_ROW)
#undef KIPX_RECT_ROW
    return set;
}

} // namespace

extern const RectSet rect_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
