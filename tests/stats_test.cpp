// Statistics against naive counting, over every type, layout, region and mask, with every set.
#include <kipx/stats.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

// An array with a region and perhaps a mask, as a caller may hand them in, and the values that are
// meant, channel by channel.
struct Sample {
    GuardedArray src;
    std::optional<GuardedArray> mask;
    std::optional<kipx_site> roi;
    kipx_pos mask_at{};
    std::vector<std::vector<double>> values; // of the region's channels
    std::vector<std::vector<At>> places;     // of these, from the region's first pixel

    static Shape draw_shape(Rng &rng, uint32_t type) {
        Shape s;
        s.type = type, s.channels = 1 + static_cast<uint32_t>(rng.below(4));
        s.width =
            1 + (rng.one_in(8) ? static_cast<uint32_t>(rng.below(3000)) : rng.pick(all_widths));
        s.height = 1 + static_cast<uint32_t>(rng.below(4));
        s.naxes = rng.one_in(4) ? 4 : 3, s.planes = s.naxes == 4 ? 3 : 1;
        s.layout = rng.pick(all_layouts), s.edge = rng.one_in(2) ? Edge::last : Edge::first;
        s.shift = rng.below(64);
        return s;
    }
    Sample(Rng &rng, uint32_t type, Values kind) : src(draw_shape(rng, type)) {
        const Shape &s = src.shape();
        src.fill(rng, kind);
        if (rng.one_in(4)) src.fill_integer(3); // long runs of one value
        if (rng.one_in(2)) {
            roi = random_rectangle(rng, s.width, s.height);
            if (rng.one_in(3)) roi->origin[3] = s.channels - 1;
        }
        if (rng.one_in(2)) {
            Shape m = s;
            m.type = KIPX_U8, m.width += 3, m.channels = rng.one_in(2) ? 1 : s.channels;
            m.naxes = s.naxes == 4 && rng.one_in(2) ? 4 : 3, m.planes = m.naxes == 4 ? 3 : 1;
            mask.emplace(m);
            const uint64_t holes = rng.below(4); // none, many, some runs
            mask->for_each([&](At at) {
                const bool out = holes == 1 ? rng.one_in(2) : holes == 2 && at.x / 20 % 2;
                mask->set_integer(at, out ? 0 : rng.between(1, 255));
            });
            mask_at = position(2, 0);
        }
        gather();
    }
    void gather() {
        const Shape &s = src.shape();
        kipx_site site =
            rectangle(0, 0, static_cast<int32_t>(s.width), static_cast<int32_t>(s.height));
        if (roi) site = *roi;
        int32_t first_x = INT32_MAX, first_y = 0, first_channel = 8;
        values.clear(), places.clear();
        src.for_each([&](At at) { // where the region clipped to the array begins
            if (!contains(site, at) || first_x != INT32_MAX) return;
            first_x = static_cast<int32_t>(at.x), first_y = static_cast<int32_t>(at.y);
            first_channel = static_cast<int32_t>(at.channel);
        });
        for (uint32_t c = static_cast<uint32_t>(first_channel); c < s.channels; c++)
            values.emplace_back(), places.emplace_back();
        src.for_each([&](At at) {
            if (!contains(site, at)) return;
            if (mask) {
                At m{at.y - static_cast<uint32_t>(first_y),
                     at.x - static_cast<uint32_t>(first_x) + mask_at.at[2],
                     mask->shape().channels == 1 ? 0 : at.channel,
                     mask->planes() == 1 ? 0 : at.plane};
                if (m.x >= mask->shape().width || mask->integer(m) == 0) return;
            }
            const size_t c = at.channel - static_cast<uint32_t>(first_channel);
            values[c].push_back(src.real(at));
            places[c].push_back({at.y - static_cast<uint32_t>(first_y),
                                 at.x - static_cast<uint32_t>(first_x), 0, at.plane});
        });
    }
    bool empty() const {
        for (const auto &channel : values)
            if (channel.empty()) return true;
        return values.empty();
    }
    const kipx_arr *mask_arr() { return mask ? mask->arr() : nullptr; }
    const kipx_site *site() { return roi ? &*roi : nullptr; }
};

