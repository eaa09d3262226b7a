// Comparisons against numbers compared one at a time, on every instruction set.
#include <kipx/array.h>
#include <kipx/compare.h>

#include <cmath>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

// ---- the model ---------------------------------------------------------------------------------

constexpr uint32_t op_words[] = {3, 4, 5, 6, 7, 8};

bool holds(uint32_t op, double a, double b) {
    switch (op & 15) {
    case 3:
        return a == b;
    case 4:
        return a < b;
    case 5:
        return a <= b;
    case 6:
        return a > b;
    case 7:
        return a >= b;
    default:
        return a != b;
    }
}

uint32_t negation(uint32_t op) {
    constexpr uint32_t of[] = {8, 7, 6, 5, 4, 3};
    return of[(op & 15) - 3];
}

uint64_t ones(uint32_t type) { return UINT64_MAX >> (64 - 8 * element_size(type)); }

const double *at_number(uintptr_t i) { return reinterpret_cast<const double *>(i); }

// How the true and false values are given.
enum Mode { masks, both, keep, pass, swapped_keep, swapped_pass, like_masks, modes };

// f32 holds no masks.
int mode_of(const Arguments &a) {
    const int mode = a.scale >> 4;
    return mode == masks && is_real(a.types[0]) ? both : mode;
}

struct Values {
    std::vector<double> yes, no;
    const double *true_values = nullptr, *false_values = nullptr;

    explicit Values(const Arguments &a) {
        const int mode = mode_of(a);
        for (double v : a.values) yes.push_back(v * 1.5 - 7), no.push_back(std::fabs(v) / 2 + 3);
        if (mode == like_masks) yes.assign(yes.size(), 65534.5 + 2), no.assign(no.size(), -3);
        const bool takes_source = a.types[0] == a.types[1];
        if (mode == masks) return;
        if (mode != swapped_keep && mode != swapped_pass) true_values = yes.data();
        if (mode == both || mode == like_masks) false_values = no.data();
        if (mode == pass && takes_source) false_values = at_number(1);
        if (!true_values) false_values = no.data();
        if (mode == swapped_pass && takes_source) true_values = at_number(1);
    }
};

uint64_t chosen(const Arguments &a, uint32_t channel, double x, double y, const uint64_t *bits) {
    const uint32_t op = static_cast<uint32_t>(a.scale), type = a.types[0];
    const int mode = mode_of(a);
    const Values v(a);
    const bool by_mask = mode == masks || (mode == like_masks && element_size(type) < 4);
    if (by_mask) return holds(op, x, y) ? ones(type) : 0;
    const uint64_t yes = bits_of(type, v.yes[channel]), no = bits_of(type, v.no[channel]);
    const bool takes_source = a.types[0] == a.types[1];
    const uint64_t kept =
        (mode == pass || mode == swapped_pass) && takes_source ? bits[0] : bits[3];
    if (mode == swapped_keep || mode == swapped_pass) return holds(negation(op), x, y) ? no : kept;
    return holds(op, x, y) ? yes : mode == both || mode == like_masks ? no : kept;
}

// ---- every type, layout, level and set ---------------------------------------------------------

// Every integer of 8, 16 or 32 bits from every source; f32 besides where values are chosen.
std::vector<Types> types_of(bool extended, uint32_t sources) {
    std::vector<Types> found;
    for (uint32_t src : {KIPX_U8, KIPX_S8, KIPX_S16, KIPX_S32, KIPX_F32}) {
        for (uint32_t dst : {KIPX_U8, KIPX_U16, KIPX_U32, KIPX_S8, KIPX_S16, KIPX_S32})
            found.push_back({dst, src, sources > 1 ? src : 0, 0});
        if (src == KIPX_F32 && extended) found.push_back({src, src, sources > 1 ? src : 0, 0});
    }
    return found;
}

