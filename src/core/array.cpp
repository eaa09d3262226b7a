// core/array.cpp - element types, extents, strides and addresses.
//
// Gives    the one-line accessors of kipx/array.h and the addresses of elements.
// Promises no function reads more entries than its axes (and leading slots, for $L); products that
//          can leave 32 bits are formed in 64.
#include <kipx/array.h>

#include <cstring>

#include "core/element.h"

using kipx::axes_of;

extern "C" {

uint32_t kipx_elsize(uint32_t type) {
    return kipx::element_valid(type) ? kipx::element_size(type) : 0;
}
int32_t kipx_eltype_valid(uint32_t type) { return kipx::element_valid(type); }
uint32_t kipx_nchannels(uint32_t code) { return kipx::channels_of(code); }

uint32_t kipx__rowstride(uint32_t n, const uint32_t *strides) {
    return kipx::row_stride(n, strides);
}
uint32_t kipx__rowstride2(uint32_t n, const uint32_t *volume, const uint32_t *strides) {
    if (n > 2) return strides[n - 3];
    return kipx_volume__width(n, volume) * kipx__pixstride(n, strides);
}
uint32_t kipx__pixstride(uint32_t n, const uint32_t *strides) {
    return kipx::pixel_stride(n, strides);
}
uint32_t kipx__elstride(uint32_t n, const uint32_t *strides) {
    return kipx::element_stride(n, strides);
}
int64_t kipx__rowpadding(uint32_t n, const uint32_t *volume, const uint32_t *strides) {
    uint64_t row = uint64_t{kipx_volume__width(n, volume)} * kipx__pixstride(n, strides);
    return static_cast<int64_t>(kipx__rowstride(n, strides) - row);
}
int64_t kipx__pixpadding(uint32_t n, const uint32_t *volume, const uint32_t *strides) {
    uint64_t pixel = uint64_t{kipx_volume__nchannels(n, volume)} * kipx__elstride(n, strides);
    return static_cast<int64_t>(kipx__pixstride(n, strides) - pixel);
}
int64_t kipx__elpadding(uint32_t) { return 0; }

uint32_t kipx_volume__height(uint32_t n, const uint32_t *volume) {
    return kipx::height_of(n, volume);
}
uint32_t kipx_volume__width(uint32_t n, const uint32_t *volume) {
    return kipx::width_of(n, volume);
}
uint32_t kipx_volume__nchannels(uint32_t n, const uint32_t *volume) {
    return n > 0 ? kipx::channels_of(volume[n - 1]) : 0;
}

uint64_t kipx_volume__capacity_$Q(uint32_t n, const uint32_t *volume) {
    if (n == 0) return 0;
    uint64_t product = kipx_volume__nchannels(n, volume);
    bool overflow = false;
    for (uint32_t i = 0; i + 1 < n; ++i) {
        if (volume[i] == 0) return 0;
        overflow |= __builtin_mul_overflow(product, uint64_t{volume[i]}, &product);
    }
    return overflow ? UINT64_MAX : product;
}
uint32_t kipx_volume__capacity(uint32_t n, const uint32_t *volume) {
    return n == 0 ? 0 : kipx_volume__pixcap(n, volume) * kipx_volume__nchannels(n, volume);
}
uint32_t kipx_volume__pixcap(uint32_t n, const uint32_t *volume) {
    uint32_t product = n == 0 ? 0 : 1;
    for (uint32_t i = 0; i + 1 < n; ++i) product *= volume[i];
    return product;
}
int32_t kipx_volume__empty(uint32_t n, const uint32_t *volume) {
    bool empty = n == 0;
    for (uint32_t i = 0; i < n; ++i) empty |= static_cast<int32_t>(volume[i]) < 1;
    return empty;
}

uint64_t kipx_vmemsize(uint32_t kind, const uint32_t *volume, uint32_t *strides, uint32_t align) {
    uint32_t n = kind & 15, size = kipx_elsize(kind >> 4);
    if (n < 1 || n > 4 || size == 0 || (align & (align - 1)) != 0) return 0;
    if (!volume || !strides || kipx_volume__empty(n, volume)) return 0;
    uint64_t step[4], bytes = size, mask = align ? align - 1 : 0;
    for (uint32_t i = n; i-- > 0;) {
        step[i] = bytes;
        uint64_t extent = i == n - 1 ? kipx::channels_of(volume[i]) : volume[i];
        if (extent == 0) return 0;
        bytes *= extent; // at most 2^32 * 2^31 before the check below
        if (n > 1 && i == n - 2) bytes = (bytes + mask) & ~mask;
        if (bytes > UINT32_MAX) return 0;
    }
    for (uint32_t i = 0; i < n; ++i) strides[i] = static_cast<uint32_t>(step[i]);
    return bytes;
}

uint64_t kipx_vmemsizeL(uint32_t kind, const uint32_t *volume, uint32_t *strides, uint32_t align) {
    uint32_t n = axes_of(kind), leading = static_cast<uint32_t>(kipx::leading_of(kind));
    if (!volume || !strides || n < 1 || n + leading > 4 || kind >> 8 > 15) return 0;
    return kipx_vmemsize((n + leading) | kind >> 8 << 4, volume - leading, strides - leading,
                         align);
}

const void *kipx_memcelem2dS(const void *base, uint32_t rows, uint32_t row_stride, uint32_t width,
                             uint32_t stride, uint32_t size, const void *value) {
    if (!base || !value || size == 0 || width == 0) return nullptr;
    for (uint64_t y = 0; y < rows; ++y) {
        const char *row = static_cast<const char *>(base) + y * row_stride;
        // Where elements touch, all are equal when each equals the next.
        if (stride == size && memcmp(row, value, size) == 0 &&
            memcmp(row, row + size, (uint64_t{width} - 1) * size) == 0)
            continue;
        for (uint64_t x = 0; x < width; ++x)
            if (memcmp(row + x * stride, value, size) != 0) return row + x * stride;
    }
    return nullptr;
}

// The same functions over a dims word.
uint32_t kipx_rowstride(kipx_dims d, const uint32_t *s) { return kipx__rowstride(axes_of(d), s); }
uint32_t kipx_rowstride2(kipx_dims d, const uint32_t *v, const uint32_t *s) {
    return kipx__rowstride2(axes_of(d), v, s);
}
uint32_t kipx_pixstride(kipx_dims d, const uint32_t *s) { return kipx__pixstride(axes_of(d), s); }
uint32_t kipx_elstride(kipx_dims d, const uint32_t *s) { return kipx__elstride(axes_of(d), s); }
int64_t kipx_rowpadding(kipx_dims d, const uint32_t *v, const uint32_t *s) {
    return kipx__rowpadding(axes_of(d), v, s);
}
int64_t kipx_pixpadding(kipx_dims d, const uint32_t *v, const uint32_t *s) {
    return kipx__pixpadding(axes_of(d), v, s);
}
int64_t kipx_elpadding(kipx_dims d) { return kipx__elpadding(axes_of(d)); }
uint32_t kipx_volume_height(kipx_dims d, const uint32_t *v) {
    return kipx_volume__height(axes_of(d), v);
}
uint32_t kipx_volume_width(kipx_dims d, const uint32_t *v) {
    return kipx_volume__width(axes_of(d), v);
}
uint32_t kipx_volume_nchannels(kipx_dims d, const uint32_t *v) {
    return kipx_volume__nchannels(axes_of(d), v);
}
uint32_t kipx_volume_capacity(kipx_dims d, const uint32_t *v) {
    return kipx_volume__capacity(axes_of(d), v);
}
uint64_t kipx_volume_capacity_$Q(kipx_dims d, const uint32_t *v) {
    return kipx_volume__capacity_$Q(axes_of(d), v);
}
uint32_t kipx_volume_pixcap(kipx_dims d, const uint32_t *v) {
    return kipx_volume__pixcap(axes_of(d), v);
}
int32_t kipx_volume_empty(kipx_dims d, const uint32_t *v) {
    return kipx_volume__empty(axes_of(d), v);
}

void kipx_vec_assign(kipx_dims dims, uint32_t *target, const uint32_t *source) {
    kipx_vec_assign_$L(axes_of(dims), target, source);
}
void kipx_vec_assign_$L(kipx_dims dims, uint32_t *target, const uint32_t *source) {
    for (int i = -kipx::leading_of(dims); i < static_cast<int>(axes_of(dims)); ++i)
        target[i] = source[i];
}
void kipx_vec_dup(kipx_dims dims, uint32_t *target, uint32_t value) {
    kipx_vec_dup_$L(axes_of(dims), target, value);
}
void kipx_vec_dup_$L(kipx_dims dims, uint32_t *target, uint32_t value) {
    for (int i = -kipx::leading_of(dims); i < static_cast<int>(axes_of(dims)); ++i)
        target[i] = value;
}
uint32_t kipx_vec_mkloff(kipx_dims dims, const uint32_t *position, const uint32_t *strides) {
    return kipx_vec_mkloff_$LS(axes_of(dims), position, strides);
}
uint32_t kipx_vec_mkloff_$LS(kipx_dims dims, const uint32_t *position, const uint32_t *strides) {
    if (!position) return 0;
    return kipx::byte_offset(kipx::leading_of(dims), axes_of(dims), position, strides);
}
void kipx_vec_update_loff(kipx_dims dims, uint32_t *offset, uint32_t *origin,
                          const uint32_t *strides) {
    *offset += kipx_vec_mkloff(dims, origin, strides);
    kipx_vec_dup(dims, origin, 0);
}
void *kipx_advance_ptr(const void *base, uint32_t offset) {
    return static_cast<char *>(const_cast<void *>(base)) + offset;
}
void *kipx_arr_base(const kipx_arr *arr) {
    return arr && arr->base ? kipx_advance_ptr(arr->base, arr->offset) : nullptr;
}
void *kipx_arr_at(const kipx_arr *arr, const kipx_pos *position) {
    void *base = kipx_arr_base(arr);
    if (!base || !position) return base;
    uint32_t first = arr->naxes == 4 ? 0 : 1;
    return kipx_advance_ptr(base,
                            kipx_vec_mkloff(4 - first, position->at + first, arr->strides + first));
}

int32_t kipxa_proc_einval(void) { return KIPX_EINVAL; }
int32_t kipxa_proc_enotsup(void) { return KIPX_ENOTSUP; }
int32_t kipxa_proc_enotimp(void) { return KIPX_ENOTIMP; }

uint32_t kipx_level1_dcache_size(void) { return 32u << 10; }
uint32_t kipx_level2_cache_size(void) { return 1u << 20; }
}
