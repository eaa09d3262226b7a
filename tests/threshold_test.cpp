// Thresholds against numbers compared and summed one at a time, Otsu's against its criterion.
#include <kipx/array.h>
#include <kipx/threshold.h>

#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr uint32_t orders[] = {KIPX_CMPOP_LESS, KIPX_CMPOP_LESS_OR_EQUAL, KIPX_CMPOP_GREATER,
                               KIPX_CMPOP_GREATER_OR_EQUAL};

bool in_order(uint32_t op, double x, double t) {
    return op == 4 ? x < t : op == 5 ? x <= t : op == 6 ? x > t : x >= t;
}

// ---- Otsu's criterion --------------------------------------------------------------------------

// How far a split of values lies apart: n0 n1 (m0 - m1)^2, the lower class up to t.
long double score(const std::vector<double> &values, double t) {
    long double n0 = 0, n1 = 0, s0 = 0, s1 = 0;
    for (double v : values) (v <= t ? n0 : n1) += 1, (v <= t ? s0 : s1) += v;
    if (n0 == 0 || n1 == 0) return 0;
    return n0 * n1 * (s0 / n0 - s1 / n1) * (s0 / n0 - s1 / n1);
}

// The threshold splits the values, each standing at its bin's lower end, as well as any other does.
void expect_best(std::vector<double> values, double low, double width, int bins, double found) {
    for (double &v : values) v = low + width * std::fmin(std::floor((v - low) / width), bins - 1);
    const double edge = (found + 0x1p-23 - low) / width; // whole: of the bin above
    ASSERT_NEAR(edge, std::nearbyint(edge), 1e-3);
    const double cut = low + width * (std::nearbyint(edge) - 0.5);
    const long double best = score(values, cut);
    for (int i = 0; i + 1 < bins; ++i) {
        const long double other = score(values, low + width * (i + 0.5));
        ASSERT_LE(other, best * (1 + 1e-9L) + 2e-7L) << "bin " << i << ", found " << found;
    }
}

struct OtsuCase {
    uint32_t type;
    double low, high; // of the values
    kipx_vrange range;
    int32_t bins;
    double first, width; // what the bins are then
    int count;
};
constexpr OtsuCase otsu_cases[] = {
    {KIPX_U8, 0, 255, {nan_value, 0}, 0, 0, 1, 256},
    {KIPX_U8, 30, 60, {20, 83}, 64, 20, 1, 64},
    {KIPX_S16, 0, 255, {nan_value, 0}, 1, 0, 1, 256},
    {KIPX_U16, 1000, 5000, {0, 8192}, 64, 0, 128, 64},
    {KIPX_S32, -40, 88, {-infinity, 3}, 64, -40, 2, 64},
    {KIPX_F32, 0, 1, {nan_value, 7}, -5, 0, static_cast<double>(1.0f / 384), 384},
    {KIPX_F64, -2, 2, {5, -5}, 32, -2, 0.125, 32}};

TEST(Otsu, SplitsAsWellAsAnyOtherThreshold) {
    Rng rng(4);
    Environment xe;
    for (const OtsuCase &c : otsu_cases)
        for (int turn = 0; turn < 20; ++turn) {
            GuardedArray src({c.type, 23, 7, 3, rng.pick(all_layouts), Edge::last, 0, 4, 2});
            std::vector<double> values[3];
            const double middle = c.low + (c.high - c.low) * rng.unit();
            src.for_each([&](At at) {
                double v = c.low + (c.high - c.low) * rng.unit();
                if (rng.one_in(2)) v = (v + middle * turn) / (1 + turn); // a mode
                if (at.y == 0) v = at.x == 0 ? c.low : at.x == 1 ? c.high : v;
                src.set_real(at, is_real(c.type) ? v : std::nearbyint(v));
                values[at.channel].push_back(src.real(at));
            });
            const kipx_vrange ranges[3] = {c.range, c.range, {7, 8}};
            const int32_t bins[3] = {c.bins, c.bins, 1 << 30};
            double found[3] = {-1, -1, -1};
            ASSERT_EQ(KipxComputeThresholdByOtsu(xe, 0x30, src.arr(), nullptr, nullptr, found,
                                                 ranges, bins),
                      0);
            for (int i = 0; i < 2; ++i) expect_best(values[i], c.first, c.width, c.count, found[i]);
            EXPECT_EQ(found[2], -1) << "was not selected";
        }
}

