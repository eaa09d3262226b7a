// support/arith_model.cpp - the binary arithmetic by exact numbers.
#include "support/arith_model.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <sstream>

namespace kipx::test {
namespace {

using Wide = __int128;

enum Code : uint32_t { u8 = 1, s8 = 9, s16 = 10, s32 = 11, f32 = 13 };

#define KIPX_MODEL_KERNEL(op, D, A, B)                                                             \
    {{Code::D, Code::A, Code::B}, kipxa__##op##_c1_##D##A##B, #op "_c1_" #D #A #B},
#define KIPX_MODEL_OP(op, Name, triples, code, mirror)                                             \
    {ModelOp::op,                                                                                  \
     ModelOp::mirror,                                                                              \
     #op,                                                                                          \
     code,                                                                                         \
     Kipx##Name,                                                                                   \
     kipxa__a##op##fun_imp,                                                                        \
     {KIPX_TRIPLES_##triples(KIPX_MODEL_KERNEL, op)}},
#define KIPX_MODEL_FUNCTION(op, Name, triples, code, mirror)                                       \
    {#op, code, Kipx##Name, ModelOp::op, false},
#define KIPX_MODEL_SIGNED(op, Name, base, code) {#op, code, Kipx##Name, ModelOp::base, true},

bool is_difference(ModelOp op) { return op == ModelOp::sub || op == ModelOp::subq; }
bool is_reverse_difference(ModelOp op) { return op == ModelOp::rsub || op == ModelOp::rsubq; }
bool is_truncated(ModelOp op) { return op == ModelOp::div || op == ModelOp::rdiv; }
bool is_quotient(ModelOp op) {
    return is_truncated(op) || op == ModelOp::divr || op == ModelOp::rdivr;
}
bool is_reverse_quotient(ModelOp op) { return op == ModelOp::rdiv || op == ModelOp::rdivr; }
bool wraps(ModelOp op) { return op == ModelOp::add || op == ModelOp::sub || op == ModelOp::rsub; }

int64_t integer_of(uint32_t type, uint64_t bits) { return load_integer(type, &bits); }
double real_of(uint32_t type, uint64_t bits) { return load_real(type, &bits); }

uint64_t integer_bits(uint32_t type, Wide value) {
    return static_cast<uint64_t>(value) & (UINT64_MAX >> (64 - 8 * element_size(type)));
}
uint64_t real_bits(float value) {
    return std::isnan(value) ? 0x7fc00000u : std::bit_cast<uint32_t>(value);
}

uint64_t saturated(uint32_t type, Wide value) {
    value = std::max<Wide>(value, lowest(type));
    return integer_bits(type, std::min<Wide>(value, highest(type)));
}

// To nearest by the remainder; ties to even; NaN to the lowest value.
uint64_t rounded(uint32_t type, double value) {
    if (!(value > -1e12)) return integer_bits(type, lowest(type));
    if (value > 1e12) return integer_bits(type, highest(type));
    const double floor = std::floor(value), rest = value - floor;
    int64_t whole = static_cast<int64_t>(floor);
    if (rest > 0.5 || (rest == 0.5 && whole % 2 != 0)) whole++;
    return saturated(type, whole);
}

// value times two to the power, as binary32: one rounding, for a double holds the product.
float scaled_single(float value, int power) {
    return static_cast<float>(std::ldexp(static_cast<double>(value), power));
}

struct Scale {
    bool none;
    int power;          // of sums and products
    int quotient_power; // of quotients
};
Scale scale_of(int32_t s) {
    const int64_t wide = s;
    if (s < 0) {
        const int power = -static_cast<int>(-wide % 32);
        return {false, power, power};
    }
    return {s == 0, static_cast<int>(wide % 64), static_cast<int>(wide % 32)};
}

uint64_t single_to(uint32_t dst, float value) {
    return dst == f32 ? real_bits(value) : rounded(dst, static_cast<double>(value));
}

uint64_t quotient(ModelOp op, uint32_t type, int32_t s, uint64_t a, uint64_t b) {
    if (is_reverse_quotient(op)) std::swap(a, b);
    const Scale scale = scale_of(s);
    if (type == f32) {
        const float q = static_cast<float>(real_of(f32, a) / real_of(f32, b));
        return real_bits(scaled_single(q, scale.quotient_power));
    }
    const int64_t x = integer_of(type, a), y = integer_of(type, b);
    if (!is_truncated(op)) {
        if (y == 0) return integer_bits(type, is_signed(type) ? lowest(type) : 0);
        const double xs = static_cast<double>(static_cast<float>(x));
        const float q = static_cast<float>(xs / static_cast<double>(static_cast<float>(y)));
        return rounded(type, static_cast<double>(scaled_single(q, scale.quotient_power)));
    }
    const int64_t q = x / y; // both fit 32 bits
    if (scale.none) return saturated(type, q);
    return single_to(type, scaled_single(static_cast<float>(q), scale.quotient_power));
}

template<class T> T combine(ModelOp op, T a, T b) {
    if (is_difference(op)) return a - b;
    if (is_reverse_difference(op)) return b - a;
    return op == ModelOp::mul ? a * b : a + b;
}

uint64_t of_integers(ModelOp op, uint32_t dst, int32_t s, Wide a, Wide b) {
    const Wide r = combine(op, a, b);
    const Scale scale = scale_of(s);
    const float single = static_cast<float>(static_cast<int64_t>(r));
    if (dst == f32) return real_bits(scaled_single(single, scale.power));
    if (scale.none) return wraps(op) ? integer_bits(dst, r) : saturated(dst, r);
    if (s < 0) return single_to(dst, scaled_single(single, scale.power));
    const auto low_bits = static_cast<uint64_t>(static_cast<unsigned __int128>(r) << scale.power);
    return saturated(dst, static_cast<int64_t>(low_bits));
}

// With a floating source: in binary64 where a 32-bit integer takes part, else in binary32.
uint64_t of_reals(ModelOp op, Triple t, int32_t s, double a, double b) {
    const Scale scale = scale_of(s);
    const double wide = combine(op, a, b);
    if (t.dst == f32) return real_bits(scaled_single(static_cast<float>(wide), scale.power));
    if (s < 0) return single_to(t.dst, scaled_single(static_cast<float>(wide), scale.power));
    return rounded(t.dst, std::ldexp(wide, scale.power));
}

} // namespace

const std::vector<OpInfo> &all_ops() {
    static const std::vector<OpInfo> list = {KIPX_BINARY_OPS(KIPX_MODEL_OP)};
    return list;
}

const OpInfo &info(ModelOp op) { return all_ops()[static_cast<size_t>(op)]; }

const std::vector<FunctionInfo> &all_functions() {
    static const std::vector<FunctionInfo> list = {KIPX_BINARY_OPS(KIPX_MODEL_FUNCTION)
                                                       KIPX_BINARY_SIGNED_OPS(KIPX_MODEL_SIGNED)};
    return list;
}

uint64_t load_bits(uint32_t type, const void *address) {
    uint64_t bits = 0;
    std::memcpy(&bits, address, element_size(type));
    return bits;
}

std::string show(uint32_t type, uint64_t bits) {
    char text[64];
    snprintf(text, sizeof text, "%s %.9g (0x%llx)", type_name(type), real_of(type, bits),
             static_cast<unsigned long long>(bits));
    return text;
}

uint64_t model_element(ModelOp op, Triple t, int32_t scale, uint64_t a, uint64_t b) {
    if (is_quotient(op)) return quotient(op, t.dst, scale, a, b);
    if (t.src1 == f32 || t.src2 == f32)
        return of_reals(op, t, scale, real_of(t.src1, a), real_of(t.src2, b));
    return of_integers(op, t.dst, scale, integer_of(t.src1, a), integer_of(t.src2, b));
}

uint64_t model_convert(uint32_t dst, uint32_t src, uint64_t bits) {
    if (is_real(src)) return rounded(dst, real_of(src, bits));
    return saturated(dst, integer_of(src, bits));
}

bool faults(ModelOp op, uint32_t type, uint64_t a, uint64_t b) {
    return is_truncated(op) && !is_real(type) && (is_reverse_quotient(op) ? a : b) == 0;
}

bool type_valid(uint32_t type) { return (type >= 1 && type <= 4) || (type >= 9 && type <= 15); }

bool has_kernel(ModelOp op, Triple types) {
    const auto &list = info(op).kernels;
    return std::any_of(list.begin(), list.end(), [&](auto &k) { return k.types == types; });
}

Route route_of(const FunctionInfo &function, Triple t) {
    Route r{KIPX_EINVAL, function.op, false, {}, t.dst};
    if (!type_valid(t.dst) || !type_valid(t.src1) || !type_valid(t.src2)) return r;
    if (function.into_signed) r.dst = t.dst | 8;
    r.exchanged = element_size(t.src1) < element_size(t.src2) || (t.src2 == f32 && t.src1 != f32);
    if (r.exchanged) std::swap(t.src1, t.src2), r.op = info(r.op).mirror;
    const bool narrowed =
        element_size(t.src1) > element_size(r.dst) && !(r.dst == u8 && t.src1 == s16);
    r.kernel = {narrowed ? t.src1 : r.dst, t.src1, t.src2};
    const bool convertible = !narrowed || (element_size(r.dst) > 0 && element_size(r.dst) < 4);
    r.status = has_kernel(r.op, r.kernel) && convertible ? 0 : KIPX_ENOTSUP;
    return r;
}

uint64_t model_element(const Route &r, int32_t scale, uint64_t a, uint64_t b, bool same) {
    if (r.exchanged) std::swap(a, b);
    ModelOp op = r.op;
    if (same && op == ModelOp::add && r.kernel == Triple{u8, u8, u8}) op = ModelOp::addq;
    const uint64_t bits = model_element(op, r.kernel, scale, a, b);
    return r.kernel.dst == r.dst ? bits : model_convert(r.dst, r.kernel.dst, bits);
}

Elements::Elements(const GuardedArray &array)
    : type(array.shape().type), width(array.shape().width), channels(array.shape().channels) {
    array.for_each([&](At at) { bits.push_back(load_bits(type, array.address(at))); });
}

std::string wrong_element(const GuardedArray &dst, const Route &route, int32_t scale,
                          const Elements &a, const Elements &b, bool same) {
    std::string found;
    size_t i = 0;
    dst.for_each([&](At at) {
        const size_t k = i++;
        if (!found.empty()) return;
        const uint64_t is = load_bits(route.dst, dst.address(at));
        const uint64_t must = model_element(route, scale, a.bits[k], b.bits[k], same);
        if (is == must) return;
        std::ostringstream text;
        text << "element " << k << " (row " << at.y << ", pixel " << at.x << ") of "
             << info(route.op).name << " scale " << scale << ": " << show(a.type, a.bits[k]) << ", "
             << show(b.type, b.bits[k]) << " gave " << show(route.dst, is) << " instead of "
             << show(route.dst, must);
        found = text.str();
    });
    return found;
}

void avoid_zero_divisors(ModelOp op, GuardedArray &a, GuardedArray &b) {
    if (!is_truncated(op)) return;
    GuardedArray &divisor = is_reverse_quotient(op) ? a : b;
    if (is_real(divisor.shape().type)) return;
    divisor.for_each([&](At at) {
        if (divisor.integer(at) == 0) divisor.set_integer(at, 3);
    });
}

} // namespace kipx::test
