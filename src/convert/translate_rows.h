// convert/translate_rows.h - what the row loop of a translation takes, and its tables.
//
// Promises the loop's first source is what is looked up. Its second one, if there are several
//          tables, repeats itself and gives the number of each element's table.
#pragma once

#include "core/run.h"
#include "core/sets.h"

namespace kipx {

// A table in pieces: entry i is (i & keep[p]) | value[p] with p the number of starts that are not
// above i.
struct TablePieces {
    uint32_t count; // 1 to 3; 0 for a table that takes more
    uint8_t start[2], keep[3], value[3];
};

struct TranslateRow {
    const uint8_t *tables;
    uint32_t count;
    TablePieces pieces; // of a single table
};

KIPX_SET_TABLES(RowLoop, translate_rows, 1)

} // namespace kipx