TEST(Otsu, OfHistogramsAtTheEnds) {
    uint32_t counts[8] = {};
    kipx_histogram h{10, 2, 0, 8, counts};
    const auto threshold = [&](std::vector<uint32_t> from) {
        std::memcpy(counts, from.data(), sizeof counts);
        h.total = 0;
        for (uint32_t n : from) h.total += static_cast<int32_t>(n);
        return kipxa_calculate_threshold_otsu_f(&h) + 0x1p-23;
    };
    EXPECT_EQ(threshold({0, 0, 0, 0, 0, 0, 0, 0}), 12); // nothing
    EXPECT_EQ(threshold({0, 0, 9, 0, 0, 0, 0, 0}), 12); // one value
    EXPECT_EQ(threshold({0, 3, 0, 0, 0, 9, 0, 0}), 14); // two values: the upper edge of the first
    EXPECT_EQ(threshold({1, 0, 0, 2, 0, 0, 1, 0}), 12); // of equal splits the lower one
    EXPECT_EQ(kipxa_calculate_threshold_otsu_i(&h), 12);
    h.width = 1; // as far apart as whole numbers can lie together
    EXPECT_EQ(threshold({0, 0, 0, 1, 1, 0, 0, 0}), 14);
    h.width = 2, h.total = 100; // more than there are: the bins end the work
    EXPECT_LE(kipxa_calculate_threshold_otsu_f(&h), 26);
    h.counts = nullptr;
    EXPECT_TRUE(std::isnan(kipxa_calculate_threshold_otsu_f(&h)));
    EXPECT_TRUE(std::isnan(kipxa_calculate_threshold_otsu_f(nullptr)));
}

// ---- one threshold or two for all elements -----------------------------------------------------

enum Mode { masks, both, keep, exchanged, modes };
constexpr double yes[4] = {7, 2.5, -3, 300}, no[4] = {1, 0, 100, 9};

struct Sheer {
    uint32_t op, op2;
    int mode;
    const double *true_values, *false_values;
    std::vector<double> second; // thresholds
    explicit Sheer(const Arguments &a)
        : op(orders[a.scale & 3]), op2(orders[a.scale >> 2 & 3]), mode(a.scale >> 4) {
        if (mode == masks && is_real(a.types[0])) mode = both;
        true_values = mode == both || mode == keep ? yes : nullptr;
        false_values = mode == both || mode == exchanged ? no : nullptr;
        for (double v : a.values) second.push_back(v / 2 + 20.5);
    }
};

Operation sheer(bool two) {
    Operation o{.name = two ? "sheer_threshold_n2" : "sheer_threshold_n1", .sources = 1};
    o.null_in_place = false, o.one_place = true;
    for (uint32_t src : {KIPX_U8, KIPX_S8, KIPX_S16, KIPX_S32, KIPX_F32})
        for (uint32_t dst : {KIPX_U8, KIPX_S16, KIPX_U32, KIPX_F32})
            if (dst != KIPX_F32 || src == dst) o.types.push_back({dst, src});
    o.scales.clear();
    for (int i = 0; i < 16 * modes; ++i) o.scales.push_back(i);
    o.call = [=](Level level, const Arguments &a, const FlatArguments &f) {
        const Sheer s(a);
        std::vector<double> thresholds = a.values;
        const FlatOperand &d = f.dst, &x = f.src[0];
        KipxThresholdContext context{0, s.op, thresholds.data(), nullptr, nullptr, {}};
        if (level == Level::whole && !two)
            return KipxThreshold(a.xe, a.flags, a.dst->arr(), a.source(0), a.roi, nullptr, &context,
                                 s.true_values, s.false_values);
        if (two)
            return kipxa_sheer_threshold_n2(a.xe, a.flags, f.dims, f.extent, d.type, d.base,
                                            d.origin, d.strides, x.type, x.base, x.origin,
                                            x.strides, thresholds.data(), s.op, s.second.data(),
                                            s.op2, s.true_values, s.false_values);
        if (level == Level::array)
            return kipxa_ethreshold(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin,
                                    d.strides, x.type, x.base, x.origin, x.strides, &context,
                                    s.true_values, s.false_values);
        return kipxa_sheer_threshold_n1(a.xe, a.flags, f.dims, f.extent, d.type, d.start, nullptr,
                                        d.strides, x.type, x.start, nullptr, x.strides,
                                        thresholds.data(), s.op, s.true_values, s.false_values);
    };
    o.model = [=](const Arguments &a, uint32_t c, const uint64_t *bits) {
        const Sheer s(a);
        const double x = load_real(a.types[1], bits), t = a.values[c];
        const bool passes = in_order(s.op, x, t) && (!two || in_order(s.op2, x, s.second[c]));
        const uint64_t ones = UINT64_MAX >> (64 - 8 * element_size(a.types[0]));
        if (s.mode == masks) return passes ? ones : 0;
        // Two thresholds or none: a NaN fails; one: it fails the operator turned round, too.
        if (s.mode == exchanged)
            return passes || (!two && std::isnan(x)) ? bits[3] : bits_of(a.types[0], no[c]);
        return passes           ? bits_of(a.types[0], yes[c])
               : s.mode == keep ? bits[3]
                                : bits_of(a.types[0], no[c]);
    };
    return o;
}

