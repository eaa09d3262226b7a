/* kipx/sort.h - sorting and searching over raw bytes with a caller's comparator.
 *
 * An array is a base address, n elements and an element size in bytes; elements need no alignment.
 * Everything is done in place, without allocation, and only what lies between base and base + n *
 * size is touched, whatever the comparator answers. The sorts are not stable, but for the insertion
 * sort. Sources of the algorithms stand in src/util.
 */
#ifndef KIPX_SORT_H
#define KIPX_SORT_H

#include <kipx/api.h>

KIPX_BEGIN

/* Negative when a orders before b, zero when equal, positive when after. In the searches a is the
 * array's element and b the key. context comes through unchanged. */
typedef int32_t (*ZuCompare)(const void *a, const void *b, void *context);

/* An element equal to the key, or null. Among equal elements any may be returned. */
KIPX_API void *ZuBsearch(const void *key, const void *base, size_t n, size_t size,
                         ZuCompare compare, void *context);
/* An element equal to the key, else the address where the key belongs: the first element greater
 * than it, or one past the end. Null only when n is 0. */
KIPX_API void *ZuBsearchN(const void *key, const void *base, size_t n, size_t size,
                          ZuCompare compare, void *context);
/* An element equal to the key, else the last element smaller than it; null when there is none. */
KIPX_API void *ZuBsearchP(const void *key, const void *base, size_t n, size_t size,
                          ZuCompare compare, void *context);
/* ZuBsearch after validation. error, when given, receives 0 when found and -1 otherwise. */
KIPX_API void *ZuBsearch_s(const void *key, const void *base, size_t n, size_t size,
                           ZuCompare compare, void *context, int32_t *error);

/* Ascending sorts. 0, or -1 with nothing touched when size is 0, when n exceeds 0x7FFFFFFF / size, or
 * when n is not 0 and base or compare is null. The _nck forms check nothing. */
KIPX_API int32_t ZuQuickSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API int32_t ZuHeapSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API int32_t ZuInsertSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API int32_t ZuSelectSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API void ZuQuickSort_nck(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API void ZuHeapSort_nck(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API void ZuInsertSort_nck(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API void ZuSelectSort_nck(void *base, size_t n, size_t size, ZuCompare compare, void *context);

/* The workers behind them, for n of any size. */
KIPX_API void __ZuQuickSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API void __ZuHeapSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API void __ZuInsertSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);
KIPX_API void __ZuSelectSort(void *base, size_t n, size_t size, ZuCompare compare, void *context);

KIPX_END

#endif
