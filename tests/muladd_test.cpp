// Multiply-accumulate against exact integers and the C library's fused operation.
#include <kipx/muladd.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"

using namespace kipx::test;

namespace {

constexpr Types all_of_three[] = {
#define TYPES(op, D, A, B, C) {KIPX_CODE_##D, KIPX_CODE_##A, KIPX_CODE_##B, KIPX_CODE_##C},
#define KIPX_CODE_u8 KIPX_U8
#define KIPX_CODE_s16 KIPX_S16
#define KIPX_CODE_s32 KIPX_S32
#define KIPX_CODE_f32 KIPX_F32
    KIPX_MULADD_TYPES(TYPES, )};

double number(uint32_t type, uint64_t bits) {
    return is_real(type) ? load_real(type, &bits) : static_cast<double>(load_integer(type, &bits));
}

// kind: a * b + c, a * b - c, c - a * b.
uint64_t result(int kind, uint32_t type, bool real, int32_t scale, double a, double b, double c) {
    const double p = kind == 2 ? -a : a, q = kind == 1 ? -c : c;
    uint64_t bits = 0;
    const auto factor = static_cast<float>(std::ldexp(1.0, scale < 0 ? scale % 32 : scale));
    if (is_real(type)) {
        const float r = factor * std::fma(float(p), float(b), float(q));
        store_real(type, &bits, std::isnan(r) ? std::nan("") : r);
        return bits;
    }
    long double r;
    if (real) {
        r = factor * std::fma(float(p), float(b), float(q));
    } else {
        const int64_t whole =
            static_cast<int64_t>(p) * static_cast<int64_t>(b) + static_cast<int64_t>(q);
        // Shifted in 64 bits, which may lose some.
        const auto shifted =
            static_cast<int64_t>(static_cast<uint64_t>(whole) << std::max(scale, 0));
        r = scale < 0 ? static_cast<float>(whole) * factor : static_cast<long double>(shifted);
    }
    const auto low = static_cast<long double>(is_signed(type) ? lowest(type) : 0);
    const auto high = static_cast<long double>(highest(type));
    r = std::isnan(r) || r < low ? low : r > high ? high : r;
    store_integer(type, &bits, static_cast<int64_t>(std::nearbyint(r)));
    return bits;
}

// Numbers in the place of c, made from those in the place of b.
double addend(double factor) { return factor * 2 - 3; }
std::vector<double> addends(const Arguments &a) {
    std::vector<double> c;
    for (double v : a.values) c.push_back(addend(v));
    return c;
}

struct Entry {
    const char *name;
    decltype(&KipxMulAdd) whole;
    decltype(&kipxa_muladd) array;
    decltype(&kipxa__muladd) typed;
    decltype(&KipxMulAddC) whole_c;
    decltype(&kipxa_muladdC) array_c;
    decltype(&kipxa__muladdC) typed_c;
    decltype(&KipxMulAddCC) whole_cc;
    decltype(&kipxa_muladdCC) array_cc;
    decltype(&kipxa__muladdCC) typed_cc;
    uint32_t code;
};
#define ENTRY(op, Name, code)                                                                      \
    {                                                                                              \
#op, Kipx##Name, kipxa_##op, kipxa__##op, Kipx##Name##C, kipxa_##op##C, kipxa__##op##C,    \
            Kipx##Name##CC, kipxa_##op##CC, kipxa__##op##CC, code                                  \
    }
const Entry entries[] = {ENTRY(muladd, MulAdd, 0x6d6c6120), ENTRY(mulsub, MulSub, 0x6d6c7320),
                         ENTRY(mulrsub, MulRSub, 0x6d6c7273)};

using A = const Arguments &;
using F = const FlatArguments &;

int32_t call_three(const Entry &e, Level level, A a, F f) {
    const FlatOperand &d = f.dst, &x = f.src[0], &y = f.src[1], &z = f.src[2];
    if (level == Level::whole)
        return e.whole(a.xe, a.flags, a.dst->arr(), a.source(0), a.source(1), a.source(2), a.roi,
                       a.at[0], a.at[1], a.at[2], a.scale, 77);
    if (level == Level::array)
        return e.array(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin, d.strides, x.type,
                       x.base, x.origin, x.strides, y.type, y.base, y.origin, y.strides, z.type,
                       z.base, z.origin, z.strides, a.scale, 77);
    return e.typed(a.xe, a.flags, f.dims, f.extent, d.type, d.start, d.strides, x.type, x.start,
                   x.strides, y.type, y.start, y.strides, z.type, z.start, z.strides, a.scale, 77);
}

int32_t call_factor(const Entry &e, Level level, A a, F f) {
    const FlatOperand &d = f.dst, &x = f.src[0], &y = f.src[1];
    const double *values = a.values.data();
    if (level == Level::whole)
        return e.whole_c(a.xe, a.flags, a.dst->arr(), a.source(0), a.source(1), values, a.roi,
                         a.at[0], a.at[1], a.scale, 77);
    if (level == Level::array)
        return e.array_c(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin, d.strides,
                         x.type, x.base, x.origin, x.strides, y.type, y.base, y.origin, y.strides,
                         values, a.scale, 77);
    return e.typed_c(a.xe, a.flags, f.dims, f.extent, d.type, d.start, d.strides, x.type, x.start,
                     x.strides, y.type, y.start, y.strides, values, a.scale, 77);
}

int32_t call_both(const Entry &e, Level level, A a, F f) {
    const FlatOperand &d = f.dst, &x = f.src[0];
    const std::vector<double> more = addends(a);
    const double *factor = a.values.data(), *add = more.data();
    if (level == Level::whole)
        return e.whole_cc(a.xe, a.flags, a.dst->arr(), a.source(0), factor, add, a.roi, a.at[0],
                          a.scale, 77);
    if (level == Level::array)
        return e.array_cc(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin, d.strides,
                          x.type, x.base, x.origin, x.strides, factor, add, a.scale, 77);
    return e.typed_cc(a.xe, a.flags, f.dims, f.extent, d.type, d.start, d.strides, x.type, x.start,
                      x.strides, factor, add, a.scale, 77);
}

// constants: how many of b and c are numbers.
Operation operation(int kind, uint32_t constants) {
    const Entry &e = entries[kind];
    constexpr const char *tails[] = {"", "C", "CC"};
    Operation o{.name = std::string(e.name) + tails[constants], .sources = 3 - constants};
    o.has_values = constants > 0, o.scales = {0, -1, -8, -9, -32, 3};
    for (const Types &t : all_of_three) {
        const bool whole = t[0] == KIPX_S32; // takes whole numbers only
        if (constants == 0) o.types.push_back(t);
        if (constants == 0 && t[1] != t[2]) o.types.push_back({t[0], t[2], t[1], t[3]});
        if (constants == 1) o.types.push_back({t[0], t[1], t[3], 0});
        if (constants == 2 && (whole || t[2] == KIPX_F32)) o.types.push_back({t[0], t[1], 0, 0});
    }
    o.call = [=, &e](Level level, A a, F f) {
        return (constants == 0   ? call_three
                : constants == 1 ? call_factor
                                 : call_both)(e, level, a, f);
    };
    o.model = [=](A a, uint32_t channel, const uint64_t *bits) {
        const double v = a.values[channel];
        const double x = number(a.types[1], bits[0]);
        const double b = constants ? double(float(v)) : number(a.types[2], bits[1]);
        const double c = constants == 0   ? number(a.types[3], bits[2])
                         : constants == 1 ? number(a.types[2], bits[1])
                                          : double(float(addend(v)));
        bool real = constants > 0 && a.types[0] != KIPX_S32;
        for (uint32_t i = 0; i <= 3 - constants; i++) real |= is_real(a.types[i]);
        return result(kind, a.types[0], real, a.scale, x, b, c);
    };
    // Where all kernels are of whole numbers, and of u8 alone.
    o.prepare = [=](Arguments &a) {
        if (constants &&
            (a.types[0] == KIPX_S32 || (a.types[0] == KIPX_S16 && a.types[1] == KIPX_U8)))
            for (double &v : a.values) v = std::fmod(std::floor(std::fabs(v)), 100);
    };
    return o;
}

class Every : public testing::TestWithParam<Operation> {};
TEST_P(Every, ConformsToItsModel) { EXPECT_EQ(conform(GetParam(), 23, 25), ""); }
INSTANTIATE_TEST_SUITE_P(MulAdd, Every, testing::ValuesIn([] {
                             std::vector<Operation> all;
                             for (int kind : {0, 1, 2})
                                 for (uint32_t constants : {0u, 1u, 2u})
                                     all.push_back(operation(kind, constants));
                             return all;
                         }()),
                         [](const auto &p) { return p.param.name; });

// Many bytes go through tables, few do not.
TEST(MulAdd, ManyBytesAreAsFewOnes) {
    Rng rng(5);
    constexpr uint32_t n = 4000, piece = 500;
    for (int round = 0; round < 60; round++) {
        const auto channels = uint32_t(rng.between(1, 5));
        const uint32_t all[3] = {1, n, channels}, some[3] = {1, piece, channels},
                       s[3] = {0, channels, 1};
        double factors[5], addends[5];
        for (double &v : factors) v = double(rng.between(-9, 9)) / (round % 2 + 1);
        for (double &v : addends) v = double(rng.between(-300, 300)) / (round % 3 + 1);
        std::vector<unsigned char> from(n * channels), whole(from.size()), parts(from.size());
        for (unsigned char &x : from) x = static_cast<unsigned char>(rng.below(256));
        const Entry &e = entries[round % 3];
        const int32_t scale = round % 4 ? 0 : -3;
        const auto call = [&](const uint32_t *extent, unsigned char *to, uint32_t at) {
            return e.typed_cc(nullptr, 0, 3, extent, KIPX_U8, to + at, s, KIPX_U8, from.data() + at,
                              s, factors, addends, scale, 0);
        };
        for (int32_t set : all_sets()) {
            SimdSwitch form(set);
            ASSERT_EQ(call(all, whole.data(), 0), 0);
            for (uint32_t x = 0; x < n; x += piece)
                ASSERT_EQ(call(some, parts.data(), x * channels), 0);
            ASSERT_EQ(whole, parts) << "channels " << channels << " round " << round;
        }
    }
}

// What two roundings would get wrong: products and addends of very different sizes.
TEST(MulAdd, RoundsOnce) {
    Rng rng(4);
    constexpr uint32_t n = 4096, extent[3] = {1, n, 1}, s[3] = {0, 4, 4};
    std::vector<float> a(n), b(n), c(n), d(n);
    for (int round = 0; round < 20; round++) {
        for (uint32_t i = 0; i < n; i++) {
            const auto draw = [&](int spread) {
                const double m = double(rng.between(-0xffffff, 0xffffff));
                return float(std::ldexp(m, int(rng.between(-spread, spread))));
            };
            a[i] = draw(20), b[i] = draw(20);
            // Often near half a unit in the last place of the product.
            c[i] = rng.one_in(2) ? draw(50) : std::ldexp(a[i] * b[i], -24 - int(rng.below(3)));
        }
        for (int32_t set : all_sets()) {
            kipx_set_simd(set);
            for (int kind : {0, 1, 2}) {
                entries[kind].typed(nullptr, 0, 3, extent, KIPX_F32, d.data(), s, KIPX_F32,
                                    a.data(), s, KIPX_F32, b.data(), s, KIPX_F32, c.data(), s, 0,
                                    0);
                for (uint32_t i = 0; i < n; i++)
                    ASSERT_EQ(d[i],
                              std::fma(kind == 2 ? -a[i] : a[i], b[i], kind == 1 ? -c[i] : c[i]))
                        << entries[kind].name << ' ' << a[i] << ' ' << b[i] << ' ' << c[i];
            }
        }
    }
}

TEST(MulAdd, IsFoundByItsCodeAndRefuses) {
    unsigned char x[3] = {1, 2, 90}, y[3] = {}, z[3] = {};
    kipx_arr a{{1, 1, 3, 1}, {}, {0, 3, 1, 1}, 3, 0, KIPX_U8, 0, 0, x}, d = a, other = a;
    d.base = y;
    const double factor[1] = {3}, add[1] = {-4};
    for (const Entry &e : entries) {
        ASSERT_EQ(e.whole(nullptr, 0, &d, &a, &a, &a, nullptr, nullptr, nullptr, nullptr, 0, 0), 0);
        std::memcpy(z, y, 3);
        ASSERT_EQ(kipx_muladd(e.code, nullptr, 0, &d, &a, &a, &a, nullptr, nullptr, nullptr,
                              nullptr, 0, 0),
                  0);
        EXPECT_EQ(std::memcmp(y, z, 3), 0);
        ASSERT_EQ(e.whole_cc(nullptr, 0, &d, &a, factor, add, nullptr, nullptr, 0, 0), 0);
        std::memcpy(z, y, 3);
        ASSERT_EQ(kipx_muladdCC(e.code, nullptr, 0, &d, &a, factor, add, nullptr, nullptr, 0, 0),
                  0);
        EXPECT_EQ(std::memcmp(y, z, 3), 0);
        ASSERT_EQ(
            kipx_muladdC(e.code, nullptr, 0, &d, &a, &a, factor, nullptr, nullptr, nullptr, 0, 0),
            0);
    }
    const auto none = [&](uint32_t code) {
        return kipx_muladd(code, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr, nullptr, 0, 0);
    };
    EXPECT_EQ(none(0x6d6c6121), KIPX_EINVAL);
    EXPECT_EQ(KipxMulAddCC(nullptr, 0, &d, &a, factor, nullptr, nullptr, nullptr, 0, 0),
              KIPX_EINVAL);
    other.type = KIPX_U16;
    EXPECT_EQ(KipxMulAddCC(nullptr, 0, &d, &other, factor, add, nullptr, nullptr, 0, 0),
              KIPX_ENOTSUP);
    EXPECT_EQ(KipxMulAdd(nullptr, 0, &d, &a, &a, &other, nullptr, nullptr, nullptr, nullptr, 0, 0),
              KIPX_ENOTSUP);
}

} // namespace