TEST(Thresholds, OneIsTheNumberThatItIs) { EXPECT_EQ(conform(sheer(false), 2, 40), ""); }
TEST(Thresholds, TwoMustBothBePassed) { EXPECT_EQ(conform(sheer(true), 3, 40), ""); }

// What Otsu's method marks is what an immediate one marks with its thresholds, usto marks the rest; and
// the levels below find and apply what the public functions do.
TEST(Thresholds, FoundOnesAreAppliedByEveryLevel) {
    Rng rng(7);
    Environment xe;
    const Shape shape{KIPX_U8, 40, 30, 3};
    GuardedArray src(shape), whole(shape), dst(shape);
    src.for_each(
        [&](At at) { src.set_integer(at, rng.between(0, 90) + (rng.one_in(3) ? 140 : 0)); });
    const kipx_arr *s = src.arr(), *d = dst.arr();
    double expected[3], found[2][3], numbers[3] = {3, -5, 0.5};
    ASSERT_EQ(KipxComputeThresholdByOtsu(xe, 0, s, nullptr, nullptr, expected, nullptr, nullptr),
              0);
    ASSERT_EQ(kipxa_compute_threshold_otsu(xe, 0, 3, s->volume + 1, s->type, src.address({}),
                                           nullptr, s->strides + 1, found[0], nullptr, nullptr),
              0);
    ASSERT_EQ(kipxa__compute_threshold_otsu(xe, 0, 3, s->volume + 1, s->type, src.address({}),
                                            s->strides + 1, found[1], nullptr, nullptr),
              0);
    for (const auto &f : found) EXPECT_EQ(std::memcmp(f, expected, sizeof f), 0);
    const struct {
        kipx_thhmethod method;
        decltype(&kipxa_ethreshold) level;
    } rows[] = {{KIPX_THH_IMMEDIATE, kipxa_ethreshold},
                {KIPX_THH_BLUR, kipxa_ethreshold_blur},
                {KIPX_THH_OTSU, kipxa_ethreshold_otsu},
                {KIPX_THH_USTO, kipxa_ethreshold_usto}};
    for (const auto &row : rows) {
        const KipxThresholdContext context{row.method, 0, numbers, nullptr, nullptr, {5, 7, {}, 0}};
        const auto call = [&](auto function, auto... values) {
            ASSERT_EQ(KipxThreshold(xe, 0x20, whole.arr(), s, nullptr, nullptr, &context,
                                    sizeof...(values) ? yes : nullptr,
                                    sizeof...(values) ? no : nullptr),
                      0);
            dst.fill_integer(77);
            EXPECT_EQ(function(xe, 0, 3, d->volume + 1, d->type, dst.address({}), nullptr,
                               d->strides + 1, s->type, src.address({}), nullptr, s->strides + 1,
                               &context, values...),
                      0);
            dst.for_each(
                [&](At at) { ASSERT_EQ(dst.integer(at), whole.integer(at)) << row.method; });
        };
        call(row.level, yes, no);
        call(kipxa_threshold);
        if (row.method != KIPX_THH_OTSU && row.method != KIPX_THH_USTO) continue;
        EXPECT_EQ(std::memcmp(numbers, expected, sizeof numbers), 0);
        whole.for_each([&](At at) {
            const bool above = src.real(at) > expected[at.channel];
            ASSERT_EQ(whole.integer(at), above == (row.method == KIPX_THH_OTSU) ? 255 : 0);
        });
    }
}

// ---- thresholds of neighbourhoods --------------------------------------------------------------

