// core/env.cpp - the execution environment over the base runtime's memory stack.
//
// Promises a stack is opened at most once and only when asked for; an owned stack lives in the
//          record's inline storage, whatever else is in use was lent.
#include <kipx/env.h>

namespace {

bool owns_stack(const KipxXE *xe) { return xe->stack == &xe->inline_stack; }

// Opens the record's own stack and makes it count as initialised, so that its end releases it.
kipx_mmstack *open_own_stack(KipxXE *xe) {
    kipx_mmstack *stack = kipx_mmstack_open(&xe->inline_stack, xe->param);
    if (!stack) return nullptr;
    ZuSMEMSTGgetstate(&xe->saved, stack);
    xe->flags |= KIPX_XE_INITIALISED;
    return xe->stack = stack;
}

} // namespace

extern "C" {

KipxXE *KipxXEinit(KipxXE *xe, kipx_mmstack *stack) { return KipxXEinit2(xe, stack, 0); }

KipxXE *KipxXEinit2(KipxXE *xe, kipx_mmstack *stack, uint64_t param) {
    if (!xe || (xe->flags & KIPX_XE_INITIALISED)) return xe;
    xe->param = param;
    xe->stack = stack == &xe->inline_stack ? nullptr : stack;
    if (xe->stack) ZuSMEMSTGgetstate(&xe->saved, xe->stack);
    xe->flags = KIPX_XE_INITIALISED;
    return xe;
}

KipxXE *KipxXEopen(KipxXE *xe, kipx_mmstack *stack, uint64_t param) {
    bool taken = !xe;
    if (taken) {
        kipx_mmstack *opened = stack ? nullptr : kipx_mmstack_open(nullptr, param);
        if (!stack) stack = opened;
        if (stack) xe = static_cast<KipxXE *>(ZuSMEMSTGaalloc(stack, sizeof *xe, 8, 0));
        if (!xe) {
            ZuMEMSTGclose(opened);
            return nullptr;
        }
    }
    *xe = KipxXE{};
    KipxXEinit2(xe, stack, param);
    if (taken) xe->flags |= KIPX_XE_FROM_STACK;
    return xe;
}

void KipxXEclose(KipxXE *xe) {
    if (!xe) return;
    kipx_mmstack *stack = xe->stack;
    uint64_t flags = xe->flags;
    KipxXEfini(xe);
    if (flags & KIPX_XE_FROM_STACK) ZuMEMSTGclose(stack);
}

void KipxXEfini(KipxXE *xe) {
    if (!xe || !(xe->flags & KIPX_XE_INITIALISED)) return;
    if (xe->stack && owns_stack(xe)) {
        ZuMEMSTGdestroy(xe->stack);
        xe->stack = nullptr;
    } else if (xe->stack) {
        ZuSMEMSTGsetstate(xe->stack, &xe->saved);
    }
    xe->flags &= ~KIPX_XE_INITIALISED;
    xe->param = 0;
}

void KipxXEclear(KipxXE *xe) {
    if (xe && xe->stack) ZuSMEMSTGsetstate(xe->stack, &xe->saved);
}

kipx_mmstack *KipxXEmmstack(KipxXE *xe) {
    if (!xe) return nullptr;
    return xe->stack ? xe->stack : open_own_stack(xe);
}

void KipxXEinitMmstack(KipxXE *xe, uint64_t param) {
    if (!xe || xe->stack) return;
    if (param) xe->param = param;
    open_own_stack(xe);
}

KipxXE *KipxXEresetMmstack(KipxXE *xe, kipx_mmstack *stack, uint64_t param) {
    if (!xe || xe->stack == stack) return xe;
    if (xe->flags & KIPX_XE_FROM_STACK) {
        KipxXEclose(xe);
        return KipxXEopen(nullptr, stack, param);
    }
    KipxXEfini(xe);
    return KipxXEinit2(xe, stack, param);
}

KipxXE *KipxXEdestroyMmstack(KipxXE *xe) { return KipxXEresetMmstack(xe, nullptr, 0); }

void *KipxXEalloca(KipxXE *xe, size_t size, size_t align) {
    return kipx_mmstack_alloca(KipxXEmmstack(xe), size, align);
}

void KipxXEfreea(KipxXE *xe, void *block) {
    if (xe && xe->stack) kipx_mmstack_freea(xe->stack, block);
}

void KipxXEgetmmsp(KipxXE *xe, kipx_mmstate *state) {
    kipx_mmstack *stack = state ? KipxXEmmstack(xe) : nullptr;
    if (stack) ZuSMEMSTGgetstate(state, stack);
}

void KipxXEsetmmsp(KipxXE *xe, const kipx_mmstate *state) {
    if (xe && xe->stack && state) ZuSMEMSTGsetstate(xe->stack, state);
}

int32_t KipxXEuseSimd(KipxXE *, uint64_t flags) { return kipx_use_simd(flags); }

kipx_mmstack *kipx_mmstack_open(void *storage, uint64_t param) {
    return ZuSMEMSTGopen(storage, param, 0);
}
void *kipx_mmstack_alloca(kipx_mmstack *stack, size_t size, size_t align) {
    return stack ? ZuSMEMSTGaalloc(stack, size, align ? align : 16, 0) : nullptr;
}
void kipx_mmstack_freea(kipx_mmstack *stack, void *block) {
    if (stack) ZuSMEMSTGfree(stack, block);
}
kipx_mmstate *kipx_mmstack_state(kipx_mmstack *stack, kipx_mmstate *state) {
    if (stack && state) ZuSMEMSTGgetstate(state, stack);
    return state;
}
void kipx_mmstack_setstate(kipx_mmstack *stack, const kipx_mmstate *state) {
    if (stack && state) ZuSMEMSTGsetstate(stack, state);
}
void kipx_mmstack_reset(kipx_mmstack *stack) {
    if (stack) ZuSMEMSTGclear(stack);
}
void kipx_mmstack_close(kipx_mmstack *stack) {
    if (stack) ZuMEMSTGclose(stack);
}
}