int32_t call_level(bool constant, bool extended, Level level, const Arguments &a,
                   const FlatArguments &f) {
    using Chosen2 = Levels2<uint32_t, const double *, const double *>;
    using ChosenC = LevelsC<uint32_t, const double *, const double *>;
    const Values v(a);
    const double *yes = v.true_values, *no = v.false_values, *values = a.values.data();
    const auto op = static_cast<uint32_t>(a.scale);
    const kipx_arr *d = a.dst->arr(), *x = a.source(0), *y = constant ? nullptr : a.source(1);
    // The region in one of the two ways of giving it.
    const void *roi = a.roi;
    const uint32_t *extent = roi && a.scale & 1 ? a.roi->extent : nullptr;
    const bool whole = level == Level::whole;
    if (constant && extended)
        return whole
                   ? KipxECompareC(a.xe, a.flags, d, x, values, roi, extent, op, yes, no)
                   : ChosenC{nullptr, kipxa_ecompareC, kipxa__ecompareC}(level, a, f, op, yes, no);
    if (constant)
        return whole ? KipxCompareC(a.xe, a.flags, d, x, values, roi, extent, op)
                     : LevelsC<uint32_t>{nullptr, kipxa_compareC, kipxa__compareC}(level, a, f, op);
    if (extended)
        return whole ? KipxECompare(a.xe, a.flags, d, x, y, roi, extent, a.at[1], op, yes, no)
                     : Chosen2{nullptr, kipxa_ecompare, kipxa__ecompare}(level, a, f, op, yes, no);
    return whole ? KipxCompare(a.xe, a.flags, d, x, y, roi, extent, a.at[1], op)
                 : Levels2<uint32_t>{nullptr, kipxa_compare, kipxa__compare}(level, a, f, op);
}

class EveryComparison : public testing::TestWithParam<int> {};

TEST_P(EveryComparison, ConformsToItsModel) {
    const bool extended = GetParam() & 1, constant = GetParam() & 2;
    Operation o{.name = "comparison", .sources = constant ? 1u : 2u};
    o.null_in_place = false, o.one_place = true;
    o.types = types_of(extended, o.sources);
    o.scales.clear();
    for (uint32_t op : op_words)
        for (int mode = 0; mode < (extended ? modes : 1); ++mode)
            o.scales.push_back(static_cast<int32_t>(op) + 16 * mode);
    o.call = [=](Level level, const Arguments &a, const FlatArguments &f) {
        return call_level(constant, extended, level, a, f);
    };
    o.model = [=](const Arguments &a, uint32_t c, const uint64_t *bits) {
        const uint32_t type = a.types[1];
        const uint64_t value = constant ? bits_of(type, a.values[c]) : bits[1];
        return chosen(a, c, load_real(type, bits), load_real(type, &value), bits);
    };
    EXPECT_EQ(conform(o, 1, 40), "");
}
INSTANTIATE_TEST_SUITE_P(Form, EveryComparison, testing::Range(0, 4));

// ---- bytes, exhaustively -----------------------------------------------------------------------

kipx_arr plain(uint32_t type, void *base, uint32_t height, uint32_t width, uint32_t channels = 1) {
    const uint32_t size = element_size(type), pixel = size * channels;
    return {
        {1, height, width, channels}, {}, {0, width * pixel, pixel, size}, 3, 0, type, 0, 0, base};
}

// Both types of bytes, on every instruction set.
template<class F> void each_set(F &&f) {
    for (int32_t set : all_sets())
        for (uint32_t type : {KIPX_U8, KIPX_S8}) {
            SimdSwitch form(set);
            f(type);
        }
}

TEST(Bytes, EveryPairUnderEveryOperatorWord) {
    static uint8_t a[65536], b[65536], out[65536];
    for (uint32_t i = 0; i < 65536; ++i) a[i] = i >> 8, b[i] = i & 255;
    each_set([&](uint32_t type) {
        for (uint32_t op = 0; op < 16; ++op) {
            const kipx_arr d = plain(KIPX_U8, out, 256, 256), x = plain(type, a, 256, 256),
                           y = plain(type, b, 256, 256);
            std::memset(out, 7, sizeof out);
            const bool valid = op >= 3 && op <= 8;
            ASSERT_EQ(KipxCompare(nullptr, 0, &d, &x, &y, nullptr, nullptr, nullptr, op | 0x50),
                      valid ? 0 : KIPX_EINVAL);
            for (uint32_t i = 0; i < 65536; ++i) {
                const bool yes = holds(op, load_real(type, a + i), load_real(type, b + i));
                ASSERT_EQ(out[i], !valid ? 7 : yes ? 255 : 0) << i << " op " << op;
            }
        }
    });
}

