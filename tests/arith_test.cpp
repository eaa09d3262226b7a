// Element-wise arithmetic against exact numbers: every kernel and every public function, in every
// layout, in the plain and in the vector form.
#include <kipx/arith.h>
#include <kipx/array.h>

#include <gtest/gtest.h>

#include "support/arith_model.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

Shape random_shape(Rng &rng, uint32_t type, uint32_t channels) {
    Shape s;
    s.type = type;
    s.channels = channels;
    s.layout = rng.pick(all_layouts);
    s.edge = rng.one_in(2) ? Edge::last : Edge::first;
    s.shift = rng.below(3) == 0 ? rng.below(64) : 0;
    s.offset = static_cast<uint32_t>(rng.below(3)) * 8;
    return s;
}

// Which operand the destination is, beside being itself.
enum class Place { apart, on_src1, on_src2, on_both };

// One call on arrays of random layouts, made in both forms from the same bytes.
struct Trial {
    Rng &rng;
    const Route route;
    int32_t scale;
    Place place;
    Shape shapes[3]; // dst, src1, src2
    std::vector<GuardedArray> arrays;

    Trial(Rng &random, const Route &r, ModelOp op, Triple types, int32_t s, Place p,
          uint32_t channels)
        : rng(random), route(r), scale(s), place(p) {
        const uint32_t width = rng.pick(all_widths),
                       height = 1 + static_cast<uint32_t>(rng.below(3));
        const uint32_t codes[] = {types.dst, types.src1, types.src2};
        for (int i = 0; i < 3; i++) {
            shapes[i] = random_shape(rng, codes[i], channels);
            shapes[i].width = width ? width : 1, shapes[i].height = height;
            arrays.emplace_back(shapes[i]);
            arrays[static_cast<size_t>(i)].fill(rng, Values::any);
        }
        avoid_zero_divisors(op, src1(), src2());
    }
    GuardedArray &dst() { return place == Place::apart ? arrays[0] : operand(); }
    GuardedArray &src1() { return place == Place::on_src2 ? arrays[1] : operand(); }
    GuardedArray &src2() { return place == Place::on_both ? operand() : arrays[2]; }
    GuardedArray &operand() { return place == Place::on_src2 ? arrays[2] : arrays[1]; }

    // Empty when both forms gave the model's elements and touched nothing else.
    template<class Call> std::string run(Call &&call) {
        const Elements a(src1()), b(src2());
        const Snapshot before = dst().snapshot();
        Snapshot after[2];
        for (int vector : {0, 1}) {
            SimdSwitch form(vector != 0);
            dst().restore(before);
            if (int32_t code = call(*this)) return text("returned " + std::to_string(code));
            after[vector] = dst().snapshot();
            const std::string wrong =
                wrong_element(dst(), route, scale, a, b, place == Place::on_both);
            if (!wrong.empty()) return text((vector ? "vector: " : "plain: ") + wrong);
            for (GuardedArray *array : {&dst(), &src1(), &src2()})
                if (!array->canaries_intact()) return text(array->damage());
        }
        if (after[0] != after[1]) return text("the two forms differ");
        if (&dst() != &src1() && Elements(src1()).bits != a.bits) return text("src1 has changed");
        if (&dst() != &src2() && Elements(src2()).bits != b.bits) return text("src2 has changed");
        return {};
    }
    std::string text(const std::string &what) {
        std::string all = what;
        for (const Shape &s : shapes) all += "\n    " + describe(s);
        return all;
    }
};

bool possible(Place place, Triple t) {
    switch (place) {
    case Place::on_src1:
        return t.dst == t.src1;
    case Place::on_src2:
        return t.dst == t.src2;
    case Place::on_both:
        return t.dst == t.src1 && t.src1 == t.src2;
    default:
        return true;
    }
}
constexpr Place all_places[] = {Place::apart, Place::on_src1, Place::on_src2, Place::on_both};

// ---- kernels -----------------------------------------------------------------------------------

class EveryKernel : public testing::TestWithParam<ModelOp> {};

TEST_P(EveryKernel, GivesTheModelsBitsInBothForms) {
    const OpInfo &op = info(GetParam());
    Rng rng(static_cast<uint64_t>(op.op) + 1);
    for (const NamedKernel &k : op.kernels) {
        int32_t status = -1;
        ASSERT_EQ(op.table(k.types.dst, k.types.src1, k.types.src2, &status), k.kernel) << k.name;
        ASSERT_EQ(status, 0);
        const Route route{0, op.op, false, k.types, k.types.dst};
        for (int32_t scale : all_scales) {
            for (Place place : all_places) {
                if (!possible(place, k.types)) continue;
                Trial trial(rng, route, op.op, k.types, scale, place, 1);
                const uint32_t extent[3] = {trial.shapes[0].height, trial.shapes[0].width, 1};
                ASSERT_EQ(trial.run([&](Trial &t) {
                    const kipx_arr &d = *t.dst().arr(), &a = *t.src1().arr(), &b = *t.src2().arr();
                    return k.kernel(nullptr, 0, 3, extent, kipx_arr_base(&d), d.strides + 1,
                                    kipx_arr_base(&a), a.strides + 1, kipx_arr_base(&b),
                                    b.strides + 1, scale, 77);
                }),
                          "")
                    << k.name;
            }
        }
    }
}

