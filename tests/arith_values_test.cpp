// Arithmetic value by value: all pairs of bytes, all divisors, divisions by zero, figures that
// anybody can check, and the reference loops.
#include <kipx/arith.h>

#include <algorithm>
#include <csignal>

#include <gtest/gtest.h>

#include "support/arith_model.h"
#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

// ---- exhaustive: bytes, and quotients of 16 bits -----------------------------------------------

constexpr size_t pairs = 65536;

// a runs through all bytes for every b, in rows of a prime length: no lane sees one value only.
void check_all_bytes(const OpInfo &op, const NamedKernel &k, int32_t scale, uint32_t row) {
    std::vector<uint8_t> a(pairs), b(pairs), out(pairs);
    for (size_t i = 0; i < pairs; i++)
        a[i] = static_cast<uint8_t>(i), b[i] = static_cast<uint8_t>(i >> 8);
    if (op.op == ModelOp::div)
        for (uint8_t &y : b) y = y ? y : 1;
    if (op.op == ModelOp::rdiv)
        for (uint8_t &x : a) x = x ? x : 1;
    const uint32_t strides[3] = {row, 1, 1};
    for (int32_t set : all_sets()) {
        SimdSwitch form(set);
        std::fill(out.begin(), out.end(), uint8_t{0xcc});
        const uint32_t rows = static_cast<uint32_t>(pairs) / row, rest = pairs % row;
        const uint32_t most[3] = {rows, row, 1}, last[3] = {1, rest, 1};
        const size_t at = size_t{rows} * row;
        k.kernel(nullptr, 0, 3, most, out.data(), strides, a.data(), strides, b.data(), strides,
                 scale, 0);
        k.kernel(nullptr, 0, 3, last, out.data() + at, strides, a.data() + at, strides,
                 b.data() + at, strides, scale, 0);
        for (size_t i = 0; i < pairs; i++)
            ASSERT_EQ(out[i], model_element(op.op, k.types, scale, a[i], b[i]))
                << k.name << " of " << +a[i] << ", " << +b[i] << " scale " << scale << " set "
                << set;
    }
}

TEST(Exhaustive, EveryPairOfBytesAtEveryTellingScale) {
    const int32_t scales[] = {0,   1,   2,   3,   7,   8,   31,  32,  33,  63, 64,
                              65,  -1,  -2,  -3,  -4,  -5,  -6,  -7,  -8,  -9, -10,
                              -11, -16, -17, -18, -31, -32, -33, -63, -64, -65};
    for (const OpInfo &op : all_ops())
        for (const NamedKernel &k : op.kernels) {
            if (element_size(k.types.dst) != 1 || k.types.src1 != 1) continue;
            for (int32_t scale : scales)
                ASSERT_NO_FATAL_FAILURE(check_all_bytes(op, k, scale, 4093));
        }
}

void check_divisor(ModelOp op, const std::vector<int16_t> &values, int16_t divisor, int32_t scale) {
    const size_t n = values.size();
    std::vector<int16_t> out(n);
    const Triple t{10, 10, 10};
    const uint32_t extent[3] = {1, static_cast<uint32_t>(n), 1};
    const uint32_t dense[3] = {0, 2, 2}, constant[3] = {0, 0, 2};
    info(op).table(10, 10, 10, nullptr)(nullptr, 0, 3, extent, out.data(), dense, values.data(),
                                        dense, &divisor, constant, scale, 0);
    for (size_t i = 0; i < n; i++) {
        const auto is = static_cast<uint16_t>(out[i]);
        const auto must = model_element(op, t, scale, static_cast<uint16_t>(values[i]),
                                        static_cast<uint16_t>(divisor));
        ASSERT_EQ(is, must) << info(op).name << " " << values[i] << " by " << divisor << " scale "
                            << scale;
    }
}