// 256 columns by 64 rows are compared one by one, with a row more they go through a table.
TEST(Bytes, EveryConstantOnBothSidesOfTheTable) {
    static uint8_t a[65 * 256], out[65 * 256];
    for (uint32_t i = 0; i < sizeof a; ++i) a[i] = i & 255;
    Environment xe, poor;
    ZuSMEMSTGsetlimit(poor.stack(), 8);
    const double yes = 17, no = 200, *const trues[] = {nullptr, &yes, &yes},
                 *const falses[] = {nullptr, &no, at_number(1)};
    const auto judge = [&](uint32_t type, uint32_t op, int c, uint32_t rows) {
        const double value = type == KIPX_U8 ? c : c - 128;
        const int how = c % 3; // mask, values, the source's element
        const kipx_arr d = plain(type, out, rows, 256), x = plain(type, a, rows, 256);
        ASSERT_EQ(KipxECompareC(c % 7 ? xe : poor, 0, &d, &x, &value, nullptr, nullptr, op,
                                trues[how], falses[how]),
                  0);
        uint8_t expected[256];
        for (uint32_t i = 0; i < 256; ++i) {
            const uint64_t failed[] = {0, bits_of(type, no), i};
            const bool held = holds(op, load_real(type, a + i), value);
            expected[i] = static_cast<uint8_t>(held ? how ? 17 : 255 : failed[how]);
        }
        for (uint32_t y = 0; y < rows; ++y)
            ASSERT_EQ(std::memcmp(out + y * 256, expected, 256), 0) << value << " row " << y;
    };
    each_set([&](uint32_t type) {
        for (uint32_t op : op_words)
            for (int c = 0; c < 256; ++c) judge(type, op, c, 64), judge(type, op, c, 65);
    });
    EXPECT_GE(ZuSMEMSTGpeak(xe.stack()), 256u);
}

// Constants of several channels, in one run and plane by plane, through tables of their own.
TEST(Bytes, TablesOfSeveralChannels) {
    Rng rng(5);
    Environment xe;
    const double c[] = {100, 3, 250, 41}, yes[] = {1, 2, 3, 4}, no[] = {9, 8, 7, 6};
    for (uint32_t channels : {2u, 3u, 4u})
        for (Layout layout : {Layout::packed, Layout::planar, Layout::odd_pixels})
            each_set([&](uint32_t type) {
                const Shape s{type, 101, 83, channels, layout};
                GuardedArray src(s), dst(s);
                src.fill(rng);
                ASSERT_EQ(
                    KipxECompareC(xe, 0, dst.arr(), src.arr(), c, nullptr, nullptr, 4, yes, no), 0);
                dst.for_each([&](At at) {
                    const bool less =
                        src.real(at) < std::fmin(c[at.channel], static_cast<double>(highest(type)));
                    const double must = less ? yes[at.channel] : no[at.channel];
                    ASSERT_EQ(dst.real(at), must);
                });
            });
}

// ---- true and false values ---------------------------------------------------------------------