std::string op_name(const testing::TestParamInfo<ModelOp> &p) { return info(p.param).name; }
#define KIPX_OP_VALUE(op, Name, triples, code, mirror) ModelOp::op,
INSTANTIATE_TEST_SUITE_P(Op, EveryKernel, testing::ValuesIn({KIPX_BINARY_OPS(KIPX_OP_VALUE)}),
                         op_name);

TEST(Kernels, NoRowsAndNoPixelsTouchNothing) {
    const uint32_t strides[3] = {64, 1, 1};
    for (const OpInfo &op : all_ops()) {
        for (const NamedKernel &k : op.kernels) {
            for (uint32_t empty : {0u, 1u}) {
                uint32_t extent[3] = {3, 5, 1};
                extent[empty] = 0;
                const GuardedBytes none(1);
                unsigned char *past = none.data() + 1; // faults when touched
                EXPECT_EQ(k.kernel(nullptr, 0, 3, extent, past, strides, past, strides, past,
                                   strides, 0, 0),
                          0);
            }
        }
    }
}

// Enough elements for the destination to be written past the cache.
TEST(Kernels, LargeArraysGiveTheSameBits) {
    struct {
        ModelOp op;
        Triple t;
        uint32_t width, shift;
    } const cases[] = {
        {ModelOp::add, {1, 1, 1}, 6 << 20, 3},     {ModelOp::mul, {1, 1, 1}, 6 << 20, 0},
        {ModelOp::subq, {10, 10, 10}, 3 << 20, 2}, {ModelOp::add, {13, 13, 13}, 3 << 19, 4},
        {ModelOp::add, {13, 13, 13}, 3 << 19, 1},  {ModelOp::add, {11, 1, 1}, 3 << 20, 8}};
    Rng rng(9);
    for (const auto &c : cases) {
        const size_t size[] = {element_size(c.t.dst), element_size(c.t.src1)};
        const size_t n = c.width + 37;
        const GuardedBytes dst(n * size[0], Edge::last, c.shift), a(n * size[1]), b(n * size[1]);
        for (size_t i = 0; i < n * size[1]; i++)
            a.data()[i] = static_cast<unsigned char>(i * 37 >> 3),
            b.data()[i] = static_cast<unsigned char>(i * 91 >> 5);
        const uint32_t extent[3] = {1, static_cast<uint32_t>(n), 1};
        const auto step = [&](int i) { return static_cast<uint32_t>(size[i]); };
        const uint32_t to[3] = {0, step(0), step(0)}, from[3] = {0, step(1), step(1)};
        for (int32_t scale : {0, -1, -3, 2}) {
            SimdSwitch on(true);
            int32_t status;
            info(c.op).table(c.t.dst, c.t.src1, c.t.src2, &status)(
                nullptr, 0, 3, extent, dst.data(), to, a.data(), from, b.data(), from, scale, 0);
            for (size_t k = 0; k < 4000; k++) {
                // Both ends densely, the middle here and there.
                const size_t i = k < 400 ? k : k < 800 ? n - 1 - (k - 400) : rng.below(n);
                const uint64_t x = load_bits(c.t.src1, a.data() + i * size[1]);
                const uint64_t y = load_bits(c.t.src2, b.data() + i * size[1]);
                ASSERT_EQ(load_bits(c.t.dst, dst.data() + i * size[0]),
                          model_element(c.op, c.t, scale, x, y))
                    << info(c.op).name << " element " << i << " scale " << scale;
            }
            ASSERT_TRUE(dst.canaries_intact());
        }
    }
}

// ---- the test's own eyes -----------------------------------------------------------------------

