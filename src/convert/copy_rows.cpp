// convert/copy_rows.cpp - elements as they are, compiled once per instruction set.
#include "convert/copy_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<class T> void row(Run run) {
    char *to = static_cast<char *>(run.dst);
    const char *from = static_cast<const char *>(run.src[0]);
    size_t bytes = run.n * sizeof(T);
    if (run.writing == Writing::streamed)
        for (size_t i = 0; i < bytes; i += 64) stream_line(to + i, from + i);
    else if (to != from)
        memcpy(to, from, bytes);
}

} // namespace

extern const RowLoop copy_rows[copy_row_count] = {row<u8>, row<u16>, row<u32>, row<u64>};

} // namespace kipx::KIPX_SET