TEST(ChosenValues, MarkersAndShortCuts) {
    const double n255 = 255, n254 = 254.4, n300 = 300, minus5 = -5, zero = 0, inf = INFINITY,
                 big = 1e10, minus1 = -1, n65535 = 65535;
    const auto m = at_number;
    const int64_t old = 77;
    const struct {
        uint32_t dst, src;
        const double *yes, *no;
        int32_t code;
        int64_t held, failed; // what 10 < 20 and 30 < 20 give
    } cases[] = {
        {KIPX_U8, KIPX_U8, &n255, &minus5, 0, 255, 0},
        {KIPX_U8, KIPX_U8, &n254, &zero, 0, 254, 0},
        {KIPX_S8, KIPX_U8, &n300, &minus5, 0, -1, 0},   // the mask
        {KIPX_S8, KIPX_U8, &n254, &minus5, 0, 127, -5}, // saturated values
        {KIPX_S8, KIPX_U8, &big, &minus5, 0, 127, -5},  // no 32-bit integer: not above 255
        {KIPX_S8, KIPX_U8, &n300, &inf, 0, -1, 0},      // infinity is the smallest one
        {KIPX_S16, KIPX_U8, &n255, &zero, 0, 255, 0},
        {KIPX_S16, KIPX_U8, &n65535, &zero, 0, -1, 0},
        {KIPX_S32, KIPX_U8, &minus1, &zero, 0, -1, 0},
        {KIPX_F32, KIPX_F32, &n255, &minus5, 0, 255, -5},
        {KIPX_U8, KIPX_U8, &n254, m(0), 0, 254, old},
        {KIPX_U8, KIPX_U8, &n254, m(1), 0, 254, 30},
        {KIPX_U8, KIPX_U8, m(0), &n254, 0, old, 254},
        {KIPX_U8, KIPX_U8, m(1), &n254, 0, 10, 254},
        {KIPX_S8, KIPX_U8, &n254, m(1), KIPX_EINVAL, 0, 0},
        {KIPX_S32, KIPX_F32, &n254, m(1), KIPX_EINVAL, 0, 0},
        {KIPX_S16, KIPX_U8, m(1), &n254, KIPX_EINVAL, 0, 0},
        {KIPX_U8, KIPX_U8, m(1), m(0), KIPX_EINVAL, 0, 0},
        {KIPX_U8, KIPX_U8, m(0), m(1), KIPX_EINVAL, 0, 0},
        {KIPX_U8, KIPX_U8, m(5), m(9), KIPX_EINVAL, 0, 0},
        {KIPX_U8, KIPX_U8, &n254, m(2), KIPX_EINVAL, 0, 0},
        {KIPX_U8, KIPX_U8, &n254, m(15), KIPX_EINVAL, 0, 0},
        {KIPX_U8, KIPX_U8, m(2), &n254, KIPX_EINVAL, 0, 0},
        {KIPX_F32, KIPX_U8, &n255, &zero, KIPX_EINVAL, 0, 0},
        {KIPX_F32, KIPX_F32, m(0), m(0), KIPX_EINVAL, 0, 0},
    };
    const double value = 20;
    for (const auto &c : cases) {
        GuardedArray s({c.src, 2}), d({c.dst, 2});
        s.set_integer({0, 0}, 10), s.set_integer({0, 1}, 30), d.fill_integer(old);
        const auto line = &c - cases;
        ASSERT_EQ(
            KipxECompareC(nullptr, 0, d.arr(), s.arr(), &value, nullptr, nullptr, 4, c.yes, c.no),
            c.code)
            << line;
        EXPECT_EQ(d.integer({0, 0}), c.code ? old : c.held) << line;
        EXPECT_EQ(d.integer({0, 1}), c.code ? old : c.failed) << line;
    }
}

// ---- arguments ---------------------------------------------------------------------------------

TEST(Regions, PlanesPlacesAndEnds) {
    Rng rng(3);
    const auto array = [&](uint32_t naxes, uint32_t planes, uint32_t channels = 2, uint32_t h = 6,
                           uint32_t w = 9, uint32_t type = KIPX_U8) {
        GuardedArray a({type, w, h, channels, Layout::packed, Edge::last, 0, naxes, planes});
        a.fill(rng);
        return a;
    };
    GuardedArray dst = array(4, 3), src = array(4, 3), two = array(4, 2), one = array(3, 1);
    GuardedArray flat = array(3, 1), mono = array(3, 1, 1), words = array(3, 1, 2, 6, 9, KIPX_S16);
    const uint32_t origin[4] = {1, 2, 3, 0}, extent[4] = {9, 9, 9, 9};
    const kipx_pos at = position(1, 2), beyond = position(9, 0);
    for (auto [naxes, planes] : {std::pair{3u, 1u}, {4u, 1u}, {4u, 3u}}) {
        GuardedArray other = array(naxes, planes, 2, 5, 5);
        const Snapshot before = dst.snapshot();
        ASSERT_EQ(
            KipxCompare(nullptr, 0, dst.arr(), src.arr(), other.arr(), origin, extent, &at, 5), 0);
        // Two planes are left; the second source, from (2, 1) on, leaves 3 rows and 4 columns.
        const kipx_site region = rectangle(3, 2, 4, 3);
        dst.for_each([&, shared = planes == 1](At p) {
            if (p.plane < 1 || !contains(region, p)) return;
            const At there{p.y, p.x - 2, p.channel, shared ? 0 : p.plane - 1};
            ASSERT_EQ(dst.integer(p), src.integer(p) <= other.integer(there) ? 255 : 0);
        });
        EXPECT_EQ(dst.changes_outside(before, region), "");
    }
    const kipx_site outside = rectangle(9, 0, 2, 2), inside = rectangle(8, 0, 2, 2);
    const struct {
        const char *what;
        int32_t code;
        GuardedArray *dst, *src1, *src2;
        const kipx_site *roi;
        const kipx_pos *at;
    } cases[] = {{"fitting", 0, &flat, &one, &one, nullptr, nullptr},
                 {"region that reaches out", 0, &flat, &one, &one, &inside, nullptr},
                 {"planes of the source", KIPX_EINVAL, &dst, &src, &two, nullptr, nullptr},
                 {"axes of the result", KIPX_EINVAL, &flat, &src, &src, nullptr, nullptr},
                 {"planes of the result", KIPX_EINVAL, &two, &src, &src, nullptr, nullptr},
                 {"channels of the result", KIPX_EINVAL, &mono, &one, &one, nullptr, nullptr},
                 {"channels of the source", KIPX_EINVAL, &flat, &one, &mono, nullptr, nullptr},
                 {"type of the source", KIPX_ENOTSUP, &flat, &one, &words, nullptr, nullptr},
                 {"region outside", KIPX_EEMPTY, &flat, &one, &one, &outside, nullptr},
                 {"place outside", KIPX_EEMPTY, &flat, &one, &one, nullptr, &beyond}};
    for (const auto &c : cases)
        EXPECT_EQ(KipxCompare(nullptr, KIPX_FLAG_PREPARE, c.dst->arr(), c.src1->arr(),
                              c.src2->arr(), c.roi, nullptr, c.at, 3),
                  c.code)
            << c.what;
    EXPECT_EQ(KipxCompare(nullptr, 0, flat.arr(), nullptr, one.arr(), nullptr, nullptr, nullptr, 3),
              KIPX_EINVAL);
    EXPECT_EQ(KipxCompareC(nullptr, 0, flat.arr(), one.arr(), nullptr, nullptr, nullptr, 3),
              KIPX_EINVAL);
}

