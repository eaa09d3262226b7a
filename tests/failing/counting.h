// failing/counting.h - a count of what the program takes from the base runtime, and refusals on
// command.
//
// The library behind it stands before the base runtime and goes on to it, so that everything runs on
// the real storage. Counted is what can give null: heap blocks, storages, blocks of storages.
#pragma once

namespace kipx::test {

// The k-th request from now, counted from 0, gives null; with all_later every one after it, too.
// Negative: none does. Starts the counts anew.
void refuse(long k, bool all_later);
// Requests since then, and those that gave null, whether by command or for lack of memory.
long asked();
long refused();
// What is out: heap blocks and open storages.
long heap_blocks();
long open_storages();

} // namespace kipx::test
