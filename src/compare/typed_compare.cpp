// compare/typed_compare.cpp - the typed level of the comparisons.
#include "compare/typed_compare.h"

#include <kipx/convert.h>

#include <cmath>
#include <utility>

#include "compare/compare_rows.h"
#include "compare/tables.h"
#include "convert/constants.h"
#include "convert/translate.h"
#include "core/rows.h"

namespace kipx {
namespace {

constexpr uint32_t most_channels = 4;
// Elements of a plane above which bytes are compared through a table.
constexpr uint64_t table_elements = 16384;

// To nearest even; what no int32 holds is the smallest one.
int32_t as_integer(double value) {
    double whole = std::nearbyint(value);
    return whole >= -2147483648.0 && whole <= 2147483647.0 ? static_cast<int32_t>(whole)
                                                           : INT32_MIN;
}

// The values are those of the mask, by the destination's element size. 32-bit elements would want a
// true value that is above 0 and -1 at once, and have none.
bool are_masks(const Comparison &given, const Call &c) {
    if (!is_address(given.true_values) || !is_address(given.false_values)) return false;
    if (c.dst.size > 2) return false;
    int32_t ones = c.dst.size == 1 ? 255 : 65535;
    bool all = true;
    for (uint32_t i = 0; i < c.channels; ++i)
        all &= as_integer(given.true_values[i]) >= ones && as_integer(given.false_values[i]) <= 0;
    return all;
}

// Which value is written where, as elements of the destination's type.
int32_t settle_values(const Comparison &given, const Call &c, Chosen &k, Vectors &room) {
    const double *yes = given.true_values, *no = given.false_values;
    if (!is_address(yes) && no) std::swap(yes, no), k.cmpop = negated(k.cmpop);
    if (!is_address(yes)) return KIPX_EINVAL;
    k.true_values = room.true_values, k.false_values = no;
    if (int32_t code = kipx_mkifillvalv16(room.true_values, c.dst.type, yes, c.channels))
        return code;
    if (!is_address(no))
        return marker_of(no) == source_value && c.dst.type != c.src[0].type ? KIPX_EINVAL : 0;
    k.false_values = room.false_values;
    return kipx_mkifillvalv16(room.false_values, c.dst.type, no, c.channels);
}

// ---- work --------------------------------------------------------------------------------------

bool suits_table(const Call &c, const Chosen &k) {
    bool bytes = k.pair == compare_u8u8 || k.pair == compare_u8s8;
    bool keeps = k.result == Result::chosen && marker_of(k.false_values) == no_value;
    return bytes && k.form == Form::constant && !keeps && c.xe &&
           uint64_t{c.height} * c.width * c.channels > table_elements;
}

// False when there is no memory for the tables.
bool compare_by_table(Call &c, const Chosen &k) {
    auto *tables =
        static_cast<uint8_t *>(KipxXEalloca(c.xe, size_t{table_entries} * c.channels, 64));
    if (!tables) return false;
    auto bytes = [](const void *p) { return static_cast<const uint8_t *>(p); };
    uint8_t bias = k.pair == compare_u8s8 ? 128 : 0;
    make_tables(
        tables,
        {k.cmpop, 0, bytes(k.values), nullptr, bytes(k.true_values), bytes(k.false_values), bias},
        c.channels);
    translate(c, tables, c.channels);
    KipxXEfreea(c.xe, tables);
    return true;
}

} // namespace

kipx_cmpop negated(kipx_cmpop cmpop) {
    uint32_t op = operator_of(cmpop);
    return (cmpop & ~15u) | ((((op - 3) ^ 7) + 1) & 15);
}

int32_t settle_result(const Comparison &given, const Call &c, Chosen &k, Vectors &room) {
    if (!are_masks(given, c)) return settle_values(given, c, k, room);
    k.result = Result::mask;
    return 0;
}

namespace {

// An operator as one of the relations that have loops: greater is less with the sources exchanged, and
// what is not less is greater or equal, if it is no NaN.
struct Ordering {
    Relation relation;
    bool exchanged, opposite;
};
Ordering ordering_of(kipx_cmpop cmpop, bool reals) {
    switch (operator_of(cmpop)) {
    case KIPX_CMPOP_EQUAL:
        return {Relation::equal, false, false};
    case KIPX_CMPOP_NOT_EQUAL:
        return reals ? Ordering{Relation::not_equal, false, false}
                     : Ordering{Relation::equal, false, true};
    case KIPX_CMPOP_LESS:
        return {Relation::less, false, false};
    case KIPX_CMPOP_GREATER:
        return {Relation::less, true, false};
    case KIPX_CMPOP_LESS_OR_EQUAL:
        return reals ? Ordering{Relation::less_or_equal, false, false}
                     : Ordering{Relation::less, true, true};
    default:
        return reals ? Ordering{Relation::less_or_equal, true, false}
                     : Ordering{Relation::less, false, true};
    }
}

} // namespace

void compare(Call &c, const Chosen &k, const Operand &kept) {
    const bool chosen = k.result == Result::chosen;
    Constants values, yes, no;
    c.sources = chosen ? 4 : 2;
    if (k.form == Form::constant) c.src[1] = values.repeating(c.src[0].type, k.values, c);
    if (chosen) {
        c.src[2] = yes.repeating(c.dst.type, k.true_values, c);
        c.src[3] = is_address(k.false_values) ? no.repeating(c.dst.type, k.false_values, c)
                   : marker_of(k.false_values) == source_value ? kept
                                                               : c.dst;
    }
    const uint32_t source = k.pair % compare_sources, dst_size = k.pair / compare_sources;
    const Ordering ordering = ordering_of(k.cmpop, source == compare_sources - 1);
    if (ordering.exchanged) std::swap(c.src[0], c.src[1]);
    if (ordering.opposite && chosen) std::swap(c.src[2], c.src[3]);
    CompareRow row{};
    for (uint32_t i = 0; i < c.sources; ++i) row.repeats[i] = c.src[i].period != 0;
    row.opposite = ordering.opposite && !chosen;
    Rows how;
    how.set = active_set(c.flags);
    const RowLoop *loops = compare_rows_of(how.set);
    const uint32_t src_size = compare_source_size[source];
    const RowLoop mask = loops[mask_row_index(source, ordering.relation, dst_size)];
    if (!chosen) {
        how.loop = mask;
    } else if (src_size == dst_size) {
        how.loop = loops[chosen_row_index(source, ordering.relation)];
    } else {
        how.loop = loops[two_step_row_index];
        row.mask = mask, row.choice = loops[choice_row_index(dst_size)];
        row.src_size = 1u << src_size, row.dst_size = 1u << dst_size;
    }
    how.params = &row, how.repeats = true;
    rows(c, how);
}

int32_t find_compare(uint32_t dst_type, uint32_t src_type, Result result, uint32_t &pair) {
    if (result == Result::chosen && dst_type == KIPX_F32 && src_type == KIPX_F32)
        return pair = compare_f32f32, 0;
    if (!element_valid(dst_type) || dst_type > KIPX_S64 || !element_valid(src_type))
        return KIPX_EINVAL;
    switch (kernel_key(0, element_size(dst_type), src_type)) {
#define KIPX_CASE(D, S)                                                                            \
    case kernel_key(0, element_size(KIPX_CODE_##D), KIPX_CODE_##S):                                \
        return pair = compare_##D##S, 0;
        KIPX_COMPARE_PAIRS(KIPX_CASE)
#undef KIPX_CASE
    default:
        return KIPX_ENOTSUP;
    }
}

int32_t work_chosen(Call &c, const Chosen &k) {
    if (!operator_valid(k.cmpop) || c.channels < 1 || c.channels > most_channels)
        return KIPX_EINVAL;
    if (k.form == Form::constant && !is_address(k.values)) return KIPX_EINVAL;
    if (k.result == Result::chosen) {
        if (!is_address(k.true_values)) return KIPX_EINVAL;
        if (!is_address(k.false_values) &&
            marker_of(k.false_values) > (k.same_elements ? source_value : no_value))
            return KIPX_EINVAL;
    }
    if (no_work_asked(c)) return no_work_answer(c);
    if (c.height == 0 || c.width == 0) return 0;
    if (!c.dst.at || !c.src[0].at || (k.form == Form::array && !c.src[1].at)) return KIPX_EINVAL;
    if (!suits_table(c, k) || !compare_by_table(c, k)) compare(c, k, Operand{c.src[0]});
    return 0;
}

template<Form form, Result result> int32_t work_compare(Call &c) {
    const Comparison &given = *static_cast<const Comparison *>(c.params);
    // Both values left out: the mask, in every respect.
    if constexpr (result == Result::chosen)
        if (!given.true_values && !given.false_values) return work_compare<form, Result::mask>(c);
    if (form == Form::array && !element_valid(c.src[1].type)) return KIPX_EINVAL;
    Chosen k{0, given.cmpop, c.dst.type == c.src[0].type, form, result, nullptr, nullptr, nullptr};
    if (int32_t code = find_compare(c.dst.type, c.src[0].type, result, k.pair)) return code;
    if (form == Form::array && c.src[1].type != c.src[0].type) return KIPX_ENOTSUP;
    if (c.channels < 1 || c.channels > most_channels) return KIPX_EINVAL;

    Vectors room;
    if (form == Form::constant) {
        if (!is_address(given.values)) return KIPX_EINVAL;
        k.values = room.values;
        int32_t code = kipx_mkifillvalv16(room.values, c.src[0].type, given.values, c.channels);
        if (code < 0) return code;
    }
    if (result == Result::chosen)
        if (int32_t code = settle_result(given, c, k, room)) return code;
    return work_chosen(c, k);
}

template int32_t work_compare<Form::array, Result::mask>(Call &);
template int32_t work_compare<Form::constant, Result::mask>(Call &);
template int32_t work_compare<Form::array, Result::chosen>(Call &);
template int32_t work_compare<Form::constant, Result::chosen>(Call &);

} // namespace kipx
