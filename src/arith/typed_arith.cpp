// arith/typed_arith.cpp - the typed level of the arithmetic.
#include "arith/typed_arith.h"

#include <kipx/env.h>

#include <algorithm>
#include <utility>

#include "convert/constants.h"
#include "convert/convert.h"
#include "convert/values.h"
#include "core/rows.h"
#include "core/simd.h"

namespace kipx {
namespace {

#define KIPX_ENTRY(op, Name, triples, code, mirror) ArithOp::mirror,
constexpr ArithOp mirrors[] = {KIPX_BINARY_OPS(KIPX_ENTRY)};
#undef KIPX_ENTRY

bool wants_exchange(const Operand &src1, const Operand &src2) {
    return src1.size < src2.size || (src2.type == KIPX_F32 && src1.type != KIPX_F32);
}

bool narrows(const Call &c) {
    bool exempt = c.dst.type == KIPX_U8 && c.src[0].type == KIPX_S16;
    return c.src[0].size > c.dst.size && !exempt;
}

// 2^e as binary32, e from -31 to 63.
float power_of_two(int32_t e) {
    return e < 0 ? 1.0f / static_cast<float>(uint64_t{1} << -e)
                 : static_cast<float>(uint64_t{1} << e);
}

bool same_storage(const Operand &a, const Operand &b) {
    return a.at == b.at && a.row == b.row && a.pixel == b.pixel && a.channel == b.channel;
}

// Adding an array to itself multiplies it by 2.0. What the saturating sum does with twice the
// element is that product, scaled or not; only the u8 sum differs from its own unscaled wrap.
uint32_t doubled(uint32_t kernel, const Call &c) {
    bool twice = kernel == add_u8u8u8 && same_storage(c.src[0], c.src[1]);
    return twice ? static_cast<uint32_t>(addq_u8u8u8) : kernel;
}

struct Choice {
    uint32_t kernel;
    RowLoop convert; // null unless the result is narrowed
    uint32_t middle_size;
};

int32_t work_chosen(Call &c, const Choice &choice) {
    if (c.height == 0 || c.width == 0) return 0;
    const ArithScale scale = make_scale(static_cast<const Scaled *>(c.params)->exponent);
    Rows how;
    how.set = active_set(c.flags);
    how.loop = arith_rows_of(how.set)[doubled(choice.kernel, c)];
    how.params = &scale;
    if (!choice.convert) return rows(c, how), 0;

    uint64_t elements = uint64_t{c.height} * c.width * c.channels;
    how.convert = choice.convert, how.middle_size = choice.middle_size;
    how.middle = static_cast<char *>(
        KipxXEalloca(c.xe, std::min<uint64_t>(elements, middle_length) * how.middle_size, 64));
    if (!how.middle) return KIPX_ENOMEM;
    rows(c, how);
    KipxXEfreea(c.xe, how.middle);
    return 0;
}

int32_t choose(ArithOp op, Call &c, Choice &choice) {
    if (wants_exchange(c.src[0], c.src[1])) {
        std::swap(c.src[0], c.src[1]);
        op = mirrors[static_cast<uint32_t>(op)];
    }
    bool narrow = narrows(c);
    uint32_t middle = narrow ? c.src[0].type : c.dst.type;
    choice = {find_arith(op, middle, c.src[0].type, c.src[1].type), nullptr, element_size(middle)};
    if (choice.kernel == arith_kernel_count) return KIPX_ENOTSUP;
    if (!narrow) return 0;
    choice.convert = narrow_row_for(c.dst.type, middle, active_set(c.flags));
    return choice.convert ? 0 : KIPX_ENOTSUP;
}

// A floating source takes f32; an integer one the narrowest of its own type, s16 and s32 that holds
// all values as they are, else f32.
uint32_t constant_type(uint32_t source, const double *values, uint32_t channels) {
    if (source == KIPX_F32) return source;
    for (uint32_t type : {source, uint32_t{KIPX_S16}, uint32_t{KIPX_S32}}) {
        bool all = true;
        for (uint32_t i = 0; i < channels; ++i) all &= holds_value(type, values[i]);
        if (all) return type;
    }
    return KIPX_F32;
}

} // namespace

ArithScale make_scale(int32_t exponent) {
    if (exponent == 0) return {ScaleMode::none, 0, 1.0f, 1.0f};
    if (exponent < 0) {
        uint32_t k = (0u - static_cast<uint32_t>(exponent)) & 31;
        float factor = power_of_two(-static_cast<int32_t>(k));
        return {ScaleMode::down, k, factor, factor};
    }
    uint32_t s = static_cast<uint32_t>(exponent) & 63;
    return {ScaleMode::up, s, power_of_two(static_cast<int32_t>(s)),
            power_of_two(static_cast<int32_t>(s & 31))};
}

int32_t work_kernel(uint32_t kernel, Call &c) {
    if (no_work_asked(c)) return no_work_answer(c);
    return work_chosen(c, {kernel, nullptr, 0});
}

int32_t work_arith(ArithOp op, uint32_t dst_type_bits, Call &c) {
    if (!element_valid(c.dst.type) || !element_valid(c.src[0].type) ||
        !element_valid(c.src[1].type))
        return KIPX_EINVAL;
    c.dst.type |= dst_type_bits;
    Choice choice;
    if (int32_t code = choose(op, c, choice)) return code;
    if (c.channels == 0 || (choice.convert && !c.xe)) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    return work_chosen(c, choice);
}

int32_t work_constant(ArithOp op, uint32_t dst_type_bits, Call &c) {
    const double *values = static_cast<const Scaled *>(c.params)->values;
    if (!values || c.channels == 0) return KIPX_EINVAL;
    Constants constants(constant_type(c.src[0].type, values, c.channels), values, c);
    c.src[c.sources++] = constants.operand();
    return work_arith(op, dst_type_bits, c);
}

} // namespace kipx