struct Window {
    int64_t n = 0, sum = 0;
    uint64_t squares = 0; // of s32, whose deviation nobody asks for, they wrap
    Window(const GuardedArray &a, At at, const kipx_thhlocal &l) {
        const auto reach = [](uint32_t centre, uint32_t side, uint32_t end, uint32_t &from) {
            from = centre - std::min(centre, (side - 1) / 2);
            return std::min(centre + side / 2 + 1, end);
        };
        uint32_t top, left;
        const uint32_t bottom = reach(at.y, l.height, a.shape().height, top),
                       right = reach(at.x, l.width, a.shape().width, left);
        for (uint32_t y = top; y < bottom; ++y)
            for (uint32_t x = left; x < right; ++x) {
                const int64_t v = a.integer({y, x, at.channel, at.plane});
                ++n, sum += v, squares += static_cast<uint64_t>(v * v);
            }
    }
    double mean() const { return static_cast<double>(sum) / static_cast<double>(n); }
    double threshold(double k, double range) const {
        const double s =
            std::sqrt(static_cast<double>(n * static_cast<int64_t>(squares) - sum * sum)) /
            static_cast<double>(n);
        return range > 0 ? mean() * (1 + k * (s / range - 1)) : mean() + k * s;
    }
};

TEST(Neighbourhoods, JudgeAsLoopsOverEveryWindowDo) {
    Rng rng(9);
    Environment xe;
    for (int turn = 0; turn < 150; ++turn) {
        const uint32_t type = rng.pick((const uint32_t[]){KIPX_U8, KIPX_S8, KIPX_S16, KIPX_S32});
        const uint32_t channels = 1 + turn % 4, width = rng.pick(all_widths) % 70 + 1;
        const uint32_t height = 1 + static_cast<uint32_t>(rng.below(9));
        const auto array = [&](uint32_t t) {
            return GuardedArray({t, width, height, channels, rng.pick(all_layouts)});
        };
        GuardedArray src = array(type), dst = array(rng.one_in(2) ? KIPX_U8 : KIPX_S16);
        src.fill(rng, rng.one_in(2) ? Values::small : Values::finite); // small: means are met
        kipx_thhlocal l{1 + static_cast<uint32_t>(rng.below(12)),
                        1 + static_cast<uint32_t>(rng.below(90)),
                        {rng.unit() * 2 - 1, rng.unit() * 3 - 1},
                        rng.one_in(2) ? 0.0 : 128.0};
        const uint32_t op = rng.pick(orders), op2 = rng.pick(orders);
        double offsets[4] = {-3, rng.pick((const double[]){0.5, 1, 1e5, 1e300}), 0, -1};
        const int kind = type == KIPX_S32 ? 0 : static_cast<int>(rng.below(3)); // blur, n1, n2
        const KipxThresholdContext context{5, op, offsets, nullptr, nullptr, l};
        const uint32_t extent[3] = {height, width, channels};
        const kipx_arr *d = dst.arr(), *s = src.arr();
        for (int32_t set : all_sets()) {
            SimdSwitch form(set);
            const auto call = [&](auto function, auto... tail) {
                return function(xe, 0, 3, extent, d->type, dst.address({}), nullptr, d->strides + 1,
                                s->type, src.address({}), nullptr, s->strides + 1, tail..., yes,
                                no);
            };
            const int32_t code =
                kind == 0   ? KipxThreshold(xe, 0, d, s, nullptr, nullptr, &context, yes, no)
                : kind == 1 ? call(kipxa_adaptive_threshold_n1, &l, op)
                            : call(kipxa_adaptive_threshold_n2, &l, op, op2);
            ASSERT_EQ(code, 0);
            dst.for_each([&](At at) {
                const Window w(src, at, l);
                const double x = src.real(at), t = kind == 0 ? w.mean() + offsets[at.channel]
                                                             : w.threshold(l.k[0], l.range);
                const bool passes = in_order(op, x, t) &&
                                    (kind < 2 || in_order(op2, x, w.threshold(l.k[1], l.range)));
                ASSERT_EQ(dst.bits(at), bits_of(dst.shape().type, (passes ? yes : no)[at.channel]))
                    << "set " << set << " kind " << kind << " " << at.x << "," << at.y;
            });
            ASSERT_EQ(dst.damage(), "");
        }
    }
}

// ---- arguments ---------------------------------------------------------------------------------

