// util/elements.h - an array of raw elements, as the sorts see it.
//
// Gives    Elements<N>: comparing, exchanging and rotating elements by index, for elements of N
//          bytes, or for N = 0 of any number of bytes; and the check of a caller's array.
// Promises elements need no alignment; the comparator sees addresses inside the array only; nothing
//          is allocated.
// Costs    an exchange of 4 or 8 bytes is two loads and two stores.
#pragma once

#include <kipx/sort.h>

#include <cstdint>
#include <cstring>

namespace kipx {

inline constexpr size_t piece = 64; // long elements are moved in pieces of this many bytes

template<size_t N> struct Elements {
    char *base;
    size_t bytes; // of one element
    ZuCompare comparator;
    void *context;

    size_t size() const { return N ? N : bytes; }
    char *at(size_t i) const { return base + i * size(); }
    int32_t compare(size_t i, size_t j) const { return comparator(at(i), at(j), context); }

    void exchange(size_t i, size_t j) const {
        char *a = at(i), *b = at(j);
        if constexpr (N != 0) {
            exchange_piece(a, b, N);
        } else {
            size_t k = 0;
            for (; k + piece <= bytes; k += piece) exchange_piece(a + k, b + k, piece);
            for (; k + 8 <= bytes; k += 8) exchange_piece(a + k, b + k, 8);
            for (; k < bytes; ++k) exchange_piece(a + k, b + k, 1);
        }
    }

    // Puts element from at index to (to <= from) and moves those between one place up.
    void rotate(size_t to, size_t from) const {
        by_pieces([&](size_t k, size_t length) {
            char held[piece];
            std::memcpy(held, at(from) + k, length);
            if (length == size())
                std::memmove(at(to + 1), at(to), (from - to) * length);
            else
                for (size_t i = from; i > to; i--) std::memcpy(at(i) + k, at(i - 1) + k, length);
            std::memcpy(at(to) + k, held, length);
        });
    }

    // body(k, length) for every piece of an element: bytes k to k + length.
    template<class Body> void by_pieces(Body body) const {
        if constexpr (N != 0)
            body(size_t{0}, N);
        else
            for (size_t k = 0; k < bytes; k += piece)
                body(k, bytes - k < piece ? bytes - k : piece);
    }

private:
    static void exchange_piece(char *a, char *b, size_t length) {
        char held[2 * piece];
        std::memcpy(held, a, length);
        std::memcpy(held + piece, b, length);
        std::memcpy(a, held + piece, length);
        std::memcpy(b, held, length);
    }
};

// What the checked functions take: no more than 2^31 - 1 bytes, and an array where n is not 0.
inline bool acceptable(const void *base, size_t n, size_t size, ZuCompare compare) {
    if (size == 0 || n > 0x7fffffff / size) return false;
    return n == 0 || (base && compare);
}

} // namespace kipx
