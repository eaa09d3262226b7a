// compare/compare_rows.cpp - the row loops of the comparisons, compiled once per instruction set.
//
// Gives    compare_rows, in the order of compare_row_index().
// Promises a comparison is made in the source's type; with a NaN only not_equal holds. Results are
//          all bits or none, or one of two elements of the destination's size, moved by their bits.
// Costs    one pass over blocks of pattern_length elements. Where element sizes differ, the answers
//          of a block are widened or narrowed in the first-level cache.
#include "compare/compare_rows.h"
#include "compare/compare_avx512.h"
#include "compare/compare_standing.h"

namespace kipx::KIPX_SET {
namespace {

template<Relation r, class T> inline bool holds(T a, T b) {
    if constexpr (r == Relation::equal) return a == b;
    if constexpr (r == Relation::not_equal) return a != b;
    if constexpr (r == Relation::less) return a < b;
    if constexpr (r == Relation::less_or_equal) return a <= b;
}

// A signed integer of an element's size: -1 where the relation holds, else 0.
template<size_t size> struct AnswerOf;
template<> struct AnswerOf<1> { using Type = s8; };
template<> struct AnswerOf<2> { using Type = s16; };
template<> struct AnswerOf<4> { using Type = s32; };
template<class T> using Answer = typename AnswerOf<sizeof(T)>::Type;

template<Relation r, class D, class S>
inline void answer(void *out, const char *a, const char *b, size_t n) {
    auto of = [=](size_t i) { return -static_cast<s32>(holds<r>(load<S>(a, i), load<S>(b, i))); };
    if constexpr (sizeof(D) == sizeof(S)) {
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) store(out, i, static_cast<Answer<D>>(of(i)));
    } else {
        alignas(64) Answer<S> own[pattern_length];
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) own[i] = static_cast<Answer<S>>(of(i));
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) store(out, i, static_cast<Answer<D>>(own[i]));
    }
}

template<Relation r, class D, class S, bool chosen>
[[gnu::always_inline]] inline void plain_block(char *dst, const char *const *src, size_t n) {
    using A = Answer<D>;
    auto choice = [=](size_t i, A held) {
        A yes = load<A>(src[2], i), no = load<A>(src[3], i);
        return static_cast<A>(no ^ ((no ^ yes) & held));
    };
    if constexpr (!chosen) {
        answer<r, D, S>(dst, src[0], src[1], n);
    } else if constexpr (sizeof(D) == sizeof(S)) {
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) {
            bool held = holds<r>(load<S>(src[0], i), load<S>(src[1], i));
            store(dst, i, choice(i, static_cast<A>(-static_cast<s32>(held))));
        }
    } else {
        alignas(64) A held[pattern_length];
        answer<r, D, S>(held, src[0], src[1], n);
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) store(dst, i, choice(i, held[i]));
    }
}

#if defined(__AVX512VBMI__)

template<Relation r, class D, class S, bool chosen> void row(Run run) {
    Standing at = standing_of<D, S, chosen>(run);
    const size_t blocks = run.n / pattern_length;
    if (run.writing == Writing::streamed)
        vector_blocks<r, D, S, chosen, true>(at, blocks);
    else
        vector_blocks<r, D, S, chosen, false>(at, blocks);
    vector_rest<r, D, S, chosen>(at, run.n % pattern_length);
}

#else

template<Relation r, class D, class S, bool chosen> void row(Run run) {
    Standing at = standing_of<D, S, chosen>(run);
    const bool streamed = run.writing == Writing::streamed;
    for (size_t left = run.n; left > 0;) {
        const size_t n = left < pattern_length ? left : pattern_length;
        alignas(64) char lines[pattern_length * sizeof(D)];
        char *to = streamed ? lines : at.dst;
        prefetch<D, S>(at, streamed);
        if (n == pattern_length)
            plain_block<r, D, S, chosen>(to, at.src, pattern_length);
        else
            plain_block<r, D, S, chosen>(to, at.src, n);
        for (size_t i = 0; streamed && i < n * sizeof(D); i += 64)
            stream_line(at.dst + i, lines + i);
        at.advance<D, chosen>();
        left -= n;
    }
}

#endif

} // namespace

#define KIPX_KINDS(relation, D, S)                                                                 \
    row<Relation::relation, D, S, false>, row<Relation::relation, D, S, true>
#define KIPX_RELATIONS(D, S)                                                                       \
    KIPX_KINDS(equal, D, S), KIPX_KINDS(not_equal, D, S), KIPX_KINDS(less, D, S),                  \
        KIPX_KINDS(less_or_equal, D, S),
extern const RowLoop compare_rows[compare_row_count] = {KIPX_COMPARE_PAIRS(KIPX_RELATIONS)};

} // namespace kipx::KIPX_SET