// Every divisor; the dividends around the multiples of it, where quotients change, and the ends.
TEST(Exhaustive, EveryDivisorOf16Bits) {
    Rng rng(3);
    std::vector<int16_t> values;
    for (int32_t d = -32768; d < 32768; d++) {
        values.clear();
        for (int32_t m : {1, 2, 3, 5, 127, 128, 255, 181})
            for (int32_t near : {-1, 0, 1})
                for (int32_t sign : {-1, 1})
                    values.push_back(static_cast<int16_t>(sign * (m * d + near)));
        for (int32_t v : {-32768, -32767, -1, 0, 1, 32766, 32767})
            values.push_back(static_cast<int16_t>(v));
        for (int i = 0; i < 8; i++) values.push_back(static_cast<int16_t>(rng.next()));
        SimdSwitch form(all_sets()[static_cast<size_t>(d & 0xffff) % all_sets().size()]);
        const int32_t scale = d % 3 == 0 ? -1 : d % 7 == 0 ? 3 : 0;
        for (ModelOp op : {ModelOp::div, ModelOp::divr}) {
            if (d == 0 && op == ModelOp::div) continue;
            ASSERT_NO_FATAL_FAILURE(check_divisor(op, values, static_cast<int16_t>(d), scale));
        }
    }
}

// ---- figures that everybody can check ----------------------------------------------------------

TEST(Figures, OfBytes) {
    struct {
        PublicFunction function;
        int a, b, scale, result;
    } const cases[] = {
        {KipxAdd, 200, 100, 0, 44},   {KipxAddq, 200, 100, 0, 255},  {KipxAddsq, 100, 100, 0, 127},
        {KipxMul, 20, 20, 0, 255},    {KipxMul, 10, 10, 1, 200},     {KipxMul, 12, 12, 1, 255},
        {KipxSub, 7, 2, -1, 2},       {KipxSub, 2, 7, -1, 0},        {KipxDivr, 7, 2, -1, 2},
        {KipxDivr, 5, 0, -1, 0},      {KipxDiv, 7, 2, -1, 2},        {KipxAdd, 200, 200, 0, 144},
        {KipxAdd, 200, 100, 64, 255}, {KipxAdd, 200, 100, -32, 255}, {KipxRSub, 7, 2, 0, 251},
        {KipxRSubq, 7, 2, 0, 0},      {KipxSubsq, 0, 200, 0, 128},   {KipxRDiv, 2, 7, 0, 3},
        {KipxRDivr, 2, 7, 0, 4},      {KipxDivr, 255, 0, 0, 0},      {KipxDivr, 0, 0, 0, 0},
        {KipxAdd, 1, 1, 63, 0},       {KipxAdd, 1, 0, 62, 255},      {KipxAdd, 1, 0, 63, 0}};
    for (const auto &c : cases) {
        Shape s;
        GuardedArray dst(s), a(s), b(s);
        a.set_integer({}, c.a), b.set_integer({}, c.b);
        EXPECT_EQ(c.function(nullptr, 0, dst.arr(), a.arr(), b.arr(), nullptr, nullptr, nullptr,
                             c.scale, 0),
                  0);
        EXPECT_EQ(dst.integer({}), c.result) << c.a << ", " << c.b << " scale " << c.scale;
    }
}

// The sum of an array and itself is twice the array; an equal copy's wraps.
TEST(Figures, OfAnArrayAddedToItself) {
    Shape s;
    s.width = 70, s.height = 2, s.layout = Layout::padded_rows;
    GuardedArray a(s), copy(s), dst(s);
    a.fill_integer(200), copy.fill_integer(200);
    const auto add = [&](const kipx_arr *x, const kipx_arr *y, const kipx_site *roi,
                         const kipx_pos *at) {
        EXPECT_EQ(KipxAdd(nullptr, 0, dst.arr(), x, y, roi, at, nullptr, 0, 0), 0);
        return dst.integer({0, 1});
    };
    kipx_arr other_strides = *a.arr();
    other_strides.strides[1]++, other_strides.volume[1] = 1;
    const kipx_site row = rectangle(0, 0, 70, 1);
    const kipx_pos one = position(1, 0);
    EXPECT_EQ(add(a.arr(), a.arr(), nullptr, nullptr), 255);
    EXPECT_EQ(add(a.arr(), copy.arr(), nullptr, nullptr), 144);
    EXPECT_EQ(add(a.arr(), &other_strides, &row, nullptr), 144);
    EXPECT_EQ(add(a.arr(), a.arr(), nullptr, &one), 144);
    EXPECT_EQ(KipxAdd(nullptr, 0, a.arr(), nullptr, a.arr(), nullptr, nullptr, nullptr, -1, 0), 0);
    EXPECT_EQ(a.integer({1, 69}), 200);
}