class Statistics : public testing::TestWithParam<uint32_t> {};

TEST_P(Statistics, ExtremaAreThoseOfTheNumbers) {
    Rng rng(GetParam());
    int empty = 0;
    for (int trial = 0; trial < 200; trial++) {
        Sample s(rng, GetParam(), rng.one_in(2) ? Values::any : Values::finite);
        if (rng.one_in(8)) s.src.fill_integer(0); // zeros of either sign
        if (is_real(GetParam()) && rng.one_in(8))
            s.src.for_each([&](At at) { s.src.set_real(at, rng.one_in(2) ? 0.0 : -0.0); });
        if (is_real(GetParam()) && rng.one_in(8))
            s.src.for_each([&](At at) { s.src.set_real(at, nan_value); });
        s.gather();
        for (int32_t set : all_sets()) {
            SimdSwitch form(set);
            kipx_vrange found[4] = {{7, 7}, {7, 7}, {7, 7}, {7, 7}};
            const int32_t code =
                KipxMinmax(nullptr, 0, s.src.arr(), s.mask_arr(), s.site(), &s.mask_at, found);
            if (s.empty()) {
                ASSERT_EQ(code, KIPX_EEMPTY) << s.src.shape();
                ASSERT_EQ(found[0].low, 7);
                empty++;
                continue;
            }
            ASSERT_EQ(code, 0) << s.src.shape();
            for (size_t c = 0; c < s.values.size(); c++) {
                kipx_vrange must = {infinity, -infinity};
                bool number = false;
                for (double v : s.values[c]) {
                    if (std::isnan(v)) continue;
                    number = true, must.low = std::min(must.low, v),
                    must.high = std::max(must.high, v);
                }
                if (!number) must = {nan_value, nan_value};
                ASSERT_TRUE(std::isnan(must.low) ? std::isnan(found[c].low)
                                                 : found[c].low == must.low);
                ASSERT_TRUE(std::isnan(must.high) ? std::isnan(found[c].high)
                                                  : found[c].high == must.high);
                ASSERT_FALSE(found[c].low == 0 && std::signbit(found[c].low));
                ASSERT_FALSE(found[c].high == 0 && std::signbit(found[c].high));
            }
        }
    }
    EXPECT_GT(empty, 0);
}

// What a histogram must hold for a value; -1 when it does not count.
int64_t model_bin(const kipx_histogram &h, const kipx_vrange *range, double v) {
    if (std::isnan(v)) return -1;
    if (range && (v < range->low || v > range->high)) return -1;
    const double exact = (v - static_cast<double>(h.low)) / static_cast<double>(h.width);
    if (!range &&
        (exact < 0 || v >= static_cast<double>(h.low) + static_cast<double>(h.width) * h.bins))
        return -1;
    return static_cast<int64_t>(std::clamp(std::floor(exact), 0.0, h.bins - 1.0));
}

