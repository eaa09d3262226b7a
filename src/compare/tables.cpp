// compare/tables.cpp - what a comparison of bytes with constants gives, as tables of 256 entries.
#include "compare/tables.h"

#include <kipx/convert.h>

#include <algorithm>
#include <cstring>

#include "convert/translate.h"
#include "core/flat.h"

namespace kipx {
namespace {

constexpr uint32_t most_channels = 4;

// Marks the entries from `first` to `last` in the order of their values. Where that is not the order
// of their bits, the halves of the table are exchanged.
void mark(uint8_t *table, int32_t first, int32_t last, uint8_t bias) {
    for (int32_t half : {0, 128}) {
        int32_t from = std::max(first, half), to = std::min(last, half + 127);
        if (from <= to) std::memset(table + (from ^ bias), 255, static_cast<size_t>(to - from) + 1);
    }
}

// 255 for each entry that compares as the operator says, 0 for the others.
void mark_held(uint8_t *table, uint32_t cmpop, uint8_t value, uint8_t bias) {
    const int32_t v = value ^ bias;
    std::memset(table, 0, table_entries);
    switch (operator_of(cmpop)) {
    case KIPX_CMPOP_EQUAL:
        return mark(table, v, v, bias);
    case KIPX_CMPOP_LESS:
        return mark(table, 0, v - 1, bias);
    case KIPX_CMPOP_LESS_OR_EQUAL:
        return mark(table, 0, v, bias);
    case KIPX_CMPOP_GREATER:
        return mark(table, v + 1, 255, bias);
    case KIPX_CMPOP_GREATER_OR_EQUAL:
        return mark(table, v, 255, bias);
    default:
        mark(table, 0, v - 1, bias), mark(table, v + 1, 255, bias);
    }
}

void make_table(uint8_t *table, const TableRule &rule, uint32_t channel) {
    uint8_t held[table_entries], second[table_entries];
    mark_held(held, rule.cmpop, rule.values[channel], rule.bias);
    if (rule.cmpop2) {
        mark_held(second, rule.cmpop2, rule.values2[channel], rule.bias);
        for (uint32_t i = 0; i < table_entries; ++i) held[i] &= second[i];
    }
    bool masks = !rule.true_values && !rule.false_values;
    auto value = [=](const uint8_t *values, uint8_t otherwise, uint8_t &passes) -> uint8_t {
        passes = masks || is_address(values) ? 0 : 255;
        return masks ? otherwise : passes ? uint8_t{0} : values[channel];
    };
    uint8_t yes_passes, no_passes;
    uint8_t yes = value(rule.true_values, 255, yes_passes);
    uint8_t no = value(rule.false_values, 0, no_passes);
    for (uint32_t i = 0; i < table_entries; ++i) {
        uint8_t a = static_cast<uint8_t>(yes | (i & yes_passes));
        uint8_t b = static_cast<uint8_t>(no | (i & no_passes));
        table[i] = static_cast<uint8_t>((a & held[i]) | (b & ~held[i]));
    }
}

bool usable(const void *values) { return is_address(values) || marker_of(values) <= source_value; }

} // namespace

int32_t make_tables(uint8_t *tables, const TableRule &rule, uint32_t channels) {
    bool masks = !rule.true_values && !rule.false_values;
    bool chosen = is_address(rule.true_values) || is_address(rule.false_values);
    if (!usable(rule.true_values) || !usable(rule.false_values) || (!masks && !chosen) ||
        !operator_valid(rule.cmpop) || (rule.cmpop2 && !operator_valid(rule.cmpop2)))
        return KIPX_EINVAL;
    for (uint32_t i = 0; i < channels; ++i) make_table(tables + table_entries * i, rule, i);
    return 0;
}

} // namespace kipx

using namespace kipx;

namespace {

bool countable(uint32_t channels) { return channels >= 1 && channels <= most_channels; }

} // namespace

extern "C" {

int32_t kipx__mkcmpxlatab(uint8_t *tables, uint32_t cmpop, const uint8_t *values,
                          const uint8_t *true_values, const uint8_t *false_values,
                          uint32_t channels) {
    if (!tables || !is_address(values) || !countable(channels)) return KIPX_EINVAL;
    return make_tables(tables, {cmpop, 0, values, nullptr, true_values, false_values, 0}, channels);
}

int32_t kipx_mkcmpxlatab(uint8_t *tables, uint32_t cmpop, const double *values,
                         const uint8_t *true_values, const uint8_t *false_values,
                         uint32_t channels) {
    if (!is_address(values) || !countable(channels)) return KIPX_EINVAL;
    uint8_t vector[16];
    int32_t code = kipx_mkifillvalv16(vector, KIPX_U8, values, channels);
    if (code < 0) return code;
    return kipx__mkcmpxlatab(tables, cmpop, vector, true_values, false_values, channels);
}

int32_t kipx__mkcmpxlatab2(uint8_t *tables, uint32_t cmpop1, uint32_t cmpop2,
                           const uint8_t *values1, const uint8_t *values2,
                           const uint8_t *true_values, const uint8_t *false_values,
                           uint32_t channels) {
    if (!tables || !is_address(values1) || !is_address(values2) || !countable(channels))
        return KIPX_EINVAL;
    if (!operator_valid(cmpop2)) return KIPX_EINVAL;
    return make_tables(tables, {cmpop1, cmpop2, values1, values2, true_values, false_values, 0},
                       channels);
}

int32_t kipx_mkcmpxlatab2(uint8_t *tables, uint32_t cmpop1, uint32_t cmpop2, const double *values1,
                          const double *values2, const uint8_t *true_values,
                          const uint8_t *false_values, uint32_t channels) {
    if (!is_address(values1) || !is_address(values2) || !countable(channels)) return KIPX_EINVAL;
    uint8_t vector1[16], vector2[16];
    int32_t code = kipx_mkifillvalv16(vector1, KIPX_U8, values1, channels);
    if (code == 0) code = kipx_mkifillvalv16(vector2, KIPX_U8, values2, channels);
    if (code != 0) return code;
    return kipx__mkcmpxlatab2(tables, cmpop1, cmpop2, vector1, vector2, true_values, false_values,
                              channels);
}

int32_t kipx_xlat2d_u8(const uint8_t *tables, uint8_t *dst, const uint32_t *dst_strides,
                       const uint8_t *src, const uint32_t *src_strides, uint32_t width,
                       uint32_t height, uint32_t channels) {
    if (!tables || !dst || !dst_strides || !src || !src_strides || !countable(channels))
        return KIPX_EINVAL;
    const uint32_t extent[3] = {height, width, channels};
    const Flat from{KIPX_U8, src, src_strides}, to{KIPX_U8, dst, dst_strides};
    Call call;
    int32_t code = flat_call(call, nullptr, 0, 3, extent, {&to, &from, 1, {}});
    if (code < 0) return code;
    translate(call, tables, call.channels);
    return 0;
}
}
