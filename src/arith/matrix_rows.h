// arith/matrix_rows.h - the row loops of small matrix products, and their tables.
//
// A row is worked off in blocks: every entry of the factors is read as f64 into an array of its own, the
// sums are formed, and all of them are written. So a destination may be a factor.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/sets.h"

namespace kipx {

inline constexpr size_t matrix_block = 64;
inline constexpr uint32_t most_entries = 16;
using MatrixBlock = double[most_entries][matrix_block];

// How the entries of a matrix at every pixel lie; a vector has one column. Bytes from one to the next.
struct MatrixPlaces {
    uint32_t rows, columns;
    uint64_t row, column, pixel;
    bool dense; // all of them side by side, row by row
};

// n matrices from `at` on.
using MatrixRead = void (*)(MatrixBlock &to, const char *at, const MatrixPlaces &places, size_t n);
using MatrixWrite = void (*)(char *at, const MatrixBlock &from, const MatrixPlaces &places,
                             size_t n, double factor);

// One matrix for dense bytes, its factor in it, whose sums in binary32 are exact, margin being 0; or in units
// of 2^-16, the addends holding one half and the margin: a power of two, above what sums may be off.
struct MatrixBytes {
    float numbers[most_entries], addends[4];
    int32_t margin;
};

// (a.rows x a.columns) (a.columns x b.columns); dst has a.rows and b.columns.
struct MatrixWay {
    MatrixPlaces dst, a, b;
    MatrixWrite write;
    MatrixRead read_a, read_b;
    const double *numbers, *addends; // the left factor where it is one for all; null for none
    double factor;
    const MatrixBytes *bytes; // null for none
    bool singles;             // one matrix, factor 1, for dense pixels of three f32 to three or one
};

// In this order: u8, u16, s16, s32, f32, f64.
inline constexpr uint32_t matrix_type_count = 6;
struct MatrixLoops {
    MatrixRead read[matrix_type_count];
    MatrixWrite write[matrix_type_count];
    // A row of n matrices.
    void (*row)(char *dst, const char *a, const char *b, size_t n, const MatrixWay &way);
};
KIPX_SET_TABLES(MatrixLoops, matrix_loops, 1)

} // namespace kipx
