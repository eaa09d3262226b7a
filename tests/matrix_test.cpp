// Small matrix products against sums written out, in every layout, place and type.
#include <kipx/matrix.h>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

constexpr uint32_t types[] = {KIPX_U8, KIPX_U16, KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64};
enum class Product { mm, mv, numbers };

// An array of w x h matrices, or of vectors of n entries; a region of it starts at x, y.
struct Operand {
    GuardedArray array;
    uint32_t n;
    bool vectors, in_channels;
    uint32_t x, y;

    // plain: a type for which there are ways of its own where pixels lie side by side, or 0.
    static Operand draw(Rng &rng, uint32_t n, bool vectors, uint32_t width, uint32_t height,
                        uint32_t plain) {
        Shape s;
        s.type = rng.pick(types), s.layout = rng.pick(all_layouts);
        if (plain) s.type = plain, s.layout = Layout::packed;
        s.edge = rng.one_in(2) ? Edge::last : Edge::first, s.shift = rng.below(3);
        const bool in_channels = !vectors && n == 2 && rng.one_in(2);
        const auto x = uint32_t(rng.below(3)), y = uint32_t(rng.below(3));
        s.channels = in_channels ? 4 : n, s.height = height + y;
        s.width = (width + x) * (vectors || in_channels ? 1 : n);
        if (!vectors && !in_channels) s.width += uint32_t(rng.below(n)); // part of no matrix
        return {GuardedArray(s), n, vectors, in_channels, x, y};
    }
    At at(uint32_t row, uint32_t column, uint32_t i, uint32_t k) const {
        if (vectors) return {y + row, x + column, i};
        if (in_channels) return {y + row, x + column, 2 * i + k};
        return {y + row, (x + column) * n + i, k};
    }
    double value(At at) const {
        return is_real(array.shape().type) ? array.real(at) : double(array.integer(at));
    }
    void set(At at, double r) {
        const uint32_t type = array.shape().type;
        if (is_real(type)) return array.set_real(at, std::isnan(r) ? std::nan("") : r);
        const auto low = double(lowest(type)), high = double(highest(type));
        array.set_integer(at, int64_t(std::nearbyint(r > low ? std::min(r, high) : low)));
    }
    kipx_pos place() const { return position(int32_t(x), int32_t(y)); }
};

// One call drawn at random: empty, or what went wrong.
std::string multiply_once(Rng &rng, Product kind) {
    const bool by_one = kind == Product::numbers, of_bytes = by_one && rng.one_in(3),
               of_reals = by_one && !of_bytes && rng.one_in(2), wide = of_bytes && rng.one_in(8);
    const uint32_t plain = of_bytes ? KIPX_U8 : of_reals ? KIPX_F32 : 0;
    const auto n = uint32_t(rng.between(1, 4)), height = uint32_t(rng.between(1, 3)),
               width = uint32_t(rng.between(1, 150) + (wide ? 1000 : 0));
    const auto inner = of_reals ? 3 : by_one ? uint32_t(rng.between(1, 4)) : n;
    Operand b = Operand::draw(rng, inner, kind != Product::mm, width, height, plain);
    Operand a = Operand::draw(rng, n, false, width, height, 0);
    Operand d = Operand::draw(rng, n, kind != Product::mm, width, height, plain);
    for (Operand *o : {&a, &b, &d}) o->array.fill(rng, rng.one_in(8) ? Values::any : Values::small);
    std::vector<double> numbers(n * inner), addends(n);
    // Sevenths add up to numbers that lie next to ties.
    const double parts = rng.one_in(3) ? 14 : 128;
    for (double &v : numbers) v = double(rng.between(-400, 400)) / parts / (plain ? 4 : 1);
    for (double &v : addends) v = double(rng.between(-400, 400));
    const bool adds = rng.one_in(2);
    // Now and then a factor is the destination itself.
    const bool square = kind == Product::mm || inner == n, shared = square && rng.one_in(4);
    const bool first = kind == Product::mm && rng.one_in(2);
    const Operand &left = shared && first ? d : a, &right = shared && !first ? d : b;
    constexpr int32_t scales[] = {0, 0, -3, 2};
    const int32_t scale = rng.pick(scales);
    const kipx_site roi = rectangle(int32_t(d.x), int32_t(d.y), int32_t(width), int32_t(height));
    const kipx_pos at1 = left.place(), at2 = right.place();

    const Snapshot before = d.array.snapshot();
    const auto call = [&](uint64_t flags) {
        const kipx_arr *dst = d.array.arr(), *x = left.array.arr(), *y = right.array.arr();
        if (kind == Product::mm) {
            const bool null = &left == &d && rng.one_in(2);
            return KipxMulMM(nullptr, flags, dst, null ? nullptr : x, y, &roi,
                             null ? nullptr : &at1, &at2, scale, n);
        }
        if (kind == Product::mv)
            return KipxMulMV(nullptr, flags, dst, x, y, &roi, &at1, &at2, scale, 5);
        return KipxMulMV_n(nullptr, flags, dst, &right == &d && rng.one_in(2) ? nullptr : y,
                           numbers.data(), adds ? addends.data() : nullptr, &roi, &at2, scale, 5);
    };
    std::vector<std::pair<At, double>> results;
    for (uint32_t row = 0; row < height; row++)
        for (uint32_t x = 0; x < width; x++)
            for (uint32_t i = 0; i < n; i++)
                for (uint32_t k = 0; k < (kind == Product::mm ? n : 1); k++) {
                    double sum = 0;
                    for (uint32_t j = 0; j < inner; j++) {
                        const double l = kind == Product::numbers
                                             ? numbers[i * inner + j]
                                             : left.value(left.at(row, x, i, j));
                        const double product = l * right.value(right.at(row, x, j, k));
                        sum = j ? sum + product : product;
                    }
                    if (kind == Product::numbers && adds) sum += addends[i];
                    results.emplace_back(d.at(row, x, i, k), std::ldexp(sum, scale));
                }
    for (const auto &[at, r] : results) d.set(at, r);
    const Snapshot expected = d.array.snapshot();
    const Snapshot sources[] = {a.array.snapshot(), b.array.snapshot()};
    for (int32_t set : all_sets()) {
        SimdSwitch form(set);
        d.array.restore(before);
        if (call(KIPX_FLAG_PROBE) != KIPX_EAGAIN || call(KIPX_FLAG_PREPARE) != 0 ||
            d.array.snapshot() != before)
            return "a call that is to do nothing";
        if (const int32_t code = call(0)) return "answers " + std::to_string(code);
        if (const std::string wrong = d.array.changes(expected); !wrong.empty())
            return describe(d.array.shape()) + ", n " + std::to_string(n) + ": " + wrong;
    }
    return a.array.snapshot() == sources[0] && b.array.snapshot() == sources[1] ? "" : "a source";
}

