// compare/compare_rows.cpp - the row loops of the comparisons, compiled once per instruction set.
//
// Gives    compare_rows, in the order that compare_rows.h counts them.
// Promises a comparison is made in the source's type; with a NaN only not_equal holds. Results are all
//          bits or none, or one of two elements of the destination's size, moved by their bits.
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

// One of the two values, by the answer.
template<class D> inline D one_of(const char *const *src, size_t i, D held) {
    const D yes = load<D>(src[2], i), no = load<D>(src[3], i);
    return static_cast<D>(no ^ ((no ^ yes) & held));
}

template<Relation r, class D, class S, bool chosen>
[[gnu::always_inline]] inline void compare_block(char *dst, const char *const *src, size_t n,
                                                 s32 flip) {
    const auto of = [=](size_t i) {
        const s32 held = -static_cast<s32>(holds<r>(load<S>(src[0], i), load<S>(src[1], i)));
        return floating<S> || chosen ? held : held ^ flip;
    };
    if constexpr (chosen) {
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) store(dst, i, one_of(src, i, static_cast<D>(of(i))));
    } else if constexpr (sizeof(D) == sizeof(S)) {
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) store(dst, i, static_cast<D>(of(i)));
    } else {
        using A = Answer<S>;
        alignas(64) A own[pattern_length];
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) own[i] = static_cast<A>(of(i));
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) store(dst, i, static_cast<D>(own[i]));
    }
}

#if defined(__AVX512VBMI__)

template<Relation r, class D, class S, bool chosen> void row(Run run) {
    in_vectors<r, D, S, chosen>(run);
}

#else

template<Relation r, class D, class S, bool chosen> void row(Run run) {
    Standing at = standing_of<D, S, chosen>(run);
    const s32 flip = -static_cast<s32>(static_cast<const CompareRow *>(run.params)->opposite);
    const bool streamed = run.writing == Writing::streamed;
    for (size_t left = run.n; left > 0;) {
        const size_t n = left < pattern_length ? left : pattern_length;
        alignas(64) char lines[pattern_length * sizeof(D)];
        char *to = streamed ? lines : at.dst;
        prefetch<D, S>(at, streamed);
        if (n == pattern_length)
            compare_block<r, D, S, chosen>(to, at.src, pattern_length, flip);
        else
            compare_block<r, D, S, chosen>(to, at.src, n, flip);
        for (size_t i = 0; streamed && i < n * sizeof(D); i += 64)
            stream_line(at.dst + i, lines + i);
        at.advance<D, chosen>();
        left -= n;
    }
}

#endif

// The values of a run of pattern_length elements at most.
template<class D> void choice_row(Run run) {
    const char *const src[] = {static_cast<const char *>(run.src[0]), nullptr,
                               static_cast<const char *>(run.src[2]),
                               static_cast<const char *>(run.src[3])};
    KIPX_INDEPENDENT
    for (size_t i = 0; i < run.n; ++i) store(run.dst, i, one_of(src, i, load<D>(src[0], i)));
}

void two_step_row(Run run) {
    const CompareRow &how = *static_cast<const CompareRow *>(run.params);
    constexpr size_t widest = 4;
    alignas(64) char mask[pattern_length * widest], lines[pattern_length * widest];
    const bool streamed = run.writing == Writing::streamed;
    char *dst = static_cast<char *>(run.dst);
    const char *src[most_sources];
    size_t step[most_sources];
    for (uint32_t k = 0; k < most_sources; ++k) {
        src[k] = static_cast<const char *>(run.src[k]);
        step[k] = how.repeats[k] ? 0 : pattern_length * (k < 2 ? how.src_size : how.dst_size);
    }
    for (size_t left = run.n; left > 0;) {
        const size_t n = left < pattern_length ? left : pattern_length, bytes = n * how.dst_size;
        how.mask({mask, {src[0], src[1]}, n, &how, Writing::cached});
        how.choice(
            {streamed ? lines : dst, {mask, nullptr, src[2], src[3]}, n, &how, Writing::cached});
        for (size_t i = 0; streamed && i < bytes; i += 64) stream_line(dst + i, lines + i);
        dst += bytes, left -= n;
        for (uint32_t k = 0; k < most_sources; ++k) src[k] += step[k];
    }
}

// What no operator asks for has no loop.
template<Relation r, class D, class S, bool chosen> constexpr RowLoop loop_of() {
    constexpr bool asked = floating<S> || r == Relation::equal || r == Relation::less;
    if constexpr (asked) return row<r, D, S, chosen>;
    return nullptr;
}

} // namespace

#define KIPX_RELATIONS(X, S) X(equal, S) X(less, S) X(not_equal, S) X(less_or_equal, S)
#define KIPX_MASK(r, S)                                                                            \
    loop_of<Relation::r, s8, S, false>(), loop_of<Relation::r, s16, S, false>(),                   \
        loop_of<Relation::r, s32, S, false>(),
#define KIPX_MASKS(S) KIPX_RELATIONS(KIPX_MASK, S)
#define KIPX_CHOSEN(r, S) loop_of<Relation::r, Answer<S>, S, true>(),
#define KIPX_CHOSEN_ONES(S) KIPX_RELATIONS(KIPX_CHOSEN, S)
extern const RowLoop compare_rows[compare_row_count] = {
    KIPX_COMPARE_SOURCES(KIPX_MASKS) KIPX_COMPARE_SOURCES(KIPX_CHOSEN_ONES) choice_row<s8>,
    choice_row<s16>, choice_row<s32>, two_step_row};

} // namespace kipx::KIPX_SET
