// arith/arith_quick.h - shorter ways to the same bits for bytes and s16. For row files only.
//
// Gives    Quick<Op, D, A, B>: none(a, b) for the unscaled result, half(a, b) for the result times
//          1/2, where there is a form in the elements' own width; row_of_bytes(), products and
//          scaled sums on the even and the odd bytes of a vector as 16-bit lanes.
// Promises exact for every input, as the exhaustive tests of the byte operations show. An operation
//          whose form is not named goes none of these ways.
#pragma once

#include "arith/arith_values.h"

#if defined(__AVX512BW__)
#include <immintrin.h>
#endif

namespace kipx::KIPX_SET {

template<class Op, class D, class A, class B> struct Quick {};

// Rounded up, less one where that broke a tie to the odd side.
inline u8 half_even(u8 a, u8 b) {
    u8 up = static_cast<u8>((a + b + 1) >> 1);
    return static_cast<u8>(up - ((a ^ b) & up & 1));
}
inline u8 add_capped(u8 a, u8 b) {
    u8 room = static_cast<u8>(255 - b);
    return static_cast<u8>((a < room ? a : room) + b);
}
inline u8 sub_capped(u8 a, u8 b) { return static_cast<u8>((a > b ? a : b) - b); }

template<> struct Quick<Add, u8, u8, u8> {
    static u8 half(u8 a, u8 b) { return half_even(a, b); }
};
template<> struct Quick<Addq, u8, u8, u8> : Quick<Add, u8, u8, u8> {
    static u8 none(u8 a, u8 b) { return add_capped(a, b); }
};
// A difference below zero halves to zero or below, and is stored as zero.
template<> struct Quick<Sub, u8, u8, u8> {
    static u8 half(u8 a, u8 b) { return half_even(sub_capped(a, b), 0); }
};
template<> struct Quick<Subq, u8, u8, u8> : Quick<Sub, u8, u8, u8> {
    static u8 none(u8 a, u8 b) { return sub_capped(a, b); }
};
template<> struct Quick<RSub, u8, u8, u8> {
    static u8 half(u8 a, u8 b) { return half_even(sub_capped(b, a), 0); }
};
template<> struct Quick<RSubq, u8, u8, u8> : Quick<RSub, u8, u8, u8> {
    static u8 none(u8 a, u8 b) { return sub_capped(b, a); }
};

// The wrapped result where it has not left 16 bits, else the end of the range on the side of x.
inline s16 capped(s16 wrapped, bool left_range, s16 x) {
    return left_range ? static_cast<s16>((x >> 15) ^ 0x7fff) : wrapped;
}
inline s16 sub_capped(s16 a, s16 b) {
    s16 w = static_cast<s16>(static_cast<u16>(a) - static_cast<u16>(b));
    return capped(w, static_cast<s16>((a ^ b) & (a ^ w)) < 0, a);
}
template<> struct Quick<Addq, s16, s16, s16> {
    static s16 none(s16 a, s16 b) {
        s16 w = static_cast<s16>(static_cast<u16>(a) + static_cast<u16>(b));
        return capped(w, static_cast<s16>((a ^ w) & (b ^ w)) < 0, a);
    }
};
// The mean rounded down, and one more where that is odd and half a unit was lost.
inline s16 half_even(s16 down, s16 lost) { return static_cast<s16>(down + (down & lost & 1)); }
template<> struct Quick<Add, s16, s16, s16> {
    static s16 half(s16 a, s16 b) {
        s16 down = static_cast<s16>((a >> 1) + (b >> 1) + (a & b & 1));
        return half_even(down, static_cast<s16>(a ^ b));
    }
};
template<> struct Quick<Subq, s16, s16, s16> {
    static s16 none(s16 a, s16 b) { return sub_capped(a, b); }
};
template<> struct Quick<RSubq, s16, s16, s16> {
    static s16 none(s16 a, s16 b) { return sub_capped(b, a); }
};

// ---- even and odd bytes as 16-bit lanes ----

using Words = Vector<u16>;
using SignedWords = Vector<s16>;

// Calls lanes(a, b) -> Words of 0..255 for the even and for the odd bytes of each vector. The rest
// of a row goes through a padded vector.
template<class Lanes>
inline void row_of_byte_pairs(void *dst, const void *a, const void *b, size_t n, bool streamed,
                              Lanes lanes) {
    auto step = [=](void *to, const void *x, const void *y) {
        Words va, vb;
        memcpy(&va, x, sizeof va);
        memcpy(&vb, y, sizeof vb);
        Words even = lanes(va & 255, vb & 255), odd = lanes(va >> 8, vb >> 8);
        Words out = even | (odd << 8);
        memcpy(to, &out, sizeof out);
    };
    char *to = static_cast<char *>(dst);
    const char *x = static_cast<const char *>(a), *y = static_cast<const char *>(b);
    size_t i = 0;
    for (; streamed && n - i >= 64; i += 64) {
        alignas(64) char out[64];
        for (size_t j = 0; j < 64; j += vector_bytes) step(out + j, x + i + j, y + i + j);
        stream_line(to + i, out);
    }
    for (; n - i >= vector_bytes; i += vector_bytes) step(to + i, x + i, y + i);
    if (i < n) {
        char pad[3][vector_bytes] = {};
        memcpy(pad[0], x + i, n - i);
        memcpy(pad[1], y + i, n - i);
        step(pad[2], pad[0], pad[1]);
        memcpy(to + i, pad[2], n - i);
    }
}

inline Words at_most_255(Words r) { return r < 255 ? r : Words{} + 255; }

// Products and scaled sums of bytes; shift 0 stands for unscaled products. True when the row is
// done: 16 bits hold every step for shifts up to 9.
template<class Op>
inline bool row_of_bytes(void *dst, const void *a, const void *b, size_t n, const ArithScale &s,
                         bool streamed) {
    static_assert(Op::kind == Kind::product || Op::form != Form::other);
    const u32 k = s.shift;
    const u16 bias = static_cast<u16>(k ? (1 << (k - 1)) - 1 : 0), odd = k ? 1 : 0;
    if (k > 9) return false;
    if constexpr (Op::kind == Kind::product) {
        if (k == 0)
            row_of_byte_pairs(dst, a, b, n, streamed,
                              [](Words x, Words y) { return at_most_255(x * y); });
        else
            row_of_byte_pairs(dst, a, b, n, streamed, [=](Words x, Words y) {
                Words r = x * y;
                return at_most_255((r + bias + ((r >> k) & odd)) >> k);
            });
    } else {
        if (k == 0) return false;
        row_of_byte_pairs(dst, a, b, n, streamed, [=](Words x, Words y) {
            SignedWords r = Op::of((SignedWords)x, (SignedWords)y);
            r = (r + static_cast<s16>(bias) + ((r >> k) & static_cast<s16>(odd))) >> k;
            r = r > 0 ? r : SignedWords{};
            return at_most_255((Words)r);
        });
    }
    return true;
}

} // namespace kipx::KIPX_SET
