// convert/translate.h - bytes through tables of 256 entries.
//
// Gives    translate(), which looks every byte of a call's source up in a table, or in that of its
//          channel; by_tables(), which makes the tables first, where that pays.
// Promises the same bytes on every instruction set. Source and destination may be the same place.
// Costs    tables of up to three pieces, constant or passing the byte through, are worked out by
//          comparisons, at the speed of copying. Others stand in registers with AVX-512, and go in
//          steps of 16 entries with AVX2, and byte by byte elsewhere.
#pragma once

#include <cstdint>

#include "core/call.h"

namespace kipx {

// Elements of one byte. count: 1 table for all channels, or one per channel for up to 4 of them, one
// after the other. The call is used up; its second source is overwritten.
void translate(Call &call, const uint8_t *tables, uint32_t count);

// make (table, bytes, i): what comes of each of 256 bytes, for table i of so many; false ends it. False where
// the call is not between bytes, or smaller than tables are worth; then nothing has been written.
template<class Make> bool by_tables(Call &call, uint32_t count, Make make) {
    constexpr uint32_t entries = 256, most = 4, pays = 8;
    if (call.dst.size != 1 || call.src[0].size != 1 || count > most ||
        uint64_t{call.planes} * call.height * call.width < uint64_t{pays} * entries)
        return false;
    uint8_t tables[most * entries], bytes[entries];
    for (uint32_t i = 0; i < entries; ++i) bytes[i] = static_cast<uint8_t>(i);
    for (uint32_t i = 0; i < count; ++i)
        if (!make(tables + i * entries, bytes, i)) return false;
    translate(call, tables, count);
    return true;
}

} // namespace kipx
