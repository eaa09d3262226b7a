// arith/logic_rows.cpp - the row loops of the bitwise operations, compiled once per instruction set.
#include "arith/logic_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<LogicOp op, class T> void row(Run run) {
    auto element = [](T a, T b) -> T {
        switch (op) {
        case LogicOp::land:
            return a & b;
        case LogicOp::lorr:
            return a | b;
        case LogicOp::lxor:
            return a ^ b;
        default:
            return static_cast<T>(~a);
        }
    };
    // A single source is read twice, which costs nothing.
    const void *b = op == LogicOp::lnot ? run.src[0] : run.src[1];
    row_of_elements<T, T, T>(run.dst, run.src[0], b, run.n, run.writing == Writing::streamed,
                             element);
}

} // namespace

#define KIPX_SIZES(op)                                                                             \
    row<LogicOp::op, u8>, row<LogicOp::op, u16>, row<LogicOp::op, u32>, row<LogicOp::op, u64>
extern const RowLoop logic_rows[logic_count] = {KIPX_SIZES(land), KIPX_SIZES(lorr),
                                                KIPX_SIZES(lxor), KIPX_SIZES(lnot)};

} // namespace kipx::KIPX_SET