// ---- division by zero --------------------------------------------------------------------------

#if defined(__x86_64__)
void divide(ModelOp op, uint32_t type, int32_t scale, uint32_t zero_at, int32_t set) {
    signal(SIGFPE, SIG_DFL); // a sanitizer's handler would end us otherwise
    kipx_set_simd(set);
    Shape s;
    s.type = type, s.width = 2300;
    GuardedArray dst(s), a(s), b(s);
    a.fill_integer(7), b.fill_integer(7);
    (op == ModelOp::div ? b : a).set_integer({0, zero_at}, 0);
    info(op).function(nullptr, 0, dst.arr(), a.arr(), b.arr(), nullptr, nullptr, nullptr, scale, 0);
}

TEST(DivisionDeathTest, OfIntegersByZeroFaults) {
    uint32_t turn = 0;
    for (ModelOp op : {ModelOp::div, ModelOp::rdiv})
        for (uint32_t type : {1u, 10u, 11u})
            for (int32_t scale : {0, -1, 3})
                for (int32_t set : all_sets())
                    for (uint32_t zero_at : {100u + turn++ % 64, 1024u + turn % 1024, 2299u})
                        EXPECT_EXIT(divide(op, type, scale, zero_at, set),
                                    testing::KilledBySignal(SIGFPE), "")
                            << info(op).name << " " << type << " scale " << scale;
}
#endif

// ---- reference loops ---------------------------------------------------------------------------

template<class T> using Loop = void (*)(T *, const T *, const T *, uint32_t);

template<class T, class F> void check_loop(Loop<T> loop, F expected) {
    Rng rng(5);
    for (uint32_t count : {0u, 1u, 255u, 256u, 300u})
        for (bool in_place : {false, true}) {
            T a[300], b[300], out[300], first[300];
            for (uint32_t i = 0; i < 300; i++) {
                a[i] = static_cast<T>(rng.between(0, 70000)),
                b[i] = static_cast<T>(rng.between(1, 70000));
                out[i] = first[i] = in_place ? a[i] : T{77};
            }
            loop(out, in_place ? nullptr : a, b, count);
            for (uint32_t i = 0; i < 300; i++) {
                const T must =
                    i < count && i < 256 ? static_cast<T>(expected(a[i], b[i])) : first[i];
                ASSERT_EQ(out[i], must) << "element " << i << " of " << count;
            }
        }
}

TEST(ReferenceLoops, WorkOnAtMost256Elements) {
    check_loop<uint8_t>(C_kipx_addLE256_8, [](int a, int b) { return a + b; });
    check_loop<uint16_t>(C_kipx_addLE256_16, [](int a, int b) { return a + b; });
    check_loop<uint8_t>(C_kipx_subaLE256_8, [](int a, int b) { return a - b; });
    check_loop<uint16_t>(C_kipx_subaLE256_16, [](int a, int b) { return a - b; });
    check_loop<float>(C_kipx_addvcf, [](double a, double b) { return a + b; });
    check_loop<float>(C_kipx_subvcf, [](double a, double b) { return a - b; });
    check_loop<float>(C_kipx_rsubvcf, [](double a, double b) { return b - a; });
    check_loop<float>(C_kipx_mulvcf, [](double a, double b) { return a * b; });
    check_loop<float>(C_kipx_divvcf, [](double a, double b) { return a / b; });
    check_loop<float>(C_kipx_rdivvcf, [](double a, double b) { return b / a; });
}

} // namespace