TEST_P(Statistics, HistogramsCountEveryValueInItsBin) {
    Rng rng(GetParam() + 50);
    Environment xe;
    const uint32_t type = GetParam();
    for (int trial = 0; trial < 200; trial++) {
        Sample s(rng, type, rng.one_in(2) ? Values::any : Values::small);
        const uint32_t n = static_cast<uint32_t>(s.values.size());
        kipx_vrange ranges[4];
        int32_t bins[4];
        for (uint32_t c = 0; c < 4; c++) {
            const double low =
                rng.one_in(2) ? static_cast<double>(rng.between(-20, 20)) : rng.unit() * 9 - 4;
            ranges[c] = {rng.one_in(6) ? nan_value : low,
                         low + static_cast<double>(rng.below(300))};
            if (rng.one_in(4)) ranges[c].high = low + 1e5 * rng.unit();
            const double values = ranges[c].high - low + 1; // one bin each, now and then
            bins[c] = rng.one_in(3) ? static_cast<int32_t>(values)
                                    : static_cast<int32_t>(rng.below(2500));
        }
        std::vector<std::array<kipx_histogram, 4>> made(all_sets().size()); // one set-up per set
        for (auto &h : made)
            ASSERT_EQ(__kipx_histogram__$n$xe(h.data(), n, ranges, bins, type, xe), 0);
        const bool limited = rng.one_in(2) && !std::isnan(ranges[0].low + ranges[1].low +
                                                          ranges[2].low + ranges[3].low);
        const kipx_vrange *limits = limited ? ranges : nullptr;
        for (size_t i = 0; i < made.size(); i++) {
            SimdSwitch form(all_sets()[i]);
            const int32_t code = KipxHistogram(nullptr, 0, s.src.arr(), s.mask_arr(), s.site(),
                                               &s.mask_at, limits, made[i].data());
            ASSERT_TRUE(code == 0 || (code == KIPX_EEMPTY && s.empty()));
        }
        for (uint32_t c = 0; c < n; c++) {
            std::vector<uint32_t> must(static_cast<size_t>(made[0][c].bins));
            int32_t total = 0;
            for (double v : s.values[c])
                if (int64_t bin = model_bin(made[0][c], limits ? ranges + c : nullptr, v); bin >= 0)
                    must[static_cast<size_t>(bin)]++, total++;
            for (const auto &h : made) {
                ASSERT_EQ(h[c].total, total) << s.src.shape();
                ASSERT_EQ(std::vector<uint32_t>(h[c].counts, h[c].counts + h[c].bins), must)
                    << s.src.shape();
            }
        }
        while (!made.empty()) kipx_hist_fini_$n$xe(made.back().data(), n, xe), made.pop_back();
    }
}

// Exact for integers; near the exact sum for floating types, and the same bits in every set and layout.
TEST_P(Statistics, SumsAndMeansAreThoseOfTheNumbers) {
    Rng rng(GetParam() + 100);
    for (int trial = 0; trial < 200; trial++) {
        Sample s(rng, GetParam(), Values::finite);
        if (is_real(GetParam())) // sums that binary64 can hold
            s.src.for_each([&](At at) {
                s.src.set_real(at,
                               (rng.unit() - 0.4) * std::exp2(static_cast<double>(rng.below(40))));
            });
        s.gather();
        Shape other = s.src.shape();
        other.layout = other.layout == Layout::planar ? Layout::packed : Layout::planar;
        GuardedArray elsewhere(other);
        s.src.for_each([&](At at) { // every value of these types is a binary64
            is_real(GetParam()) ? elsewhere.set_real(at, s.src.real(at))
                                : elsewhere.set_integer(at, s.src.integer(at));
        });
        double first[3][4] = {};
        bool have_first = false;
        for (int32_t set : all_sets())
            for (const GuardedArray *array : {&s.src, &elsewhere}) {
                SimdSwitch form(set);
                double found[3][4] = {};
                const int32_t sum_code =
                    KipxSum(nullptr, 0, array->arr(), s.mask_arr(), s.site(), &s.mask_at, found[0]);
                const int32_t mean_code = KipxMean(nullptr, 0, array->arr(), s.mask_arr(), s.site(),
                                                   &s.mask_at, found[1], found[2]);
                ASSERT_EQ(sum_code, s.empty() ? KIPX_EEMPTY : 0);
                ASSERT_EQ(mean_code, sum_code);
                if (!have_first) std::memcpy(first, found, sizeof found), have_first = true;
                ASSERT_EQ(std::memcmp(found, first, sizeof found), 0)
                    << "set " << set << " " << array->shape();
            }
        for (size_t c = 0; c < s.values.size() && !s.empty(); c++) {
            const long double n = static_cast<long double>(s.values[c].size());
            long double sum = 0, size = 0, squares = 0;
            for (double v : s.values[c])
                sum += static_cast<long double>(v), size += std::fabs(static_cast<long double>(v));
            for (double v : s.values[c])
                squares += (static_cast<long double>(v) - sum / n) *
                           (static_cast<long double>(v) - sum / n);
            if (!is_real(GetParam())) {
                ASSERT_EQ(first[0][c], static_cast<double>(sum));
                ASSERT_EQ(first[1][c], static_cast<double>(sum) / static_cast<double>(n));
            }
            ASSERT_NEAR(first[0][c], static_cast<double>(sum), static_cast<double>(size) * 1e-14);
            ASSERT_NEAR(first[2][c], static_cast<double>(std::sqrt(squares / n)),
                        static_cast<double>(is_real(GetParam()) ? size / n * 1e-12L
                                                                : std::sqrt(squares / n) * 1e-15L));
        }
    }
}