TEST(Slices, DoWhatTheirPackSays) {
    Environment xe;
    uint8_t a[2][3] = {{1, 5, 9}, {2, 6, 7}}, out[2][3];
    kipx_arr s = plain(KIPX_U8, a, 1, 3), d = plain(KIPX_U8, out, 1, 3);
    s.naxes = d.naxes = 4, s.volume[0] = d.volume[0] = 2, s.strides[0] = d.strides[0] = 3;
    const double value = 6, yes = 3;
    KipxCompareContext context{6, 0, &value, nullptr, nullptr};
    kipx_site site;
    kipx_arr_adjorgetRoi(&s, &site, nullptr);
    kipx_pack pack;
    kipxa_addpackL(kipxa_genpackL(&pack, KIPX_CODE_CMPC, &s, &site, &context), &d, &site,
                   KIPX_ROLE_RESULT);
    ASSERT_EQ(kipxa_call(xe, 0, &pack, KipxTGAcompareC), 0);
    const uint8_t greater[2][3] = {{0, 0, 255}, {0, 0, 255}};
    EXPECT_EQ(std::memcmp(out, greater, sizeof out), 0);
    context.true_values = &yes;
    ASSERT_EQ(kipxa_call(xe, 0, &pack, KipxTGAecompareC), 0);
    EXPECT_EQ(out[1][2], 3);
    EXPECT_EQ(kipxa_call(xe, 0, &pack, KipxTGAcompare), KIPX_EINVAL); // an operand is missing
    kipxa_genpackL(&pack, KIPX_CODE_COMP, &s, &site, &context);
    kipxa_addpackL(&pack, &s, &site, KIPX_ROLE_SOURCE);
    kipxa_addpackL(&pack, &d, &site, KIPX_ROLE_RESULT);
    context.cmpop = 3;
    ASSERT_EQ(kipxa_call(xe, 0, &pack, KipxTGAcompare), 0);
    EXPECT_EQ(out[1][0], 255);
    ASSERT_EQ(kipxa_call(xe, 0, &pack, KipxTGAecompare), 0);
    EXPECT_EQ(out[1][0], 3);
}

// ---- kernels and their tables ------------------------------------------------------------------

