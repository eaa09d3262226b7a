/* zu_failing.h - controls of the substitute runtime, on which allocations can be made to fail.
 *
 * Allocations are counted over everything that can give null: heap blocks, storage blocks, and the
 * opening of a storage. Every block is a heap block of its own, so that the address sanitizer sees
 * each overrun; a double free or a foreign pointer aborts in every build.
 */
#ifndef ZU_FAILING_H
#define ZU_FAILING_H

#include <zu/zu.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The k-th allocation from now, counted from 0, gives null, once; negative: none does. */
ZU_API void zu_fail_at(long k);
/* The k-th allocation from now and all after it give null; negative: none does. */
ZU_API void zu_fail_from(long k);
/* Allocations asked for since the last reset, failed ones included. */
ZU_API long zu_allocations(void);
/* Blocks that are out: heap blocks, storage blocks, headers made by ZuSMEMSTGopen. */
ZU_API long zu_live_blocks(void);
ZU_API size_t zu_live_bytes(void);
/* Starts the count anew and lets every allocation succeed; live blocks stay as they are. */
ZU_API void zu_reset(void);

#ifdef __cplusplus
}
#endif

#endif
