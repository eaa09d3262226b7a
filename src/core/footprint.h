// core/footprint.h - which bytes a region of an array occupies.
//
// Gives    the span of addresses of a region, checked; whether an array's own elements share bytes;
//          whether two arrays share any.
// Promises exact for arrays whose strides nest (each stride spans everything inside it) and agree;
//          otherwise two arrays count as sharing when their address ranges meet.
#pragma once

#include <kipx/types.h>

#include "core/element.h"

namespace kipx {

struct Span {
    uintptr_t first, end;
};

// False when the last element's byte offset from the array's base would exceed 2^32 - 1. Elements
// of unknown size count as one byte. Inline and without branches: every call asks for each array.
inline bool span_of(const kipx_arr &arr, const kipx_site &site, Span &span) {
    uint64_t first = arr.offset, last = first, high = 0, size = element_size(arr.type);
    for (int i = 0; i < 4; ++i) {
        // The plane stride of three axes is not used. Origins and extents are below 2^31, so that
        // no product passes 64 bits; sums count only while every term is below 2^32.
        uint64_t stride = i == 0 && arr.naxes == 3 ? 0 : arr.strides[i];
        uint64_t end = (uint64_t{site.origin[i]} + site.extent[i] - 1) * stride;
        first += site.origin[i] * stride, last += end, high |= end >> 32;
    }
    uintptr_t base = reinterpret_cast<uintptr_t>(arr.base);
    span = {base + first, base + last + (size ? size : 1)};
    return (high | last >> 32) == 0;
}
inline bool offsets_fit(const kipx_arr &arr, const kipx_site &site) {
    Span span;
    return span_of(arr, site, span);
}
inline bool apart(const Span &a, const Span &b) { return a.end <= b.first || b.end <= a.first; }

struct Footprint {
    const char *at;     // first element
    uint32_t axes;      // axes of more than one element
    uint64_t stride[4]; // of those, largest first
    uint64_t count[4];
    uint64_t step[4]; // by axis as the array names them, 0 where there is one element
    uint64_t span[5]; // bytes from first to last for axes i and inwards; span[axes] is an element
};

Footprint footprint(const kipx_arr &arr, const kipx_site &site);
bool shares_own_bytes(const Footprint &f);
// A quick look that finds the common case: rows span pixels, pixels span channels, nothing shared.
inline bool nests_plainly(const kipx_arr &arr, const kipx_site &site) {
    uint64_t inside = element_size(arr.type);
    bool nests = true;
    for (int i = 3; i >= 4 - arr.naxes; --i) {
        nests &= site.extent[i] < 2 || arr.strides[i] >= inside;
        inside += uint64_t{site.extent[i] - 1} * arr.strides[i];
    }
    return nests;
}
// The same elements at the same places.
bool same_footprint(const Footprint &a, const Footprint &b);
bool share_bytes(const Footprint &a, const Footprint &b);

} // namespace kipx