TEST(Kernels, AreFoundByTheirTypes) {
    for (uint32_t d = 0; d < 17; ++d)
        for (uint32_t s = 0; s < 17; ++s) {
            bool plain_pair = false;
            for (const Types &t : types_of(false, 1)) plain_pair |= t[0] == d && t[1] == s;
            const auto valid = [](uint32_t t, uint32_t last) {
                return (t >= 1 && t <= 4) || (t >= 9 && t <= last);
            };
            const int32_t none = valid(d, 12) && valid(s, 15) ? KIPX_ENOTSUP : KIPX_EINVAL;
            const int32_t expected = plain_pair ? 0 : none;
            const int32_t extended = d == 13 && s == 13 ? 0 : expected;
            int32_t status[4];
            EXPECT_NE(kipxa__cmpfun_imp(d, s, status), nullptr);
            EXPECT_NE(kipxa__cmpcfun_imp(d, s, status + 1), nullptr);
            EXPECT_NE(kipxa__ecmpfun_imp(d, s, status + 2), nullptr);
            EXPECT_NE(kipxa__ecmpcfun_imp(d, s, status + 3), nullptr);
            for (int i = 0; i < 4; ++i) EXPECT_EQ(status[i], i < 2 ? expected : extended);

            // The software entries work on one element with whatever they find.
            const double one = 1;
            uint64_t a = 0, b = 0, yes = 9, out[4] = {};
            if (extended == 0) yes = bits_of(d, 9), store_real(s, &a, one), store_real(s, &b, one);
            const uint32_t extent[3] = {1, 1, 1}, strides[3] = {8, 8, 8};
            const int32_t codes[] = {
                __kipxa__swcompare(d, s, nullptr, 0, 3, extent, out, strides, &a, strides, &b,
                                   strides, 3),
                __kipxa__swcompareC(d, s, nullptr, 0, 3, extent, out + 1, strides, &a, strides, &b,
                                    3),
                __kipxa__swecompare(d, s, nullptr, 0, 3, extent, out + 2, strides, &a, strides, &b,
                                    strides, 3, &yes, nullptr),
                __kipxa__swecompareC(d, s, nullptr, 0, 3, extent, out + 3, strides, &a, strides, &b,
                                     3, &yes, nullptr)};
            for (int i = 0; i < 4; ++i) {
                EXPECT_EQ(codes[i], status[i]);
                if (codes[i] == 0) {
                    EXPECT_EQ(out[i], i < 2 ? ones(d) : yes);
                }
            }
        }
}

TEST(Kernels, CheckOperatorAndMarkers) {
    const uint32_t extent[3] = {1, 1, 1}, strides[3] = {8, 8, 8};
    uint32_t a = 0, b = 0, out = 7, yes = 5;
    const auto chosen_by = [&](auto kernel, uint32_t op) {
        return kernel(nullptr, 0, 3, extent, &out, strides, &a, strides, &b, op, &yes,
                      at_number(1));
    };
    for (uint32_t op : {0u, 1u, 2u, 9u, 15u})
        EXPECT_EQ(chosen_by(_kipxa__ecompareC_u8u8, op), KIPX_EINVAL);
    EXPECT_EQ(chosen_by(_kipxa__ecompareC_u8s16, 8), KIPX_EINVAL);
    EXPECT_EQ(chosen_by(_kipxa__ecompareC_s32f32, 8), KIPX_EINVAL);
    EXPECT_EQ(out, 7u);
    EXPECT_EQ(chosen_by(_kipxa__ecompareC_f32f32, 8), 0);
    EXPECT_EQ(chosen_by(__kipxa__ecompareC_u8s8, 8), 0);
}

// ---- tables of bytes ---------------------------------------------------------------------------

