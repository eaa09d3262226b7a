// core/region.cpp - regions of interest: the whole array, intersection, negotiation.
//
// Promises entries are compared as signed 32-bit numbers, ends are computed in 64 bits, so that no
//          origin or extent can wrap.
#include "core/region.h"

#include <kipx/array.h>

#include <algorithm>

#include "core/element.h"

namespace {

int64_t signed_of(uint32_t entry) { return static_cast<int32_t>(entry); }

// Back into 32 bits: an extent can only leave them downwards, where it is empty all the same.
uint32_t entry_of(int64_t value) {
    return static_cast<uint32_t>(std::max<int64_t>(value, INT32_MIN));
}

void decode_channels(kipx_site *site) {
    site->origin[3] = 0;
    site->extent[3] = kipx::channels_of(site->extent[3]);
}

} // namespace

extern "C" {

void kipx_arr_siteof(const kipx_arr *arr, kipx_site *site) {
    if (arr && site) kipx_arr__siteof(arr->volume, 4, site->origin, site->extent);
}

void kipx_arr__siteof(const uint32_t *volume, uint32_t n, uint32_t *origin, uint32_t *extent) {
    if (!volume || !extent) return;
    for (uint32_t i = 0; i < n; ++i) {
        if (origin) origin[i] = 0;
        extent[i] = volume[i];
    }
}

void kipx_arr__siteofAt(const kipx_arr *arr, uint32_t n, uint32_t *origin, uint32_t *extent,
                        const kipx_pos *at) {
    if (!arr || !origin || !extent) return;
    int32_t slots = static_cast<int32_t>(std::min(n, 3u));
    kipx_arr__siteof(arr->volume, 4, origin, extent);
    if (!at) return;
    kipx__intersecI(slots, origin, extent, at->at, arr->volume);
    for (int32_t i = 0; i < slots; ++i)
        extent[i] = static_cast<uint32_t>(std::max<int64_t>(signed_of(extent[i]), 0));
}

intptr_t kipx_arr_adjorgetRoi(const kipx_arr *arr, kipx_site *site, const kipx_site *roi) {
    if (!arr || !site) return 0;
    kipx_arr_siteof(arr, site);
    decode_channels(site);
    if (!roi) return reinterpret_cast<intptr_t>(site);
    return kipx__intersecI(4, site->origin, site->extent, roi->origin, roi->extent);
}

int32_t kipx_arr_adjustRoi(const kipx_arr *arr, kipx_site *site) {
    return kipx_arr_adjorgetRoi(arr, site, nullptr) != 0 && !kipx_volume__empty(4, site->extent);
}

int32_t kipx_arr__adjustRoi_$I(uint32_t *origin, uint32_t *extent, const kipx_arr *arr) {
    kipx_site whole;
    if (!kipx_arr_adjorgetRoi(arr, &whole, nullptr)) return 0;
    return kipx__intersecI(4, origin, extent, whole.origin, whole.extent);
}

int32_t kipx__intersecI(int32_t n, uint32_t *origin_a, uint32_t *extent_a, const uint32_t *origin_b,
                        const uint32_t *extent_b) {
    bool some = n >= 1;
    for (int32_t i = 0; i < n; ++i) {
        int64_t a = signed_of(origin_a[i]), b = signed_of(origin_b[i]);
        int64_t end = std::min(a + signed_of(extent_a[i]), b + signed_of(extent_b[i]));
        int64_t origin = std::max(a, b);
        origin_a[i] = static_cast<uint32_t>(origin);
        extent_a[i] = entry_of(end - origin);
        some &= end - origin >= 1;
    }
    return some;
}

int32_t kipx_intersecI(kipx_dims dims, uint32_t *origin_a, uint32_t *extent_a,
                       const uint32_t *origin_b, const uint32_t *extent_b) {
    return kipx__intersecI(static_cast<int32_t>(kipx::axes_of(dims)), origin_a, extent_a, origin_b,
                           extent_b);
}

int32_t kipx_arr_negotiateRoi(const kipx_arr *dst, const kipx_arr *src, kipx_site *dst_site,
                              kipx_site *src_site, const kipx_site *roi, const kipx_pos *src_at,
                              int32_t n) {
    if (!dst || !src || !dst_site || !src_site) return 0;
    kipx_arr_adjorgetRoi(dst, dst_site, roi);
    kipx_arr__siteofAt(src, 3, src_site->origin, src_site->extent, src_at);
    decode_channels(src_site);
    bool some = static_cast<int32_t>(dst_site->extent[3]) >= 1;
    return kipx::common_extent(*dst_site, *src_site, n >= 1 && n <= 3 ? n : 3) && some;
}
}
