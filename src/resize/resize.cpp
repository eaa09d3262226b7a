// resize/resize.cpp - nearest-neighbour resizing, from the public functions down to the loops.
//
// Promises a row of the source that serves several rows of the result is gone through once for up to four
//          of them. Nothing is allocated.
// Costs    which bytes a stretch of at most 4096 takes is found out once and serves all rows: 36 KiB
//          of the stack for it, 4 KiB more where a mask or gaps between pixels make a row go through a buffer.
#include <kipx/array.h>
#include <kipx/resize.h>

#include <algorithm>
#include <cstring>

#include "core/footprint.h"
#include "core/planes.h"
#include "core/rows.h"
#include "core/stages.h"
#include "core/stamp.h"
#include "resize/resize_rows.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kipx {
namespace {

constexpr Shape result_shape{.anchor = slot_dst,
                             .sources = 0,
                             .partners = 1,
                             .partner = {{slot_mask, Fit::mask, Meet::rest}},
                             .stands_in = slot_count,
                             .planes = true,
                             .overlap = false,
                             .most_channels = 4,
                             .no_rows = KIPX_EEMPTY};
constexpr Shape source_shape{.anchor = slot_src1,
                             .sources = 1,
                             .partners = 0,
                             .partner = {},
                             .stands_in = slot_count,
                             .planes = true,
                             .overlap = false,
                             .most_channels = 4,
                             .no_rows = KIPX_EEMPTY};

// How much of the two regions there is: the result's, of which a mask may leave out the end, and the
// source's.
struct Sizes {
    uint32_t height, width, from_height, from_width;
};

// Which of `from` pixels pixel `at`, counted on one by one, of `to` is like. Both below 2^31, so that
// nothing here passes 64 bits.
class Nearest {
public:
    Nearest(uint64_t from, uint64_t to, uint64_t at)
        : whole_(2 * to), step_(2 * from / whole_), rest_step_(2 * from % whole_),
          index_((2 * at + 1) * from / whole_), rest_((2 * at + 1) * from % whole_) {}
    uint64_t index() const { return index_; }
    void next() {
        index_ += step_, rest_ += rest_step_;
        const bool over = rest_ >= whole_;
        index_ += over, rest_ -= over ? whole_ : 0;
    }

private:
    uint64_t whole_, step_, rest_step_, index_, rest_;
};

// ---- which bytes a stretch takes ----

size_t span_of_chunk(const Picks &p, size_t unit, size_t from, size_t to) {
    return p.offset[(to - 1) / unit] + unit - p.offset[from / unit];
}

// The shuffled form of the picks, out of rows of so many bytes, where the pixels lie close enough
// for it.
void make_shuffle(Picks &p, size_t unit, size_t row_bytes, const ResizeLoops &loops) {
    const size_t chunk = loops.chunk;
    size_t widest = 0;
    for (size_t i = 0; i < p.bytes; i += chunk)
        widest = std::max(widest, span_of_chunk(p, unit, i, std::min(i + chunk, p.bytes)));
    size_t blocks = 1;
    while (blocks * chunk < widest && blocks <= loops.blocks) blocks *= 2;
    const size_t reach = blocks * chunk;
    if (blocks > loops.blocks || reach > row_bytes) return;

    p.blocks = static_cast<uint32_t>(blocks);
    const bool halves = reach > 128;
    for (size_t i = 0, k = 0; i < p.bytes; i += chunk, ++k) {
        p.from[k] = std::min(p.offset[i / unit], row_bytes - reach);
        if (halves) std::memset(p.part[k], 0, sizeof p.part[k]);
        const size_t end = std::min(i + chunk, p.bytes);
        size_t pixel = i / unit, byte = i % unit;
        for (size_t b = i; b < end; ++b) {
            const size_t at = p.offset[pixel] + byte - p.from[k];
            p.at[b] = static_cast<uint8_t>(halves ? at % 128 : at);
            if (halves) p.part[k][at / 128] |= uint64_t{1} << (b - i);
            if (++byte == unit) byte = 0, ++pixel;
        }
        std::memset(p.at + end, 0, i + chunk - end);
    }
}

void make_picks(Picks &p, const Call &c, const Sizes &sizes, size_t column, size_t pixels,
                const ResizeLoops &loops) {
    const size_t unit = size_t{c.channels} * c.dst.size;
    p.pixels = pixels, p.bytes = pixels * unit, p.blocks = 0;
    Nearest nearest(sizes.from_width, sizes.width, column);
    for (size_t i = 0; i < pixels; ++i, nearest.next())
        p.offset[i] = nearest.index() * c.src[0].pixel;
    const size_t row_bytes = (sizes.from_width - 1) * c.src[0].pixel + unit;
    if (loops.blocks) make_shuffle(p, unit, row_bytes, loops);
}

// ---- stretches ----

uint32_t pick_index(size_t unit) {
    constexpr size_t units[] = {1, 2, 3, 4, 6, 8, 12, 16, 24, 32};
    uint32_t i = 0;
    while (units[i] != unit) ++i;
    return i;
}

// One plane of pixels that lie in one piece, unit bytes each.
class Resizer {
public:
    Resizer(const Call &call, const Sizes &sizes)
        : c_(call), sizes_(sizes), set_(active_set(call.flags)), loops_(*resize_loops_of(set_)),
          unit_(size_t{call.channels} * call.dst.size), pick_(loops_.pick[pick_index(unit_)]) {
        direct_ = c_.dst.pixel == unit_ && !c_.mask.at;
        const uint64_t moved = uint64_t{c_.height} * c_.width +
                               uint64_t{std::min(c_.height, sizes.from_height)} * sizes.from_width;
        const bool lines = (reinterpret_cast<uintptr_t>(c_.dst.at) | c_.dst.row) % 64 == 0;
        streamed_ = direct_ && lines && moved * unit_ >= streaming_bytes(set_);
    }

