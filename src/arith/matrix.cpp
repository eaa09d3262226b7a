// arith/matrix.cpp - products of small matrices, from the public functions to the row loops.
//
// Every array is seen as one of matrices: a descriptor whose pixels are matrices of one channel, which the
// road's checks agree regions on, and beside it where the entries of a matrix lie. What the road cannot see
// of that, byte offsets and shared bytes of all entries, is looked at afterwards.
#include <kipx/array.h>
#include <kipx/matrix.h>

#include <algorithm>
#include <cmath>

#include "arith/arith_shapes.h"
#include "arith/matrix_rows.h"
#include "arith/typed_arith.h"
#include "core/footprint.h"

namespace kipx {
namespace {

// An array as one of matrices.
struct Matrices {
    kipx_arr arr;
    uint32_t rows, columns;
    uint32_t row, column; // bytes between them
};

// 0 for an array that is none, or has more than four.
uint32_t channels_in(const kipx_arr *a) {
    const uint32_t channels = a && a->base ? channels_of(a->volume[3]) : 0;
    return channels <= 4 ? channels : 0;
}

bool vectors_of(const kipx_arr *a, Matrices &m) {
    const uint32_t channels = channels_in(a);
    if (!channels) return false;
    m = {*a, channels, 1, a->strides[3], 0};
    m.arr.volume[3] = 1;
    return true;
}

bool matrices_of(const kipx_arr *a, uint32_t order, Matrices &m) {
    const uint32_t channels = channels_in(a);
    if (!channels) return false;
    if (channels == 4 && order == 2) {
        m = {*a, 2, 2, 2 * a->strides[3], a->strides[3]};
    } else {
        const uint64_t pixel = uint64_t{a->strides[2]} * order;
        if (channels != order || pixel > UINT32_MAX) return false;
        m = {*a, order, order, a->strides[2], a->strides[3]};
        m.arr.volume[2] /= order, m.arr.strides[2] = static_cast<uint32_t>(pixel);
    }
    m.arr.volume[3] = 1;
    return true;
}

MatrixPlaces places_of(const Matrices &m, const Operand &o) {
    const uint64_t width = uint64_t{m.columns} * o.size;
    const bool dense = (m.columns == 1 || m.column == o.size) && (m.rows == 1 || m.row == width) &&
                       o.pixel == m.rows * width;
    return {m.rows, m.columns, m.row, m.column, o.pixel, dense};
}

// ---- the bytes of all entries ----

struct Bytes {
    Span span;
    Footprint print;
};

// Those of an admitted operand; false where the last one's offset does not fit.
bool bytes_of(const Matrices &m, const Operand &o, const Call &c, Bytes &bytes) {
    kipx_arr all = m.arr;
    all.naxes = 4;
    all.offset = static_cast<uint32_t>(o.at - static_cast<char *>(m.arr.base));
    all.strides[0] = m.row, all.strides[3] = m.column;
    const kipx_site site = {{}, {m.rows, c.height, c.width, m.columns}};
    if (!span_of(all, site, bytes.span)) return false;
    bytes.print = footprint(all, site);
    return true;
}

bool lie_well(const Bytes &dst, const Bytes &source) {
    return apart(dst.span, source.span) || same_footprint(dst.print, source.print) ||
           !share_bytes(dst.print, source.print);
}

// ---- the work ----

// matrix_type_count for none.
uint32_t matrix_index(uint32_t type) {
    constexpr uint32_t types[] = {KIPX_U8, KIPX_U16, KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64};
    uint32_t i = 0;
    while (i < matrix_type_count && types[i] != type) ++i;
    return i;
}

// Whether the sums of bytes by one matrix can be had in binary32, and how. Every number is rounded, and every
// sum of the addend and so many products.
bool bytes_by(const MatrixWay &way, MatrixBytes &out) {
    const uint32_t in = way.b.rows;
    double scale = 65536, most = 0;
    bool exact = true;
    const auto whole = [](double x) { return std::fabs(x) < 0x1p24 && std::nearbyint(x) == x; };
    for (uint32_t i = 0; i < way.dst.rows; ++i) {
        double sum = way.addends ? std::fabs(way.addends[i]) * way.factor : 0;
        exact &= whole(sum * 256);
        for (uint32_t j = 0; j < in; ++j) {
            const double number = way.numbers[i * in + j] * way.factor;
            sum += 255 * std::fabs(number), exact &= whole(number * 256);
        }
        if (!(sum < 32000)) return false;
        most = std::max(most, sum);
    }
    const double off = 1.01 * 0x1p-8 * (most + 1) * (in + 2.0) + 1.5;
    out.margin = 1;
    while (out.margin < off) out.margin *= 2;
    if (exact) scale = 1, out.margin = 0;
    if (out.margin > 1024) return false;
    for (uint32_t i = 0; i < way.dst.rows; ++i) {
        for (uint32_t j = 0; j < in; ++j)
            out.numbers[i * in + j] =
                static_cast<float>(way.numbers[i * in + j] * way.factor * scale);
        const double addend = way.addends ? way.addends[i] * way.factor * scale : 0;
        out.addends[i] = static_cast<float>(addend + (exact ? 0 : 0x8000 + out.margin));
    }
    return true;
}

struct Product {
    Matrices dst, src[2];
    const double *numbers = nullptr, *addends = nullptr;
    int32_t scale = 0;
};

int32_t work_product(Call &c) {
    const Product &given = *static_cast<const Product *>(c.params);
    const Operand &last = c.src[c.sources - 1];
    if (!element_valid(c.dst.type) || !element_valid(c.src[0].type) || !element_valid(last.type))
        return KIPX_EINVAL;
    const uint32_t to = matrix_index(c.dst.type), a = matrix_index(c.src[0].type),
                   b = matrix_index(last.type);
    if (to == matrix_type_count || a == matrix_type_count || b == matrix_type_count)
        return KIPX_ENOTSUP;
    if (no_work_asked(c)) return no_work_answer(c);

    const MatrixLoops &loops = *matrix_loops_of(active_set(c.flags));
    MatrixWay way = {};
    way.dst = places_of(given.dst, c.dst), way.write = loops.write[to];
    way.b = places_of(given.src[c.sources - 1], last), way.read_b = loops.read[b];
    way.numbers = given.numbers, way.addends = given.addends;
    if (given.numbers)
        way.a.rows = given.dst.rows, way.a.columns = way.b.rows;
    else
        way.a = places_of(given.src[0], c.src[0]), way.read_a = loops.read[a];
    way.factor = make_scale(given.scale).factor;
    MatrixBytes bytes;
    const bool by_one = given.numbers && c.dst.type == last.type && way.dst.dense && way.b.dense;
    if (by_one && c.dst.type == KIPX_U8 && bytes_by(way, bytes)) way.bytes = &bytes;
    way.singles = by_one && way.factor == 1 && c.dst.type == KIPX_F32 && way.b.rows == 3 &&
                  (way.dst.rows == 3 || way.dst.rows == 1);
    const auto line = [](const Operand &o, uint64_t y) { return o.at + y * o.row; };
    for (uint64_t y = 0; y < c.height; ++y)
        loops.row(line(c.dst, y), line(c.src[0], y), line(last, y), c.width, way);
    return 0;
}

int32_t travel_matrices(const Shape &shape, const Given &given, const Product &product) {
    Call call;
    if (int32_t code = admit(shape, given, call)) return code;
    call.params = &product;
    Bytes dst, source;
    if (!bytes_of(product.dst, call.dst, call, dst)) return KIPX_EINVAL;
    call.shared |= shares_own_bytes(dst.print);
    for (uint32_t i = 0; i < call.sources; ++i) {
        if (!bytes_of(product.src[i], call.src[i], call, source)) return KIPX_EINVAL;
        call.shared |= !lie_well(dst, source);
    }
    return work_admitted(call, work_product);
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {

int32_t KipxMulMM(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,
                  const kipx_arr *src2, const kipx_site *roi, const kipx_pos *src1At,
                  const kipx_pos *src2At, int32_t scale, uint32_t order) {
    Product p;
    p.scale = scale;
    if (order == 0) order = channels_in(dst);
    if (order > 4 || !matrices_of(dst, order, p.dst) ||
        !matrices_of(src1 ? src1 : dst, order, p.src[0]) || !matrices_of(src2, order, p.src[1]))
        return KIPX_EINVAL;
    return travel_matrices(two_arrays,
                           {xe,
                            flags,
                            {&p.dst.arr, src1 ? &p.src[0].arr : nullptr, &p.src[1].arr},
                            roi,
                            {nullptr, src1At, src2At}},
                           p);
}

int32_t KipxMulMV(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,
                  const kipx_arr *src2, const kipx_site *roi, const kipx_pos *src1At,
                  const kipx_pos *src2At, int32_t scale, int32_t) {
    Product p;
    p.scale = scale;
    if (!vectors_of(dst, p.dst) || !matrices_of(src1, p.dst.rows, p.src[0]) ||
        !vectors_of(src2, p.src[1]) || p.src[1].rows != p.dst.rows)
        return KIPX_EINVAL;
    return travel_matrices(
        two_arrays,
        {xe, flags, {&p.dst.arr, &p.src[0].arr, &p.src[1].arr}, roi, {nullptr, src1At, src2At}}, p);
}

int32_t KipxMulMV_n(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                    const double *matrix, const double *addends, const kipx_site *roi,
                    const kipx_pos *srcAt, int32_t scale, int32_t) {
    Product p;
    p.scale = scale, p.numbers = matrix, p.addends = addends;
    if (!matrix || !vectors_of(dst, p.dst) || !vectors_of(src ? src : dst, p.src[0]))
        return KIPX_EINVAL;
    return travel_matrices(
        one_array, {xe, flags, {&p.dst.arr, src ? &p.src[0].arr : nullptr}, roi, {nullptr, srcAt}},
        p);
}
}
