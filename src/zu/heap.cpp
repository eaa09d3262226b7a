// zu/heap.cpp - heap blocks with checked sizes.
//
// Promises the C library's heap under it, so blocks are aligned to 16; size 0 counts as 1, so that
//          null always means failure.
// Owner    the caller, until _ZuMfree or ZuMfree.
#include <zu/zu.h>

#include <cstdlib>

extern "C" {

void *_ZuMcalloc(size_t count, size_t size) {
    size_t bytes;
    if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
    return std::calloc(bytes ? bytes : 1, 1);
}

void *_ZuMrealloc(void *block, size_t size) { return std::realloc(block, size ? size : 1); }

void _ZuMfree(void *block) { std::free(block); }

void ZuMfree(void *block) { std::free(block); }
}