    void work() const {
        const size_t most = stretch / unit_ / 64 * 64; // whole lines of 64 bytes
        for (size_t column = 0; column < c_.width; column += most) {
            Picks picks;
            make_picks(picks, c_, sizes_, column, std::min(most, c_.width - column), loops_);
            columns(column, picks);
        }
#if defined(__SSE2__)
        if (streamed_) _mm_sfence();
#endif
    }

private:
    void columns(size_t column, const Picks &picks) const {
        Nearest nearest(sizes_.from_height, sizes_.height, 0);
        for (size_t y = 0; y < c_.height;) {
            const uint64_t row = nearest.index();
            uint32_t copies = 0;
            for (; copies < 4 && y + copies < c_.height && nearest.index() == row; ++copies)
                nearest.next();
            char *to = c_.dst.at + y * c_.dst.row + column * c_.dst.pixel;
            y += copies;
            const char *next = y < c_.height ? source(nearest.index()) : nullptr;
            const Stretch s = {to, c_.dst.row, copies, source(row), next, streamed_};
            if (direct_)
                make(s, picks);
            else
                deliver(s, picks, y - copies, column);
        }
    }

    const char *source(uint64_t row) const { return c_.src[0].at + row * c_.src[0].row; }

    void make(const Stretch &s, const Picks &picks) const {
        if (picks.blocks) return loops_.shuffle(s, picks);
        pick_(s.to, s.from, picks);
        for (uint32_t i = 1; i < s.copies; ++i) std::memcpy(s.to + i * s.row, s.to, picks.bytes);
    }

    // Through a buffer to where the mask is open, or pixels have gaps.
    void deliver(const Stretch &s, const Picks &picks, size_t y, size_t column) const {
        alignas(64) char buffer[stretch];
        make({buffer, 0, 1, s.from, s.next, false}, picks);
        Rows how;
        how.set = set_, how.loop = loops_.move[size_index(c_.dst.size)];
        for (uint32_t i = 0; i < s.copies; ++i) {
            Call row = c_;
            row.height = 1, row.width = static_cast<uint32_t>(picks.pixels);
            row.dst.at = s.to + i * s.row;
            if (row.mask.at) row.mask.at += (y + i) * row.mask.row + column * row.mask.pixel;
            row.src[0] = {buffer, 0, 0, unit_, c_.dst.size, c_.dst.type, c_.dst.size, 0, 0};
            rows(row, how);
        }
    }

