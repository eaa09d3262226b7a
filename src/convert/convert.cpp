// convert/convert.cpp - the choice of a conversion.
#include "convert/convert.h"

#include "convert/convert_rows.h"
#include "core/element.h"

namespace kipx {

RowLoop convert_row_for(uint32_t dst_type, uint32_t src_type, Set set) {
    const RowLoop *rows = convert_rows_of(set);
    switch (kernel_key(0, dst_type, src_type)) {
#define KIPX_CASE(D, S)                                                                            \
    case kernel_key(0, KIPX_CODE_##D, KIPX_CODE_##S):                                              \
        return rows[convert_##D##S];
        KIPX_CONVERT_PAIRS(KIPX_CASE)
#undef KIPX_CASE
    default:
        return nullptr;
    }
}

} // namespace kipx