TEST(Arguments, WhatIsWrongWithThem) {
    Environment xe, poor;
    ZuSMEMSTGsetlimit(poor.stack(), 8);
    GuardedArray u8({KIPX_U8, 6, 5}), s16({KIPX_S16, 6, 5}), s32({KIPX_S32, 6, 5}),
        f32({KIPX_F32, 6, 5}), u16({KIPX_U16, 6, 5}), dst({KIPX_U8, 6, 5});
    for (GuardedArray *a : {&u8, &s16, &s32, &f32, &u16}) a->fill_integer(3);
    dst.fill_integer(77);
    const double one[1] = {1};
    const kipx_thhlocal good{3, 3, {1, 1}, 0}, none{0, 3, {1, 1}, 0}, wide{256, 256, {1, 1}, 0};
    const kipx_vrange of_data{-infinity, 0};
    f32.set_real({2, 2}, infinity);
    const auto with = [&](kipx_thhmethod m, kipx_cmpop op, const kipx_thhlocal &l,
                          double *t = nullptr, const kipx_vrange *r = nullptr) {
        return KipxThresholdContext{m, op, t, r, nullptr, l};
    };
    double given[1] = {1};
    const struct {
        int32_t code;
        KipxXE *xe;
        GuardedArray *src;
        KipxThresholdContext context;
    } cases[] = {{0, nullptr, &u8, with(0, 0, none, given)},
                 {KIPX_EINVAL, xe, &u8, with(0, 0, none)},        // no threshold
                 {KIPX_EINVAL, xe, &u8, with(0, 3, none, given)}, // does not order
                 {KIPX_EINVAL, xe, &u8, with(0, 8, none, given)},
                 {KIPX_EINVAL, xe, &u8, with(1, 6, good, given)},   // no method
                 {KIPX_ENOTSUP, xe, &u16, with(0, 6, none, given)}, // no kernel
                 {0, xe, &s16, with(KIPX_THH_OTSU, 6, none)},
                 {KIPX_EINVAL, nullptr, &s16, with(KIPX_THH_OTSU, 6, none)},
                 {KIPX_EINVAL, xe, &f32, with(KIPX_THH_OTSU, 6, none, nullptr, &of_data)},
                 {KIPX_ENOMEM, poor, &s16, with(KIPX_THH_OTSU, 6, none)},
                 {0, xe, &s32, with(KIPX_THH_BLUR, 6, good)},
                 {KIPX_EINVAL, nullptr, &s32, with(KIPX_THH_BLUR, 6, good)},
                 {KIPX_ENOMEM, poor, &s32, with(KIPX_THH_BLUR, 6, good)},
                 {KIPX_ENOTSUP, xe, &f32, with(KIPX_THH_BLUR, 6, good)},
                 {KIPX_EINVAL, xe, &u8, with(KIPX_THH_BLUR, 6, none)},
                 {KIPX_EINVAL, xe, &u8, with(KIPX_THH_BLUR, 6, wide)},
                 {KIPX_EINVAL, xe, &dst, with(KIPX_THH_BLUR, 6, good)}}; // reads what it writes
    for (const auto &c : cases) {
        const auto line = &c - cases;
        dst.fill_integer(77);
        EXPECT_EQ(KipxThreshold(c.xe, 0, dst.arr(), c.src->arr(), nullptr, nullptr, &c.context, one,
                                nullptr),
                  c.code)
            << line;
        if (c.code) dst.for_each([&](At at) { EXPECT_EQ(dst.integer(at), 77) << line; });
    }
    EXPECT_EQ(KipxThreshold(xe, 0, dst.arr(), u8.arr(), nullptr, nullptr, nullptr, one, nullptr),
              KIPX_EINVAL);
    double t = 5;
    EXPECT_EQ(
        KipxComputeThresholdByOtsu(xe, 0x80, u8.arr(), nullptr, nullptr, &t, nullptr, nullptr),
        KIPX_EINVAL); // no such channel
    EXPECT_EQ(
        KipxComputeThresholdByOtsu(xe, 0, u8.arr(), nullptr, nullptr, nullptr, nullptr, nullptr),
        KIPX_EINVAL);
    EXPECT_EQ(t, 5);
}

TEST(Names, OfMethods) {
    for (uint32_t i = 0; i < 32; ++i) {
        const uint32_t k = i % 16;
        const std::string name = k == 0   ? "null(immediate)"
                                 : k == 3 ? "otsu"
                                 : k == 4 ? "usto"
                                 : k == 5 ? "blur"
                                          : "unknown";
        EXPECT_EQ(kipx_thhmethod_str(i), name + "-threshold-method");
    }
}

} // namespace
