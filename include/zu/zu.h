/* zu/zu.h - the base runtime: heap blocks and stacked memory storages.
 *
 * Gives    heap blocks with checked sizes, and the storage ZuSMEMSTG: blocks are taken one after
 *          the other and given back one by one in any order, or all at once back to a mark.
 * Promises every size is checked before use; a request that cannot be met gives null and changes
 *          nothing. Blocks never move. Nothing is locked: one thread at a time per storage, a child
 *          storage counting as part of its parent.
 * Costs    a block is a header of 16 bytes and a bump of the open segment; giving back the newest
 *          block lowers the top past every dead block under it.
 * Owner    whoever opens a storage closes it; the blocks belong to the storage.
 */
#ifndef ZU_ZU_H
#define ZU_ZU_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define ZU_API __attribute__((visibility("default")))
#else
#define ZU_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Header of a stacked memory storage: six 64-bit words, opaque, wherever the caller likes it
 * (aligned to 8). It must not be copied or moved while the storage is open. */
typedef struct ZuSMEMSTG {
    uint64_t word[6];
} ZuSMEMSTG;

/* A mark in a storage: four opaque words written by ZuSMEMSTGgetstate. A mark is a value: as long as
 * nothing is taken, all marks of a storage are equal, byte for byte, and after a rewind to a mark the
 * next one equals it. Giving blocks back changes no mark. */
typedef struct ZuSMEMSTATE {
    uint64_t word[4];
} ZuSMEMSTATE;

/* ---- heap blocks ---------------------------------------------------------------------------- */

/* Zero-filled block for count elements of size bytes, aligned to 16; null when count * size
 * overflows or memory is short. A product of 0 gives a distinct block. Free with _ZuMfree. */
ZU_API void *_ZuMcalloc(size_t count, size_t size);
/* The block grown or shrunk to size bytes, moved if need be; null block: a new one. On failure null,
 * and the old block stays as it was. Size 0 counts as 1. Added bytes are undefined. */
ZU_API void *_ZuMrealloc(void *block, size_t size);
/* Gives a heap block back; null does nothing. The two names are one function. */
ZU_API void _ZuMfree(void *block);
ZU_API void ZuMfree(void *block);

/* ---- stacked memory storage ----------------------------------------------------------------- */

/* Opens a storage. header: where its header lives, or null to have one made (released by
 * ZuMEMSTGclose). parent: 0 draws on the heap; any other value is the address of an open storage
 * (a ZuSMEMSTG) from which whole segments are taken and to which each is given back. reserved is
 * not read; pass 0. Returns the storage, or null when a header cannot be had. */
ZU_API ZuSMEMSTG *ZuSMEMSTGopen(void *header, uint64_t parent, uint64_t reserved);

/* Takes a block of size bytes aligned to alignment (a power of two; 0 means 16). Size 0 gives a
 * distinct block. Contents undefined. Null when memory or the limit is exhausted, when the size
 * arithmetic overflows, when alignment is not a power of two, or when storage is null. reserved is
 * not read; pass 0. */
ZU_API void *ZuSMEMSTGaalloc(ZuSMEMSTG *storage, size_t size, size_t alignment, uint64_t reserved);

/* Gives a block back. The newest block's room, and that of the dead blocks under it, is reusable at
 * once; any other block is only marked dead until those above it have gone. Null does nothing. */
ZU_API void ZuSMEMSTGfree(ZuSMEMSTG *storage, void *block);

/* Writes the mark of the present moment into state. */
ZU_API void ZuSMEMSTGgetstate(ZuSMEMSTATE *state, ZuSMEMSTG *storage);
/* Releases every block newer than the mark; room that has been released already is never brought
 * back to life. A mark older than the last clear releases everything; a mark of another storage does
 * nothing (debug builds abort). Children that have drawn anything since, or were opened since, end
 * with it: they must then be neither used nor closed. The same holds for clear and close. */
ZU_API void ZuSMEMSTGsetstate(ZuSMEMSTG *storage, const ZuSMEMSTATE *state);

/* Releases every block; the storage stays open. */
ZU_API void ZuSMEMSTGclear(ZuSMEMSTG *storage);
/* Closes the storage and releases all of its memory, the header too when ZuSMEMSTGopen made it.
 * Null does nothing. */
ZU_API void ZuMEMSTGclose(ZuSMEMSTG *storage);
/* The same for a storage whose header lives in the caller's memory; the header is zeroed. */
ZU_API void ZuMEMSTGdestroy(ZuSMEMSTG *storage);

/* Bounds the bytes that the storage may draw from its heap or parent, segments already drawn
 * included; rounded down to whole KiB, and 0 lifts the bound. A limit below the present use only stops further growth. */
ZU_API void ZuSMEMSTGsetlimit(ZuSMEMSTG *storage, size_t bytes);
/* Bytes drawn from the heap or the parent: now, and the most there ever were since it was opened,
 * the latter rounded up to 16 KiB. */
ZU_API size_t ZuSMEMSTGdrawn(const ZuSMEMSTG *storage);
ZU_API size_t ZuSMEMSTGpeak(const ZuSMEMSTG *storage);

#ifdef __cplusplus
}
#endif

#endif