TEST_P(Statistics, BoxesCountWhatStandsInARelation) {
    Rng rng(GetParam() + 150);
    for (int trial = 0; trial < 200; trial++) {
        Sample s(rng, GetParam(), rng.one_in(2) ? Values::any : Values::small);
        if (s.empty()) continue;
        const int32_t relation = 3 + static_cast<int32_t>(rng.below(6));
        double values[4];
        for (double &v : values) {
            const auto &all = s.values[0];
            v = rng.one_in(2)   ? all[rng.below(all.size())]
                : rng.one_in(8) ? nan_value
                : rng.one_in(8) ? infinity
                                : static_cast<double>(rng.between(-9, 9));
            if (rng.one_in(2)) v += rng.one_in(2) ? 0.5 : -1e-9;
        }
        std::vector<kipx_site> boxes(1 + rng.below(5));
        for (kipx_site &b : boxes)
            b = random_rectangle(rng, s.src.shape().width, s.src.shape().height);
        if (s.src.planes() > 1) boxes[0].origin[0] = 1, boxes[0].extent[0] = 1;
        const bool whole = rng.one_in(4);
        if (whole) boxes = {rectangle(0, 0, INT32_MAX, INT32_MAX)};
        for (int32_t set : all_sets()) {
            SimdSwitch form(set);
            std::vector<uint64_t> counts(boxes.size() * s.values.size(), 99);
            ASSERT_EQ(KipxCountRelBox(nullptr, 0, s.src.arr(), s.mask_arr(), s.site(), &s.mask_at,
                                      relation | 0x70, values, whole ? nullptr : boxes.data(),
                                      static_cast<uint32_t>(boxes.size()), counts.data()),
                      0);
            for (size_t b = 0; b < boxes.size(); b++)
                for (size_t c = 0; c < s.values.size(); c++) {
                    uint64_t must = 0;
                    for (size_t i = 0; i < s.values[c].size(); i++) {
                        const double v = s.values[c][i], w = values[c];
                        const bool holds[] = {v == w, v<w, v <= w, v> w, v >= w, v != w};
                        must += contains(boxes[b], s.places[c][i]) && holds[relation - 3];
                    }
                    ASSERT_EQ(counts[b * s.values.size() + c], must)
                        << "relation " << relation << " to " << values[c];
                }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Type, Statistics, testing::ValuesIn(all_types),
                         [](const auto &p) { return type_name(p.param); });

TEST(Histogram, IsSetUpByTypeRangeAndBins) {
    Environment xe;
    const struct {
        uint32_t type;
        kipx_vrange range;
        int32_t bins;
        float low, width;
        int32_t made;
    } cases[] = {
        {KIPX_U8, {nan_value, 0}, 0, 0, 1, 256},
        {KIPX_S32, {nan_value, 0}, 1, 0, 1, 256},
        {KIPX_F32, {nan_value, 0}, -4, 0, 1.0f / 384, 384},
        {KIPX_U16, {nan_value, 0}, 0, 0, 1.0f / 384, 384},
        {KIPX_U8, {0, 255}, 51, 0, 5, 51},
        {KIPX_S16, {-100, 100}, 201, -100, 1, 201},
        {KIPX_F32, {-100, 100}, 201, -100, 200.0f / 201, 201},
        {KIPX_S16, {-100.5, 100.5}, 202, -100.5f, 201.0f / 202, 202},
        {KIPX_S16, {7, 7}, 10, 7, 1, 10},
        {KIPX_F32, {0, 0}, 10, 0, 0x1p-23f, 10},
        {KIPX_F32, {-64, -64}, 10, -64, 0x1p-17f, 10},
    };
    for (const auto &c : cases) {
        kipx_histogram h;
        ASSERT_EQ(__kipx_histogram__$n$xe(&h, 1, &c.range, &c.bins, c.type, xe), 0);
        EXPECT_EQ(h.low, c.low);
        EXPECT_EQ(h.width, c.width);
        EXPECT_EQ(h.bins, c.made);
        EXPECT_EQ(h.total, 0);
        kipx_hist_fini_$n$xe(&h, 1, xe);
        EXPECT_EQ(h.counts, nullptr);
    }
    const kipx_vrange wrong[] = {{2, 1},         {0, infinity},   {-infinity, 0},
                                 {0, nan_value}, {-1e300, 1e300}, {0, 1e-60}};
    kipx_histogram h[3];
    for (const kipx_vrange &range : wrong)
        EXPECT_EQ(__kipx_histogram__$n$xe(h, 1, &range, nullptr, KIPX_F64, xe), KIPX_EINVAL)
            << range.low;
    EXPECT_EQ(__kipx_histogram__$n$xe(h, 1, nullptr, nullptr, 5, xe), KIPX_EINVAL);
    EXPECT_EQ(__kipx_histogram__$n$xe(h, 1, nullptr, nullptr, KIPX_U8, nullptr), KIPX_EINVAL);
    // The third does not fit: the other two go back, and their room is used again.
    void *room = KipxXEalloca(xe, 40, 64);
    KipxXEfreea(xe, room);
    ZuSMEMSTGsetlimit(xe.stack(), 70000);
    const int32_t bins[] = {10, 10, INT32_MAX};
    EXPECT_EQ(__kipx_histogram__$n$xe(h, 3, nullptr, bins, KIPX_U8, xe), KIPX_ENOMEM);
    EXPECT_EQ(KipxXEalloca(xe, 40, 64), room);
}

TEST(StatisticsCalls, RefuseWithoutWriting) {
    GuardedArray src({.type = KIPX_U8, .width = 4, .height = 2});
    src.fill_integer(1);
    uint32_t counts[4] = {};
    const kipx_histogram good = {0, 1, 0, 4, counts};
    const auto answer = [&](kipx_histogram h, uint64_t flags = 0) {
        return KipxHistogram(nullptr, flags, src.arr(), nullptr, nullptr, nullptr, nullptr, &h);
    };
    EXPECT_EQ(answer(good, KIPX_FLAG_PREPARE), 0);
    EXPECT_EQ(answer(good, KIPX_FLAG_PROBE), KIPX_EAGAIN);
    kipx_histogram bad[6] = {good, good, good, good, good, good};
    bad[0].counts = nullptr, bad[1].bins = 0, bad[2].width = 0, bad[3].width = NAN;
    bad[4].total = INT32_MAX - 7, bad[5].low = INFINITY;
    for (const kipx_histogram &h : bad) EXPECT_EQ(answer(h), KIPX_EINVAL);
    EXPECT_EQ(counts[1], 0u);
    EXPECT_EQ(KipxHistogram(nullptr, 0, src.arr(), nullptr, nullptr, nullptr, nullptr, nullptr),
              KIPX_EINVAL);
    EXPECT_EQ(KipxMinmax(nullptr, 0, src.arr(), nullptr, nullptr, nullptr, nullptr), KIPX_EINVAL);
    EXPECT_EQ(KipxMinmax(nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr), KIPX_EINVAL);
    double out[4];
    uint64_t found[4];
    EXPECT_EQ(KipxSum(nullptr, 0, src.arr(), nullptr, nullptr, nullptr, nullptr), KIPX_EINVAL);
    EXPECT_EQ(KipxMean(nullptr, 0, src.arr(), nullptr, nullptr, nullptr, nullptr, nullptr),
              KIPX_EINVAL);
    EXPECT_EQ(KipxMean(nullptr, 0, src.arr(), nullptr, nullptr, nullptr, nullptr, out), 0);
    EXPECT_EQ(out[0], 0);
    const auto boxes = [&](int32_t relation, const double *values, uint32_t n, uint64_t *into) {
        return KipxCountRelBox(nullptr, 0, src.arr(), nullptr, nullptr, nullptr, relation, values,
                               nullptr, n, into);
    };
    for (int32_t relation : {0, 1, 2, 9, 15})
        EXPECT_EQ(boxes(relation, out, 1, found), KIPX_EINVAL);
    EXPECT_EQ(boxes(3, nullptr, 1, found), KIPX_EINVAL);
    EXPECT_EQ(boxes(3, out, 2, found), KIPX_EINVAL);
    EXPECT_EQ(boxes(3, out, 1, nullptr), KIPX_EINVAL);
    src.arr()->type = KIPX_U64;
    EXPECT_EQ(answer(good), KIPX_ENOTSUP);
    src.arr()->type = 6;
    EXPECT_EQ(answer(good), KIPX_EINVAL);
}

// The levels below read the same region, from an origin or from where it starts.
TEST(StatisticsLevels, AgreeWithThePublicFunctions) {
    Rng rng(11);
    Environment xe;
    const Shape shape{KIPX_S16, 40, 12, 3};
    GuardedArray src(shape), mask({KIPX_U8, 40, 12, 3});
    src.fill(rng);
    mask.for_each([&](At at) { mask.set_integer(at, rng.one_in(3) ? 0 : 9); });
    const kipx_arr *s = src.arr(), *m = mask.arr();
    const kipx_site roi = rectangle(3, 2, 20, 5);
    const uint32_t origin[] = {2, 3, 0}, extent[] = {5, 20, s->volume[3]};
    const auto agree = [&](auto whole, auto array, auto typed, auto &out, auto... tail) {
        ASSERT_EQ(whole(xe, 0, s, m, &roi, nullptr, tail...), 0);
        const auto must = out;
        out = {};
        ASSERT_EQ(array(xe, 0, 3, extent, s->type, src.address({}), origin, s->strides + 1, m->type,
                        mask.address({}), nullptr, m->strides + 1, tail...),
                  0);
        EXPECT_EQ(std::memcmp(&out, &must, sizeof out), 0);
        out = {};
        ASSERT_EQ(typed(xe, 0, 3, extent, s->type, src.address({2, 3, 0, 0}), s->strides + 1,
                        m->type, mask.address({}), m->strides + 1, tail...),
                  0);
        EXPECT_EQ(std::memcmp(&out, &must, sizeof out), 0);
    };
    std::array<double, 6> numbers{};
    std::array<kipx_vrange, 3> ranges{};
    std::array<uint64_t, 3> found{};
    std::array<std::array<uint32_t, 300>, 3> counts{};
    kipx_histogram h[3];
    for (int c = 0; c < 3; c++) h[c] = {-32768, 220, 0, 300, counts[c].data()};
    const double limits[] = {5, -900, 70};
    const kipx_site all = rectangle(0, 0, 15, 4);
    agree(KipxSum, kipxa_sum, kipxa__sum, numbers, numbers.data());
    agree(KipxMean, kipxa_mean, kipxa__mean, numbers, numbers.data(), numbers.data() + 3);
    agree(KipxMinmax, kipxa_minmax, kipxa__minmax, ranges, ranges.data());
    agree(KipxHistogram, kipxa_histogram, kipxa__histogram, counts, nullptr, h);
    agree(KipxCountRelBox, kipxa_countrelbox, kipxa__countrelbox, found, 4, limits, &all, 1u,
          found.data());
}

} // namespace