TEST(Matrix, ProductsAreTheSums) {
    for (uint64_t seed = 0; seed < 600; seed++) {
        Rng rng(seed);
        for (Product kind : {Product::mm, Product::mv, Product::numbers})
            ASSERT_EQ(multiply_once(rng, kind), "") << "kind " << int(kind) << ", seed " << seed;
    }
}

TEST(Matrix, Refuses) {
    unsigned char bytes[64] = {}, other[64] = {}, more[64] = {};
    const auto array = [](void *base, uint32_t width, uint32_t channels) {
        return kipx_arr{
            {1, 1, width, channels}, {}, {0, 64, channels, 1}, 3, 0, KIPX_U8, 0, 0, base};
    };
    const kipx_arr d = array(bytes, 2, 3), m = array(other, 6, 3), v = array(more, 2, 3);
    const auto mv = [](kipx_arr dst, kipx_arr matrix, kipx_arr vector) {
        return KipxMulMV(nullptr, 0, &dst, &matrix, &vector, nullptr, nullptr, nullptr, 0, 0);
    };
    const auto with = [](kipx_arr a, uint32_t type, uint16_t axes, uint32_t pixel = 3) {
        a.type = type, a.naxes = axes, a.strides[2] = pixel;
        return a;
    };
    kipx_arr in_matrix = m; // its vectors are the first rows of the matrices
    in_matrix.volume[2] = 2, in_matrix.strides[2] = 9;
    kipx_arr last_row = in_matrix; // the last row of the last matrix alone is the destination
    last_row.volume[2] = 1, last_row.offset = 15;
    const kipx_pos second = position(1, 0);
    const struct {
        int32_t is, right;
        const char *what;
    } rows[] = {
        {mv(d, m, v), 0, "as it should be"},
        {mv(d, m, d), 0, "in place"},
        {mv(in_matrix, m, v), KIPX_EINVAL, "a destination among the matrices"},
        {mv(last_row, m, v), 0, "a destination in a matrix that is not read"},
        {KipxMulMV(nullptr, 0, &last_row, &m, &v, nullptr, &second, nullptr, 0, 0), KIPX_EINVAL,
         "a destination in the one that is"},
        {mv(d, array(other, 6, 2), v), KIPX_EINVAL, "rows of 2 for vectors of 3"},
        {mv(d, m, array(more, 2, 2)), KIPX_EINVAL, "vectors of 2"},
        {mv(d, array(other, 2, 3), v), KIPX_EEMPTY, "no whole matrix"},
        {mv(d, m, with(v, KIPX_U64, 3)), KIPX_ENOTSUP, "a type without loops"},
        {mv(d, m, with(v, 5, 3)), KIPX_EINVAL, "an invalid type"},
        {mv(with(d, KIPX_U8, 4), m, v), KIPX_ENOTSUP, "four axes"},
        {mv(d, with(m, KIPX_U8, 3, 0x60000000), v), KIPX_EINVAL, "strides beyond 2^32"},
        {KipxMulMV(nullptr, 0, &d, nullptr, &v, nullptr, nullptr, nullptr, 0, 0), KIPX_EINVAL,
         "no matrices"},
        {KipxMulMM(nullptr, 0, &m, &m, &m, nullptr, nullptr, nullptr, 0, 5), KIPX_EINVAL, "5 x 5"},
        {KipxMulMV_n(nullptr, 0, &d, &v, nullptr, nullptr, nullptr, nullptr, 0, 0), KIPX_EINVAL,
         "no numbers"},
    };
    for (const auto &row : rows) EXPECT_EQ(row.is, row.right) << row.what;
}

} // namespace
