// convert/translate.cpp - bytes through tables of 256 entries.
#include "convert/translate.h"

#include <kipx/types.h>

#include <cstring>

#include "convert/constants.h"
#include "convert/translate_rows.h"
#include "core/rows.h"

namespace kipx {
namespace {

constexpr uint32_t entries = 256;

// Entries from i on that are one constant, or themselves, whichever are more.
uint32_t piece_at(const uint8_t *table, uint32_t i, uint8_t &keep, uint8_t &value) {
    uint32_t same = i + 1, self = i;
    while (same < entries && table[same] == table[i]) ++same;
    while (self < entries && table[self] == self) ++self;
    bool passes = self > same;
    keep = passes ? 255 : 0, value = passes ? 0 : table[i];
    return passes ? self : same;
}

TablePieces pieces_of(const uint8_t *table) {
    TablePieces p{0, {255, 255}, {}, {}};
    uint32_t count = 0;
    for (uint32_t i = 0; i < entries; ++count) {
        if (count == 3) return p;
        if (count) p.start[count - 1] = static_cast<uint8_t>(i);
        i = piece_at(table, i, p.keep[count], p.value[count]);
    }
    // Pieces that are not there are like the last one.
    for (uint32_t k = count; k < 3; ++k) p.keep[k] = p.keep[k - 1], p.value[k] = p.value[k - 1];
    p.count = count;
    return p;
}

bool all_alike(const uint8_t *tables, uint32_t count) {
    return std::memcmp(tables, tables + entries, size_t{entries} * (count - 1)) == 0;
}

} // namespace

void translate(Call &c, const uint8_t *tables, uint32_t count) {
    static constexpr uint8_t numbers[4] = {0, 1, 2, 3};
    TranslateRow row{tables, count, {}};
    if (row.count > 1 && all_alike(tables, row.count)) row.count = 1;
    Rows how;
    how.set = active_set(c.flags);
    Constants channel;
    c.sources = row.count > 1 ? 2 : 1;
    if (row.count > 1)
        c.src[1] = channel.repeating(KIPX_U8, numbers, c);
    else
        row.pieces = pieces_of(tables);
    how.loop = translate_rows_of(how.set)[0], how.params = &row, how.repeats = true;
    rows(c, how);
}

} // namespace kipx