    const Call &c_;
    const Sizes &sizes_;
    const Set set_;
    const ResizeLoops &loops_;
    const size_t unit_;
    void (*const pick_)(char *, const char *, const Picks &);
    bool direct_, streamed_;
};

bool in_one_piece(const Operand &o) { return o.channel == o.size; }

void resize_plane(Call &c, const Sizes &sizes) {
    const bool whole = in_one_piece(c.dst) && in_one_piece(c.src[0]) && c.channels <= 4;
    const uint32_t parts = whole ? 1 : c.channels;
    c.channels /= parts;
    for (uint32_t i = 0; i < parts; ++i) {
        Resizer(c, sizes).work();
        c.dst.at += c.dst.channel, c.src[0].at += c.src[0].channel;
        if (c.mask.at) c.mask.at += c.mask.channel;
    }
}

bool some(uint32_t extent) { return static_cast<int32_t>(extent) > 0; }

int32_t work_resize(Call &c) {
    const Sizes &sizes = *static_cast<const Sizes *>(c.params);
    if (!element_valid(c.dst.type) || !element_valid(c.src[0].type)) return KIPX_EINVAL;
    if (c.dst.size == 0 || c.dst.type != c.src[0].type) return KIPX_ENOTSUP;
    if (c.channels == 0) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    if (!some(c.height) || !some(c.width)) return 0;
    if (!some(sizes.from_height) || !some(sizes.from_width)) return KIPX_EEMPTY;
    if (!c.dst.at || !c.src[0].at) return KIPX_EINVAL;
    return each_plane(c, [&](Call &plane) { return resize_plane(plane, sizes), 0; });
}

// ---- the public functions ----

bool fits(const kipx_arr &src, const kipx_arr &dst) {
    return (src.naxes == dst.naxes || (src.naxes == 3 && dst.naxes == 4)) &&
           (src.volume[0] == dst.volume[0] || src.volume[0] == 1) &&
           channels_of(src.volume[3]) == channels_of(dst.volume[3]);
}

// The part of an array that a region names, channels decoded.
kipx_site part_of(const kipx_arr &a, const kipx_site *roi) {
    kipx_site site;
    kipx_arr_adjorgetRoi(&a, &site, roi);
    return site;
}

int32_t enter(const Given &given, const kipx_site *src_roi) {
    const kipx_arr *dst = given.arr[slot_dst], *src = given.arr[slot_src1];
    if (!dst || !src || !fits(*src, *dst)) return KIPX_EINVAL;
    Call call, from;
    Given source = given;
    source.roi = src_roi;
    const int32_t codes[] = {admit(result_shape, given, call), admit(source_shape, source, from)};
    for (int32_t code : codes)
        if (code == KIPX_EINVAL) return code;
    for (int32_t code : codes)
        if (code) return code;

    const kipx_site to_site = part_of(*dst, given.roi), from_site = part_of(*src, src_roi);
    const Sizes sizes = {to_site.extent[1], to_site.extent[2], from_site.extent[1],
                         from_site.extent[2]};
    call.sources = 1, call.src[0] = from.src[0], call.params = &sizes;
    call.channels = std::min(call.channels, from.channels);
    if (from.planes == 1)
        call.src[0].plane = 0;
    else
        call.planes = std::min(call.planes, from.planes);
    Span to_span, from_span;
    span_of(*dst, to_site, to_span), span_of(*src, from_site, from_span);
    call.shared |= !apart(to_span, from_span) &&
                   share_bytes(footprint(*dst, to_site), footprint(*src, from_site));
    return work_admitted(call, work_resize);
}

// At the flat levels. Other counts of axes are found out later, and then nothing is read here.
Sizes flat_sizes(kipx_dims dims, const uint32_t *to, const uint32_t *from) {
    const uint32_t n = axes_of(dims);
    if (n != 2 && n != 3) return {};
    return {height_of(n, to), width_of(n, to), height_of(n, from), width_of(n, from)};
}

} // namespace
} // namespace kipx

using namespace kipx;

int32_t KipxResize(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                   const kipx_site *roi, const kipx_site *srcRoi) {
    return enter({xe, flags, {dst, src}, roi, {}}, srcRoi);
}

int32_t KipxEResize(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                    const kipx_arr *mask, const kipx_site *roi, const kipx_site *srcRoi,
                    const kipx_pos *maskAt) {
    return enter({xe,
                  flags,
                  {dst, src, nullptr, nullptr, mask},
                  roi,
                  {nullptr, nullptr, nullptr, nullptr, maskAt}},
                 srcRoi);
}

int32_t kipxa_resize(KIPX_ARRAY_HEAD, const uint32_t *src_extent, KIPX_ARRAY_SOURCE(src)) {
    return kipxa__resize(xe, flags, dims, extent, dst_type, KIPX_START(dst), src_extent, src_type,
                         KIPX_START(src));
}

int32_t kipxa_eresize(KIPX_ARRAY_HEAD, const uint32_t *src_extent, KIPX_ARRAY_SOURCE(src),
                      KIPX_ARRAY_SOURCE(mask)) {
    return kipxa__eresize(xe, flags, dims, extent, dst_type, KIPX_START(dst), src_extent, src_type,
                          KIPX_START(src), mask_type, KIPX_START(mask));
}

int32_t kipxa__resize(KIPX_TYPED_HEAD, const uint32_t *src_extent, KIPX_TYPED_SOURCE(src)) {
    KIPX_ENTER(1, KIPX_NO_FLAT, flat_sizes(n, extent, src_extent), work_resize, KIPX_FLAT(src));
}

int32_t kipxa__eresize(KIPX_TYPED_HEAD, const uint32_t *src_extent, KIPX_TYPED_SOURCE(src),
                       KIPX_TYPED_SOURCE(mask)) {
    KIPX_ENTER(1, KIPX_FLAT(mask), flat_sizes(n, extent, src_extent), work_resize, KIPX_FLAT(src));
}
