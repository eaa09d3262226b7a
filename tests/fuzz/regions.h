// fuzz/regions.h - targets whose results are no arrays: trees, lists of regions, blocks, orders.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kipx::fuzz {

void floods(const uint8_t *data, size_t size);
void stable_regions(const uint8_t *data, size_t size);
// Blocks taken from a storage and given back in any order, with marks and rewinds: none overlaps
// another, none loses its bytes, and after a rewind the storage stands where it stood.
void storage(const uint8_t *data, size_t size);
// Every sort gives the elements in order, every search what a walk finds; bad arguments touch nothing.
void sorting(const uint8_t *data, size_t size);

} // namespace kipx::fuzz
