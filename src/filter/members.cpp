// filter/members.cpp - minimum and maximum over the members of a structuring element.
#include "filter/members.h"

#include <algorithm>
#include <cstring>

#include "core/element.h"

namespace kipx {
namespace {

constexpr size_t line = 64, group_rows = 8;
constexpr ptrdiff_t rows_ahead = 4; // of the work lines are fetched

size_t rounded(size_t bytes) { return (bytes + line - 1) / line * line; }

// A row of the ring: one row per length, each with room for a whole vector behind.
size_t row_pitch(const Sheet &s, const Window &w) {
    return rounded(s.bytes() + (w.width - 1) * s.step_bytes()) + line;
}

} // namespace

bool element_of(Element &e, const kipx_strel &strel) {
    const kipx_arr &m = strel.mask;
    const auto anchor_row = strel.anchor[1], anchor_column = strel.anchor[2];
    auto height = static_cast<int32_t>(m.volume[1]), width = static_cast<int32_t>(m.volume[2]);
    if (height < 1 || width < 1 || element_size(m.type) > 1) return false;
    if (uint64_t{m.volume[1]} * m.volume[2] > UINT32_MAX) return false;
    if (anchor_row < 0 || anchor_row >= height || anchor_column < 0 || anchor_column >= width)
        return false;
    e = {static_cast<const unsigned char *>(m.base) + m.offset,
         m.strides[1],
         m.strides[2],
         m.volume[1],
         m.volume[2],
         static_cast<uint32_t>(anchor_row),
         static_cast<uint32_t>(anchor_column)};
    return true;
}

bool Element::solid() const {
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            if (at[y * row + x * pixel] != 255) return false;
    return true;
}

// Taps for every member, lengths and their numbers for every length.
size_t Members::scratch(const Element &e) {
    return size_t{e.height} * e.width * sizeof(Tap) + 2 * (size_t{e.width} + 2) * sizeof(uint32_t);
}

Members::Members(const Element &e, void *scratch)
    : taps_(static_cast<Tap *>(scratch)),
      lengths_(reinterpret_cast<uint32_t *>(taps_ + size_t{e.height} * e.width)),
      number_(lengths_ + e.width + 1) {
    number_lengths(e);
    if (runs_pay(e)) {
        each_run(e, [&](uint32_t y, uint32_t x, uint32_t length) {
            taps_[tap_count_++] = {y, x, number_[length]};
        });
        return;
    }
    lengths_[0] = 1, length_count_ = 1;
    each_run(e, [&](uint32_t y, uint32_t x, uint32_t length) {
        for (uint32_t i = 0; i < length; ++i) taps_[tap_count_++] = {y, x + i, 0};
    });
}

template<class F> void Members::each_run(const Element &e, F &&f) const {
    for (uint32_t y = 0; y < e.height; ++y)
        for (uint32_t x = 0; x < e.width; ++x) {
            uint32_t first = x;
            while (x < e.width && e.has(y, x)) ++x;
            if (x > first) f(y, first, x - first);
        }
}

void Members::number_lengths(const Element &e) {
    std::fill_n(number_, e.width + 1, 0);
    each_run(e, [&](uint32_t, uint32_t, uint32_t length) { number_[length] = 1; });
    for (uint32_t length = 1; length <= e.width; ++length)
        if (number_[length]) {
            number_[length] = static_cast<uint32_t>(length_count_);
            lengths_[length_count_++] = length;
        }
}

// Runs: a load each, and a load, another and a store for every doubling and for every length.
bool Members::runs_pay(const Element &e) const {
    uint64_t members = 0, runs = 0, doublings = 0;
    each_run(e, [&](uint32_t, uint32_t, uint32_t length) { members += length, ++runs; });
    if (!length_count_) return false;
    for (uint32_t n = lengths_[length_count_ - 1]; n > 1; n /= 2) ++doublings;
    return runs + 3 * (doublings + length_count_) < members;
}

bool MembersPass::has_type(uint32_t type) {
    return type < 16 && members_sets_of(Set::baseline)[0].loops[type][0].down;
}

// Extra: a row in the making, the taps' rows, places and numbers of rows.
MembersPass::MembersPass(const Sheet &s, const Window &w, const Members &members, Rank rank,
                         Set set)
    : RingPass(w, group_rows, std::max<size_t>(members.length_count(), 1) * row_pitch(s, w),
               row_pitch(s, w) + line +
                   members.tap_count() * (sizeof(char *) + sizeof(ptrdiff_t) + sizeof(uint32_t))),
      loops_(members_sets_of(set)[0].loops[s.src.type][static_cast<uint32_t>(rank)]),
      members_(members), size_(s.src.size), bytes_(s.bytes()), step_(s.step_bytes()),
      beyond_((w.width - 1) * step_), pitch_(row_pitch(s, w)) {
    if (single()) keep_rows();
    reach_.begin = -static_cast<ptrdiff_t>(w.column * step_);
    reach_.end = reach_.begin + static_cast<ptrdiff_t>(bytes_ + beyond_);
}

// A row of every length from a row of single pixels, which is used up.
void MembersPass::runs_of(char *row, char *out) const {
    size_t covers = 1, valid = bytes_ + beyond_;
    for (size_t i = 0; i < members_.length_count(); ++i, out += pitch_) {
        size_t length = members_.lengths()[i];
        for (; 2 * covers <= length; covers *= 2) {
            valid -= covers * step_;
            loops_.unite(row, row, covers * step_, valid);
        }
        loops_.unite(out, row, (length - covers) * step_, valid - (length - covers) * step_);
    }
}

void MembersPass::along(const Band &band, char *out, ptrdiff_t step) {
    const bool alone = single();
    for (size_t y = 0; y < band.rows; ++y, out += step) {
        char *row = alone ? out : extra();
        const Span &all = reach(), &some = there();
        const auto before = static_cast<size_t>(some.begin - all.begin);
        const auto after = static_cast<size_t>(all.end - some.end);
        const char *from = band.at + static_cast<ptrdiff_t>(y) * band.step;
        memcpy(row + before, from + some.begin, some.size());
        if (before) fill_with(row, before, loops_.neutral, size_);
        if (after) fill_with(row + before + some.size(), after, loops_.neutral, size_);
        loops_.settle(row, bytes_ + beyond_);
        if (!alone) runs_of(row, out);
    }
}

void MembersPass::down(const char *const *rows, size_t group, char *out, ptrdiff_t step) {
    constexpr ptrdiff_t far = PTRDIFF_MAX / 4; // rows of the ring have room for whole vectors
    loops_.down({rows, group, row_, at_, members_.tap_count(), from_,
                 direct_ ? there() : Span{-far, far}, direct_, out, step, bytes_,
                 direct_ ? rows_ahead * last_step() : 0});
}

// Members that are united one by one are, where they lie.
void MembersPass::start(char *scratch, const Source &source) {
    RingPass::start(scratch, source);
    direct_ = source.stay && single();
    from_ = reinterpret_cast<const char **>(extra() + pitch_);
    at_ = reinterpret_cast<ptrdiff_t *>(from_ + members_.tap_count());
    row_ = reinterpret_cast<uint32_t *>(at_ + members_.tap_count());
    for (size_t i = 0; i < members_.tap_count(); ++i) {
        const Tap &t = members_.taps()[i];
        at_[i] = static_cast<ptrdiff_t>(t.length * pitch_ + t.column * step_);
        at_[i] += direct_ ? reach().begin : 0;
        row_[i] = t.row;
    }
}

void MembersPass::rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) {
    if (direct_)
        down(rows_under(lines, y, rows), rows, out, step);
    else
        RingPass::rows(lines, y, rows, out, step);
}

} // namespace kipx
