/* failing_malloc.c - an allocator in front of the C library's, whose N-th request fails.
 *
 * Gives    with KIPX_FAIL=N in the environment the N-th request from the start of the program on gets
 *          null, and with KIPX_FAIL=-N that one and all after it. KIPX_COUNT names a file that gets
 *          the number of requests at the end.
 * Promises nothing before this library is up fails: that is the loader's, not the program's.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

extern void *__libc_malloc(size_t);
extern void *__libc_calloc(size_t, size_t);
extern void *__libc_realloc(void *, size_t);
extern void *__libc_memalign(size_t, size_t);

static long chosen, requests;
static int on;

static int fails(void) {
    if (!on) return 0;
    long number = __atomic_add_fetch(&requests, 1, __ATOMIC_RELAXED);
    return number == chosen || (chosen < 0 && number >= -chosen);
}

void *malloc(size_t size) { return fails() ? NULL : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return fails() ? NULL : __libc_calloc(count, size); }
void *realloc(void *block, size_t size) { return fails() ? NULL : __libc_realloc(block, size); }
void *aligned_alloc(size_t align, size_t size) { return fails() ? NULL : __libc_memalign(align, size); }

int posix_memalign(void **out, size_t align, size_t size) {
    void *block = fails() ? NULL : __libc_memalign(align, size);
    if (block) *out = block;
    return block ? 0 : 12; /* ENOMEM */
}

__attribute__((constructor)) static void begin(void) {
    const char *text = getenv("KIPX_FAIL");
    chosen = text ? atol(text) : 0;
    on = 1;
}

__attribute__((destructor)) static void end(void) {
    on = 0;
    const char *path = getenv("KIPX_COUNT");
    FILE *file = path ? fopen(path, "w") : NULL;
    if (!file) return;
    fprintf(file, "%ld\n", requests);
    fclose(file);
}
