// arith/unary.cpp - negation, exponential, logarithm and sigmoid, from the public functions to the loops.
#include <kipx/unary.h>

#include <algorithm>

#include "arith/arith_shapes.h"
#include "arith/typed_arith.h"
#include "arith/unary_rows.h"
#include "core/rows.h"
#include "core/stamp.h"

using namespace kipx;

namespace {

// Where the loops have a type; unary_type_count for none.
uint32_t unary_index(uint32_t type) {
    constexpr uint32_t types[] = {KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64};
    uint32_t i = 0;
    while (i < unary_type_count && types[i] != type) ++i;
    return i;
}

// alpha: one number, for sigmoids.
int32_t work_unary(UnaryOp op, Call &c, const double *alpha = nullptr) {
    if (!element_valid(c.dst.type) || !element_valid(c.src[0].type)) return KIPX_EINVAL;
    const uint32_t to = unary_index(c.dst.type), from = unary_index(c.src[0].type);
    if (to == unary_type_count || from == unary_type_count) return KIPX_ENOTSUP;
    if (c.channels == 0) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    if (c.height == 0 || c.width == 0) return 0;

    const auto direct = static_cast<uint32_t>(op);
    if (op == UnaryOp::sigmoid && c.dst.type == KIPX_F64) op = UnaryOp::precise_sigmoid;
    Rows how;
    how.set = active_set(c.flags);
    const UnaryLoops &loops = *unary_loops_of(how.set);
    const UnaryWay way = {loops.read[from], loops.work[static_cast<uint32_t>(op)], loops.write[to],
                          make_scale(static_cast<const Scaled *>(c.params)->exponent).factor,
                          alpha ? *alpha : 0};
    how.loop = loops.by_blocks;
    if (c.dst.type == c.src[0].type) {
        if (c.dst.type == KIPX_F32) how.loop = loops.of_f32[direct];
        if (c.dst.type == KIPX_F64) how.loop = loops.of_f64[direct];
    }
    how.params = &way;
    rows(c, how);
    return 0;
}

template<UnaryOp op> int32_t work_function(Call &c) { return work_unary(op, c); }

bool floating(const Operand &o) { return o.type == KIPX_F32; }

// The reversed difference with -0, which turns the sign of zeros, too. f64 has no differences, and f32 none
// that is called saturating: nothing wraps there.
template<ArithOp op> int32_t work_negate(Call &c) {
    const bool single = c.dst.type == KIPX_F32 && c.src[0].type == KIPX_F32;
    if (single || c.dst.type == KIPX_F64 || c.src[0].type == KIPX_F64)
        return work_unary(UnaryOp::negate, c);
    constexpr double zeros[15] = {-0.0, -0.0, -0.0, -0.0, -0.0, -0.0, -0.0, -0.0,
                                  -0.0, -0.0, -0.0, -0.0, -0.0, -0.0, -0.0};
    const auto &scaled = *static_cast<const Scaled *>(c.params);
    const Scaled with_zeros(scaled.exponent, scaled.aux, zeros);
    c.params = &with_zeros;
    const bool wraps = op == ArithOp::rsub || floating(c.dst) || floating(c.src[0]);
    return work_constant(wraps ? ArithOp::rsub : op, 0, c);
}

int32_t work_sigmoid(Call &c) {
    const double *alpha = static_cast<const Scaled *>(c.params)->values;
    if (!alpha || c.channels == 0) return KIPX_EINVAL;
    if (std::all_of(alpha, alpha + c.channels, [=](double a) { return a == *alpha; }))
        return work_unary(UnaryOp::sigmoid, c, alpha);
    int32_t code = 0;
    for (uint32_t i = 0; i < c.channels && code == 0; ++i) {
        Call one = c;
        one.channels = 1;
        for (Operand *o : {&one.dst, &one.src[0], &one.mask})
            if (o->at) o->at += i * o->channel;
        code = work_unary(UnaryOp::sigmoid, one, alpha + i);
    }
    return code;
}

} // namespace

extern "C" {
#define KIPX_UNARY(op, Name, worker)                                                               \
    KIPX_STAMP_1(op, Name, KIPX_TAIL_SCALED, one_array, Scaled(scale, aux), (worker))
KIPX_UNARY(negate, Negate, work_negate<ArithOp::rsub>)
KIPX_UNARY(negateq, Negateq, work_negate<ArithOp::rsubq>)
KIPX_UNARY(exp, Exp, work_function<UnaryOp::exponential>)
KIPX_UNARY(ln, Ln, work_function<UnaryOp::logarithm>)
KIPX_STAMP_C(sigmoidalpha, SigmoidAlpha, KIPX_TAIL_SCALED, one_array, Scaled(scale, aux, values),
             work_sigmoid)

int32_t kipx_unary(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                   const kipx_arr *src, const kipx_site *roi, const kipx_pos *srcAt, int32_t scale,
                   int32_t aux) {
    switch (code) {
    case 0x6e656720:
        return KipxNegate(xe, flags, dst, src, roi, srcAt, scale, aux);
    case 0x6e656771:
        return KipxNegateq(xe, flags, dst, src, roi, srcAt, scale, aux);
    case 0x65787020:
        return KipxExp(xe, flags, dst, src, roi, srcAt, scale, aux);
    case 0x6c6e2020:
        return KipxLn(xe, flags, dst, src, roi, srcAt, scale, aux);
    default:
        return KIPX_EINVAL;
    }
}
}
