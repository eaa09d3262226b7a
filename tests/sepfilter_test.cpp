// Separable and Gaussian filters, against sums over every window in the documented order.
#include <kipx/array.h>
#include <kipx/sepfilter.h>

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/borders.h"
#include "support/environment.h"
#include "support/window_case.h"

using namespace kipx::test;

namespace {

struct Kernel {
    kipx_seshape shape;
    std::vector<double> rows, columns;
};

template<class Sum>
Plane sums(uint32_t type, uint32_t border, const Kernel &k, const Plane &src, const Region &r) {
    Plane out{r.height, r.width, std::vector<double>(static_cast<size_t>(r.height) * r.width)};
    auto value = [&](int y, int x) {
        const int sy = border_place(border, y, src.height), sx = border_place(border, x, src.width);
        return static_cast<Sum>(sy >= 0 && sx >= 0 ? src.at(sy, sx) : 0);
    };
    const bool point = k.shape.volume[1] == 1 && k.shape.volume[2] == 1; // copies
    for (int y = 0; y < r.height; y++)
        for (int x = 0; x < r.width; x++) {
            if (point) {
                out.at(y, x) = src.at(r.y + y, r.x + x);
                continue;
            }
            volatile Sum sum = 0; // no contraction, no wider intermediate
            for (int i = 0; i < k.shape.volume[1]; i++) {
                volatile Sum row = 0;
                for (int j = 0; j < k.shape.volume[2]; j++) {
                    const volatile Sum term =
                        static_cast<Sum>(k.columns[j]) *
                        value(r.y + y - k.shape.anchor[1] + i, r.x + x - k.shape.anchor[2] + j);
                    row = j ? row + term : term;
                }
                const volatile Sum term = static_cast<Sum>(k.rows[i]) * row;
                sum = i ? sum + term : term;
            }
            const double total = sum;
            out.at(y, x) = is_real(type)       ? total
                           : std::isnan(total) ? static_cast<double>(lowest(type))
                                               : stored(type, total);
        }
    return out;
}

constexpr uint32_t types[] = {KIPX_U8, KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32};

std::vector<double> draw_weights(Rng &rng, int n, int way) {
    std::vector<double> w(static_cast<size_t>(n));
    for (double &x : w)
        x = way == 0   ? static_cast<double>(rng.between(-3, 9)) / 16 // ties in plenty
            : way == 1 ? rng.unit() / n
            : way == 2 ? rng.unit() * 4 - 2
                       : rng.unit() * 1e9; // too much for short sums
    if (way == 0 && rng.one_in(4)) w[0] = NAN;
    if (way != 4) return w;
    // Of one in all, small shares of it, many mirrored: sums lie next to ties in plenty.
    double all = 0;
    const size_t own = rng.one_in(3) ? w.size() : w.size() / 2 + 1;
    for (size_t i = 0; i < w.size(); i++)
        w[i] = i < own ? static_cast<double>(rng.between(1, 4)) : w[w.size() - 1 - i];
    for (double x : w) all += x;
    for (double &x : w) x /= all;
    return w;
}

TEST(SepFilter, IsTheSumOverEveryWindow) {
    Rng rng(5);
    const int32_t sizes[] = {1, 2, 3, 4, 5, 6, 7, 9, 15, 40};
    const uint32_t borders[] = {0, 3, 4, 5, 6, 7};
    for (int round = 0; round < 1500; round++) {
        WindowCase c;
        c.type = rng.pick(types);
        c.values = c.type == KIPX_F32 ? Values::finite : Values::any;
        const uint32_t border = rng.pick(borders);
        Kernel k;
        const int32_t height = rng.pick(sizes), width = rng.pick(sizes);
        if (rng.one_in(30)) c.most_width = 1200, c.most_height = 9; // done piece by piece
        __kipx_seshape__$g22(&k.shape, static_cast<int32_t>(rng.below(height)),
                             static_cast<int32_t>(rng.below(width)), height, width);
        const int way = static_cast<int>(rng.below(5));
        k.rows = draw_weights(rng, height, way), k.columns = draw_weights(rng, width, way);
        const kipx_sepkernel kernel = {k.shape, {nullptr, k.rows.data(), k.columns.data()}};
        c.call = [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
                     const kipx_site *roi, const Region &) {
            return KipxSepFilter(xe, KIPX_FLAG_BORDER(border), src, dst, mask, roi, &kernel);
        };
        c.model = [&](const Plane &src, const Region &r, uint32_t) {
            return c.type == KIPX_F32 ? sums<float>(c.type, border, k, src, r)
                                      : sums<double>(c.type, border, k, src, r);
        };
        const std::string wrong = try_window(rng, c);
        ASSERT_TRUE(wrong.empty()) << "type " << c.type << " border " << border << " kernel "
                                   << height << "x" << width << " way " << way << " in " << wrong;
    }
}

TEST(GaussianFilter, IsTheSeparableOneWithItsWeights) {
    Rng rng(6);
    for (int round = 0; round < 300; round++) {
        WindowCase c;
        c.type = rng.pick(types);
        c.values = Values::small;
        kipx_seshape given;
        __kipx_seshape__$g2(&given, static_cast<int32_t>(rng.between(-1, 9)),
                            static_cast<int32_t>(rng.between(-1, 9)));
        if (rng.one_in(2)) given.anchor[2] = static_cast<int32_t>(rng.between(-1, 3));
        // Rows and columns, and the plane's in front of them where there are 4 axes: 0, so that the
        // same two count.
        const double some[] = {0, 0.3, 1, 2.5}, sigmas[3] = {0, rng.pick(some), rng.pick(some)};
        c.call = [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
                     const kipx_site *roi, const Region &) {
            return KipxGaussianFilter(xe, 0, src, dst, mask, roi, &given,
                                      sigmas + (src->naxes == 3));
        };
        c.model = [&](const Plane &src, const Region &r, uint32_t) {
            Kernel k;
            k.shape = given;
            const uint32_t extent[] = {1, static_cast<uint32_t>(r.height),
                                       static_cast<uint32_t>(r.width)};
            kipx_seshape_adjust_$I(&k.shape, extent);
            const double rows = sigmas[1] != 0 ? sigmas[1] : sigmas[2],
                         columns = sigmas[2] != 0 ? sigmas[2] : sigmas[1];
            for (int axis : {1, 2}) {
                std::vector<double> &w = axis == 1 ? k.rows : k.columns;
                const double set = axis == 1 ? rows : columns;
                const double s =
                    set != 0 ? set : ((k.shape.volume[axis] - 1) * 0.5 - 1) * 0.3 + 0.8;
                w.resize(static_cast<size_t>(k.shape.volume[axis]));
                kipx__computegauskernel1(w.data(), k.shape.anchor[axis], k.shape.volume[axis], s);
            }
            return c.type == KIPX_F32 ? sums<float>(c.type, 0, k, src, r)
                                      : sums<double>(c.type, 0, k, src, r);
        };
        const std::string wrong = try_window(rng, c);
        ASSERT_TRUE(wrong.empty()) << "sigmas " << sigmas[1] << " " << sigmas[2] << " in " << wrong;
    }
}

TEST(GaussianFilter, WeightsAndSigmas) {
    Rng rng(7);
    for (int round = 0; round < 500; round++) {
        double w[40], sum = 0;
        const int32_t n = static_cast<int32_t>(rng.between(1, 40)),
                      anchor = static_cast<int32_t>(rng.below(n));
        const double sigma = std::exp(rng.unit() * 12 - 6);
        kipx__computegauskernel1(w, anchor, n, sigma);
        double must[40];
        for (int32_t i = 0; i < n; i++)
            sum += must[i] = std::exp(-1.0 * (i - anchor) * (i - anchor) / (2 * sigma * sigma));
        for (int32_t i = 0; i < n; i++)
            ASSERT_NEAR(w[i], must[i] / sum, 1e-15 * must[i] / sum + 5e-324) << sigma << " " << i;
    }
    const struct {
        double given[3], must[3];
    } rows[] = {{{0, 0, 0}, {0.5, 0.8, 1.1}},
                {{0, 2, 0}, {2, 2, 2}},
                {{0, 0, 3}, {3, 3, 3}},
                {{1, 0, 3}, {1, 1, 3}}};
    kipx_seshape shape;
    __kipx_seshape__$g3(&shape, 1, 3, 5);
    for (const auto &row : rows) {
        double got[3];
        kipx_adjustgaussigmas(4, got, &shape, row.given);
        for (int i = 0; i < 3; i++) EXPECT_DOUBLE_EQ(got[i], row.must[i]) << &row - rows << i;
    }
}

TEST(SepFilter, RefusesWhatCannotBe) {
    Shape s;
    s.width = s.height = 9;
    GuardedArray src(s), dst(s);
    kipx_arr wide = *src.arr();
    wide.type = KIPX_U16;
    const double w[3] = {0.25, 0.5, 0.25}, bad_sigmas[2] = {1, NAN};
    kipx_sepkernel good = {{}, {nullptr, w, w}}, no_rows = good, no_size = good, outside = good;
    __kipx_seshape__$g2(&good.shape, 3, 3);
    no_rows.shape = no_size.shape = outside.shape = good.shape;
    no_rows.weights[1] = nullptr, no_size.shape.volume[1] = 0, outside.shape.anchor[2] = 3;
    Environment xe;
    for (const kipx_sepkernel *k : {static_cast<const kipx_sepkernel *>(nullptr),
                                    static_cast<const kipx_sepkernel *>(&no_rows),
                                    static_cast<const kipx_sepkernel *>(&no_size),
                                    static_cast<const kipx_sepkernel *>(&outside)})
        EXPECT_EQ(KipxSepFilter(xe, KIPX_FLAG_PROBE, src.arr(), dst.arr(), nullptr, nullptr, k),
                  KIPX_EINVAL);
    auto sep = [&](uint64_t flags, const kipx_arr *a) {
        return KipxSepFilter(xe, flags, a, nullptr, nullptr, nullptr, &good);
    };
    EXPECT_EQ(sep(KIPX_FLAG_PROBE, &wide), KIPX_EINVAL);
    EXPECT_EQ(sep(KIPX_FLAG_PROBE | KIPX_FLAG_BORDER(1), src.arr()), KIPX_EINVAL);
    EXPECT_EQ(sep(KIPX_FLAG_PROBE | KIPX_FLAG_PREPARE, src.arr()), KIPX_EAGAIN);
    EXPECT_EQ(sep(KIPX_FLAG_PREPARE, src.arr()), 0);
    const Snapshot before = dst.snapshot();
    EXPECT_EQ(
        KipxGaussianFilter(xe, 0, src.arr(), dst.arr(), nullptr, nullptr, nullptr, bad_sigmas),
        KIPX_EINVAL);
    EXPECT_EQ(dst.changes(before), "");
}

} // namespace
