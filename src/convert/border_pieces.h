// convert/border_pieces.h - the columns beyond a line's ends, pixel by pixel and in pieces.
//
// Gives    Column and Piece, where pixels go and come from; mover(), what moves pixels of a size;
//          copy_short(), for bytes too few to call for.
// Promises no byte but those of the pixels is read or written. Pieces are written by words that overlap
//          each other: what they come from lies elsewhere.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kipx {

struct Column {
    int64_t to, from; // bytes from the line's first pixel, from the source line's first pixel
};

// Pixels of `unit` bytes to and from any places; 0: of as many as are told.
template<size_t unit>
inline void move_pixels(char *to, const char *from, const Column *column, uint32_t n, size_t size) {
    for (uint32_t i = 0; i < n; ++i)
        std::memcpy(to + column[i].to, from + column[i].from, unit ? unit : size);
}

// Neighbours that come from neighbours, one after the other, all from one, or backwards.
struct Piece {
    enum Kind { along, same, back } kind;
    int64_t to, from; // of the first one, as a Column's
    int64_t pixels;
};

// Bytes of whole words, and one more word that ends where they do; fewer than a word one by one.
// word (i): the bytes from i on.
template<class Word, class At> inline void write_words(char *to, int64_t bytes, At word) {
    constexpr int64_t step = sizeof(Word);
    for (int64_t i = 0; i < bytes; i += step) {
        const int64_t at = std::min(i, bytes - step);
        const Word value = word(at);
        std::memcpy(to + at, &value, sizeof value);
    }
}

struct Sixteen {
    uint64_t low, high;
};
template<class Word> inline Word load_word(const char *at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

inline void copy_short(char *to, const char *from, int64_t bytes) {
    if (bytes >= 16)
        write_words<Sixteen>(to, bytes, [=](int64_t i) { return load_word<Sixteen>(from + i); });
    else if (bytes >= 8)
        write_words<uint64_t>(to, bytes, [=](int64_t i) { return load_word<uint64_t>(from + i); });
    else
        for (int64_t i = 0; i < bytes; ++i) to[i] = from[i];
}

// Words of 8 bytes are made where pixels divide them.
template<size_t unit> inline void write_piece(char *to, const char *from, const Piece &piece) {
    constexpr bool divides = unit == 1 || unit == 2 || unit == 4 || unit == 8;
    const auto bytes = static_cast<int64_t>(unit) * piece.pixels;
    to += piece.to, from += piece.from;
    if (piece.kind == Piece::along) return copy_short(to, from, bytes);
    if constexpr (divides)
        if (piece.kind == Piece::same && bytes >= 8) {
            char pattern[8];
            for (size_t i = 0; i < 8; ++i) pattern[i] = from[i % unit];
            const auto word = load_word<uint64_t>(pattern);
            return write_words<uint64_t>(to, bytes, [=](int64_t) { return word; });
        }
    if constexpr (unit == 1)
        if (piece.kind == Piece::back && bytes >= 8)
            return write_words<uint64_t>(to, bytes, [=](int64_t i) {
                return __builtin_bswap64(load_word<uint64_t>(from - i - 7));
            });
    const int64_t step = piece.kind == Piece::back ? -static_cast<int64_t>(unit) : 0;
    for (int64_t i = 0; i < piece.pixels; ++i)
        std::memcpy(to + i * static_cast<int64_t>(unit), from + i * step, unit);
}

template<size_t unit>
inline void write_pieces(char *to, const char *from, const Piece *piece, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) write_piece<unit>(to, from, piece[i]);
}

// What moves pixels of a size; there are no pieces of uncommon ones.
struct Mover {
    void (*columns)(char *, const char *, const Column *, uint32_t, size_t);
    void (*pieces)(char *, const char *, const Piece *, uint32_t);
};
template<size_t unit> inline constexpr Mover mover_of{move_pixels<unit>, write_pieces<unit>};

inline Mover mover(size_t unit) {
    switch (unit) {
    case 1:
        return mover_of<1>;
    case 2:
        return mover_of<2>;
    case 3:
        return mover_of<3>;
    case 4:
        return mover_of<4>;
    case 6:
        return mover_of<6>;
    case 8:
        return mover_of<8>;
    case 12:
        return mover_of<12>;
    case 16:
        return mover_of<16>;
    case 24:
        return mover_of<24>;
    case 32:
        return mover_of<32>;
    default:
        return {move_pixels<0>, nullptr};
    }
}

} // namespace kipx
