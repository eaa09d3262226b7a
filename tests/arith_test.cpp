// Element-wise arithmetic and logic against exact numbers: every public function, array level, typed
// level and kernel, on every instruction set.
#include <kipx/arith.h>
#include <kipx/array.h>
#include <kipx/logic.h>
#include <kipx/unary.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include <gtest/gtest.h>

#include "support/arith_model.h"
#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

constexpr uint32_t valid_codes[] = {1, 2, 3, 4, 9, 10, 11, 12, 13, 14, 15};

std::vector<Types> types_with_kernels(const FunctionInfo &f, bool one_source) {
    std::vector<Types> found;
    for (uint32_t d : valid_codes)
        for (uint32_t a : valid_codes)
            for (uint32_t b : valid_codes)
                if ((!one_source || a == b) && route_of(f, {d, a, b}).status == 0)
                    found.push_back({d, a, b, 0});
    return found;
}

// ---- operations from the lists -----------------------------------------------------------------

using Two = Levels2<int32_t, int32_t>;
using Constant = LevelsC<int32_t, int32_t>;
struct Entries {
    Two two;
    Constant constant;
};
#define KIPX_ENTRIES(op, Name)                                                                     \
    {{Kipx##Name, kipxa_##op, kipxa__##op}, {Kipx##Name##C, kipxa_##op##C, kipxa__##op##C}},
#define KIPX_OP_ENTRIES(op, Name, triples, code, mirror) KIPX_ENTRIES(op, Name)
#define KIPX_SIGNED_ENTRIES(op, Name, base, code) KIPX_ENTRIES(op, Name)
// In the order of all_functions().
const Entries all_entries[] = {KIPX_BINARY_OPS(KIPX_OP_ENTRIES)
                                   KIPX_BINARY_SIGNED_OPS(KIPX_SIGNED_ENTRIES)};

Operation two_arrays(size_t i) {
    const FunctionInfo &f = all_functions()[i];
    Operation o{.name = f.name, .sources = 2};
    o.types = types_with_kernels(f, false);
    o.scales.assign(std::begin(all_scales), std::end(all_scales));
    o.call = [i](Level level, const Arguments &a, const FlatArguments &flat) {
        return all_entries[i].two(level, a, flat, a.scale, 77);
    };
    o.model = [&f](const Arguments &a, uint32_t, const uint64_t *bits) {
        const Route route = route_of(f, {a.types[0], a.types[1], a.types[2]});
        return model_element(route, a.scale, bits[0], bits[1], a.src[0] == a.src[1]);
    };
    o.prepare = [&f](Arguments &a) { avoid_zero_divisors(f.op, *a.src[0], *a.src[1]); };
    return o;
}

// The narrowest type that holds all values: the source's own, s16, s32; else f32.
uint32_t constant_type(const Arguments &a) {
    for (uint32_t type : {a.types[1], uint32_t{KIPX_S16}, uint32_t{KIPX_S32}}) {
        if (is_real(a.types[1])) break;
        bool all = true;
        for (double v : a.values)
            all &= v == std::floor(v) && v >= static_cast<double>(lowest(type)) &&
                   v <= static_cast<double>(highest(type));
        if (all) return type;
    }
    return KIPX_F32;
}

uint64_t constant_bits(uint32_t type, double value) {
    uint64_t bits = 0;
    store_real(type, &bits, value);
    return bits;
}

Operation with_constant(size_t i) {
    const FunctionInfo &f = all_functions()[i];
    Operation o{.name = std::string(f.name) + "C", .sources = 1, .has_values = true};
    o.types = types_with_kernels(f, true);
    o.scales.assign(std::begin(all_scales), std::end(all_scales));
    o.call = [i](Level level, const Arguments &a, const FlatArguments &flat) {
        return all_entries[i].constant(level, a, flat, a.scale, 77);
    };
    const auto route = [&f](const Arguments &a) {
        return route_of(f, {a.types[0], a.types[1], constant_type(a)});
    };
    o.model = [=](const Arguments &a, uint32_t channel, const uint64_t *bits) {
        const uint64_t b = constant_bits(constant_type(a), a.values[channel]);
        return model_element(route(a), a.scale, bits[0], b);
    };
    // Values whose type has no kernel here, and divisors of 0, give way.
    o.prepare = [=, &f](Arguments &a) {
        if (route(a).status)
            for (double &v : a.values) v = 3 + std::fabs(std::fmod(std::floor(v), 100));
        for (double &v : a.values)
            if (faults(f.op, KIPX_S32, 1, static_cast<uint64_t>(v))) v = 5;
        avoid_zero_divisors(f.op, *a.src[0], *a.dst);
    };
    return o;
}

struct LogicEntry {
    const char *name;
    Levels2<> two;
    LevelsC<> constant;
    uint64_t (*of)(uint64_t, uint64_t);
};
const LogicEntry logic_entries[] = {
    {"and",
     {KipxAnd, kipxa_and, kipxa__and},
     {KipxAndC, kipxa_andC, kipxa__andC},
     [](uint64_t a, uint64_t b) { return a & b; }},
    {"orr",
     {KipxOrr, kipxa_orr, kipxa__orr},
     {KipxOrrC, kipxa_orrC, kipxa__orrC},
     [](uint64_t a, uint64_t b) { return a | b; }},
    {"xor",
     {KipxXor, kipxa_xor, kipxa__xor},
     {KipxXorC, kipxa_xorC, kipxa__xorC},
     [](uint64_t a, uint64_t b) { return a ^ b; }},
};

Operation logic(size_t i, bool constant) {
    const LogicEntry &e = logic_entries[i];
    Operation o{.name = std::string(e.name) + (constant ? "C" : ""), .sources = constant ? 1u : 2u};
    for (Types t : {Types{1, 1, 1},
                    {1, 9, 1},
                    {9, 1, 9},
                    {2, 10, 2},
                    {10, 2, 10},
                    {3, 11, 11},
                    {11, 3, 11},
                    {4, 4, 12},
                    {12, 12, 12}})
        o.types.push_back(t);
    o.call = [&e, constant](Level level, const Arguments &a, const FlatArguments &flat) {
        return constant ? e.constant(level, a, flat) : e.two(level, a, flat);
    };
    o.model = [&e, constant](const Arguments &a, uint32_t channel, const uint64_t *bits) {
        uint64_t b = bits[1];
        if (constant) {
            const double v = std::nearbyint(a.values[channel]);
            const double low = is_signed(a.types[1]) ? static_cast<double>(lowest(a.types[1])) : 0;
            const double high = static_cast<double>(highest(a.types[1]));
            b = 0;
            store_integer(a.types[1], &b, static_cast<int64_t>(std::min(std::max(v, low), high)));
        }
        return e.of(bits[0], b);
    };
    // Beyond 2^53 neighbours of the ends are not numbers of binary64: nothing to saturate there.
    o.prepare = [](Arguments &a) {
        for (double &v : a.values) v = std::fmod(v, 1e6);
    };
    return o;
}

Operation complement() {
    Operation o{.name = "not", .sources = 1};
    for (uint32_t t : {1u, 2u, 3u, 4u, 9u, 10u, 11u, 12u}) o.types.push_back({t, t, 0, 0});
    o.call = [](Level level, const Arguments &a, const FlatArguments &f) {
        return Levels1<>{KipxNot, kipxa_not, kipxa__not}(level, a, f);
    };
    o.model = [](const Arguments &a, uint32_t, const uint64_t *bits) {
        return ~bits[0] & UINT64_MAX >> (64 - 8 * element_size(a.types[0]));
    };
    return o;
}

// The reversed difference with a zero, of which -0 turns the sign of zeros as well. Real numbers saturate
// either way.
Operation negation(bool saturating) {
    const auto &f = all_functions();
    const auto with_zero = [&](const char *name) {
        size_t i = 0;
        while (std::string(f[i].name) != name) i++;
        return with_constant(i);
    };
    const auto real = [](const Types &t) { return is_real(t[0]) || is_real(t[1]); };
    Operation o = with_zero("rsub");
    o.name = saturating ? "negateq" : "negate", o.has_values = false;
    o.call = [=](Level level, const Arguments &a, const FlatArguments &flat) {
        const Levels1<int32_t, int32_t> levels[] = {{KipxNegate, kipxa_negate, kipxa__negate},
                                                    {KipxNegateq, kipxa_negateq, kipxa__negateq}};
        return levels[saturating](level, a, flat, a.scale, 77);
    };
    o.prepare = [](Arguments &a) { a.values.assign(a.values.size(), -0.0); };
    if (!saturating) return o;
    const Operation q = with_zero("rsubq");
    o.model = [=, wraps = o.model](const Arguments &a, uint32_t channel, const uint64_t *bits) {
        return (real(a.types) ? wraps : q.model)(a, channel, bits);
    };
    o.types.erase(std::remove_if(o.types.begin(), o.types.end(), std::not_fn(real)), o.types.end());
    std::copy_if(q.types.begin(), q.types.end(), std::back_inserter(o.types), std::not_fn(real));
    return o;
}

std::vector<Operation> all_operations() {
    std::vector<Operation> all;
    for (size_t i = 0; i < all_functions().size(); i++) {
        all.push_back(two_arrays(i));
        all.push_back(with_constant(i));
    }
    for (size_t i = 0; i < std::size(logic_entries); i++)
        for (bool constant : {false, true}) all.push_back(logic(i, constant));
    all.push_back(complement());
    for (bool saturating : {false, true}) all.push_back(negation(saturating));
    return all;
}

class Every : public testing::TestWithParam<Operation> {};
TEST_P(Every, ConformsToItsModel) {
    EXPECT_GE(GetParam().types.size(), 3u);
    const int calls = GetParam().types.size() > 100 ? 6 : 25;
    EXPECT_EQ(conform(GetParam(), 11, calls), "");
}
INSTANTIATE_TEST_SUITE_P(Operation, Every, testing::ValuesIn(all_operations()),
                         [](const auto &p) { return p.param.name; });

// ---- kernels -----------------------------------------------------------------------------------

TEST(Kernels, StandInTheirTablesAndGiveTheModelsBits) {
    Rng rng(7);
    for (const OpInfo &op : all_ops())
        for (const NamedKernel &k : op.kernels) {
            int32_t status = -1;
            ASSERT_EQ(op.table(k.types.dst, k.types.src1, k.types.src2, &status), k.kernel)
                << k.name;
            ASSERT_EQ(status, 0);
            Shape s;
            s.width = 67, s.height = 2, s.layout = Layout::odd_pixels;
            s.type = k.types.dst;
            GuardedArray dst(s);
            s.type = k.types.src1;
            GuardedArray a(s);
            s.type = k.types.src2;
            GuardedArray b(s);
            a.fill(rng, Values::any), b.fill(rng, Values::any);
            avoid_zero_divisors(op.op, a, b);
            const int32_t scale = rng.pick(all_scales);
            const uint32_t extent[3] = {2, 67, 1};
            SimdSwitch form(rng.pick(all_sets()));
            ASSERT_EQ(k.kernel(nullptr, 0, 3, extent, kipx_arr_base(dst.arr()),
                               dst.arr()->strides + 1, kipx_arr_base(a.arr()), a.arr()->strides + 1,
                               kipx_arr_base(b.arr()), b.arr()->strides + 1, scale, 77),
                      0);
            const Route route{0, op.op, false, k.types, k.types.dst};
            ASSERT_EQ(wrong_element(dst, route, scale, Elements(a), Elements(b)), "") << k.name;
            ASSERT_EQ(dst.damage(), "");
            // No rows, no pixels: nothing is touched.
            const uint32_t none[2][3] = {{0, 67, 1}, {2, 0, 1}};
            const GuardedBytes edge(1);
            void *past = edge.data() + 1; // faults when touched
            for (const uint32_t *empty : none)
                EXPECT_EQ(
                    k.kernel(nullptr, 0, 3, empty, past, extent, past, extent, past, extent, 0, 0),
                    0);
        }
}

// Enough elements for the destination to be written past the cache, and for a narrowed row to go
// through its buffer more than once; a constant as well.
TEST(Large, ArraysGiveTheSameBits) {
    struct {
        size_t function;
        Triple t;
        uint32_t width, shift;
    } const cases[] = {{0, {1, 1, 1}, 6 << 20, 3},    {6, {1, 1, 1}, 6 << 20, 0},
                       {3, {10, 10, 10}, 3 << 20, 2}, {0, {13, 13, 13}, 3 << 19, 4},
                       {0, {13, 13, 13}, 3 << 19, 1}, {0, {11, 1, 1}, 3 << 20, 8},
                       {0, {1, 11, 10}, 1 << 18, 0}};
    Environment xe;
    Rng rng(9);
    for (const auto &c : cases) {
        const FunctionInfo &f = all_functions()[c.function];
        const Route route = route_of(f, c.t);
        const size_t size[] = {element_size(c.t.dst), element_size(c.t.src1),
                               element_size(c.t.src2)};
        const size_t n = c.width + 37;
        const GuardedBytes dst(n * size[0], Edge::last, c.shift), a(n * size[1]), b(n * size[2]);
        for (size_t i = 0; i < n * size[1]; i++)
            a.data()[i] = static_cast<unsigned char>(i * 37 >> 3);
        for (size_t i = 0; i < n * size[2]; i++)
            b.data()[i] = static_cast<unsigned char>(i * 91 >> 5);
        const uint32_t extent[3] = {1, static_cast<uint32_t>(n), 1};
        const auto strides = [&](size_t i) {
            const auto s = static_cast<uint32_t>(size[i]);
            return std::array<uint32_t, 3>{0, s, s};
        };
        const auto to = strides(0), x = strides(1), y = strides(2);
        const double values[1] = {3};
        for (int32_t set : all_sets())
            for (int32_t scale : {0, -1, -3, 2})
                for (bool constant : {false, true}) {
                    SimdSwitch form(set);
                    if (constant)
                        all_entries[c.function].constant.typed(
                            xe, 0, 3, extent, c.t.dst, dst.data(), to.data(), c.t.src1, a.data(),
                            x.data(), values, scale, 0);
                    else
                        all_entries[c.function].two.typed(xe, 0, 3, extent, c.t.dst, dst.data(),
                                                          to.data(), c.t.src1, a.data(), x.data(),
                                                          c.t.src2, b.data(), y.data(), scale, 0);
                    Arguments args;
                    args.types = {c.t.dst, c.t.src1}, args.values = {3};
                    const uint32_t type = constant ? constant_type(args) : c.t.src2;
                    const Route way = constant ? route_of(f, {c.t.dst, c.t.src1, type}) : route;
                    for (size_t k = 0; k < 2000; k++) {
                        // Both ends densely, the middle here and there.
                        const size_t i = k < 400 ? k : k < 800 ? n - 1 - (k - 400) : rng.below(n);
                        const uint64_t p = load_bits(c.t.src1, a.data() + i * size[1]);
                        const uint64_t q = constant ? constant_bits(type, 3)
                                                    : load_bits(c.t.src2, b.data() + i * size[2]);
                        ASSERT_EQ(load_bits(c.t.dst, dst.data() + i * size[0]),
                                  model_element(way, scale, p, q))
                            << f.name << " element " << i << " scale " << scale << " set " << set;
                    }
                    ASSERT_TRUE(dst.canaries_intact());
                }
    }
}

// ---- the test's own eyes -----------------------------------------------------------------------

TEST(Conformance, NoticesWhatIsPlanted) {
    const auto planted = [](auto &&harm) {
        Operation o = two_arrays(0);
        o.types = {{1, 1, 1, 0}};
        o.call = [inner = o.call, harm](Level level, const Arguments &a, const FlatArguments &f) {
            const int32_t code = inner(level, a, f);
            if (!a.flags) harm(a, f);
            return code;
        };
        return conform(o, 5, 40);
    };
    using A = const Arguments &;
    using F = const FlatArguments &;
    const auto touch = [](void *at) { *static_cast<unsigned char *>(at) ^= 1; };
    EXPECT_EQ(planted([](A, F) {}), "");
    EXPECT_NE(planted([=](A, F f) { touch(f.dst.start); }), "");
    EXPECT_NE(planted([=](A a, F) { touch(a.dst->address({0, 0}) - 1); }), "");
    EXPECT_NE(planted([=](A a, F f) {
                  if (a.src[1] != a.dst) touch(f.src[1].start);
              }),
              "");
    EXPECT_NE(planted([=](A a, F f) {
                  if (kipx_simd_set(0) == all_sets().back() && a.scale == 0) touch(f.dst.start);
              }),
              "");
}

} // namespace
