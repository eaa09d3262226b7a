// convert/convert_rows.cpp - the row loops of the conversions, compiled once per instruction set.
#include "convert/convert_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<class D, class S> void row(Run run) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < run.n; ++i) {
        if constexpr (floating<S>)
            store(run.dst, i, round_saturate<D>(load<S>(run.src[0], i)));
        else
            store(run.dst, i, saturate<D>(s32{load<S>(run.src[0], i)}));
    }
}

} // namespace

#define KIPX_ROW(D, S) row<D, S>,
extern const RowLoop convert_rows[convert_kernel_count] = {KIPX_CONVERT_PAIRS(KIPX_ROW)};

} // namespace kipx::KIPX_SET
