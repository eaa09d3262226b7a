// region/pixels.cpp - the pixel feature: the list of a region's pixels, in a heap array.
//
// Updates at least double the array, so that pixels arriving one by one cost constant time each;
// merges grow it to exactly what they need.
#include <string.h>

#include <kipx/features.h>
#include <zu/zu.h>

#include "region/pixels.h"

namespace kipx {

namespace {

uint64_t capacity_of(const KipxWTSPF &state) { return state.capacity & ~KIPX_WTSPF_GATHERED; }

bool resize(KipxWTSPF &state, uint64_t capacity) {
    if (capacity > SIZE_MAX / sizeof(KipxWTSPFpixel)) return false;
    void *entries = _ZuMrealloc(state.entries, capacity * sizeof(KipxWTSPFpixel));
    if (!entries) return false;
    state.entries = static_cast<KipxWTSPFpixel *>(entries);
    state.capacity = capacity | (state.capacity & KIPX_WTSPF_GATHERED);
    return true;
}

// Where the next count entries go; null when there is no room and none can be had.
KipxWTSPFpixel *room_to_grow(KipxWTSPF *state, uint64_t count) {
    if (!state) return nullptr;
    uint64_t capacity = capacity_of(*state), needed = state->count + count;
    uint64_t doubled = needed < 2 * capacity ? 2 * capacity : needed;
    if (needed > capacity && !resize(*state, doubled) && !resize(*state, needed)) return nullptr;
    return state->entries + state->count;
}

} // namespace

bool reserve_pixels(KipxWTSPF &state, uint64_t capacity) {
    return capacity <= capacity_of(state) || resize(state, capacity);
}

} // namespace kipx

KipxWTSFDs *KipxWTSPFinitFeatureDs(KipxWTSFDs *descriptor, void *parameter) {
    if (!descriptor) return nullptr;
    *descriptor = {};
    descriptor->magic = KIPX_WTSPF_MAGIC;
    descriptor->state_size = sizeof(KipxWTSPF);
    descriptor->parameter = parameter;
    descriptor->init = __KipxWTSPF__init__;
    descriptor->destroy = __KipxWTSPF__destroy__;
    descriptor->update = __KipxWTSPF__update__;
    descriptor->update2D = __KipxWTSPF__update2D__;
    descriptor->merge = __KipxWTSPF__merge__;
    descriptor->lazymerge = __KipxWTSPF__lazymerge__;
    descriptor->isgathered = __KipxWTSPF__isgathered__;
    descriptor->ongather = __KipxWTSPF__ongather__;
    return descriptor;
}

uint32_t KipxWTSPF_update2D(KipxWTSPF *state, uint32_t row, uint32_t column) {
    const uint32_t pair[2] = {row, column};
    return KipxWTSPF_update2D_n(state, pair, 1);
}

uint32_t KipxWTSPF_update_n(KipxWTSPF *state, const uint32_t *pixels, uint32_t count) {
    KipxWTSPFpixel *room = pixels && count ? kipx::room_to_grow(state, count) : nullptr;
    if (!room) return 0;
    for (uint32_t i = 0; i < count; ++i) room[i] = {0, pixels[i]};
    state->count += count;
    return count;
}

uint32_t KipxWTSPF_update2D_n(KipxWTSPF *state, const uint32_t *pairs, uint32_t count) {
    KipxWTSPFpixel *room = pairs && count ? kipx::room_to_grow(state, count) : nullptr;
    if (!room) return 0;
    memcpy(room, pairs, count * sizeof(KipxWTSPFpixel));
    state->count += count;
    return count;
}

void __KipxWTSPF__init__(void *state, void *) {
    if (state) *static_cast<KipxWTSPF *>(state) = {};
}

void __KipxWTSPF__destroy__(void *state) {
    if (!state) return;
    _ZuMfree(static_cast<KipxWTSPF *>(state)->entries);
    *static_cast<KipxWTSPF *>(state) = {};
}

void __KipxWTSPF__update__(void *state, const uint32_t *pixels, uint32_t count) {
    KipxWTSPF_update_n(static_cast<KipxWTSPF *>(state), pixels, count);
}

void __KipxWTSPF__update2D__(void *state, const uint32_t *pairs, uint32_t count) {
    KipxWTSPF_update2D_n(static_cast<KipxWTSPF *>(state), pairs, count);
}

void __KipxWTSPF__merge__(void *state, const void *other) {
    if (!state || !other || state == other) return;
    __KipxWTSPF__lazymerge__(state, other);
    static_cast<KipxWTSPF *>(state)->capacity |= KIPX_WTSPF_GATHERED;
}

void __KipxWTSPF__lazymerge__(void *state, const void *other) {
    if (!state || !other || state == other) return;
    auto *into = static_cast<KipxWTSPF *>(state);
    auto *from = static_cast<const KipxWTSPF *>(other);
    if (!from->count || !kipx::reserve_pixels(*into, into->count + from->count)) return;
    memcpy(into->entries + into->count, from->entries, from->count * sizeof(KipxWTSPFpixel));
    into->count += from->count;
}

int32_t __KipxWTSPF__isgathered__(const void *state) {
    return state && (static_cast<const KipxWTSPF *>(state)->capacity & KIPX_WTSPF_GATHERED) != 0;
}

void __KipxWTSPF__ongather__(void *state, const KipxWTSregion *) {
    if (state) static_cast<KipxWTSPF *>(state)->capacity |= KIPX_WTSPF_GATHERED;
}
