// compare/tables.h - what a comparison of bytes with constants gives, as tables of 256 entries.
//
// Gives    make_tables(), for kipx_mkcmpxlatab and its like and for the comparison of large arrays.
// Costs    some 100 ns a table.
#pragma once

#include <kipx/compare.h>

namespace kipx {

inline constexpr uint32_t table_entries = 256;

// A comparison operator stands in the low four bits of its word.
inline constexpr uint32_t operator_of(uint32_t cmpop) { return cmpop & 15; }
inline constexpr bool operator_valid(uint32_t cmpop) {
    return operator_of(cmpop) >= KIPX_CMPOP_EQUAL && operator_of(cmpop) <= KIPX_CMPOP_NOT_EQUAL;
}

// Pointers below 16 are markers.
inline constexpr uintptr_t no_value = 0, source_value = 1, first_address = 16;
inline uintptr_t marker_of(const void *p) { return reinterpret_cast<uintptr_t>(p); }
inline bool is_address(const void *p) { return marker_of(p) >= first_address; }

struct TableRule {
    uint32_t cmpop, cmpop2; // both must hold; cmpop2 0 for one
    const uint8_t *values;  // per channel, of the source's type by their bits
    const uint8_t *values2;
    const uint8_t *true_values, *false_values; // per channel; markers, or both null for 255 and 0
    uint8_t bias;                              // 128 where bytes are signed, 0 where they are not
};

// 0, or KIPX_EINVAL with nothing written.
int32_t make_tables(uint8_t *tables, const TableRule &rule, uint32_t channels);

} // namespace kipx
