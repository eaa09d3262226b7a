// Filters over rectangles, against loops over every window.
#include <kipx/array.h>
#include <kipx/filter.h>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "support/borders.h"
#include "support/conformance.h"
#include "support/environment.h"
#include "support/window_case.h"

using namespace kipx::test;

namespace {

constexpr uint32_t types[] = {KIPX_U8,  KIPX_S16, KIPX_S32, KIPX_F32,
                              KIPX_U16, KIPX_S8,  KIPX_U32, KIPX_F64};

Footprint element_of(const kipx_seshape *given, const Region &r) {
    kipx_seshape s = {};
    if (given) s = *given;
    const uint32_t extent[] = {1, static_cast<uint32_t>(r.height), static_cast<uint32_t>(r.width)};
    kipx_seshape_adjust_$I(&s, extent);
    return {s.volume[1], s.volume[2], s.anchor[1], s.anchor[2], {}};
}

Plane mean(uint32_t type, uint32_t border, const Plane &src, const Region &r, const Footprint &e) {
    Plane out{r.height, r.width, std::vector<double>(static_cast<size_t>(r.height) * r.width)};
    for (int y = 0; y < r.height; y++)
        for (int x = 0; x < r.width; x++) {
            long double sum = 0;
            for (int i = 0; i < e.height; i++)
                for (int j = 0; j < e.width; j++) {
                    const int sy = border_place(border, r.y + y - e.row + i, src.height);
                    const int sx = border_place(border, r.x + x - e.column + j, src.width);
                    if (sy >= 0 && sx >= 0) sum += src.at(sy, sx);
                }
            out.at(y, x) = stored(type, sum / (e.height * e.width));
        }
    return out;
}

Plane model(uint32_t type, uint32_t kind, uint32_t border, const Plane &src, const Region &r,
            const Footprint &e) {
    if (kind == KIPX_FILTER_BOX) return mean(type, border, src, r, e);
    return morphology(type, kind % 100, src, r, e);
}

bool subtracts(uint32_t type) { return type == KIPX_U8 || type == KIPX_S16 || type == KIPX_S32; }

TEST(Filter, IsWhatLoopsOverEveryWindowGive) {
    const uint32_t kinds[] = {KIPX_FILTER_COPY,   KIPX_FILTER_MIN,   KIPX_FILTER_MAX,
                              KIPX_FILTER_BOX,    KIPX_FILTER_OPEN,  KIPX_FILTER_CLOSE,
                              KIPX_FILTER_TOPHAT, KIPX_FILTER_BOTHAT};
    const uint32_t borders[] = {0, 3, 4, 5, 6, 7};
    Rng rng(1);
    for (int round = 0; round < 2500; round++) {
        WindowCase c;
        c.type = rng.pick(types);
        const uint32_t kind = rng.pick(kinds), border = rng.pick(borders);
        const bool hat = kind == KIPX_FILTER_TOPHAT || kind == KIPX_FILTER_BOTHAT;
        if (hat && !subtracts(c.type)) continue;
        // Sizes from a point to beyond what a vector covers; long ones on one side only.
        const int64_t most = rng.one_in(20) ? 300 : rng.one_in(5) ? 40 : 8;
        kipx_seshape shape;
        __kipx_seshape__$g2(
            &shape, static_cast<int32_t>(rng.between(most > 40 ? 1 : -3, most > 40 ? 3 : most)),
            static_cast<int32_t>(rng.between(-3, most)));
        if (rng.one_in(2)) std::swap(shape.volume[1], shape.volume[2]);
        if (rng.one_in(2)) shape.anchor[1] = static_cast<int32_t>(rng.between(-2, shape.volume[1]));
        if (rng.one_in(2)) shape.anchor[2] = static_cast<int32_t>(rng.between(-2, shape.volume[2]));
        if (rng.one_in(10)) {
            // Windows of rows where they lie: a first step's rows lie in a ring, which comes round.
            constexpr uint32_t frequent[] = {KIPX_U8, KIPX_S16, KIPX_F32};
            shape.volume[1] = shape.volume[2] = rng.one_in(2) ? 3 : 5;
            c.type = frequent[rng.below(hat ? 2 : 3)], c.most_width = 150, c.most_height = 70;
        }
        const kipx_seshape *given = rng.one_in(20) ? nullptr : &shape;
        if (rng.one_in(10)) c.most_width = 400;
        if (kind == KIPX_FILTER_BOX && rng.one_in(16)) {
            // Where means of 8 and 16 bits change their way: products, 16 bits, sums down the columns.
            const int32_t sides[][2] = {{13, 14}, {14, 14},  {17, 5},  {43, 2},   {31, 31},
                                        {128, 9}, {129, 12}, {257, 3}, {258, 11}, {256, 128}};
            const auto &side = rng.pick(sides);
            __kipx_seshape__$g2(&shape, side[0], side[1]);
            const uint32_t small[] = {KIPX_U8, KIPX_U8, KIPX_S16, KIPX_U16};
            c.type = rng.pick(small), c.most_width = 90;
        }
        if (kind == KIPX_FILTER_BOX && is_real(c.type)) {
            c.values = Values::small;
            c.tolerance = c.type == KIPX_F32 ? 1e-6 : 1e-13;
        }
        c.call = [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
                     const kipx_site *roi, const Region &) {
            return KipxFilter(xe, KIPX_FLAG_BORDER(border), src, dst, mask, roi, kind, given);
        };
        c.model = [&](const Plane &src, const Region &r, uint32_t) {
            return model(c.type, kind, border, src, r, element_of(given, r));
        };
        const std::string wrong = try_window(rng, c);
        ASSERT_TRUE(wrong.empty())
            << kipx_filter_str(kind) << " type " << c.type << " border " << border << " shape "
            << shape.volume[1] << "x" << shape.volume[2] << " anchor " << shape.anchor[1] << ","
            << shape.anchor[2] << " in " << wrong;
    }
}

// An infinity leaves no trace behind, and nothing is lost beside large values.
TEST(Filter, MeansOfRealNumbersDoNotDrift) {
    Shape s;
    s.type = KIPX_F32, s.width = 50, s.height = 60;
    GuardedArray src(s), dst(s);
    src.for_each([&](At at) { src.set_real(at, at.x == 7 && at.y == 8 ? INFINITY : 1.25); });
    src.set_real({30, 40, 0, 0}, 1e30);
    kipx_seshape shape;
    Environment xe;
    ASSERT_EQ(KipxFilter(xe, 0, src.arr(), dst.arr(), nullptr, nullptr, KIPX_FILTER_BOX,
                         __kipx_seshape__$g2(&shape, 5, 5)),
              0);
    dst.for_each([&](At at) {
        const bool near_infinity = at.x >= 5 && at.x <= 9 && at.y >= 6 && at.y <= 10;
        const bool near_large = at.x >= 38 && at.x <= 42 && at.y >= 28 && at.y <= 32;
        const double value = dst.real(at);
        EXPECT_TRUE(near_infinity ? std::isinf(value)
                    : near_large  ? value > 3e28
                                  : value == 1.25)
            << at.y << "," << at.x << " " << value;
    });
}

TEST(Filter, MeansThatAreNoNumbersAreOneNaN) {
    const uint32_t some[] = {0x7f800001, 0xffc12345, 0x7f800000, 0xff800000}, n = 24;
    uint32_t src[n * n], dst[n * n];
    for (uint32_t i = 0; i < n * n; i++) src[i] = some[(i + i / n) % 4];
    const kipx_arr from = {{1, n, n, 1}, {}, {0, 4 * n, 4, 4}, 3, 0, KIPX_F32, 0, 0, src};
    kipx_arr to = from;
    to.base = dst;
    for (int32_t set : all_sets()) {
        SimdSwitch form(set);
        Environment xe;
        ASSERT_EQ(KipxFilter(xe, 0, &from, &to, nullptr, nullptr, KIPX_FILTER_BOX, nullptr), 0);
        for (uint32_t bits : dst) ASSERT_EQ(bits, 0x7fc00000u);
    }
}

TEST(Filter, AnswersInOrder) {
    Shape s;
    s.width = 9, s.height = 7;
    GuardedArray src(s), dst(s);
    Shape wide = s, reals = s;
    wide.width = 5, wide.channels = 2, reals.type = KIPX_F32;
    GuardedArray two(wide), real(reals);
    kipx_arr one_on = *dst.arr(), no_type = *src.arr(), no_kernel = *src.arr(),
             no_size = *src.arr(), no_channels = *src.arr();
    one_on.base = dst.address({0, 1, 0, 0}), one_on.volume[2]--;
    no_type.type = 5, no_kernel.type = KIPX_U64, no_size.type = 15, no_channels.volume[3] = 0;
    const kipx_site outside = rectangle(20, 0, 3, 3);
    const uint64_t probe = KIPX_FLAG_PROBE, bad_border = KIPX_FLAG_BORDER(9);
    const struct {
        int32_t code;
        uint64_t flags;
        const kipx_arr *src, *dst, *mask;
        const kipx_site *roi;
        uint32_t kind;
    } rows[] = {
        {KIPX_EINVAL, 0, nullptr, dst.arr(), nullptr, &outside, 110},
        {KIPX_EINVAL, 0, src.arr(), two.arr(), nullptr, &outside, 110},
        {KIPX_EINVAL, 0, &no_channels, nullptr, nullptr, &outside, 110},
        {KIPX_EINVAL, 0, src.arr(), dst.arr(), real.arr(), &outside, 110},
        {KIPX_EEMPTY, 0, src.arr(), dst.arr(), nullptr, &outside, 110},
        {KIPX_EINVAL, probe, src.arr(), dst.arr(), nullptr, nullptr, 110},
        {KIPX_EINVAL, probe, src.arr(), dst.arr(), nullptr, nullptr, 1},
        {KIPX_EINVAL, probe, src.arr(), real.arr(), nullptr, nullptr, KIPX_FILTER_MIN},
        {KIPX_EINVAL, probe, &no_type, nullptr, nullptr, nullptr, KIPX_FILTER_MIN},
        {KIPX_EINVAL, bad_border, src.arr(), dst.arr(), nullptr, nullptr, KIPX_FILTER_BOX},
        {KIPX_ENOTIMP, probe, src.arr(), dst.arr(), nullptr, nullptr, KIPX_FILTER_MEDIAN},
        {KIPX_ENOTIMP, probe, src.arr(), dst.arr(), nullptr, nullptr, KIPX_FILTER_GRADIENT},
        {KIPX_ENOTSUP, probe, &no_kernel, nullptr, nullptr, nullptr, KIPX_FILTER_MIN},
        {KIPX_ENOTSUP, 0, &no_size, nullptr, nullptr, nullptr, KIPX_FILTER_COPY},
        {KIPX_ENOTSUP, probe, real.arr(), nullptr, nullptr, nullptr, KIPX_FILTER_TOPHAT},
        {KIPX_EINVAL, probe, src.arr(), dst.arr(), &one_on, nullptr, KIPX_FILTER_MIN},
        {KIPX_EINVAL, 0, src.arr(), dst.arr(), dst.arr(), nullptr, KIPX_FILTER_MIN},
        {KIPX_EAGAIN, probe, src.arr(), dst.arr(), nullptr, nullptr, KIPX_FILTER_MIN},
        {KIPX_EAGAIN, probe, src.arr(), dst.arr(), nullptr, nullptr, KIPX_FILTER_COPY},
        {0, bad_border, src.arr(), dst.arr(), nullptr, nullptr, 0x100 | KIPX_FILTER_MIN},
    };
    Environment xe;
    for (const auto &row : rows)
        EXPECT_EQ(KipxFilter(xe, row.flags, row.src, row.dst, row.mask, row.roi, row.kind, nullptr),
                  row.code)
            << &row - rows;
}

// The levels below, on the inside of an array that is wide enough; kernels from the tables.
TEST(Filter, FlatLevelsReadAsFarAsTheShapeReaches) {
    Rng rng(3);
    for (uint32_t kind : {3u, 4u, 5u, 105u, 106u, 107u, 108u}) {
        Shape s;
        s.type = KIPX_S16, s.width = 40, s.height = 30, s.channels = 3;
        GuardedArray src(s), must(s), got(s);
        src.fill(rng), must.fill_integer(7), got.fill_integer(7);
        kipx_seshape shape;
        __kipx_seshape__$g22(&shape, 1, 4, 3, 6);
        const kipx_site roi = rectangle(10, 5, 20, 15);
        const uint32_t volume[] = {15, 20, 3}, origin[] = {5, 10, 0};
        Environment xe;
        ASSERT_EQ(KipxFilter(xe, 0, src.arr(), must.arr(), nullptr, &roi, kind, &shape), 0);
        const uint32_t *steps = src.arr()->strides + 1;
        ASSERT_EQ(kipxa_filter(xe, 0, 3, volume, KIPX_S16, got.address({}), origin, steps,
                               src.address({}), origin, steps, kind, &shape),
                  0);
        EXPECT_EQ(got.changes(must.snapshot()), "") << kind;
        // Whatever a table gives can be called: kernels, and procedures that say what is wrong.
        const auto table = kind == 3   ? kipxa__minfiltfun_imp
                           : kind == 4 ? kipxa__maxfiltfun_imp
                                       : kipxa__boxfiltfun_imp;
        for (uint32_t channels = 0; channels < 16; channels++)
            for (uint32_t type = 0; type < 18 && kind < 6; type++) {
                int32_t status = 1;
                const auto kernel = table(channels, type, &status);
                const uint32_t n = kipx_nchannels(channels);
                const bool some =
                    std::find(std::begin(types), std::end(types), type) != std::end(types);
                const bool valid = n >= 1 && n <= 4 && kipx_eltype_valid(type);
                ASSERT_EQ(status, !valid ? KIPX_EINVAL : some ? 0 : KIPX_ENOTSUP);
                const uint32_t one[] = {1, 1, channels};
                ASSERT_EQ(kernel(xe, KIPX_FLAG_PREPARE, 3, one, got.address({}), steps,
                                 src.address({10, 10, 0, 0}), steps, &shape),
                          status);
            }
        EXPECT_EQ(kipxa__filter(xe, KIPX_FLAG_PREPARE, 3, volume, KIPX_S16, nullptr, nullptr,
                                src.address({5, 10, 0, 0}), steps, kind, &shape),
                  0);
    }
}

} // namespace
