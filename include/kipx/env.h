/* kipx/env.h - the execution environment, its memory stack, and the vectorisation switch.
 *
 * Gives    KipxXE, the first argument of every image operation, from which operations take scratch
 *          memory and to which they give it back before they return.
 * Promises a zero record is a valid, uninitialised environment; a stack is opened on first use.
 * Owner    the caller owns the record. A stack that the environment opened is its own; a stack that
 *          the caller lent is only rewound to where it stood. One thread at a time.
 */
#ifndef KIPX_ENV_H
#define KIPX_ENV_H

#include <kipx/api.h>
#include <zu/zu.h>

KIPX_BEGIN

/* The memory stack is a stacked memory storage of the base runtime. */
typedef ZuSMEMSTG kipx_mmstack;
typedef ZuSMEMSTATE kipx_mmstate;

#define KIPX_XE_INITIALISED UINT64_C(0x1)
#define KIPX_XE_FROM_STACK UINT64_C(0x10)

typedef struct KipxXE {
    kipx_mmstack *stack;       /* in use, or null: opened on first use */
    uint64_t flags;            /* KIPX_XE_* */
    uint64_t param;            /* second argument of ZuSMEMSTGopen for a stack of its own */
    kipx_mmstack inline_stack; /* header of a stack of its own */
    kipx_mmstate saved;        /* the stack's mark when it was attached */
} KipxXE;

/* KipxXEinit2 with parameter 0. */
KIPX_API KipxXE *KipxXEinit(KipxXE *xe, kipx_mmstack *stack);
/* Initialises a zero record and returns it; an initialised record comes back unchanged. stack: one
 * that the caller lends, or null; the record's own inline storage counts as null. Null: null. */
KIPX_API KipxXE *KipxXEinit2(KipxXE *xe, kipx_mmstack *stack, uint64_t param);
/* Makes an environment. With xe null the record is taken from stack, or from a new stack when that
 * is null too, and flag bit 4 is set: closing such an environment closes its stack, a lent one as
 * well. Null when memory is short; a stack that it opened is then closed again. */
KIPX_API KipxXE *KipxXEopen(KipxXE *xe, kipx_mmstack *stack, uint64_t param);
/* Ends an environment made by KipxXEopen; null does nothing. */
KIPX_API void KipxXEclose(KipxXE *xe);
/* Ends an initialised record: destroys its own stack, rewinds a lent one. Otherwise nothing. */
KIPX_API void KipxXEfini(KipxXE *xe);
/* Releases everything taken since the stack was attached. */
KIPX_API void KipxXEclear(KipxXE *xe);
/* The stack; opened in the inline storage when there is none. Null when it cannot be opened. A zero
 * record becomes initialised, so that KipxXEfini releases what was opened. */
KIPX_API kipx_mmstack *KipxXEmmstack(KipxXE *xe);
/* Opens the environment's own stack when it has none; a param of 0 keeps the stored one. */
KIPX_API void KipxXEinitMmstack(KipxXE *xe, uint64_t param);
/* Changes the stack. A record taken from its own stack is closed and a new one opened on the new
 * stack; use the result. */
KIPX_API KipxXE *KipxXEresetMmstack(KipxXE *xe, kipx_mmstack *stack, uint64_t param);
/* KipxXEresetMmstack (xe, null, 0). */
KIPX_API KipxXE *KipxXEdestroyMmstack(KipxXE *xe);
/* A scratch block of size bytes aligned to align (0 means 16; else a power of two); size 0 gives a
 * distinct block. Null when memory is short or xe is null. */
KIPX_API void *KipxXEalloca(KipxXE *xe, size_t size, size_t align);
/* Gives a scratch block back; null does nothing. */
KIPX_API void KipxXEfreea(KipxXE *xe, void *block);
/* The stack's mark into state (a stack is opened when there is none), and back to it. */
KIPX_API void KipxXEgetmmsp(KipxXE *xe, kipx_mmstate *state);
KIPX_API void KipxXEsetmmsp(KipxXE *xe, const kipx_mmstate *state);
/* 1 when vectorised kernels may be used, else 0; KIPX_FLAG_PLAIN asks for none and gives 0. */
KIPX_API int32_t KipxXEuseSimd(KipxXE *xe, uint64_t flags);

/* The vectorisation switch, the library's one piece of global state: -1 not yet decided, 0 off, else
 * on. A query decides an undecided switch, to off, and leaves a decided one alone; the probe
 * __kipx_use_simd turns it off whatever it was, and returns 0. All forms of a kernel give the same
 * bits.
 *
 * kipx_set_simd (KIPX_SIMD_BEST), or any value not named here, uses the best instruction set that the
 * processor has; KIPX_SIMD_AVX2 and KIPX_SIMD_AVX512 use that set and no better one, and where the
 * processor lacks it the best below. Switched off, kernels run in the form that every processor of
 * the architecture has. */
enum { KIPX_SIMD_OFF = 0, KIPX_SIMD_BEST = 1, KIPX_SIMD_AVX2 = 2, KIPX_SIMD_AVX512 = 3 };
KIPX_API int32_t kipx_use_simd(uint64_t flags);
KIPX_API int32_t __kipx_use_simd(void);
KIPX_API void kipx_set_simd(int32_t value);
/* The set that kernels run on with these flags: KIPX_SIMD_OFF, KIPX_SIMD_AVX2 or KIPX_SIMD_AVX512. */
KIPX_API int32_t kipx_simd_set(uint64_t flags);

/* The memory stack by itself: the functions of zu/zu.h under this library's names. */
KIPX_API kipx_mmstack *kipx_mmstack_open(void *storage, uint64_t param);
KIPX_API void *kipx_mmstack_alloca(kipx_mmstack *stack, size_t size, size_t align);
KIPX_API void kipx_mmstack_freea(kipx_mmstack *stack, void *block);
KIPX_API kipx_mmstate *kipx_mmstack_state(kipx_mmstack *stack, kipx_mmstate *state);
KIPX_API void kipx_mmstack_setstate(kipx_mmstack *stack, const kipx_mmstate *state);
KIPX_API void kipx_mmstack_reset(kipx_mmstack *stack);
KIPX_API void kipx_mmstack_close(kipx_mmstack *stack);

KIPX_END

#endif