TEST(TheComparison, NoticesOneWrongBit) {
    Rng rng(4);
    const FunctionInfo &add = all_functions()[0];
    for (uint32_t type : {1u, 10u, 11u, 13u}) {
        const Triple t{type, type, type};
        Trial trial(rng, route_of(add, t), ModelOp::add, t, 0, Place::apart, 2);
        const auto call = [&](unsigned wrong_bit) {
            return trial.run([&](Trial &x) {
                const int32_t code = KipxAdd(nullptr, 0, x.dst().arr(), x.src1().arr(),
                                             x.src2().arr(), nullptr, nullptr, nullptr, 0, 0);
                if (wrong_bit < 64) {
                    const Shape &s = x.shapes[0];
                    unsigned char *element = x.dst().address({s.height - 1, s.width - 1, 1});
                    element[wrong_bit / 8] ^= static_cast<unsigned char>(1 << wrong_bit % 8);
                }
                return code;
            });
        };
        EXPECT_EQ(call(64), "");
        for (unsigned bit = 0; bit < 8 * element_size(type); bit++) EXPECT_NE(call(bit), "");
    }
}

// ---- public functions --------------------------------------------------------------------------

constexpr uint32_t valid_codes[] = {1, 2, 3, 4, 9, 10, 11, 12, 13, 14, 15};

// Arrays of any code: elements of codes without a size are bytes that nobody may read.
Trial public_trial(Rng &rng, const FunctionInfo &f, Triple t, int32_t scale, Place place) {
    return Trial(rng, route_of(f, t), f.op, t, scale, place,
                 1 + static_cast<uint32_t>(rng.below(4)));
}

int32_t call(const FunctionInfo &f, Trial &t, KipxXE *xe, uint64_t flags = 0) {
    const kipx_arr *first = t.place == Place::on_src1 && t.rng.one_in(2) ? nullptr : t.src1().arr();
    return f.function(xe, flags, t.dst().arr(), first, t.src2().arr(), nullptr, nullptr, nullptr,
                      t.scale, 0);
}

class EveryFunction : public testing::TestWithParam<size_t> {};

TEST_P(EveryFunction, TakesEveryTripleOfTypesOrRefusesIt) {
    const FunctionInfo &f = all_functions()[GetParam()];
    Rng rng(GetParam() + 100);
    Environment xe;
    int done = 0;
    for (uint32_t d : valid_codes)
        for (uint32_t a : valid_codes)
            for (uint32_t b : valid_codes) {
                const Triple t{d, a, b};
                const Route route = route_of(f, t);
                if (route.status) {
                    kipx_arr none[3] = {};
                    unsigned char bytes[3][8] = {};
                    const uint32_t codes[] = {d, a, b};
                    for (int i = 0; i < 3; i++) {
                        for (uint32_t &v : none[i].volume) v = 1;
                        none[i].naxes = 3, none[i].type = codes[i], none[i].base = bytes[i];
                    }
                    ASSERT_EQ(f.function(xe, 0, none, none + 1, none + 2, nullptr, nullptr, nullptr,
                                         0, 0),
                              KIPX_ENOTSUP)
                        << f.name << " " << d << " " << a << " " << b;
                    continue;
                }
                done++;
                for (int32_t scale : all_scales)
                    for (Place place : all_places) {
                        if (!possible(place, t) || (place != Place::apart && scale % 2)) continue;
                        Trial trial = public_trial(rng, f, t, scale, place);
                        ASSERT_EQ(trial.run([&](Trial &x) { return call(f, x, xe); }), "")
                            << f.name << " " << type_name(d) << type_name(a) << type_name(b);
                    }
            }
    EXPECT_GE(done, 3);
}

std::string function_name(const testing::TestParamInfo<size_t> &p) {
    return all_functions()[p.param].name;
}
INSTANTIATE_TEST_SUITE_P(Op, EveryFunction, testing::Range(size_t{0}, all_functions().size()),
                         function_name);

// Rows so wide, and images so high, that the buffer of narrowed work is used more than once.
TEST(Narrowing, GoesThroughManyBlocks) {
    Rng rng(12);
    Environment xe;
    const FunctionInfo &add = all_functions()[0];
    for (uint32_t width : {1u, 700u, 5000u})
        for (uint32_t channels : {1u, 3u}) {
            Shape s;
            s.width = width, s.height = width < 700 ? 5000 : 23, s.channels = channels;
            s.layout = channels == 1 ? Layout::odd_rows : Layout::padded_pixels;
            const Triple t{KIPX_U8, KIPX_S32, KIPX_S16};
            s.type = t.dst;
            GuardedArray dst(s);
            s.type = t.src1;
            GuardedArray a(s);
            s.type = t.src2;
            GuardedArray b(s);
            a.fill(rng, Values::small), b.fill(rng);
            ASSERT_EQ(KipxAdd(xe, 0, dst.arr(), a.arr(), b.arr(), nullptr, nullptr, nullptr, -3, 0),
                      0);
            EXPECT_EQ(wrong_element(dst, route_of(add, t), -3, Elements(a), Elements(b)), "");
            EXPECT_TRUE(dst.canaries_intact());
        }
}

} // namespace
