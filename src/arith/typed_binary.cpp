// arith/typed_binary.cpp - the typed level of the binary arithmetic.
#include "arith/typed_binary.h"

#include <kipx/arith.h>
#include <kipx/array.h>

#include <algorithm>
#include <utility>

#include "convert/convert.h"
#include "core/element.h"
#include "core/walk.h"

namespace kipx {
namespace {

struct OpEntry {
    kipx_binary_kernel (*table)(uint32_t, uint32_t, uint32_t, int32_t *);
    ArithOp mirror;
};
#define KIPX_ENTRY(op, Name, triples, code, mirror) {kipxa__a##op##fun_imp, ArithOp::mirror},
constexpr OpEntry op_entries[] = {KIPX_BINARY_OPS(KIPX_ENTRY)};
#undef KIPX_ENTRY

// One operand of a one-channel pass.
struct Plane {
    const char *at;
    uint32_t strides[3]; // row, pixel, element
};

// What a call comes down to, once everything has been chosen.
struct Plan {
    kipx_binary_kernel kernel;
    RowLoop convert; // null unless the result is narrowed through the buffer
    uint32_t middle_size, dst_size;
    uint32_t height, width, passes; // passes: channels that could not be folded
    uint32_t block_rows;
    char *buffer;
    Plane dst, src1, src2;
};

uint32_t size_of(const TypedOperand &o) { return element_size(o.type); }

bool wants_exchange(const TypedOperand &src1, const TypedOperand &src2) {
    return size_of(src1) < size_of(src2) ||
           (src2.type == KIPX_CODE_f32 && src1.type != KIPX_CODE_f32);
}

bool narrows(const TypedCall &c) {
    bool exempt = c.dst.type == KIPX_CODE_u8 && c.src1.type == KIPX_CODE_s16;
    return size_of(c.src1) > size_of(c.dst) && !exempt;
}

Plane plane_of(const TypedOperand &o, uint32_t n) {
    return {
        static_cast<const char *>(o.at),
        {kipx_rowstride(n, o.strides), kipx_pixstride(n, o.strides), kipx_elstride(n, o.strides)}};
}

bool folds(const Plane &p, uint32_t channels) {
    return uint64_t{p.strides[2]} * channels == p.strides[1];
}

void fold_channels(Plan &plan, uint32_t channels) {
    uint64_t width = uint64_t{plan.width} * channels;
    plan.passes = channels;
    if (channels == 1 || width > UINT32_MAX || !folds(plan.dst, channels) ||
        !folds(plan.src1, channels) || !folds(plan.src2, channels))
        return;
    plan.passes = 1;
    plan.width = static_cast<uint32_t>(width);
    for (Plane *p : {&plan.dst, &plan.src1, &plan.src2}) p->strides[1] /= channels;
}

int32_t run_block(const Plan &plan, const TypedCall &c, uint32_t rows, const Plane &dst,
                  const Plane &src1, const Plane &src2) {
    const uint32_t extent[3] = {rows, plan.width, 1};
    return plan.kernel(c.xe, c.flags, 3, extent, const_cast<char *>(dst.at), dst.strides, src1.at,
                       src1.strides, src2.at, src2.strides, c.scale, c.aux);
}

// Block by block: the kernel into the buffer, the buffer into the destination.
int32_t run_narrowed(const Plan &plan, const TypedCall &c, Plane dst, Plane src1, Plane src2) {
    uint32_t row_bytes = plan.width * plan.middle_size;
    const Plane middle{plan.buffer, {row_bytes, plan.middle_size, plan.middle_size}};
    for (uint32_t y = 0; y < plan.height; y += plan.block_rows) {
        uint32_t rows = std::min(plan.block_rows, plan.height - y);
        if (int32_t code = run_block(plan, c, rows, middle, src1, src2)) return code;
        RowTask task;
        task.rows = rows, task.width = plan.width, task.sources = 1;
        task.dst = {const_cast<char *>(dst.at), dst.strides[0], dst.strides[1], plan.dst_size};
        task.src[0] = {plan.buffer, row_bytes, plan.middle_size, plan.middle_size};
        task.loop = plan.convert;
        walk(task);
        dst.at += uint64_t{rows} * dst.strides[0];
        src1.at += uint64_t{rows} * src1.strides[0];
        src2.at += uint64_t{rows} * src2.strides[0];
    }
    return 0;
}

int32_t run(const Plan &plan, const TypedCall &c) {
    if (plan.passes == 1 && !plan.convert)
        return run_block(plan, c, plan.height, plan.dst, plan.src1, plan.src2);
    Plane dst = plan.dst, src1 = plan.src1, src2 = plan.src2;
    int32_t code = 0;
    for (uint32_t pass = 0; pass < plan.passes && code == 0; ++pass) {
        code = plan.convert ? run_narrowed(plan, c, dst, src1, src2)
                            : run_block(plan, c, plan.height, dst, src1, src2);
        for (Plane *p : {&dst, &src1, &src2}) p->at += p->strides[2];
    }
    return code;
}

// Takes the block of rows that narrowing works through, works, gives it back. The block is as many
// rows as keep it and what is read for it in an eighth of the second-level cache, at least one:
// large enough for the calls per block to vanish, small enough to be converted before it is written
// back.
int32_t run_with_scratch(Plan &plan, const TypedCall &c) {
    uint64_t row_bytes = uint64_t{plan.width} * plan.middle_size;
    if (row_bytes > UINT32_MAX) return KIPX_EINVAL;
    uint64_t traffic = uint64_t{plan.width} * (2 * plan.middle_size + size_of(c.src2));
    uint64_t rows =
        std::max<uint64_t>(kipx_level1_dcache_size() / std::max<uint64_t>(traffic, 1), 1);
    plan.block_rows = static_cast<uint32_t>(std::min<uint64_t>(rows, plan.height));
    plan.buffer = static_cast<char *>(KipxXEalloca(c.xe, row_bytes * plan.block_rows, 8));
    if (!plan.buffer) return KIPX_ENOMEM;
    int32_t code = run(plan, c);
    KipxXEfreea(c.xe, plan.buffer);
    return code;
}

bool types_valid(const TypedCall &c) {
    return element_valid(c.dst.type) && element_valid(c.src1.type) && element_valid(c.src2.type);
}

} // namespace

int32_t typed_binary(ArithOp op, uint32_t dst_type_bits, TypedCall &c) {
    uint32_t axes = axes_of(c.n);
    if (!types_valid(c) || axes < 2 || axes > 4) return KIPX_EINVAL;
    if (axes == 4) return KIPX_ENOTSUP;
    c.dst.type |= dst_type_bits;
    const OpEntry *entry = &op_entries[static_cast<uint32_t>(op)];
    if (wants_exchange(c.src1, c.src2)) {
        std::swap(c.src1, c.src2);
        entry = &op_entries[static_cast<uint32_t>(entry->mirror)];
    }
    uint64_t channel_entry = c.extent[axes - 1];
    if ((c.flags & 0xf0) == 0) c.flags |= channel_entry & 0xf0;

    Plan plan{};
    int32_t status = 0;
    uint32_t middle = narrows(c) ? c.src1.type : c.dst.type;
    plan.kernel = entry->table(middle, c.src1.type, c.src2.type, &status);
    if (status) return status;
    if (middle != c.dst.type) {
        plan.convert = convert_row_for(c.dst.type, middle, active_set(c.flags));
        if (!plan.convert) return KIPX_ENOTSUP;
    }
    uint32_t channels = channel_entry & 15;
    if (channels == 0 || (plan.convert && !c.xe)) return KIPX_EINVAL;
    if (c.flags & KIPX_FLAG_PROBE) return KIPX_EAGAIN;
    if (c.flags & KIPX_FLAG_PREPARE) return 0;

    plan.middle_size = element_size(middle), plan.dst_size = size_of(c.dst);
    plan.height = height_of(axes, c.extent);
    plan.width = width_of(axes, c.extent);
    plan.dst = plane_of(c.dst, axes);
    plan.src1 = plane_of(c.src1, axes);
    plan.src2 = plane_of(c.src2, axes);
    fold_channels(plan, channels);
    if (plan.height == 0 || plan.width == 0) return 0;
    return plan.convert ? run_with_scratch(plan, c) : run(plan, c);
}

} // namespace kipx