TEST(Tables, HoldWhatEveryEntryComparesTo) {
    const uint8_t yes[2] = {100, 3}, no[2] = {200, 4};
    const auto *marker = reinterpret_cast<const uint8_t *>(uintptr_t{1});
    const uint8_t *const trues[] = {nullptr, yes, yes, nullptr, marker, yes};
    const uint8_t *const falses[] = {nullptr, no, nullptr, no, no, marker};
    uint8_t table[512];
    for (uint32_t op = 0; op < 16; ++op)
        for (uint32_t op2 : {0u, 3u, 4u, 7u, 8u, 9u})
            for (int how = 0; how < 6; ++how)
                for (double c : {0.0, 1.0, 127.5, 254.0, 300.0, -1.0}) {
                    const double values[2] = {c, 99}, values2[2] = {60, c};
                    const int32_t code =
                        op2 ? kipx_mkcmpxlatab2(table, op, op2, values, values2, trues[how],
                                                falses[how], 2)
                            : kipx_mkcmpxlatab(table, op, values, trues[how], falses[how], 2);
                    ASSERT_EQ(code, op < 3 || op > 8 || op2 > 8 ? KIPX_EINVAL : 0);
                    if (code) continue;
                    for (uint32_t k = 0; k < 512; ++k) {
                        const uint32_t channel = k / 256, i = k % 256;
                        const auto of = [](double v) {
                            return static_cast<double>(bits_of(KIPX_U8, v));
                        };
                        const bool held = holds(op, i, of(values[channel])) &&
                                          (op2 == 0 || holds(op2, i, of(values2[channel])));
                        const uint8_t *list = held ? trues[how] : falses[how];
                        const bool address = list == yes || list == no;
                        const uint32_t otherwise = how ? i : held ? 255 : 0;
                        ASSERT_EQ(table[k], address ? list[channel] : otherwise) << i;
                    }
                }
    const double value = 3;
    EXPECT_EQ(kipx_mkcmpxlatab(table, 3, &value, marker, nullptr, 1), KIPX_EINVAL);
    EXPECT_EQ(kipx_mkcmpxlatab(table, 3, &value, yes, marker + 1, 1), KIPX_EINVAL);
    EXPECT_EQ(kipx_mkcmpxlatab(table, 3, &value, nullptr, nullptr, 5), KIPX_EINVAL);
    EXPECT_EQ(kipx__mkcmpxlatab(table, 3, yes, nullptr, nullptr, 1), 0);
    EXPECT_EQ(table[100], 255);
    EXPECT_EQ(kipx__mkcmpxlatab2(table, 7, 4, yes, no, nullptr, nullptr, 1), 0); // 100 <= i < 200
    EXPECT_TRUE(!table[99] && table[100] && table[199] && !table[200]);
    // One argument after the other is null, or no number that it may be.
    const uint32_t steps[3] = {1, 1, 1};
    for (int bad = 0; bad < 7; ++bad) {
        const auto or_null = [bad](int which, auto *p) { return bad == which ? nullptr : p; };
        const uint32_t n = bad == 5 ? 0 : bad == 6 ? 5 : 1;
        EXPECT_EQ(kipx_xlat2d_u8(or_null(0, yes), or_null(1, table), or_null(2, steps),
                                 or_null(3, no), or_null(4, steps), 1, 1, n),
                  KIPX_EINVAL);
        EXPECT_EQ(kipx__mkcmpxlatab2(or_null(0, table), bad == 3 ? 9 : 3, bad == 4 ? 9 : 3,
                                     or_null(1, yes), or_null(2, no), nullptr, nullptr, n),
                  KIPX_EINVAL);
        if (bad == 2 || bad == 4) continue;
        EXPECT_EQ(kipx__mkcmpxlatab(or_null(0, table), bad == 3 ? 9 : 3, or_null(1, yes), nullptr,
                                    nullptr, n),
                  KIPX_EINVAL);
    }
}

TEST(Tables, TranslateEveryByteInEveryLayout) {
    Rng rng(8);
    uint8_t tables[1024];
    for (uint32_t turn = 0; turn < 200; ++turn) {
        const uint32_t channels = 1 + turn % 4, width = turn + 1;
        GuardedArray src({KIPX_U8, width, 3, channels, rng.pick(all_layouts)});
        GuardedArray dst({KIPX_U8, width, 3, channels, rng.pick(all_layouts)});
        src.fill(rng);
        // Any bytes; steps, with a part that passes; the same for all channels.
        for (uint32_t i = 0; i < 1024; ++i) {
            const uint32_t k = i % 256, steps = k < 90 ? 4 : k < 180 ? k : 250;
            tables[i] = static_cast<uint8_t>(turn % 3 == 0   ? rng.next()
                                             : turn % 3 == 1 ? steps
                                                             : tables[k]);
        }
        for (int32_t set : all_sets()) {
            SimdSwitch form(set);
            ASSERT_EQ(kipx_xlat2d_u8(tables, dst.address({}), dst.arr()->strides + 1,
                                     src.address({}), src.arr()->strides + 1, width, 3, channels),
                      0);
            dst.for_each([&](At at) {
                ASSERT_EQ(dst.integer(at), tables[256 * at.channel + src.address(at)[0]]);
            });
            ASSERT_EQ(dst.damage(), "");
        }
    }
}

TEST(Names, OfOperators) {
    const std::string names[] = {"nul",  "unknown",       "unknown", "equal",
                                 "less", "less-or-equal", "greater", "greater-or-equal"};
    for (uint32_t i = 0; i < 32; ++i)
        EXPECT_EQ(kipx_cmpop_str(i), (i % 16 < 8 ? names[i % 16] : "unknown") + "-cmpop");
}

} // namespace
