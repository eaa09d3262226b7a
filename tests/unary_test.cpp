// Functions of one array against long double: accuracy in f32 and f64, and everything else that an
// element-wise operation must do.
#include <kipx/arith.h>
#include <kipx/unary.h>

#include <cmath>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"

using namespace kipx::test;

namespace {

using Function = long double (*)(long double x, double alpha);
struct Entry {
    const char *name;
    Levels1<int32_t, int32_t> unary;
    LevelsC<int32_t, int32_t> constant;
    Function of;
};
const Entry entries[] = {
    {"exp", {KipxExp, kipxa_exp, kipxa__exp}, {}, [](long double x, double) { return expl(x); }},
    {"ln", {KipxLn, kipxa_ln, kipxa__ln}, {}, [](long double x, double) { return logl(x); }},
    {"sigmoidalpha",
     {},
     {KipxSigmoidAlpha, kipxa_sigmoidalpha, kipxa__sigmoidalpha},
     [](long double x, double alpha) { return 1 / (1 + expl(-x * alpha)); }},
};

// The element that r becomes.
uint64_t element_of(uint32_t type, long double r) {
    uint64_t bits = 0;
    if (is_real(type)) {
        const double rounded = type == KIPX_F32 ? double(static_cast<float>(r)) : double(r);
        store_real(type, &bits, std::isnan(r) ? std::numeric_limits<double>::quiet_NaN() : rounded);
    } else {
        const auto low = static_cast<long double>(is_signed(type) ? lowest(type) : 0);
        const auto high = static_cast<long double>(highest(type));
        const long double clipped = std::isnan(r) || r < low ? low : r > high ? high : r;
        store_integer(type, &bits, static_cast<int64_t>(std::nearbyint(clipped)));
    }
    return bits;
}

// A row of n elements of one type.
int32_t row_of(const Entry &e, uint32_t type, size_t n, void *y, const void *x, double alpha,
               int32_t scale) {
    const uint32_t size = type == KIPX_F32 ? 4 : 8, extent[3] = {1, uint32_t(n), 1},
                   strides[3] = {0, size, size};
    return e.unary.typed
               ? e.unary.typed(nullptr, 0, 3, extent, type, y, strides, type, x, strides, scale, 0)
               : e.constant.typed(nullptr, 0, 3, extent, type, y, strides, type, x, strides, &alpha,
                                  scale, 0);
}

Operation operation(const Entry &e) {
    Operation o{.name = e.name, .sources = 1, .has_values = !!e.constant.whole};
    for (uint32_t to : {1u, 10u, 11u, 13u, 14u})
        for (uint32_t from : {1u, 10u, 11u, 13u, 14u})
            if (to != KIPX_F64 || from == KIPX_F64) o.types.push_back({to, from, 0, 0});
    o.scales = {0, -1, -3, -31, 1, 5};
    o.call = [&e](Level level, const Arguments &a, const FlatArguments &f) {
        return e.unary.whole ? e.unary(level, a, f, a.scale, 77)
                             : e.constant(level, a, f, a.scale, 77);
    };
    o.model = [&e](const Arguments &a, uint32_t channel, const uint64_t *bits) {
        // Not the nearest number where results are rounded more than once, but that of one element alone.
        if (a.types[0] == a.types[1] && is_real(a.types[1])) {
            uint64_t y = 0;
            row_of(e, a.types[1], 1, &y, bits, e.unary.whole ? 0 : a.values[channel], a.scale);
            return y;
        }
        const double x = is_real(a.types[1]) ? load_real(a.types[1], bits)
                                             : static_cast<double>(load_integer(a.types[1], bits));
        return element_of(a.types[0], std::ldexp(e.of(x, a.values[channel]), a.scale));
    };
    return o;
}

class Every : public testing::TestWithParam<Entry> {};
TEST_P(Every, ConformsToItsModel) { EXPECT_EQ(conform(operation(GetParam()), 3, 12), ""); }

// Neighbours in the order of numbers.
template<class T> int64_t steps_apart(T a, T b) {
    const auto place = [](T x) {
        const auto bits = static_cast<int64_t>(std::fabs(x) == 0 ? 0 : 1);
        uint64_t raw = 0;
        std::memcpy(&raw, &x, sizeof x);
        const auto size = static_cast<int64_t>(raw & (UINT64_MAX >> (65 - 8 * sizeof x)));
        return bits * (std::signbit(x) ? -size : size);
    };
    return std::isnan(a) && std::isnan(b) ? 0 : std::llabs(place(a) - place(b));
}

template<class T> void check_accuracy(const Entry &e, uint32_t type) {
    using Limits = std::numeric_limits<T>;
    std::vector<T> x = {0,     T(-0.0),       1,   -1,  Limits::infinity(), -Limits::infinity(),
                        88.8f, Limits::max(), 710, 745, Limits::min(),      Limits::denorm_min()};
    x.push_back(Limits::quiet_NaN());
    Rng rng(17);
    for (int i = 0; i < 300000; i++) {
        T v = T((rng.unit() - 0.5) * (i % 2 ? 1500 : 4)); // where exponentials are not trivial
        const uint64_t bits = rng.next();
        if (i % 3 == 0) std::memcpy(&v, &bits, sizeof v);                             // any bits
        if (i % 7 == 0) v = T(1 + std::ldexp(rng.unit() - 0.5, -int(rng.below(50)))); // ln near 0
        x.push_back(v);
    }
    for (int i = 0; i < 400000; i++) x.push_back(T(0.5 + i * (1.5 / 400000))); // between breaks
    for (double alpha : {1.0, -0.37, 1e-200, 3e5, -1e250}) {
        std::vector<T> first, y(x.size());
        for (int32_t set : all_sets()) {
            SimdSwitch form(set);
            ASSERT_EQ(row_of(e, type, x.size(), y.data(), x.data(), alpha, 0), 0);
            if (first.empty()) first = y;
            ASSERT_EQ(std::memcmp(first.data(), y.data(), y.size() * sizeof(T)), 0) << set;
        }
        for (size_t i = 0; i < x.size(); i++)
            ASSERT_LE(steps_apart(y[i], static_cast<T>(e.of(x[i], alpha))), 1)
                << e.name << " of " << x[i] << ", alpha " << alpha << ": " << y[i];
        if (e.unary.typed) break;
    }
}
TEST_P(Every, IsTheNearestNumberOrItsNeighbour) {
    check_accuracy<float>(GetParam(), KIPX_F32);
    check_accuracy<double>(GetParam(), KIPX_F64);
}
INSTANTIATE_TEST_SUITE_P(Unary, Every, testing::ValuesIn(entries),
                         [](const auto &p) { return std::string(p.param.name); });

TEST(Unary, IsFoundByItsCode) {
    float x[] = {0.5f, -3, 7}, y[3], z[3];
    const uint32_t volume[4] = {1, 1, 3, 1},
                   codes[] = {0x6e656720, 0x6e656771, 0x65787020, 0x6c6e2020};
    decltype(&KipxExp) const functions[] = {KipxNegate, KipxNegateq, KipxExp, KipxLn};
    kipx_arr src{}, dst{};
    std::memcpy(src.volume, volume, sizeof volume);
    src.strides[2] = src.strides[3] = 4, src.naxes = 3, src.type = KIPX_F32, src.base = x;
    dst = src, dst.base = y;
    for (int i = 0; i < 4; i++) {
        ASSERT_EQ(functions[i](nullptr, 0, &dst, &src, nullptr, nullptr, 1, 0), 0);
        std::memcpy(z, y, sizeof y);
        ASSERT_EQ(kipx_unary(codes[i], nullptr, 0, &dst, &src, nullptr, nullptr, 1, 0), 0);
        EXPECT_EQ(std::memcmp(z, y, sizeof y), 0);
    }
    EXPECT_EQ(kipx_unary(0x65787021, nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0, 0),
              KIPX_EINVAL);
    const double alpha[1] = {2};
    EXPECT_EQ(kipx_constant(0x7369676d, nullptr, 0, &dst, &src, alpha, nullptr, nullptr, 0, 0), 0);
    EXPECT_NEAR(y[0], 1 / (1 + std::exp(-1)), 1e-7);
    EXPECT_EQ(KipxSigmoidAlpha(nullptr, 0, &dst, &src, nullptr, nullptr, nullptr, 0, 0),
              KIPX_EINVAL);
    src.type = KIPX_U16;
    EXPECT_EQ(KipxExp(nullptr, 0, &dst, &src, nullptr, nullptr, 0, 0), KIPX_ENOTSUP);
}

} // namespace
