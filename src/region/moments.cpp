// region/moments.cpp - the moment feature: pixel count, first and second moment sums.
//
// Sums are kept in double precision and are exact, whatever the order of the pixels, while they
// stay below 2^53; the square sums of an image of 65536 x 4096 pixels pass that.
#include <math.h>

#include <kipx/features.h>

namespace kipx {

namespace {

void add_moment(KipxWTSMF &state, double row, double column) {
    state.row += row;
    state.column += column;
    state.row_row += row * row;
    state.row_column += row * column;
    state.column_column += column * column;
}

uint32_t magnitude(int32_t count) {
    auto bits = static_cast<uint32_t>(count);
    return count < 0 ? 0 - bits : bits;
}

void count_pixels(KipxWTSMF &state, uint32_t count) {
    auto before = static_cast<uint32_t>(state.count);
    state.count = static_cast<int32_t>(state.count >= 1 ? before + count : before - count);
}

// Sum of squares or products about the means, divided by n.
double central(double product, double a, double b, double n) { return (product - a * b / n) / n; }

} // namespace

} // namespace kipx

KipxWTSFDs *KipxWTSMFinitFeatureDs(KipxWTSFDs *descriptor, void *parameter) {
    if (!descriptor) return nullptr;
    *descriptor = {};
    descriptor->magic = KIPX_WTSMF_MAGIC;
    descriptor->state_size = sizeof(KipxWTSMF);
    descriptor->parameter = parameter;
    descriptor->update = __KipxWTSMF__update__;
    descriptor->update2D = __KipxWTSMF__update2D__;
    descriptor->merge = __KipxWTSMF__merge__;
    descriptor->lazymerge = __KipxWTSMF__lazymerge__;
    descriptor->isgathered = __KipxWTSMF__isgathered__;
    descriptor->ongather = __KipxWTSMF__ongather__;
    return descriptor;
}

void KipxWTSMF_update2D(KipxWTSMF *state, uint32_t row, uint32_t column) {
    if (state) kipx::add_moment(*state, row, column);
}

uint32_t KipxWTSMF_update_n(KipxWTSMF *state, const uint32_t *pixels, uint32_t count) {
    if (!state || !pixels) return 0;
    for (uint32_t i = 0; i < count; ++i) kipx::add_moment(*state, 0, pixels[i]);
    return count;
}

uint32_t KipxWTSMF_update2D_n(KipxWTSMF *state, const uint32_t *pairs, uint32_t count) {
    if (!state || !pairs) return 0;
    for (size_t i = 0; i < count; ++i) kipx::add_moment(*state, pairs[2 * i], pairs[2 * i + 1]);
    return count;
}

void __KipxWTSMF__update__(void *state, const uint32_t *pixels, uint32_t count) {
    auto *moments = static_cast<KipxWTSMF *>(state);
    count = KipxWTSMF_update_n(moments, pixels, count);
    if (count) kipx::count_pixels(*moments, count);
}

void __KipxWTSMF__update2D__(void *state, const uint32_t *pairs, uint32_t count) {
    auto *moments = static_cast<KipxWTSMF *>(state);
    count = KipxWTSMF_update2D_n(moments, pairs, count);
    if (count) kipx::count_pixels(*moments, count);
}

void __KipxWTSMF__merge__(void *state, const void *other) {
    if (!state || !other || state == other) return;
    auto *into = static_cast<KipxWTSMF *>(state);
    auto *from = static_cast<const KipxWTSMF *>(other);
    into->count = static_cast<int32_t>(kipx::magnitude(into->count) + kipx::magnitude(from->count));
    __KipxWTSMF__lazymerge__(state, other);
}

void __KipxWTSMF__lazymerge__(void *state, const void *other) {
    if (!state || !other || state == other) return;
    auto *into = static_cast<KipxWTSMF *>(state);
    auto *from = static_cast<const KipxWTSMF *>(other);
    into->row += from->row;
    into->column += from->column;
    into->row_row += from->row_row;
    into->row_column += from->row_column;
    into->column_column += from->column_column;
}

int32_t __KipxWTSMF__isgathered__(const void *state) {
    return state && static_cast<const KipxWTSMF *>(state)->count > 0;
}

void __KipxWTSMF__ongather__(void *state, const KipxWTSregion *region) {
    if (state && region) static_cast<KipxWTSMF *>(state)->count = region->area;
}

double kipx_mf_mx(const KipxWTSMF *state) { return state ? state->column / state->count : NAN; }

double kipx_mf_my(const KipxWTSMF *state) { return state ? state->row / state->count : NAN; }

double kipx_mf_Mxx(const KipxWTSMF *state) {
    if (!state) return NAN;
    return kipx::central(state->column_column, state->column, state->column, state->count);
}

double kipx_mf_Mxy(const KipxWTSMF *state) {
    if (!state) return NAN;
    return kipx::central(state->row_column, state->row, state->column, state->count);
}

double kipx_mf_Myy(const KipxWTSMF *state) {
    if (!state) return NAN;
    return kipx::central(state->row_row, state->row, state->row, state->count);
}

void kipx_mf_M2(double out[3], const KipxWTSMF *state) {
    if (!out) return;
    out[0] = kipx_mf_Myy(state);
    out[1] = kipx_mf_Mxy(state);
    out[2] = kipx_mf_Mxx(state);
}

double kipx_mf_theta(const KipxWTSMF *state) {
    return 0.5 * atan2(2 * kipx_mf_Mxy(state), kipx_mf_Mxx(state) - kipx_mf_Myy(state));
}
