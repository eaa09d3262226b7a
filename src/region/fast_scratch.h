// region/fast_scratch.h - memory of a fast flood, taken in one piece and handed out in pieces.
//
// Gives    pieces one after the other, and all of them back at once.
// Promises a piece that the first block has no room for has a block of its own; null when that
//          cannot be had.
// Owner    the blocks are the environment's; close gives them back, the last one first.
#pragma once

#include <kipx/env.h>

namespace kipx {

class FastScratch {
public:
    // False when there is no memory; close in either case.
    bool open(KipxXE *xe, uint64_t bytes);
    void *take(uint64_t bytes); // aligned to 16
    template<class T> T *take(uint64_t count) { return static_cast<T *>(take(count * sizeof(T))); }
    // Everything taken is free again.
    void rewind();
    void close();

private:
    struct Extra {
        Extra *before;
        uint64_t unused;
    };
    KipxXE *xe_ = nullptr;
    char *first_ = nullptr;
    uint64_t size_ = 0, used_ = 0;
    Extra *extra_ = nullptr;
};

} // namespace kipx
