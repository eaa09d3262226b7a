// Structuring elements and border shapes: tables of small cases, and random vectors against the same
// rules told in 64 bits.
#include <kipx/array.h>
#include <kipx/shape.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "support/guarded.h"

using namespace kipx::test;

namespace {

using Record = std::array<int32_t, 8>;

template<class T> Record record(const T *p) {
    Record r;
    memcpy(r.data(), p, sizeof r);
    return r;
}
int32_t wrapped(int64_t value) { return static_cast<int32_t>(value); }

TEST(Shapes, Constructors) {
    const int32_t v[] = {8, 9, 4, 6}, a[] = {7, 5, 1, 3};
    const kipx_dims leading = 2 | 1 << 4, many = 3 | 7 << 4;
    kipx_seshape s;
    kipx_brshape b;
    const struct {
        Record made, expected;
    } rows[] = {
        {record(__kipx_seshape__$(&s)), {0, 2, 2, 0, 1, 5, 5, 1}},
        {record(__kipx_seshape__$g1(&s, 7)), {0, 0, 3, 0, 1, 1, 7, 1}},
        {record(__kipx_seshape__$g11(&s, -1, 7)), {0, 0, -1, 0, 1, 1, 7, 1}},
        {record(__kipx_seshape__$g2(&s, 4, 6)), {0, 2, 3, 0, 1, 4, 6, 1}},
        {record(__kipx_seshape__$g22(&s, 1, 2, 4, -5)), {0, 1, 2, 0, 1, 4, -5, 1}},
        {record(__kipx_seshape__$g3(&s, -3, 4, 6)), {-1, 2, 3, 0, -3, 4, 6, 1}},
        {record(__kipx_seshape__$g33(&s, 1, 2, 3, 4, 5, 6)), {1, 2, 3, 0, 4, 5, 6, 1}},
        {record(__kipx_seshape__$gv(&s, 2, v + 2)), {0, 2, 3, 0, 1, 4, 6, 1}},
        {record(__kipx_seshape__$gv(&s, 4, v)), {4, 4, 2, 0, 8, 9, 4, 1}},
        {record(__kipx_seshape__$gv(&s, -1, v)), {0, 0, 0, 0, 1, 1, 1, 1}},
        {record(__kipx_seshape__$gv$L(&s, leading, v + 2)), {4, 2, 3, 0, 9, 4, 6, 1}},
        {record(__kipx_seshape__$gv$L(&s, many, v + 1)), {4, 2, 3, 0, 9, 4, 6, 1}},
        {record(__kipx_seshape__$gvv(&s, 1, a + 3, v + 3)), {0, 0, 3, 0, 1, 1, 6, 1}},
        {record(__kipx_seshape__$gvv$L(&s, leading, a + 2, v + 2)), {5, 1, 3, 0, 9, 4, 6, 1}},
        {record(__kipx_brshape__$g1(&b, 3, 1)), {0, 0, -3, 0, 0, 0, 1, 0}},
        {record(__kipx_brshape__$g2(&b, 1, 2, 3, 4)), {0, -1, -2, 0, 0, 3, 4, 0}},
        {record(__kipx_brshape__$g3(&b, 1, 2, 3, 4, 5, 6)), {-1, -2, -3, 0, 4, 5, 6, 0}},
        {record(__kipx_brshape__$gv(&b, 1, a, v)), {0, 0, -7, 0, 0, 0, 8, 0}},
        {record(__kipx_brshape__$gv$L(&b, leading, a + 2, v + 2)), {-5, -1, -3, 0, 9, 4, 6, 0}},
        {record(__kipx_brshape__$se(&b, __kipx_seshape__$g22(&s, 0, 3, 4, 6))),
         {0, 0, -3, 0, 0, 3, 2, 0}},
    };
    for (size_t i = 0; i < std::size(rows); i++) EXPECT_EQ(rows[i].made, rows[i].expected) << i;
}

TEST(Shapes, SmallOperations) {
    kipx_strel e = {{9, 9, 9, 9}, {}};
    kipx_seshape_setvol_$g3(&e, 4, 6, 8);
    EXPECT_EQ(record(&e), (Record{9, 9, 9, 9, 4, 6, 8, 1}));
    kipx_strel_rstanchor(&e, 1); // counted from the planes
    kipx_seshape_rstanchor_$g1(&e);
    EXPECT_EQ(record(&e), (Record{2, 9, 4, 9, 4, 6, 8, 1}));
    EXPECT_EQ(kipx_strel_capacity(&e), 192u);
    kipx_strel_azero(&e);
    kipx_seshape_vzero(&e);
    EXPECT_EQ(record(&e), (Record{0, 0, 0, 9, 0, 0, 0, 1}));
    EXPECT_TRUE(kipx_strel_empty(&e) && kipx_seshape_capacity_$Q(&e) == 0);
    kipx_seshape_setvol_$g3(&e, 65536, 65536, 3);
    EXPECT_TRUE(!kipx_strel_empty(&e) && kipx_strel_capacity(&e) == 0);
    EXPECT_EQ(kipx_seshape_capacity_$Q(&e), uint64_t{3} << 32);
    kipx_brshape b = {{-1, 0, 0, 5}, {0, 0, 0, 5}};
    EXPECT_EQ(kipx_brparm_empty(&b), 0);
    kipx_brparm_zero(&b);
    EXPECT_TRUE(kipx_brparm_empty(&b) && b.lower[3] == 5 && b.upper[3] == 5);
}

TEST(Shapes, SolidMasks) {
    Rng rng(1);
    for (Layout layout : all_layouts)
        for (uint32_t channels : {1u, 3u}) {
            Shape shape;
            shape.width = 5, shape.height = 3, shape.channels = channels, shape.layout = layout;
            shape.naxes = channels == 1 ? 3 : 4, shape.planes = 2;
            GuardedArray mask(shape);
            mask.fill_integer(255);
            kipx_strel e = {{}, *mask.arr()};
            EXPECT_EQ(kipx_strel_issolid_$v255(&e), 1) << shape;
            mask.for_each([&](At at) { // every single element counts
                mask.set_integer(at, 254);
                EXPECT_EQ(kipx_strel_issolid_$v255(&e), 0) << shape;
                mask.set_integer(at, 255);
            });
            e.mask.type = KIPX_U16;
            EXPECT_EQ(kipx_strel_issolid_$v255(&e), 0);
            e.mask.base = nullptr;
            EXPECT_EQ(kipx_strel_issolid_$v255(&e), 1);
        }
}

// Small numbers, both signs, and the ends of the range.
int32_t component(Rng &rng) {
    const int32_t ends[] = {INT32_MIN, INT32_MIN + 1, INT32_MAX, INT32_MAX - 1, 1 << 16, 0, 1};
    return rng.one_in(6) ? rng.pick(ends) : static_cast<int32_t>(rng.between(-12, 12));
}

void model_adjust(Record &r, int n, const uint32_t *ref) {
    n = std::clamp(n, 0, 3);
    r[3] = r[7] = 0;
    bool point = true;
    for (int k = 0; k < n; k++) {
        int32_t &a = r[3 - n + k], &s = r[7 - n + k];
        if (s < 0) s = std::max(wrapped(int64_t{s} + ref[k]), 0);
        if (s == 0) a = 0, s = 1;
        point &= s == 1;
    }
    if (point) r[5] = r[6] = 5, r[1] = r[2] = 2;
    for (int k = 0; k < n; k++) {
        int32_t &a = r[3 - n + k], s = r[7 - n + k];
        a = a < 0 ? std::max(a + s, 0) : std::min(a, s - 1);
    }
}

bool model_fit(Record &r, int n, const uint32_t *outer, const uint32_t *inner) {
    n = std::clamp(n, 0, 3);
    r[3] = r[7] = 0;
    for (int k = 0; k < n; k++) {
        int32_t &lower = r[3 - n + k], &upper = r[7 - n + k];
        const int32_t room = wrapped(int64_t{outer[k]} - inner[k]);
        const int32_t span = wrapped(int64_t{upper} - lower);
        if (room < 1) {
            lower = wrapped(-int64_t{room}), upper = 0;
        } else if (room < span) {
            const double share =
                static_cast<float>(wrapped(int64_t{lower} * room)) / static_cast<float>(span);
            lower = wrapped(std::llrint(share));
            upper = wrapped(int64_t{room} + lower);
        }
    }
    bool valid = true;
    for (int i = 0; i < 3; i++) valid &= wrapped(-int64_t{r[i]}) >= 0 && r[4 + i] >= 0;
    return valid;
}

TEST(Shapes, ArithmeticIsThatOfWideIntegers) {
    Rng rng(7);
    for (int round = 0; round < 100000; round++) {
        Record r;
        for (int32_t &x : r) x = component(rng);
        uint32_t outer[4], inner[4], at[4], in_at[4];
        for (int i = 0; i < 4; i++) {
            outer[i] = static_cast<uint32_t>(component(rng));
            inner[i] = static_cast<uint32_t>(component(rng));
            at[i] = static_cast<uint32_t>(component(rng));
            in_at[i] = static_cast<uint32_t>(component(rng));
        }
        const int n = static_cast<int>(rng.between(-1, 4)), used = std::clamp(n, 0, 3);
        kipx_seshape s, given;
        kipx_brshape b;
        memcpy(&given, r.data(), sizeof given);
        memcpy(&b, r.data(), sizeof b);

        for (int widen : {0, 1})
            for (int border : {0, 1}) {
                auto *f =
                    border ? (widen ? kipx_volume__widen_$br : kipx_volume__narrow_$br) : nullptr;
                auto *g = widen ? kipx_volume__widen_$se : kipx_volume__narrow_$se;
                uint32_t out[4] = {1, 2, 3, 4};
                border ? f(out, outer, n, &b) : g(out, outer, n, &given);
                for (int k = 0; k < 4; k++) {
                    const int i = 3 - used + k;
                    const int64_t by =
                        border ? int64_t{r[(4 + i) & 7]} - r[i & 7] : int64_t{r[(4 + i) & 7]} - 1;
                    const uint32_t must = static_cast<uint32_t>(outer[k] + (widen ? by : -by));
                    ASSERT_EQ(out[k], k < used ? must : static_cast<uint32_t>(k + 1));
                }
            }

        Record must = r;
        model_adjust(must, n, outer);
        ASSERT_EQ(kipx_seshape__adjust_$gv(&s, &given, n, outer), 1);
        ASSERT_EQ(record(&s), must) << n;

        must = r;
        const bool valid = model_fit(must, n, outer, inner);
        ASSERT_EQ(kipx_brshape__adjust_$gv$I(&b, n, outer, inner), valid);
        ASSERT_EQ(record(&b), must) << n;

        must = {};
        for (int k = 0; k < used; k++) {
            must[3 - used + k] = wrapped(int64_t{at[k]} - in_at[k]);
            must[7 - used + k] = wrapped(int64_t{at[k]} + outer[k] - in_at[k] - inner[k]);
        }
        ASSERT_EQ(record(kipx_brshape__compute_$gv(&b, n, at, outer, in_at, inner)), must);
    }
}

TEST(Shapes, BorderedSizes) {
    kipx_seshape s;
    kipx_brshape b;
    __kipx_brshape__$se(&b, __kipx_seshape__$g3(&s, 3, 5, 7));
    const uint32_t wide[] = {10, 14, 26, 3}; // as widened by hand, the first slot leading
    const uint32_t plain = 3 | KIPX_U16 << 4, packed = 3 | 1 << 4 | KIPX_U16 << 8;
    uint32_t strides[4], must[4];
    const uint64_t size = kipx_vmemsize(plain, wide + 1, must, 8), all = 10 * size;
    auto sized = [&](auto f, uint32_t kind, const auto *shape, bool widens) {
        uint32_t v[] = {10, 10, 20, 3};
        EXPECT_EQ(f(kind, v + 1, strides + 1, shape, 8), kind == plain ? size : all);
        EXPECT_TRUE(std::equal(must, must + 3, strides + 1));
        EXPECT_TRUE(kind == plain || strides[0] == size);
        const uint32_t kept[] = {10, 10, 20, 3};
        EXPECT_TRUE(std::equal(v, v + 4, widens ? wide : kept));
    };
    sized(kipx_vmemsize_$se, plain, &s, false);
    sized(kipx_vmemsize_br, plain, &b, false);
    sized(kipx_vmemsize_$I$se, plain, &s, true);
    sized(kipx_vmemsizeI_br, plain, &b, true);
    sized(kipx_vmemsize_$L$se, packed, &s, false);
    sized(kipx_vmemsizeL_br, packed, &b, false);
    sized(kipx_vmemsize_$IL$se, packed, &s, true);
    sized(kipx_vmemsizeIL_br, packed, &b, true);
    EXPECT_EQ(kipx_vmemsizeL(packed, wide + 1, strides + 1, 8), all);
}

TEST(Shapes, BordersOfNothing) {
    const uint32_t v[3] = {1, 2, 3}, *none = nullptr;
    const Record old = {1, 2, 3, 4, 5, 6, 7, 8};
    kipx_brshape b = {{1, 2, 3, 4}, {5, 6, 7, 8}};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(record(kipx_brshape__compute_$gv(&b, 3, i == 0 ? none : v, i == 1 ? none : v,
                                                   i == 2 ? none : v, i == 3 ? none : v)),
                  old);
    EXPECT_EQ(kipx_brshape__adjust_$gv(nullptr, &b, 3, v, v), KIPX_EINVAL);
    kipx_brshape copy = b;
    EXPECT_EQ(kipx_brshape__adjust_$gv(&b, nullptr, 3, v, v), 1); // as it is
    kipx_brshape__adjust_$gv$I(&copy, 3, v, v);
    EXPECT_EQ(record(&b), record(&copy));
}

kipx_site plane(int32_t x, int32_t y, int32_t width, int32_t height) {
    kipx_site site = rectangle(x, y, width, height);
    site.origin[0] = 0, site.extent[0] = 1;
    return site;
}

TEST(Shapes, SourceRegions) {
    kipx_seshape s;
    // One row before and behind, two columns before, one behind.
    __kipx_seshape__$g22(&s, 1, 2, 3, 4);
    const kipx_arr src = {{1, 20, 30, 1}, {}, {}, 3, 0, KIPX_U8, 0, 0, nullptr},
                   dst = {{1, 10, 10, 1}, {}, {}, 3, 0, KIPX_U8, 0, 0, nullptr};
    const kipx_site inside = plane(5, 5, 4, 4), corner = plane(0, 5, 4, 4);
    const struct {
        int32_t n;
        uint32_t kind;
        const kipx_site *given;
        const kipx_arr *dst;
        int32_t covered;
        kipx_site need, roi;
    } rows[] = {
        {3, 0, &inside, &dst, 1, plane(3, 4, 7, 6), plane(3, 4, 7, 6)},
        {3, 0, &corner, &dst, 0, plane(-2, 4, 7, 6), plane(0, 4, 5, 6)},
        {3, 0, nullptr, &dst, 0, plane(-2, -1, 13, 12), plane(0, 0, 11, 11)},
        {3, 0, nullptr, nullptr, 0, plane(-2, -1, 33, 22), plane(0, 0, 30, 20)},
        {3, KIPX_ROI_OF_OTHER, nullptr, &dst, 0, plane(-2, -1, 13, 12), plane(0, 0, 10, 10)},
        {3, KIPX_ROI_ON_NEED, &inside, &dst, 0, plane(3, 4, 7, 6), plane(5, 5, 4, 4)},
        {1, 0, &inside, &dst, 1, plane(3, 5, 7, 4), plane(3, 5, 7, 4)},
    };
    for (const auto &row : rows) {
        kipx_site roi, need;
        EXPECT_EQ(kipx__testfiltop_$se(&roi, &need, row.n, row.kind, row.given, &s, &src, row.dst),
                  row.covered);
        for (int i : {1, 2}) {
            const ptrdiff_t at = &row - rows;
            EXPECT_EQ(need.origin[i], row.need.origin[i]) << at;
            EXPECT_EQ(need.extent[i], row.need.extent[i]) << at;
            EXPECT_EQ(roi.origin[i], row.roi.origin[i]) << at;
            EXPECT_EQ(roi.extent[i], row.roi.extent[i]) << at;
        }
    }
}

} // namespace
