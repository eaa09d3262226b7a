// filter/rect_rows.cpp - the row loops of minimum and maximum over rectangles, compiled once per
// instruction set.
//
// Promises every set gives the same bits: of equal floating zeros the first stays, NaN never counts.
//          Result rows are written up to their last byte and no further.
#include "filter/rect_rows.h"
#include "filter/vectors.h"

namespace kipx::KIPX_SET {
namespace {

constexpr u32 most_byte_stages = 2, most_word_stages = 6;

// The window along the row, vector by vector.
template<class Op, int fixed_loads = -1, int fixed_bytes = -1, int fixed_words = -1> class Runner {
public:
    explicit Runner(const Along &a)
        : loads_(fixed_loads >= 0 ? u32(fixed_loads) : a.loads),
          bytes_(fixed_bytes >= 0 ? u32(fixed_bytes) : a.byte_stages),
          words_(fixed_words >= 0 ? u32(fixed_words) : a.word_stages) {
        for (int i = 0; i < 4; ++i) at_[i] = a.at[i];
        for (u32 i = 0; i < bytes(); ++i) byte_shift_[i] = Shift::of_bytes(a.shift[i]);
        for (u32 i = 0; i < words(); ++i)
            word_shift_[i] = Shift::of_words(a.shift[a.byte_stages + i]);
    }
    u32 loads() const { return fixed_loads >= 0 ? u32(fixed_loads) : loads_; }
    u32 bytes() const { return fixed_bytes >= 0 ? u32(fixed_bytes) : bytes_; }
    u32 words() const { return fixed_words >= 0 ? u32(fixed_words) : words_; }
    template<int n> [[gnu::always_inline]] void run(const char *at, Bits (&v)[n]) {
        constexpr size_t step = vector_bytes;
        for (int k = 0; k < n; ++k) {
            v[k] = load_bits(at + at_[0] + k * step);
            if constexpr (floating<typename Op::Element>) v[k] = Op::of(all(Op::neutral), v[k]);
        }
#pragma GCC unroll 4
        for (u32 i = 1; i < 4; ++i) {
            if (i >= loads()) break;
            for (int k = 0; k < n; ++k) v[k] = Op::of(v[k], load_bits(at + at_[i] + k * step));
        }
#pragma GCC unroll 4
        for (u32 i = 0; i < most_byte_stages; ++i) {
            if (i >= bytes()) break;
            for (int k = 0; k < n; ++k) {
                Bits shifted = shift_bytes(byte_before_[i], v[k], byte_shift_[i]);
                byte_before_[i] = v[k];
                v[k] = Op::of(shifted, v[k]);
            }
        }
#pragma GCC unroll 8
        for (u32 i = 0; i < most_word_stages; ++i) {
            if (i >= words()) break;
            for (int k = 0; k < n; ++k) {
                Bits shifted = shift_words(word_before_[i], v[k], word_shift_[i]);
                word_before_[i] = v[k];
                v[k] = Op::of(shifted, v[k]);
            }
        }
    }

private:
    u32 loads_, bytes_, words_;
    ptrdiff_t at_[4];
    Shift byte_shift_[most_byte_stages] = {}, word_shift_[most_word_stages] = {};
    Bits byte_before_[most_byte_stages] = {}, word_before_[most_word_stages] = {};
};

template<class Op, class Run> void along_with(const AlongRows &r) {
    constexpr size_t vb = vector_bytes;
    Run run(*r.along);
    const size_t bytes = r.bytes;
    for (size_t y = 0; y < r.band.rows; ++y) {
        char *const out = r.out + static_cast<ptrdiff_t>(y) * r.step;
        size_t x = 0, primes = r.along->primes;
        for (int piece = 0; piece < 3; ++piece) {
            const ptrdiff_t step = r.band.step[piece];
            const char *at = r.band.at[piece] + static_cast<ptrdiff_t>(y) * step;
            size_t vectors = r.pieces.vectors[piece];
            Bits v[2], one[1];
            for (; primes > 0 && vectors > 0; --primes, --vectors, at += vb) run.run(at, one);
            for (; vectors >= 2 && x + 2 * vb <= bytes; vectors -= 2, at += 2 * vb, x += 2 * vb) {
                __builtin_prefetch(at + step);
                __builtin_prefetch(at + step + vb);
                run.run(at, v);
                store_bits(out + x, v[0]);
                store_bits(out + x + vb, v[1]);
            }
            for (; vectors > 0; --vectors, at += vb, x += vb) {
                run.run(at, one);
                if (x + vb <= bytes)
                    store_bits(out + x, one[0]);
                else if (x < bytes)
                    store_first(out + x, one[0], bytes - x);
            }
        }
    }
}
template<class Op> void along(const AlongRows &r) { along_with<Op, Runner<Op>>(r); }

template<class Op, size_t n>
[[gnu::always_inline]] inline void down_columns(const DownRows &r, size_t x, bool whole) {
    constexpr size_t vb = vector_bytes;
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
        for (size_t k = 0; k < n; ++k) __builtin_prefetch(to + (n + k) * vb, 1);
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

template<class Op> void unite(char *row, size_t shift, size_t bytes) {
    for (size_t x = 0; x < bytes; x += vector_bytes)
        store_bits(row + x, Op::of(load_bits(row + x), load_bits(row + x + shift)));
}

template<class Op> constexpr typename Op::Element neutral = Op::neutral;

template<class Op> constexpr RectLoops loops = {along<Op>, down<Op>, unite<Op>, &neutral<Op>};

constexpr RectSet make_set() {
    RectSet set{vector_bytes, {}};
#define KIPX_RECT_ROW(T, ...)                                                                      \
    set.loops[KIPX_CODE_##T][0] = loops<Smaller<T>>, set.loops[KIPX_CODE_##T][1] = loops<Larger<T>>;
    KIPX_RECT_TYPES(KIPX_RECT_ROW)
#undef KIPX_RECT_ROW
    return set;
}

} // namespace

extern const RectSet rect_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
