// convert/copy.cpp - copy and fill, from the public functions down to the rows.
#include "convert/copy.h"

#include <kipx/convert.h>

#include <cstring>

#include "convert/constants.h"
#include "convert/copy_rows.h"
#include "core/rows.h"
#include "core/stages.h"
#include "core/stamp.h"

namespace kipx {
namespace {

// The copy of sources into one another is the family's own: see copy_needs_scratch.
constexpr Shape one_array{
    .anchor = slot_dst,
    .sources = 1,
    .partners = 2,
    .partner = {{slot_src1, Fit::like, Meet::rest}, {slot_mask, Fit::mask, Meet::rest}},
    .stands_in = slot_count,
    .planes = true,
    .overlap = true,
    .most_channels = 4,
    .no_rows = KIPX_EEMPTY};
constexpr Shape no_array{.anchor = slot_dst,
                         .sources = 0,
                         .partners = 1,
                         .partner = {{slot_mask, Fit::mask, Meet::rest}},
                         .stands_in = slot_count,
                         .planes = true,
                         .overlap = false,
                         .most_channels = 4,
                         .no_rows = KIPX_EEMPTY};

// Pixels of adjacent elements, one after the other.
bool dense(const Operand &o, uint32_t channels) {
    return o.pixel == uint64_t{channels} * o.size && (channels == 1 || o.channel == o.size);
}

uint64_t row_bytes(const Call &c) { return uint64_t{c.width} * c.channels * c.dst.size; }

// Source and destination are the same lattice, shifted, of whole rows that do not interleave: moved
// row by row, in the right order, no byte is lost.
bool moves_by_rows(const Call &c) {
    const Operand &d = c.dst, &s = c.src[0];
    if (c.mask.at || !dense(d, c.channels) || !dense(s, c.channels)) return false;
    uint64_t row = row_bytes(c), plane = (c.height - 1) * d.row + row;
    return (c.height == 1 || (d.row == s.row && d.row >= row)) &&
           (c.planes == 1 || (d.plane == s.plane && d.plane >= plane));
}

void move_by_rows(const Call &c) {
    bool forward = c.dst.at <= c.src[0].at;
    for (uint32_t i = 0; i < c.planes; ++i) {
        uint64_t plane = forward ? i : c.planes - 1 - i;
        for (uint32_t j = 0; j < c.height; ++j) {
            uint64_t row = forward ? j : c.height - 1 - j;
            std::memmove(c.dst.at + plane * c.dst.plane + row * c.dst.row,
                         c.src[0].at + plane * c.src[0].plane + row * c.src[0].row, row_bytes(c));
        }
    }
}

void run(Call &c) {
    Rows how;
    how.set = active_set(c.flags);
    how.loop = copy_rows_of(how.set)[size_index(c.dst.size)];
    rows(c, how);
}

int32_t copy_through_scratch(Call &c) {
    uint64_t plane = c.height * row_bytes(c);
    void *scratch = KipxXEalloca(c.xe, c.planes * plane, 64);
    if (!scratch) return KIPX_ENOMEM;
    Call away = c;
    away.dst = {static_cast<char *>(scratch),
                plane,
                row_bytes(c),
                uint64_t{c.channels} * c.dst.size,
                c.dst.size,
                c.dst.type,
                c.dst.size,
                0,
                0};
    away.mask.at = nullptr;
    c.src[0] = away.dst;
    run(away);
    run(c);
    KipxXEfreea(c.xe, scratch);
    return 0;
}

int32_t work_copy(Call &c) {
    if (int32_t code = check_copy(c)) return code;
    if (copy_needs_scratch(c) && !c.xe) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    if (c.height == 0 || c.width == 0) return 0;
    return c.dst.at && c.src[0].at ? copy_elements(c) : KIPX_EINVAL;
}

int32_t work_fill(Call &c) {
    const double *values = *static_cast<const double *const *>(c.params);
    if (int32_t code = check_copy(c)) return code;
    if (!values) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    if (c.height == 0 || c.width == 0) return 0;
    if (!c.dst.at) return KIPX_EINVAL;
    fill_elements(c, values);
    return 0;
}

} // namespace

int32_t check_copy(const Call &c) {
    if (!element_valid(c.dst.type)) return KIPX_EINVAL;
    if (c.sources && !element_valid(c.src[0].type)) return KIPX_EINVAL;
    if (c.dst.size == 0 || (c.sources && c.src[0].type != c.dst.type)) return KIPX_ENOTSUP;
    return c.channels ? 0 : KIPX_EINVAL;
}

bool copy_needs_scratch(const Call &c) { return c.across && !moves_by_rows(c); }

int32_t copy_elements(Call &c) {
    if (!c.across) return run(c), 0;
    if (!moves_by_rows(c)) return copy_through_scratch(c);
    move_by_rows(c);
    return 0;
}

void fill_elements(Call &c, const double *values) {
    Constants constants(c.dst.type, values, c);
    c.src[0] = constants.operand(), c.sources = 1;
    run(c);
}

} // namespace kipx

using namespace kipx;

KIPX_STAMP_0(fill, Fill, KIPX_TAIL_NONE, no_array, values, work_fill)
KIPX_STAMP_0M(fill_xm, FillEx, KIPX_TAIL_NONE, no_array, values, work_fill)
KIPX_STAMP_1(copy, Copy, KIPX_TAIL_NONE, one_array, nullptr, work_copy)
KIPX_STAMP_1M(copy_xm, CopyEx, KIPX_TAIL_NONE, one_array, nullptr, work_copy)
