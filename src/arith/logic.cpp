// arith/logic.cpp - the bitwise operations, from the public functions to the row loops.
#include <kipx/logic.h>

#include "arith/arith_shapes.h"
#include "arith/logic_rows.h"
#include "convert/constants.h"
#include "core/rows.h"
#include "core/stages.h"
#include "core/stamp.h"

using namespace kipx;

namespace {

bool integer(uint32_t type) { return (type & 7) >= 1 && (type & 7) <= 4; }

int32_t work_logic(LogicOp op, Call &c) {
    bool valid = element_valid(c.dst.type), fit = integer(c.dst.type);
    for (uint32_t i = 0; i < c.sources; ++i) {
        valid &= element_valid(c.src[i].type);
        fit &= integer(c.src[i].type) && c.src[i].size == c.dst.size;
    }
    if (!valid) return KIPX_EINVAL;
    if (!fit) return KIPX_ENOTSUP;
    if (c.channels == 0) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    Rows how;
    how.set = active_set(c.flags);
    how.loop =
        logic_rows_of(how.set)[static_cast<uint32_t>(op) * logic_sizes + size_index(c.dst.size)];
    rows(c, how);
    return 0;
}

template<LogicOp op> int32_t work_arrays(Call &c) { return work_logic(op, c); }

template<LogicOp op> int32_t work_values(Call &c) {
    const double *values = *static_cast<const double *const *>(c.params);
    if (!values || c.channels == 0) return KIPX_EINVAL;
    Constants constants(c.src[0].type, values, c);
    c.src[c.sources++] = constants.operand();
    return work_logic(op, c);
}

} // namespace

extern "C" {
#define KIPX_LOGIC(op, Name, lop)                                                                  \
    KIPX_STAMP_2(op, Name, KIPX_TAIL_NONE, two_arrays, nullptr, work_arrays<LogicOp::lop>)         \
    KIPX_STAMP_C(op##C, Name##C, KIPX_TAIL_NONE, one_array, values, work_values<LogicOp::lop>)
KIPX_LOGIC(and, And, land)
KIPX_LOGIC(orr, Orr, lorr)
KIPX_LOGIC(xor, Xor, lxor)
KIPX_STAMP_1(not, Not, KIPX_TAIL_NONE, one_array, nullptr, work_arrays<LogicOp::lnot>)
}
