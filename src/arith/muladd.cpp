// arith/muladd.cpp - multiply-accumulate, from the public functions to the row loops.
#include <kipx/muladd.h>

#include <utility>

#include "arith/arith_shapes.h"
#include "arith/muladd_rows.h"
#include "arith/typed_arith.h"
#include "convert/constants.h"
#include "convert/translate.h"
#include "convert/values.h"
#include "core/rows.h"
#include "core/stamp.h"

using namespace kipx;

namespace {

struct Accumulate {
    int32_t exponent, aux;
    const double *factors, *addends;
};

constexpr uint32_t key_of(uint32_t dst, uint32_t a, uint32_t b, uint32_t c) {
    return dst << 12 | a << 8 | b << 4 | c;
}

// muladd_types_count for none. Types are valid.
uint32_t find_muladd(uint32_t dst, uint32_t a, uint32_t b, uint32_t c) {
    switch (key_of(dst, a, b, c)) {
#define KIPX_CASE(op, D, A, B, C)                                                                  \
    case key_of(KIPX_CODE_##D, KIPX_CODE_##A, KIPX_CODE_##B, KIPX_CODE_##C):                       \
        return muladd_##D##A##B##C;
        KIPX_MULADD_TYPES(KIPX_CASE, )
    }
    return muladd_types_count;
}

bool all_valid(const Call &c) {
    bool valid = element_valid(c.dst.type);
    for (uint32_t i = 0; i < c.sources; ++i) valid &= element_valid(c.src[i].type);
    return valid;
}

int32_t work_three(MulAddOp op, Call &c) {
    if (!all_valid(c)) return KIPX_EINVAL;
    uint32_t types = find_muladd(c.dst.type, c.src[0].type, c.src[1].type, c.src[2].type);
    if (types == muladd_types_count) {
        std::swap(c.src[0], c.src[1]);
        types = find_muladd(c.dst.type, c.src[0].type, c.src[1].type, c.src[2].type);
    }
    if (types == muladd_types_count) return KIPX_ENOTSUP;
    if (c.channels == 0) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    const MulAddWay way = {make_scale(static_cast<const Accumulate *>(c.params)->exponent), op};
    Rows how;
    how.set = active_set(c.flags);
    how.loop = muladd_rows_of(how.set)[types];
    how.params = &way;
    rows(c, how);
    return 0;
}

constexpr uint32_t candidates = 4;

// The type that a constant is tried in, of the candidates in their order; f32 takes any value.
uint32_t candidate(uint32_t own, uint32_t i) {
    const uint32_t types[candidates] = {own, KIPX_S16, KIPX_S32, KIPX_F32};
    return types[i];
}

bool holds(uint32_t type, const double *values, uint32_t channels) {
    bool all = true;
    for (uint32_t i = 0; i < channels && type != KIPX_F32; ++i) all &= holds_value(type, values[i]);
    return all;
}

int32_t work_factor(MulAddOp op, Call &c) {
    const double *factors = static_cast<const Accumulate *>(c.params)->factors;
    if (!factors || c.channels == 0 || !all_valid(c)) return KIPX_EINVAL;
    const uint32_t own = c.src[0].type;
    for (uint32_t i = 0; i < candidates; ++i) {
        const uint32_t b = candidate(own, i);
        if (find_muladd(c.dst.type, own, b, c.src[1].type) == muladd_types_count) continue;
        if (!holds(b, factors, c.channels)) continue;
        Constants constants(b, factors, c);
        c.src[2] = c.src[1], c.src[1] = constants.operand(), c.sources = 3;
        return work_three(op, c);
    }
    return KIPX_ENOTSUP;
}

// Between bytes, where that pays: through tables. b and a: types of the constants.
bool work_bytes(MulAddOp op, Call &c, uint32_t b, uint32_t a) {
    const auto &given = *static_cast<const Accumulate *>(c.params);
    const auto make = [&](uint8_t *table, uint8_t *bytes, uint32_t channel) {
        const auto row = [](uint8_t *at, uint32_t type) {
            return Operand{reinterpret_cast<char *>(at), 256, 256, 1, 1, type, 1, 0, 0};
        };
        Call one = c;
        one.planes = one.height = one.channels = 1, one.width = 256, one.sources = 3;
        one.dst = row(table, c.dst.type), one.src[0] = row(bytes, c.src[0].type);
        Constants factor(b, given.factors + channel, one), addend(a, given.addends + channel, one);
        one.src[1] = factor.operand(), one.src[2] = addend.operand();
        return work_three(op, one) == 0;
    };
    return !no_work_asked(c) && by_tables(c, c.channels, make);
}

int32_t work_factor_and_addend(MulAddOp op, Call &c) {
    const auto &given = *static_cast<const Accumulate *>(c.params);
    if (!given.factors || !given.addends || c.channels == 0 || !all_valid(c)) return KIPX_EINVAL;
    const uint32_t own = c.src[0].type;
    for (uint32_t i = 0; i < candidates * candidates; ++i) {
        const uint32_t b = candidate(own, i / candidates), a = candidate(own, i % candidates);
        if (find_muladd(c.dst.type, own, b, a) == muladd_types_count) continue;
        if (!holds(b, given.factors, c.channels) || !holds(a, given.addends, c.channels)) continue;
        if (work_bytes(op, c, b, a)) return 0;
        Constants factors(b, given.factors, c), addends(a, given.addends, c);
        c.src[1] = factors.operand(), c.src[2] = addends.operand(), c.sources = 3;
        return work_three(op, c);
    }
    return KIPX_ENOTSUP;
}

template<int32_t (*work)(MulAddOp, Call &), MulAddOp op> int32_t worker(Call &c) {
    return work(op, c);
}

} // namespace

extern "C" {
#define KIPX_MULADD(op, Name, kind)                                                                \
    KIPX_STAMP_3(op, Name, KIPX_TAIL_SCALED, three_arrays,                                         \
                 (Accumulate{scale, aux, nullptr, nullptr}), (worker<work_three, MulAddOp::kind>)) \
    KIPX_STAMP_2C(op##C, Name##C, KIPX_TAIL_SCALED, two_arrays,                                    \
                  (Accumulate{scale, aux, values, nullptr}),                                       \
                  (worker<work_factor, MulAddOp::kind>))                                           \
    KIPX_STAMP_1CC(op##CC, Name##CC, KIPX_TAIL_SCALED, one_array,                                  \
                   (Accumulate{scale, aux, factors, addends}),                                     \
                   (worker<work_factor_and_addend, MulAddOp::kind>))
KIPX_MULADD(muladd, MulAdd, add)
KIPX_MULADD(mulsub, MulSub, sub)
KIPX_MULADD(mulrsub, MulRSub, rsub)

#define KIPX_CODES(tail, ...)                                                                      \
    switch (code) {                                                                                \
    case 0x6d6c6120:                                                                               \
        return KipxMulAdd##tail(__VA_ARGS__);                                                      \
    case 0x6d6c7320:                                                                               \
        return KipxMulSub##tail(__VA_ARGS__);                                                      \
    case 0x6d6c7273:                                                                               \
        return KipxMulRSub##tail(__VA_ARGS__);                                                     \
    default:                                                                                       \
        return KIPX_EINVAL;                                                                        \
    }

int32_t kipx_muladd(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                    const kipx_arr *src1, const kipx_arr *src2, const kipx_arr *src3,
                    const kipx_site *roi, const kipx_pos *src1At, const kipx_pos *src2At,
                    const kipx_pos *src3At, int32_t scale, int32_t aux){
    KIPX_CODES(, xe, flags, dst, src1, src2, src3, roi, src1At, src2At, src3At, scale, aux)}

int32_t kipx_muladdC(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                     const kipx_arr *src1, const kipx_arr *src2, const double *values,
                     const kipx_site *roi, const kipx_pos *src1At, const kipx_pos *src2At,
                     int32_t scale, int32_t aux){
    KIPX_CODES(C, xe, flags, dst, src1, src2, values, roi, src1At, src2At, scale, aux)}

int32_t kipx_muladdCC(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                      const kipx_arr *src, const double *factors, const double *addends,
                      const kipx_site *roi, const kipx_pos *srcAt, int32_t scale, int32_t aux) {
    KIPX_CODES(CC, xe, flags, dst, src, factors, addends, roi, srcAt, scale, aux)
}
}
