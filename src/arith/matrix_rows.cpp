// arith/matrix_rows.cpp - the row loops of small matrix products, compiled once per instruction set.
//
// Promises each set gives the same bits: a sum is formed from left to right, in binary64.
#include "arith/matrix_rows.h"
#include "arith/matrix_bytes.h"
#include "arith/matrix_singles.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

// Entries that lie side by side, as many as a pixel's channels or a 2 x 2 matrix has.
template<class T, u32 entries> void read_dense(MatrixBlock &to, const char *at, size_t n) {
    KIPX_INDEPENDENT
    for (size_t x = 0; x < n; ++x) {
        to[0][x] = static_cast<f64>(load<T>(at, x * entries));
        if constexpr (entries > 1) to[1][x] = static_cast<f64>(load<T>(at, x * entries + 1));
        if constexpr (entries > 2) to[2][x] = static_cast<f64>(load<T>(at, x * entries + 2));
        if constexpr (entries > 3) to[3][x] = static_cast<f64>(load<T>(at, x * entries + 3));
    }
}

template<class T> void read(MatrixBlock &to, const char *at, const MatrixPlaces &p, size_t n) {
    switch (p.dense ? p.rows * p.columns : 0) {
    case 1:
        return read_dense<T, 1>(to, at, n);
    case 2:
        return read_dense<T, 2>(to, at, n);
    case 3:
        return read_dense<T, 3>(to, at, n);
    case 4:
        return read_dense<T, 4>(to, at, n);
    default:
        for (u32 i = 0; i < p.rows; ++i)
            for (u32 k = 0; k < p.columns; ++k)
                for (size_t x = 0; x < n; ++x)
                    to[i * p.columns + k][x] =
                        static_cast<f64>(load<T>(at + i * p.row + k * p.column + x * p.pixel, 0));
    }
}

template<class T> T stored(f64 sum, f64 factor) {
    const f64 r = sum * factor;
    if constexpr (floating<T>)
        return one_nan(static_cast<T>(r));
    else
        return round_saturate<T>(r);
}

template<class T, u32 entries>
void write_dense(char *at, const MatrixBlock &from, size_t n, f64 factor) {
    KIPX_INDEPENDENT
    for (size_t x = 0; x < n; ++x) {
        store(at, x * entries, stored<T>(from[0][x], factor));
        if constexpr (entries > 1) store(at, x * entries + 1, stored<T>(from[1][x], factor));
        if constexpr (entries > 2) store(at, x * entries + 2, stored<T>(from[2][x], factor));
        if constexpr (entries > 3) store(at, x * entries + 3, stored<T>(from[3][x], factor));
    }
}

template<class T>
void write(char *at, const MatrixBlock &from, const MatrixPlaces &p, size_t n, f64 factor) {
    switch (p.dense ? p.rows * p.columns : 0) {
    case 1:
        return write_dense<T, 1>(at, from, n, factor);
    case 2:
        return write_dense<T, 2>(at, from, n, factor);
    case 3:
        return write_dense<T, 3>(at, from, n, factor);
    case 4:
        return write_dense<T, 4>(at, from, n, factor);
    default:
        for (u32 i = 0; i < p.rows; ++i)
            for (u32 k = 0; k < p.columns; ++k)
                for (size_t x = 0; x < n; ++x)
                    store(at + i * p.row + k * p.column + x * p.pixel, 0,
                          stored<T>(from[i * p.columns + k][x], factor));
    }
}

// The sums of a block; each is one of `inner` products, and an addend where there are any.
template<u32 inner, bool fixed, bool addends>
void sums(MatrixBlock &out, [[maybe_unused]] const MatrixBlock &a, const MatrixBlock &b,
          const MatrixWay &way, size_t n) {
    const u32 columns = way.b.columns;
    for (u32 i = 0; i < way.a.rows; ++i) {
        f64 number[inner] = {}, addend = addends ? way.addends[i] : 0;
        for (u32 j = 0; fixed && j < inner; ++j) number[j] = way.numbers[i * inner + j];
        for (u32 k = 0; k < columns; ++k) {
            const auto product = [&](u32 j, size_t x) {
                return (fixed ? number[j] : a[i * inner + j][x]) * b[j * columns + k][x];
            };
            f64 *to = out[i * columns + k];
            KIPX_INDEPENDENT
            for (size_t x = 0; x < n; ++x) {
                f64 sum = product(0, x);
                if constexpr (inner > 1) sum += product(1, x);
                if constexpr (inner > 2) sum += product(2, x);
                if constexpr (inner > 3) sum += product(3, x);
                if constexpr (addends) sum += addend;
                to[x] = sum;
            }
        }
    }
}

template<bool fixed, bool addends>
void any_sums(MatrixBlock &out, const MatrixBlock &a, const MatrixBlock &b, const MatrixWay &way,
              size_t n) {
    switch (way.a.columns) {
    case 1:
        return sums<1, fixed, addends>(out, a, b, way, n);
    case 2:
        return sums<2, fixed, addends>(out, a, b, way, n);
    case 3:
        return sums<3, fixed, addends>(out, a, b, way, n);
    default:
        return sums<4, fixed, addends>(out, a, b, way, n);
    }
}

void row(char *dst, const char *left, const char *right, size_t n, const MatrixWay &way) {
    if (row_of_bytes(dst, right, n, way) || row_of_singles(dst, right, n, way)) return;
    alignas(64) MatrixBlock a, b, out;
    for (size_t at = 0; at < n; at += matrix_block) {
        const size_t some = n - at < matrix_block ? n - at : matrix_block;
        way.read_b(b, right + at * way.b.pixel, way.b, some);
        if (way.numbers) {
            (way.addends ? any_sums<true, true> : any_sums<true, false>)(out, a, b, way, some);
        } else {
            way.read_a(a, left + at * way.a.pixel, way.a, some);
            any_sums<false, false>(out, a, b, way, some);
        }
        way.write(dst + at * way.dst.pixel, out, way.dst, some, way.factor);
    }
}

} // namespace

#define KIPX_TYPES(loop) loop<u8>, loop<u16>, loop<s16>, loop<s32>, loop<f32>, loop<f64>
extern const MatrixLoops matrix_loops[1] = {{{KIPX_TYPES(read)}, {KIPX_TYPES(write)}, row}};

} // namespace kipx::KIPX_SET
