// convert/translate.h - bytes through tables of 256 entries.
//
// Gives    translate(), which looks every byte of a call's source up in a table, or in that of its
//          channel.
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

} // namespace kipx
